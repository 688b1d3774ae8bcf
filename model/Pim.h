#pragma once

#include "model/Pim.zet.h"
