#pragma once

#include "view/Web.zet.h"
