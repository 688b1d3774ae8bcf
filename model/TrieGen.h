#pragma once

#include "model/TrieGen.zet.h"
