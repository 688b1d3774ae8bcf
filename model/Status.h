#pragma once

#include "model/Status.zet.h"
