#include "agent/kernel/KernelTables.h"

#include <linux/rtnetlink.h>

#include <utility>

namespace pimbsr::agent {

void KernelRecords::add(nlmsghdr const& message) {
  if (message.nlmsg_type == RTM_NEWLINK) {
    if (auto link = readLink(message)) links[link->link.index] = std::move(*link);
  } else if (message.nlmsg_type == RTM_NEWADDR) {
    if (auto address = readAddress(message)) addresses[address->interfaceIndex].push_back(address->address);
  }
}

/// An address of an unknown link is of one just added or deleted, whose notice follows.
bool KernelTables::replace(KernelRecords records) {
  records_ = std::move(records);
  names_.clear();
  KernelView after;
  for (auto const& [index, record] : records_.links) {
    names_[index] = Lanet::IntfId(record.link.name.c_str());
    KernelLink& link = after.links[record.link.name] = record.link;
    if (auto at = records_.addresses.find(index); at != records_.addresses.end()) link.addresses = at->second;
  }
  bool isOther = after != view_;
  view_ = std::move(after);
  return isOther;
}

Lanet::IntfId KernelTables::nameOf(int index) const {
  auto name = names_.find(index);
  return name == names_.end() ? Lanet::IntfId() : name->second;
}

bool KernelTables::isChangedBy(nlmsghdr const& message) const {
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return isLinkChangedBy(message);
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return readAddress(message).has_value();
    default:
      return false;
  }
}

/// Many notices of links change nothing relevant, such as promiscuous mode.
bool KernelTables::isLinkChangedBy(nlmsghdr const& message) const {
  auto link = readLink(message);
  if (!link) return false;
  auto known = records_.links.find(link->link.index);
  bool isKnown = known != records_.links.end();
  if (message.nlmsg_type == RTM_DELLINK) return isKnown;
  return !isKnown || known->second != *link;
}

}  // namespace pimbsr::agent
