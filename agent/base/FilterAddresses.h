#pragma once

#include <cstddef>

namespace pimbsr::agent {

/// Addresses that a filter program of a socket can hold. A kernel keeps an old program beside the new one
/// while they are exchanged, both within net.core.optmem_max (20,480 bytes up to Linux 6.6). So it is no key.
inline constexpr std::size_t maxFilterAddresses = 256;

}  // namespace pimbsr::agent
