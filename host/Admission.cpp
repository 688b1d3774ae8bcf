#include "host/Admission.h"

#include <algorithm>
#include <vector>

#include "protocol/BsrCandidateSm.h"
#include "protocol/BsrNonCandidateSm.h"

namespace pimbsr::host {

namespace Packet = Routing::Pim::Packet;
using Lanet::IpGenAddr;
using Lanet::IpGenPrefix;
using Packet::BootstrapGroupData;
using Packet::BootstrapMessage;
using Zet::Ptr;

static constexpr U16 longestHoldtime = 40958;
static constexpr U8 longestHashMask = 32;

struct RefusalText {
  std::string_view name;
  std::string_view sentence;
};

static constexpr RefusalText refusalTexts[] = {
    {"", ""},
    {"own-address", "The message was sent from one of this router's own addresses."},
    {"hash-mask-length", "The hash mask length is above 32."},
    {"holdtime", "A holdtime is above 40958 seconds."},
    {"fragment-overflow", "More RPs were named for one range under one fragment tag than were announced."},
};

std::string_view refusalName(Refusal refusal) { return refusalTexts[static_cast<int>(refusal)].name; }

std::string_view refusalSentence(Refusal refusal) { return refusalTexts[static_cast<int>(refusal)].sentence; }

/// Whether a record enters the fragment store: it names RPs, and not all of its range.
static bool isFragment(BootstrapGroupData const& group) {
  return group.fragRpCount() != 0 && group.rpCount() != group.fragRpCount();
}

static bool hasLongHoldtime(BootstrapGroupData const& group) {
  for (auto rp = group.rpListIterator(); rp; ++rp) {
    if (rp->rpHoldtime() > longestHoldtime) return true;
  }
  return false;
}

Refusal Admission::judge(BootstrapMessage const& message) const {
  if (port_.isOwnAddress(message.srcAddr())) return Refusal::ownAddress;
  if (message.hashMaskLen() > longestHashMask) return Refusal::hashMaskLength;
  Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
  for (auto group = groups->groupDataIterator(); group; ++group) {
    if (hasLongHoldtime(*group)) return Refusal::holdtime;
    if (isFragment(*group) && overflows(message, group->prefix())) return Refusal::fragmentOverflow;
  }
  return Refusal::none;
}

Refusal Admission::judge(Packet::CrpAdvMessage const& message) const {
  return message.holdtime() > longestHoldtime ? Refusal::holdtime : Refusal::none;
}

namespace {

/// The RPs named for one range under one fragment tag, and the least number announced.
class Named {
 public:
  Named(U16 tag, IpGenPrefix const& prefix) : tag_(tag), prefix_(prefix) {}

  void add(BootstrapMessage const& message) {
    if (message.fragmentTag() != tag_) return;
    Ptr<Packet::BootstrapOptionalData> groups = message.groupRpData();
    for (auto group = groups->groupDataIterator(); group; ++group) {
      if (group->prefix() == prefix_ && isFragment(*group)) add(group->rpCount(), group->rpListIterator());
    }
  }

  template <class RpWalk>
  void add(U8 announced, RpWalk rps) {
    announced_ = std::min(announced_, announced);
    for (; rps; ++rps) addresses_.push_back(rps->rpAddress());
  }

  template <class MachineWalk>
  void addKept(MachineWalk machines) {
    for (; machines; ++machines) {
      if (Ptr<BootstrapMessage> kept = machines->lastBsm()) add(*kept);
    }
  }

  bool overflows() {
    std::sort(addresses_.begin(), addresses_.end());
    auto end = std::unique(addresses_.begin(), addresses_.end());
    return end - addresses_.begin() > announced_;
  }

 private:
  U16 tag_;
  IpGenPrefix const& prefix_;
  std::vector<IpGenAddr> addresses_;
  U8 announced_ = 255;
};

}  // namespace

bool Admission::overflows(BootstrapMessage const& message, IpGenPrefix const& prefix) const {
  Named named(message.fragmentTag(), prefix);
  named.add(message);
  if (auto fragments = root_.bsmRxFragments(message.fragmentTag())) {
    if (auto held = fragments->groupRpData(prefix)) named.add(held->rpCount(), held->rpIterator());
  }
  named.addKept(root_.nonCandidateSmIterator());
  named.addKept(root_.candidateSmIterator());
  return named.overflows();
}

}  // namespace pimbsr::host
