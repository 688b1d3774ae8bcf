#pragma once

#include "view/Simulation.zet.h"
