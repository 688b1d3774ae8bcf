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
  links_ = std::move(records.links);
  names_.clear();
  KernelView after;
  for (auto const& [index, record] : links_) {
    names_[index] = Lanet::IntfId(record.link.name.c_str());
    KernelLink& link = after.links[record.link.name] = record.link;
    auto at = records.addresses.find(index);
    if (at != records.addresses.end()) link.addresses = std::move(at->second);
  }
  bool isOther = after != view_;
  view_ = std::move(after);
  return isOther;
}

Lanet::IntfId KernelTables::nameOf(int index) const {
  auto name = names_.find(index);
  return name == names_.end() ? Lanet::IntfId() : name->second;
}

bool KernelTables::mayBeChangedBy(nlmsghdr const& message) {
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      return readLink(message).has_value();
    case RTM_NEWADDR:
    case RTM_DELADDR:
      return readAddress(message).has_value();
    default:
      return false;
  }
}

bool KernelTables::isChangedBy(nlmsghdr const& message) const {
  bool isLink = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
  return isLink ? isLinkChangedBy(message) : mayBeChangedBy(message);
}

/// Many notices of links change nothing relevant, such as promiscuous mode.
bool KernelTables::isLinkChangedBy(nlmsghdr const& message) const {
  auto link = readLink(message);
  if (!link) return false;
  auto known = links_.find(link->link.index);
  bool isKnown = known != links_.end();
  if (message.nlmsg_type == RTM_DELLINK) return isKnown;
  return !isKnown || known->second != *link;
}

}  // namespace pimbsr::agent
