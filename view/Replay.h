#pragma once

#include "view/Replay.zet.h"
