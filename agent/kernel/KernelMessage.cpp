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
static_assert(std::max<int>({RTA_DST, RTA_OIF, RTA_GATEWAY, RTA_PRIORITY, RTA_PREFSRC, RTA_MULTIPATH,
                             RTA_TABLE, RTA_VIA}) < 32);

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

namespace {

/// One next hop of a route.
struct Hop {
  int interfaceIndex = 0;
  IpAddr nextHop;
  bool hasNextHop = false;
  bool isDead = false;
};

}  // namespace

/// A next hop of another family (RTA_VIA) is a next hop, but has no IPv4 address of a neighbor.
static Hop readHop(Attributes const& attributes, int interfaceIndex, unsigned flags) {
  IpAddr gateway = attributes.address(RTA_GATEWAY);
  return {.interfaceIndex = interfaceIndex,
          .nextHop = gateway,
          .hasNextHop = gateway != IpAddr() || attributes.has(RTA_VIA),
          .isDead = (flags & RTNH_F_DEAD) != 0};
}

/// The first hop that isn't dead, or else the first one.
static std::optional<Hop> chooseHop(Bytes hops) {
  std::optional<Hop> first;
  while (hops.size() >= sizeof(rtnexthop)) {
    rtnexthop fixed;
    std::memcpy(&fixed, hops.data(), sizeof fixed);
    if (fixed.rtnh_len < sizeof fixed || fixed.rtnh_len > hops.size()) break;
    Attributes attributes(hops.first(fixed.rtnh_len).subspan(sizeof fixed));
    Hop hop = readHop(attributes, fixed.rtnh_ifindex, fixed.rtnh_flags);
    if (!hop.isDead) return hop;
    if (!first) first = hop;
    hops = hops.subspan(std::min<std::size_t>(RTNH_ALIGN(fixed.rtnh_len), hops.size()));
  }
  return first;
}

static RouteType typeOf(rtmsg const& fixed, Hop const& hop) {
  if (fixed.rtm_type == RTN_LOCAL) return RouteType::local;
  if (fixed.rtm_type != RTN_UNICAST || hop.interfaceIndex == 0) return RouteType::unset;
  return hop.hasNextHop ? RouteType::remote : RouteType::connected;
}

std::optional<RouteRecord> readRoute(nlmsghdr const& message) {
  auto const* fixed = fixedPart<rtmsg>(message);
  if (fixed == nullptr || fixed->rtm_family != AF_INET || fixed->rtm_dst_len > 32) return {};
  if (fixed->rtm_tos != 0 || (fixed->rtm_flags & RTM_F_CLONED) != 0) return {};
  Attributes attributes = attributesOf<rtmsg>(message);
  U32 table = attributes.word(RTA_TABLE, fixed->rtm_table);
  if (table != RT_TABLE_MAIN && table != RT_TABLE_LOCAL) return {};
  if (fixed->rtm_dst_len != 0 && !attributes.has(RTA_DST)) return {};
  Hop hop = readHop(attributes, static_cast<int>(attributes.word(RTA_OIF)), fixed->rtm_flags);
  if (attributes.has(RTA_MULTIPATH)) hop = chooseHop(attributes.bytes(RTA_MULTIPATH)).value_or(hop);
  return RouteRecord{.prefix = {attributes.address(RTA_DST), fixed->rtm_dst_len},
                     .inLocalTable = table == RT_TABLE_LOCAL,
                     .metric = attributes.word(RTA_PRIORITY),
                     .type = typeOf(*fixed, hop),
                     .interfaceIndex = hop.interfaceIndex,
                     .nextHop = hop.nextHop,
                     .preferredSource = attributes.address(RTA_PREFSRC),
                     .protocol = fixed->rtm_protocol,
                     .scope = fixed->rtm_scope,
                     .isDead = hop.isDead};
}

}  // namespace pimbsr::agent
