#pragma once

#include "protocol/Fragments.zet.h"
