#pragma once

#include "view/Decoded.zet.h"
