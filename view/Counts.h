#pragma once

#include "view/Counts.zet.h"
