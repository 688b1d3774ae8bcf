#pragma once

#include <linux/filter.h>

#include <vector>

#include "agent/base/FilterAddresses.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// A classic BPF program over an IPv4 packet from its header on. The kernel runs it before a packet is
/// stored in a socket's receive buffer; a packet that passes is never truncated.
///
/// All but passNothing() let Hello, Bootstrap and Candidate-RP-Advertisement pass, and whatever is no PIM of
/// version 2, which is to be counted. The Registers and Join/Prunes of a domain don't even wake this process.
using FilterProgram = std::vector<sock_filter>;

/// Subnets that a program below looks at; it leaves out those after them.
inline constexpr std::size_t maxFilterSubnets = 32;

FilterProgram passNothing();
/// Packets to whatever is no group, except from these senders; broadcasts too, which the router drops. The
/// senders are sorted, at most maxFilterAddresses.
FilterProgram passUnicast(std::vector<Lanet::IpAddr> const& exceptSenders = {});
/// The same from these senders alone; sorted, at most maxFilterAddresses.
FilterProgram passUnicastFrom(std::vector<Lanet::IpAddr> const& senders);
/// Packets of every sender to every destination.
FilterProgram passPim();
/// Packets of these senders alone; sorted, at most maxFilterAddresses.
FilterProgram passSenders(std::vector<Lanet::IpAddr> const& senders);
/// Hellos alone, from these subnets and not from these senders; the latter sorted, at most
/// maxFilterAddresses.
FilterProgram passHellos(std::vector<Lanet::Prefix> const& subnets,
                         std::vector<Lanet::IpAddr> const& exceptSenders);
/// What passPim() lets pass without the Hellos from these subnets, and without all that is from these
/// senders; the latter sorted, at most maxFilterAddresses.
FilterProgram passOthers(std::vector<Lanet::Prefix> const& helloSubnets,
                         std::vector<Lanet::IpAddr> const& exceptSenders);

}  // namespace pimbsr::agent
