#pragma once

#include "view/Learned.zet.h"
