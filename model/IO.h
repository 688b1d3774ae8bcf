#pragma once

#include "model/IO.zet.h"
