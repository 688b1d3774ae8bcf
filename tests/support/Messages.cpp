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

static Ptr<BootstrapGroupData> make(Group const& told) {
  auto group = Zet::make<BootstrapGroupData>(prefix(told.prefix));
  int held = static_cast<int>(told.rps.size());
  group->groupFlagsIs(GroupFlags(told.flags));
  group->rpCountIs(static_cast<Zet::U8>(told.rpCount < 0 ? held : told.rpCount));
  group->fragRpCountIs(static_cast<Zet::U8>(told.fragRpCount < 0 ? held : told.fragRpCount));
  for (Rp const& rp : told.rps) {
    auto record = group->rpListIs(addr(rp.address));
    record->rpHoldtimeIs(rp.holdtime);
    record->rpPriorityIs(rp.priority);
  }
  return group;
}

Ptr<BootstrapMessage> make(Bsm const& told) {
  auto message = Zet::make<BootstrapMessage>();
  message->srcAddrIs(addr(told.source));
  message->dstAddrIs(addr(told.destination));
  message->forwardIs(told.forward);
  message->fragmentTagIs(told.tag);
  message->hashMaskLenIs(told.hashMaskLen);
  message->bsrPriorityIs(told.priority);
  message->bsrAddressIs(addr(told.bsr));
  auto groups = Zet::make<BootstrapOptionalData>();
  for (Group const& group : told.groups) groups->groupDataEnq(make(group));
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
