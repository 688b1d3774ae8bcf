// The C-RP database at the elected BSR (RFC 5059 section 3.2.2): what the root machine does with an
// advertisement.

#include "protocol/PimBsrSm.h"

namespace Routing::Pim::Bsr {
void PimBsrSm::handleCrpMsg() {}
}  // namespace Routing::Pim::Bsr
