#pragma once

#include "config/ConfigRecords.zet.h"
