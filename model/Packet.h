#pragma once

#include "model/Packet.zet.h"
