#pragma once

#include "view/Spans.zet.h"
