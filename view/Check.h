#pragma once

#include "view/Check.zet.h"
