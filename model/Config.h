#pragma once

#include "model/Config.zet.h"
