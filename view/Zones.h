#pragma once

#include "view/Zones.zet.h"
