#pragma once

#include "runtime/Export.h"
#include "runtime/Types.h"

/// Counts the work that containers, tries and timers do: one visit for each node, bucket or word that an
/// operation looks at. It is compiled in with PIMBSR_METER alone, for tests and fuzz targets that bound the
/// work of a packet; without it no code is left of it.
namespace Zet::Meter {

#if PIMBSR_METER
/// This build counts visits.
inline constexpr bool isOn = true;
/// Visits since the start of the process; the process has one count.
PIMBSR_API extern U64 visited;
/// Counts so many visits.
inline void visit(U64 nodes = 1) { visited += nodes; }
#else
/// This build counts no visits.
inline constexpr bool isOn = false;
/// Does nothing in this build.
inline void visit(U64 = 1) {}
#endif

}  // namespace Zet::Meter
