#include "config/ConfigRecords.h"

namespace Routing::Pim::Bsr {

using Lanet::IpGenPrefix;

bool BsrConfigAcl::isUsed() const {
  return borderIntfCount() != 0 || cbsrIntfCount() != 0 || crpIntfCount() != 0 || usedByCrpAdvAclFilter();
}

/// A missing count is one of 0 that comes to be, even if nothing is added to it.
template <class RefCount>
static void addTo(RefCount& counts, IpGenPrefix const& prefix, U32 n) {
  counts.counterIs(prefix, counts.counter(prefix) + n);
}

void BsrBorderPrefixRefCount::counterInc(IpGenPrefix const& prefix, U32 const& n) { addTo(*this, prefix, n); }
void BsrBorderPrefixRefCount::counterDec(IpGenPrefix const& prefix, U32 const& n) {
  addTo(*this, prefix, -n);
}

void BsrCandidatePrefixRefCount::counterInc(IpGenPrefix const& prefix, U32 const& n) {
  addTo(*this, prefix, n);
}
void BsrCandidatePrefixRefCount::counterDec(IpGenPrefix const& prefix, U32 const& n) {
  addTo(*this, prefix, -n);
}

void RpCandidatePrefixRefCount::counterInc(IpGenPrefix const& prefix, U32 const& n) {
  addTo(*this, prefix, n);
}
void RpCandidatePrefixRefCount::counterDec(IpGenPrefix const& prefix, U32 const& n) {
  addTo(*this, prefix, -n);
}

}  // namespace Routing::Pim::Bsr
