#pragma once

#include <optional>

#include "model/DropReason.h"
#include "model/Lanet.h"
#include "model/Packet.h"
#include "runtime/Types.h"
#include "wire/Reader.h"
#include "wire/Writer.h"

/// The encoded addresses of PIM (RFC 7761 section 4.9.1), IPv4 and native encoding only.
namespace pimbsr::wire {

/// What is wrong with what was read; nothing if all is well.
using ReadError = std::optional<DropReason>;

/// Bytes of an Encoded-Unicast address and of an Encoded-Group address.
constexpr U16 unicastSize = 6;
constexpr U16 groupSize = 8;

/// True if a router can have the address: IPv4, and neither 0.0.0.0, loopback (127.0.0.0/8), multicast nor
/// reserved (240.0.0.0/4, with the limited broadcast).
bool isRouterAddress(Lanet::IpGenAddr const& address);

/// True if the range is IPv4 and lies within 224.0.0.0/4.
bool isGroupRange(Lanet::IpGenPrefix const& range);

/// Reads an Encoded-Unicast address into `address`; for one that no router can have the reason
/// given is the result.
ReadError readUnicast(Reader& in, DropReason notUnicast, Lanet::IpGenAddr& address);

/// Reads an Encoded-Group address. Bits beyond the mask length are cleared, and of the flags B and Z are
/// kept.
ReadError readGroup(Reader& in, Lanet::IpGenPrefix& range, Routing::Pim::Packet::GroupFlags& flags);

/// Writes an Encoded-Unicast address, which must be a router's.
void writeUnicast(Writer& out, Lanet::IpGenAddr const& address);

/// Writes an Encoded-Group address, which must be a group range.
void writeGroup(Writer& out, Lanet::IpGenPrefix const& range, Routing::Pim::Packet::GroupFlags flags);

}  // namespace pimbsr::wire
