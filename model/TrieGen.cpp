#include "model/TrieGen.h"

#include "runtime/Assert.h"

namespace Routing {

static bool isIp4(Lanet::IpGenPrefix const& prefix) { return prefix.af() == Lanet::AddressFamily::ipv4; }

static PrefixTrie::Prefix bitsOf(Lanet::IpGenPrefix const& prefix) {
  return {prefix.address().v4Addr().hostWord(), static_cast<U8>(prefix.length())};
}

static Lanet::IpGenPrefix prefixOf(PrefixTrie::Match const& match) {
  if (!match.found) return {};
  return Lanet::IpGenPrefix(Lanet::IpGenAddr(Lanet::IpAddr::fromHost(match.prefix.bits)),
                            match.prefix.length);
}

void TrieGen::routeIs(Lanet::IpGenPrefix const& prefix, bool const& present) {
  if (!present) return routeDel(prefix);
  ZET_ASSERT(isIp4(prefix), "IPV6 Not supported");
  if (trie_.insert(bitsOf(prefix))) signalChange(prefix);
}

void TrieGen::routeDel(Lanet::IpGenPrefix const& prefix) {
  if (isIp4(prefix) && trie_.erase(bitsOf(prefix))) signalChange(prefix);
}

void TrieGen::signalChange(Lanet::IpGenPrefix const& prefix) {
  if (changedRoute() == prefix) changedRouteIs(Lanet::IpGenPrefix());
  changedRouteIs(prefix);
}

bool TrieGen::route(Lanet::IpGenPrefix const& prefix) const {
  return isIp4(prefix) && trie_.contains(bitsOf(prefix));
}

Lanet::IpGenPrefix TrieGen::longestMatch(Lanet::IpGenPrefix const& prefix) const {
  return isIp4(prefix) ? prefixOf(trie_.longestMatch(bitsOf(prefix))) : Lanet::IpGenPrefix();
}

Lanet::IpGenPrefix TrieGen::findParent(Lanet::IpGenPrefix const& prefix) const {
  return isIp4(prefix) ? prefixOf(trie_.parent(bitsOf(prefix))) : Lanet::IpGenPrefix();
}

U32 TrieGen::routes() const { return trie_.size(); }

}  // namespace Routing
