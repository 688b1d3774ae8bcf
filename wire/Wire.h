#pragma once

#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "model/DropReason.h"
#include "model/Lanet.h"
#include "model/Packet.h"
#include "runtime/Export.h"
#include "runtime/Ptr.h"
#include "runtime/Types.h"
#include "wire/Outcome.h"
#include "wire/Reader.h"

/// Bytes on the wire to records and back: PIM messages of version 2 over IPv4 (RFC 7761 section 4.9, RFC 5059
/// section 4, flag bits as numbered by RFC 9436). Pure functions without state.
///
/// Reading checks everything that a record cannot hold or a router must not accept, whatever the bytes are,
/// and never reads past their end. Bits without a meaning are ignored, and so are trailing bytes after a
/// complete message whose checksum, which covers them too, is right: equipment sends both. Reading
/// always accepts what writing produces, with bits without a meaning sent as 0; for every message p that is
/// accepted, decode(encode(decode(p))) equals decode(p).
namespace pimbsr::wire {

// IPv4 ------------------------------------------------------------------------------------------------

/// An IPv4 packet that carries PIM, its payload still a view of the bytes given.
struct Ipv4Packet {
  Lanet::IpAddr source;       ///< of the IP header
  Lanet::IpAddr destination;  ///< of the IP header
  U8 ttl = 0;                 ///< Time to Live
  U8 tos = 0;                 ///< Type of Service
  /// What the total length covers after the header. The link's padding, which follows it, is left out.
  Bytes payload;
};

/// Reads an IPv4 packet. Packets of other protocols are dropped as ipProtocol when only their version and
/// header length have been checked, so that a listener can distinguish PIM's packets. A header
/// checksum of 0 counts as not computed, as in captures made where the hardware does it. Fragments are
/// dropped: PIM messages are made to fit, and packets aren't reassembled here.
PIMBSR_API Outcome<Ipv4Packet> parseIpv4(Bytes packet);

/// What an outgoing packet's header says.
struct Ipv4Header {
  Lanet::IpAddr source{};       ///< any address; it isn't checked
  Lanet::IpAddr destination{};  ///< any address; it isn't checked
  U8 ttl = 1;                   ///< Time to Live; 1 keeps the packet on its link
  U8 tos = 0xc0;                ///< Type of Service; that of routing traffic (RFC 2474: CS6)
  U16 identification = 0;       ///< what fragments are joined by; 0 where none is needed (RFC 6864)
};

/// The longest IPv4 packet in bytes, its header included (RFC 791 section 3.1).
inline constexpr U32 maxPacketLength = 65535;
/// RPs of a range in a Bootstrap Message, whose RP Count has 8 bits (RFC 5059 section 4.1).
inline constexpr U32 maxRpCount = 255;
/// Ranges of an advertisement, whose Prefix Count has 8 bits (RFC 5059 section 4.2).
inline constexpr U32 maxPrefixCount = 255;

/// Replaces `out` by a header of 20 bytes for PIM, with its checksum, and the payload, which must not lie in
/// `out`. False, with `out` empty, if the packet would be longer than maxPacketLength.
[[nodiscard]] PIMBSR_API bool encodeIpv4(Ipv4Header const& header, Bytes payload, std::vector<U8>& out);

// PIM messages ----------------------------------------------------------------------------------------

/// What a Hello says (RFC 7761 section 4.9.2). Options that are not here are ignored when read. Where an
/// option comes twice, the last one is used, and address lists add up.
struct HelloMessage {
  Lanet::IpGenAddr srcAddr{};  ///< of the IP header
  Lanet::IpGenAddr dstAddr{};  ///< of the IP header
  /// Seconds for which the sender is to be kept as a neighbor; 0 is a goodbye, 0xffff is for ever.
  /// A Hello without the option means 3.5 times the usual period of 30 seconds.
  U16 holdtime = 105;
  std::optional<U32> drPriority{};    ///< higher wins; unset without the option
  std::optional<U32> generationId{};  ///< another one after each start; unset without the option
  /// The sender's further addresses on the link. A list in another address family counts as not there.
  std::vector<Lanet::IpGenAddr> addressList{};

  bool operator==(HelloMessage const&) const = default;
};

/// A PIM message of version 2 that is none of the three read here: Join/Prune, Register and so on.
struct OtherMessage {
  U8 type = 0;  ///< of its PIM header
};

/// An RP of a Bootstrap message that was left out of its record.
struct LeftOutRp {
  std::size_t record = 0;    ///< number of the record in its message, from 0
  Lanet::IpGenAddr address;  ///< one that no router can have, or one that the record names before
  U32 repetition = 0;        ///< how often the record names it before
};

/// The RPs that reading has left out, in the order of the message.
using LeftOutRps = std::vector<LeftOutRp>;

/// A PIM message that was read.
using DecodedMessage =
    std::variant<OtherMessage, HelloMessage, Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>,
                 Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage>>;

/// Reads a PIM message of any type, given the addresses of the IP packet that brought it. Checked in this
/// order: four bytes of header, the version, whether the type is one of the three, and only for these the
/// checksum, which other types compute in other ways. Pointers in the result are never null. `leftOut` is
/// that of decodeBootstrap().
PIMBSR_API Outcome<DecodedMessage> decodeMessage(Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination,
                                                 LeftOutRps* leftOut = nullptr);

/// Reads a Bootstrap message (RFC 5059 section 4.1); drops other types as such. A message without groups is
/// complete, and a group that comes twice makes two records. The groups run to the end of the bytes; a rest
/// of fewer than 12 bytes can be no group record and is ignored, as is any rest of zeros alone, which is
/// padding.
///
/// An RP that a record names twice, or whose address no router can have, drops the message if `leftOut` is
/// null. Else it is left out and added there: Frag RP Count is lowered by it, and RP Count too in a record
/// that names its range whole. A record that names a part of its range keeps its RP Count.
PIMBSR_API Outcome<Zet::Ptr<Routing::Pim::Packet::BootstrapMessage>> decodeBootstrap(
    Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination, LeftOutRps* leftOut = nullptr);

/// Reads a Candidate-RP-Advertisement (RFC 5059 section 4.2); drops other types as such. A Prefix Count of
/// 0 is kept, with no group.
PIMBSR_API Outcome<Zet::Ptr<Routing::Pim::Packet::CrpAdvMessage>> decodeCrpAdv(Bytes pim,
                                                                               Lanet::IpAddr source,
                                                                               Lanet::IpAddr destination);

/// Reads a Hello (RFC 7761 section 4.9.2); drops other types as such.
PIMBSR_API Outcome<HelloMessage> decodeHello(Bytes pim, Lanet::IpAddr source, Lanet::IpAddr destination);

/// Replaces `out` by the message, RPs in the order of the record's own walk. The record may be odd, the
/// packet never is: of each group the least of RP Count, Frag RP Count and the number of RPs held is written,
/// and that number as Frag RP Count; RPs and groups with addresses that reading would drop are left out.
/// Source and destination are the IP header's and not looked at. False, with `out` empty, if the BSR address
/// is none that can be sent.
[[nodiscard]] PIMBSR_API bool encodeBootstrap(Routing::Pim::Packet::BootstrapMessage const& message,
                                              std::vector<U8>& out);

/// Replaces `out` by the advertisement with at most Prefix Count of the prefixes held, in the order of the
/// record's own walk, and their number as Prefix Count. False, with `out` empty, if the RP address is none
/// that can be sent, or if prefixes are announced and none can be written: a Prefix Count of 0 would speak
/// for all groups.
[[nodiscard]] PIMBSR_API bool encodeCrpAdv(Routing::Pim::Packet::CrpAdvMessage const& message,
                                           std::vector<U8>& out);

/// Replaces `out` by the Hello, options in ascending order of their types. Addresses that reading would
/// drop are left out of the list, as is what goes beyond the longest option.
PIMBSR_API void encodeHello(HelloMessage const& message, std::vector<U8>& out);

/// True if both say the same, source, destination and all counts included. Group data that is not there
/// equals group data without groups, since both are sent alike.
PIMBSR_API bool equal(Routing::Pim::Packet::BootstrapMessage const& a,
                      Routing::Pim::Packet::BootstrapMessage const& b);
/// The same for advertisements.
PIMBSR_API bool equal(Routing::Pim::Packet::CrpAdvMessage const& a,
                      Routing::Pim::Packet::CrpAdvMessage const& b);

}  // namespace pimbsr::wire
