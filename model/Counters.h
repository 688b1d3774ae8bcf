#pragma once

#include "model/Counters.zet.h"
