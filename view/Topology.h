#pragma once

#include "view/Topology.zet.h"
