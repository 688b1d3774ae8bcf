#pragma once

#include <array>
#include <string_view>

#include "host/Reception.h"

namespace pimbsr::agent {

inline constexpr std::array messageKinds = {host::MessageKind::bootstrap, host::MessageKind::crpAdv,
                                            host::MessageKind::hello,     host::MessageKind::other,
                                            host::MessageKind::malformed, host::MessageKind::notPim,
                                            host::MessageKind::unread};

/// The stable name of a kind of message in JSON and metrics: "bsm", "crpAdv", "hello", "other", "malformed",
/// "notPim" or "unread".
std::string_view keyOf(host::MessageKind kind);

}  // namespace pimbsr::agent
