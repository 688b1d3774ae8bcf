#pragma once

#include "crp/RpCandidateSm.zet.h"
