#include "runtime/Meter.h"

#if PIMBSR_METER
Zet::U64 Zet::Meter::visited = 0;
#endif
