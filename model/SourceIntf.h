#pragma once

#include "model/SourceIntf.zet.h"
