#pragma once

#include "protocol/BsrCandidateSm.zet.h"
