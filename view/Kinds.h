#pragma once

#include "view/Kinds.zet.h"
