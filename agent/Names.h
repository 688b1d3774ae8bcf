#pragma once

#include <array>
#include <string_view>

#include "agent/QueueSet.h"
#include "host/Reception.h"

namespace pimbsr::agent {

inline constexpr std::array messageKinds = {host::MessageKind::bootstrap, host::MessageKind::crpAdv,
                                            host::MessageKind::hello,     host::MessageKind::other,
                                            host::MessageKind::malformed, host::MessageKind::notPim,
                                            host::MessageKind::unread};

/// The stable name of a kind of message in JSON and metrics: "bsm", "crpAdv", "hello", "other", "malformed",
/// "notPim" or "unread".
std::string_view keyOf(host::MessageKind kind);

/// The stable name of a kind of receive queue in JSON and metrics: "neighbor", "shared", "hello", "other" or
/// "unicast".
std::string_view keyOf(QueueKind kind);

}  // namespace pimbsr::agent
