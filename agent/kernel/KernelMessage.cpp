#include "agent/kernel/KernelMessage.h"

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <string_view>

namespace pimbsr::agent {

using Lanet::IpAddr;
using Slosh::Fib::RouteType;

using Bytes = std::span<U8 const>;

void forEachMessage(Bytes datagram, std::function<void(nlmsghdr const&)> const& handle) {
  int left = static_cast<int>(datagram.size());
  auto const* message = reinterpret_cast<nlmsghdr const*>(datagram.data());
  for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) handle(*message);
}

/// The attributes of a message by type. Truncated attributes, and those of unknown types, are ignored.
class Attributes {
 public:
  explicit Attributes(Bytes bytes) { mnl_attr_parse_payload(bytes.data(), bytes.size(), note, this); }

  bool has(unsigned type) const { return found_[type] != nullptr; }

  U32 word(unsigned type, U32 otherwise = 0) const {
    bool valid = has(type) && mnl_attr_validate(found_[type], MNL_TYPE_U32) == 0;
    return valid ? mnl_attr_get_u32(found_[type]) : otherwise;
  }

  /// 0.0.0.0 if there is none.
  IpAddr address(unsigned type) const { return IpAddr::fromNet(word(type)); }

  /// Empty if there is none.
  std::string_view text(unsigned type) const {
    bool valid = has(type) && mnl_attr_validate(found_[type], MNL_TYPE_NUL_STRING) == 0;
    return valid ? mnl_attr_get_str(found_[type]) : "";
  }

  /// Empty if there are none.
  Bytes bytes(unsigned type) const {
    if (!has(type)) return {};
    return {static_cast<U8 const*>(mnl_attr_get_payload(found_[type])),
            mnl_attr_get_payload_len(found_[type])};
  }

 private:
  static int note(nlattr const* attribute, void* self) {
    auto& found = static_cast<Attributes*>(self)->found_;
    unsigned type = mnl_attr_get_type(attribute);
    if (type < found.size()) found[type] = attribute;
    return MNL_CB_OK;
  }

  std::array<nlattr const*, 32> found_{};
};

static_assert(std::max({IFLA_IFNAME, IFLA_MTU, IFLA_MASTER}) < 32);
static_assert(std::max<int>({IFA_LOCAL, IFA_ADDRESS, IFA_FLAGS}) < 32);
static_assert(std::max<int>({RTA_OIF, RTA_GATEWAY, RTA_PRIORITY, RTA_VIA}) < 32);

/// The fixed part before a message's attributes; null if the message is too short.
template <class Fixed>
static Fixed const* fixedPart(nlmsghdr const& message) {
  if (mnl_nlmsg_get_payload_len(&message) < sizeof(Fixed)) return nullptr;
  return static_cast<Fixed const*>(mnl_nlmsg_get_payload(&message));
}

/// The attributes after the fixed part of a message that has one. mnl_attr_parse() would also read the
/// padding after the message, which may be missing.
template <class Fixed>
static Attributes attributesOf(nlmsghdr const& message) {
  Bytes payload(static_cast<U8 const*>(mnl_nlmsg_get_payload(&message)), mnl_nlmsg_get_payload_len(&message));
  return Attributes(payload.subspan(std::min(std::size_t{MNL_ALIGN(sizeof(Fixed))}, payload.size())));
}

// Links and addresses -----------------------------------------------------------------------------------

std::optional<LinkRecord> readLink(nlmsghdr const& message) {
  auto const* fixed = fixedPart<ifinfomsg>(message);
  if (fixed == nullptr || fixed->ifi_family != AF_UNSPEC) return {};
  Attributes attributes = attributesOf<ifinfomsg>(message);
  std::string_view name = attributes.text(IFLA_IFNAME);
  if (name.empty()) return {};
  constexpr unsigned working = IFF_UP | IFF_LOWER_UP | IFF_RUNNING;
  return LinkRecord{.link = {.index = fixed->ifi_index,
                             .name = std::string(name),
                             .up = (fixed->ifi_flags & working) == working,
                             .loopback = (fixed->ifi_flags & IFF_LOOPBACK) != 0,
                             .mtu = attributes.word(IFLA_MTU, 1500)},
                    .state = fixed->ifi_flags & working,
                    .master = attributes.word(IFLA_MASTER)};
}

std::optional<AddressRecord> readAddress(nlmsghdr const& message) {
  auto const* fixed = fixedPart<ifaddrmsg>(message);
  if (fixed == nullptr || fixed->ifa_family != AF_INET || fixed->ifa_prefixlen > 32) return {};
  Attributes attributes = attributesOf<ifaddrmsg>(message);
  if (!attributes.has(IFA_LOCAL)) return {};
  U32 flags = attributes.word(IFA_FLAGS, fixed->ifa_flags);
  Lanet::IpAddr address = attributes.address(IFA_LOCAL);
  Lanet::IpAddr end = attributes.has(IFA_ADDRESS) ? attributes.address(IFA_ADDRESS) : address;
  return AddressRecord{.interfaceIndex = static_cast<int>(fixed->ifa_index),
                       .address = {.address = address,
                                   .prefixLength = fixed->ifa_prefixlen,
                                   .secondary = (flags & IFA_F_SECONDARY) != 0,
                                   .peer = end != address ? end : Lanet::IpAddr()}};
}

// Routes ------------------------------------------------------------------------------------------------

static RouteType typeOf(rtmsg const& fixed, int interfaceIndex, bool hasNextHop) {
  if (fixed.rtm_type == RTN_LOCAL) return RouteType::local;
  if (fixed.rtm_type != RTN_UNICAST || interfaceIndex == 0) return RouteType::unset;
  return hasNextHop ? RouteType::remote : RouteType::connected;
}

/// A next hop of another family (RTA_VIA) is a next hop, but has no IPv4 address of a neighbor.
std::optional<RouteRecord> readRoute(nlmsghdr const& message) {
  auto const* fixed = fixedPart<rtmsg>(message);
  if (fixed == nullptr || fixed->rtm_family != AF_INET) return {};
  Attributes attributes = attributesOf<rtmsg>(message);
  auto interfaceIndex = static_cast<int>(attributes.word(RTA_OIF));
  IpAddr gateway = attributes.address(RTA_GATEWAY);
  bool hasNextHop = gateway != IpAddr() || attributes.has(RTA_VIA);
  return RouteRecord{.type = typeOf(*fixed, interfaceIndex, hasNextHop),
                     .interfaceIndex = interfaceIndex,
                     .nextHop = gateway,
                     .metric = attributes.word(RTA_PRIORITY)};
}

}  // namespace pimbsr::agent
