#pragma once

#include "model/RpSet.zet.h"
