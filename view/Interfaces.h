#pragma once

#include "view/Interfaces.zet.h"
