#pragma once

#include "view/ReplayEvents.zet.h"
