#pragma once

#include <array>
#include <string_view>

#include "host/Reception.h"

namespace pimbsr::agent {

inline constexpr std::array messageKinds = {host::MessageKind::bootstrap, host::MessageKind::crpAdv,
                                            host::MessageKind::hello,     host::MessageKind::other,
                                            host::MessageKind::malformed, host::MessageKind::notPim};

/// The stable name of a kind of message in JSON and metrics: "bsm", "crpAdv", "hello", "other", "malformed"
/// or "notPim".
std::string_view keyOf(host::MessageKind kind);

}  // namespace pimbsr::agent
