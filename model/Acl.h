#pragma once

#include "model/Acl.zet.h"
