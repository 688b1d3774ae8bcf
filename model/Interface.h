#pragma once

#include "model/Interface.zet.h"
