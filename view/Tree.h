#pragma once

#include "view/Tree.zet.h"
