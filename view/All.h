#pragma once

#include "view/All.zet.h"
