#pragma once

#include "view/Answers.zet.h"
