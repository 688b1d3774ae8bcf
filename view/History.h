#pragma once

#include "view/History.zet.h"
