#include "tests/support/Messages.h"

#include <sstream>

namespace test {

using Routing::Pim::Packet::BootstrapGroupData;
using Routing::Pim::Packet::BootstrapMessage;
using Routing::Pim::Packet::BootstrapOptionalData;
using Routing::Pim::Packet::GroupFlags;
using Zet::Ptr;

Lanet::IpGenAddr addr(std::string const& text) { return Lanet::IpGenAddr::parse(text.c_str()); }

Lanet::IpGenPrefix prefix(std::string const& text) { return Lanet::IpGenPrefix::parse(text.c_str()); }

Lanet::IntfId intf(std::string const& name) { return Lanet::IntfId(name.c_str()); }

static Ptr<BootstrapGroupData> make(Group const& given) {
  auto group = Zet::make<BootstrapGroupData>(prefix(given.prefix));
  int held = static_cast<int>(given.rps.size());
  group->groupFlagsIs(GroupFlags(given.flags));
  group->rpCountIs(static_cast<Zet::U8>(given.rpCount < 0 ? held : given.rpCount));
  group->fragRpCountIs(static_cast<Zet::U8>(given.fragRpCount < 0 ? held : given.fragRpCount));
  for (Rp const& rp : given.rps) {
    auto record = group->rpListIs(addr(rp.address));
    record->rpHoldtimeIs(rp.holdtime);
    record->rpPriorityIs(rp.priority);
  }
  return group;
}

Ptr<BootstrapMessage> make(Bsm const& given) {
  auto message = Zet::make<BootstrapMessage>();
  message->srcAddrIs(addr(given.source));
  message->dstAddrIs(addr(given.destination));
  message->forwardIs(given.forward);
  message->fragmentTagIs(given.tag);
  message->hashMaskLenIs(given.hashMaskLen);
  message->bsrPriorityIs(given.priority);
  message->bsrAddressIs(addr(given.bsr));
  auto groups = Zet::make<BootstrapOptionalData>();
  for (Group const& group : given.groups) groups->groupDataEnq(make(group));
  message->groupRpDataIs(groups);
  return message;
}

std::string show(BootstrapMessage const& message) {
  std::ostringstream out;
  out << (message.forward() ? "forward" : "no-forward") << " tag " << message.fragmentTag() << " bsr "
      << message.bsrAddress() << " priority " << int{message.bsrPriority()} << " mask "
      << int{message.hashMaskLen()};
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    out << " | " << group->prefix() << " flags " << int{group->groupFlags().value} << " count "
        << int{group->rpCount()} << " frag " << int{group->fragRpCount()};
    for (auto rp = group->rpListIterator(); rp; ++rp) {
      out << ' ' << rp->rpAddress() << '/' << rp->rpHoldtime() << '/' << int{rp->rpPriority()};
    }
  }
  return out.str();
}

}  // namespace test
