#include "tests/attack/ChosenKeys.h"

#include "runtime/Bits.h"

namespace attack {

using Lanet::IpAddr;
using Lanet::Prefix;

/// The bucket in a table of 2^bits buckets: the leading bits of the hash by which a hash map orders members.
static U32 bucketOf(U32 hash, U32 bits) { return bits == 0 ? 0 : hash >> (32 - bits); }

/// The hash is that of Lanet::rhash(IpAddr), inlined since hundreds of millions are tried.
std::vector<IpAddr> chosenAddresses(U32 count, U32 bits) {
  std::vector<IpAddr> found;
  U32 const bucket = bucketOf(rhash(IpAddr::fromHost(0x0b000001)), bits);
  for (U32 word = 0x0b000001; word < 0xdf000000 && found.size() < count; ++word) {
    if (word >> 24 == 127 || bucketOf(Zet::bitReverse(Zet::mixHash(word)), bits) != bucket) continue;
    found.push_back(IpAddr::fromHost(word));
  }
  return found;
}

std::vector<Prefix> chosenRanges(U32 count, U32 bits) {
  std::vector<Prefix> found;
  U32 const bucket = bucketOf(rhash(Prefix(IpAddr::fromHost(0xe1000000), 32)), bits);
  for (U32 length = 32; length > 16 && found.size() < count; --length) {
    U32 const step = 1u << (32 - length);
    for (U32 word = 0xe1000000; word < 0xef000000 && found.size() < count; word += step) {
      if (bucketOf(Zet::bitReverse(Zet::mixHash(word ^ length)), bits) != bucket) continue;
      found.push_back(Prefix(IpAddr::fromHost(word), length));
    }
  }
  return found;
}

}  // namespace attack
