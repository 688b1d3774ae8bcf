#pragma once

#include "view/Load.zet.h"
