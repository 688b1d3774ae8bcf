#pragma once

#include "model/Lanet.h"

namespace pimbsr::host {

/// A candidacy as BSR of one zone, where no configuration machine writes it (RFC 5059 section 3.1.1).
struct BsrCandidacy {
  Lanet::IpGenAddr address;  ///< address that the candidate claims
  Lanet::IntfId intfId;      ///< interface whose address that is
  U16 priority = 64;         ///< 0 to 255, higher wins
  U32 hashMaskLen = 30;      ///< 0 to 32
  U32 interval = 60;         ///< seconds between two messages of an elected BSR
};

/// A candidacy as RP with one address and priority (RFC 5059 section 3.2). The interval is that of the
/// address: the one given last counts.
struct RpCandidacy {
  Lanet::IpGenAddr address;  ///< address of the candidate RP
  Lanet::IntfId intfId;      ///< interface whose address that is
  U32 priority = 192;        ///< 0 to 255, lower wins
  U16 interval = 60;         ///< 1 to 16383 seconds between two advertisements
};

}  // namespace pimbsr::host
