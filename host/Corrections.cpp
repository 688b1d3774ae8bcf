#include "host/Corrections.h"

#include "host/Corrections.keys.h"
#include "runtime/Assert.h"

namespace pimbsr::host {

using Zet::U32;

/// What a declaration doesn't say of a correction.
struct Description {
  bool CorrectionSettings::*isOn;
  std::string_view engine;
  std::string_view source;
};

static constexpr Description descriptions[] = {
    {&CorrectionSettings::withdrawRange,
     "A range taken from a candidate RP is advertised on while another of the same priority stays.",
     "RFC 5059 section 3.2"},
    {&CorrectionSettings::withdrawalsLast,
     "RPs of a message are taken in the order of their addresses' hashes; a range that is empty in between "
     "leaves the RP set, and the RPs that follow are lost. So is a sparse RP that becomes bidirectional.",
     "RFC 5059 section 3.1.5"},
    {&CorrectionSettings::rangeFull,
     "RP Count of a range is cut to 8 bits: with 256 RPs it is 0, and followers lose the range.",
     "RFC 5059 section 4.1"},
    {&CorrectionSettings::cutBySize,
     "Messages are cut by an estimate, which loses RPs; each router cuts the fragments of a split range "
     "anew, "
     "and a new neighbor gets the last fragment alone.",
     "RFC 5059 sections 3.5 and 4.1.1"},
    {&CorrectionSettings::allRanges, "255 ranges of a candidate RP are advertised in a zone, and no more.",
     "RFC 5059 section 3.2"},
    {&CorrectionSettings::quickRelearn,
     "A DR that restarts stays the DR for its neighbors, and the DR alone sends the RP set to a new "
     "neighbor.",
     "RFC 5059 section 3.5"},
    {&CorrectionSettings::holdOver,
     "A new BSR clears the RP set, or leaves the former BSR's RPs beside its own, by accident of order.",
     "RFC 5059 section 3.1.1"},
    {&CorrectionSettings::fit,
     "A holdtime above 40958 s, an RP that is named twice or one that no router can be drops its message.",
     "RFC 5059 section 4.1"},
    {&CorrectionSettings::electedOnly,
     "A candidate that follows a BSR becomes pending at any message of lower weight; one that has lost its "
     "BSR compares with that BSR's weight.",
     "RFC 5059 section 3.1.1"},
    {&CorrectionSettings::loweredBsr,
     "A follower ignores its elected BSR once that lowers its priority or ends, until BS_Timeout is over.",
     "RFC 5059 section 3.1.4"},
    {&CorrectionSettings::candidacyChanges,
     "A candidate without a BSR compares messages with the terms that it started with; where a candidacy "
     "ends, the BSR that was followed stays until the zone's next message.",
     "RFC 5059 sections 2 and 3.1.4"},
    {&CorrectionSettings::expiredBsr,
     "The message kept for new neighbors is sent to them after its BSR has expired; they follow that BSR for "
     "BS_Timeout.",
     "RFC 5059 section 3.5"},
    {&CorrectionSettings::repeatWithdrawal,
     "A withdrawn RP is named in one message; a router that misses it keeps the RP until its holdtime ends.",
     "Bootstrap Messages are not acknowledged"},
    {&CorrectionSettings::coveringBorder, "A border closes exactly its zone; zones within it pass.",
     "RFC 5059 section 3.1.3"},
    {&CorrectionSettings::forgetLeak,
     "A zone learned over an interface that becomes its border stays until both of its timers end.",
     "RFC 5059 section 3.1.3"},
    {&CorrectionSettings::keptStatus,
     "RPs of a former run don't age until they are renewed, and PIM's copy of them has no attributes.",
     "RFC 5059 section 3.6"},
};

static Description const& descriptionOf(bool CorrectionSettings::*isOn) {
  Description const* found = nullptr;
  for (Description const& description : descriptions) {
    if (description.isOn == isOn) found = &description;
  }
  ZET_ASSERT(found != nullptr, "found != nullptr");
  return *found;
}

static std::vector<Correction> rowsOfCorrections() {
  std::vector<Correction> rows;
  CorrectionsKeys::forEach([&](ConfigKey const& key, auto member) {
    Description const& description = descriptionOf(member);
    rows.push_back({&key, member, description.engine, description.source});
  });
  return rows;
}

std::span<Correction const> corrections() {
  static std::vector<Correction> const rows = rowsOfCorrections();
  return rows;
}

static U32 numberOf(bool CorrectionSettings::*isOn) {
  U32 number = 0;
  while (corrections()[number].isOn != isOn) ++number;
  return number;
}

CorrectionSwitches::CorrectionSwitches() : switches_(corrections().size()) {}

void CorrectionSwitches::settingsAre(CorrectionSettings const& settings) {
  for (U32 i = 0; i < switches_.size(); ++i) switches_[i].isOnIs(settings.*corrections()[i].isOn);
}

CorrectionSwitch& CorrectionSwitches::of(bool CorrectionSettings::*isOn) { return switches_[numberOf(isOn)]; }

CorrectionSwitch const& CorrectionSwitches::of(bool CorrectionSettings::*isOn) const {
  return switches_[numberOf(isOn)];
}

}  // namespace pimbsr::host
