#pragma once

#include <vector>

#include "model/Lanet.h"
#include "runtime/Types.h"

/// Keys that an attacker with full knowledge of the hash chooses: a hash map of up to 2^bits buckets keeps
/// all of them in one.
namespace attack {

using Zet::U32;

/// So many unicast addresses whose hashes agree in the leading bits, 0 to 28 of them. Fewer if there are no
/// more.
std::vector<Lanet::IpAddr> chosenAddresses(U32 count, U32 bits);

/// The same of group ranges, each within 224.0.0.0/4 and longer than it.
std::vector<Lanet::Prefix> chosenRanges(U32 count, U32 bits);

}  // namespace attack
