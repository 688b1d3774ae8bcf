#include "model/PrefixTrie.h"

#include <algorithm>
#include <bit>

#include "runtime/Meter.h"

namespace Routing {

/// Whether the first `length` bits of two words are the same.
static bool agree(U32 a, U32 b, U8 length) { return length == 0 || (a ^ b) >> (32 - length) == 0; }

/// Bit number `index` of a word, counted from the top.
static U32 bitAt(U32 bits, U8 index) { return bits >> (31 - index) & 1u; }

static U32 masked(U32 bits, U8 length) { return length == 0 ? 0 : bits & ~U32{0} << (32 - length); }

bool PrefixTrie::insert(Prefix prefix) {
  // The links taken below point into the array, which must not move when the new nodes come.
  if (nodes_.capacity() - nodes_.size() < 2) nodes_.reserve(2 * nodes_.size() + 2);
  Index* link = &root_;
  while (*link != none) {
    Zet::Meter::visit();
    Node& node = nodes_[*link];
    bool covers = node.length <= prefix.length && agree(node.bits, prefix.bits, node.length);
    if (!covers) break;
    if (node.length == prefix.length) {
      if (node.isMember) return false;
      node.isMember = true;
      ++size_;
      return true;
    }
    link = &node.child[bitAt(prefix.bits, node.length)];
  }
  insertBetween(link, prefix);
  ++size_;
  return true;
}

/// Puts a new member where a path ends or where it parts from a node that the prefix isn't under.
void PrefixTrie::insertBetween(Index* link, Prefix prefix) {
  Index const below = *link;
  Index made = make(prefix, true);
  Index top = made;
  if (below != none) {
    Node const under = nodes_[below];
    auto const same = static_cast<U8>(std::countl_zero(under.bits ^ prefix.bits));
    U8 const common = std::min({same, under.length, prefix.length});
    if (common < prefix.length) {
      top = make({masked(prefix.bits, common), common}, false);
      nodes_[top].child[bitAt(prefix.bits, common)] = made;
    }
    nodes_[top].child[bitAt(under.bits, common)] = below;
  }
  *link = top;
}

bool PrefixTrie::erase(Prefix prefix) {
  Index* above = nullptr;
  Index* link = &root_;
  while (*link != none) {
    Zet::Meter::visit();
    Node& node = nodes_[*link];
    if (node.length > prefix.length || !agree(node.bits, prefix.bits, node.length)) return false;
    if (node.length == prefix.length) break;
    above = link;
    link = &node.child[bitAt(prefix.bits, node.length)];
  }
  if (*link == none || !nodes_[*link].isMember) return false;
  nodes_[*link].isMember = false;
  --size_;
  drop(link);
  if (above != nullptr) drop(above);
  return true;
}

/// Cuts out a node that is no member and no branch.
void PrefixTrie::drop(Index* link) {
  Index const index = *link;
  Node const& node = nodes_[index];
  if (node.isMember || (node.child[0] != none && node.child[1] != none)) return;
  *link = node.child[0] != none ? node.child[0] : node.child[1];
  free_.push_back(index);
}

bool PrefixTrie::contains(Prefix prefix) const {
  Match match = longestMatch(prefix);
  return match.found && match.prefix == prefix;
}

PrefixTrie::Match PrefixTrie::parent(Prefix prefix) const {
  if (prefix.length == 0) return {};
  return cover(prefix, static_cast<U8>(prefix.length - 1));
}

PrefixTrie::Match PrefixTrie::cover(Prefix prefix, U8 longest) const {
  Index best = none;
  for (Index at = root_; at != none;) {
    Zet::Meter::visit();
    Node const& node = nodes_[at];
    if (node.length > longest || !agree(node.bits, prefix.bits, node.length)) break;
    if (node.isMember) best = at;
    if (node.length == 32) break;
    at = node.child[bitAt(prefix.bits, node.length)];
  }
  if (best == none) return {};
  return {true, {nodes_[best].bits, nodes_[best].length}};
}

PrefixTrie::Index PrefixTrie::make(Prefix prefix, bool isMember) {
  Node node{prefix.bits, prefix.length, isMember};
  if (!free_.empty()) {
    Index index = free_.back();
    free_.pop_back();
    nodes_[index] = node;
    return index;
  }
  nodes_.push_back(node);
  return static_cast<Index>(nodes_.size() - 1);
}

}  // namespace Routing
