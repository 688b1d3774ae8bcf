#pragma once

#include "view/Candidates.zet.h"
