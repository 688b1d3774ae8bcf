#pragma once

#include "host/Configuration.h"
#include "model/Lanet.h"

namespace pimbsr::host {

/// A candidacy as BSR of one zone, where no configuration machine writes it (RFC 5059 section 3.1.1). Its
/// numbers have the ranges and defaults of BsrTerms.
struct BsrCandidacy {
  Lanet::IpGenAddr address;                  ///< address that the candidate claims
  Lanet::IntfId intfId;                      ///< interface whose address that is
  U16 priority = BsrTerms().priority;        ///< higher wins
  U32 hashMaskLen = BsrTerms().hashMaskLen;  ///< of a group address, in bits
  U32 bsPeriod = BsrTerms().bsPeriod;        ///< BS_Period: seconds between two messages of an elected BSR
};

/// A candidacy as RP with one address and priority (RFC 5059 section 3.2). `cRpAdvPeriod` is that of
/// the address: the one given last counts. Ranges and defaults are those of RpRangeTerms and RpAdvertising.
struct RpCandidacy {
  Lanet::IpGenAddr address;                         ///< address of the candidate RP
  Lanet::IntfId intfId;                             ///< interface whose address that is
  U32 priority = RpRangeTerms().priority;           ///< lower wins
  U16 cRpAdvPeriod = RpAdvertising().cRpAdvPeriod;  ///< C_RP_Adv_Period: seconds between two advertisements
};

}  // namespace pimbsr::host
