#pragma once

#include "model/MsgStatus.zet.h"
