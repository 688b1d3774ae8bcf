#pragma once

#include <vector>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Routing {

/// A set of IPv4 prefixes that answers for the longest one covering another. Prefixes are address words in
/// host byte order, zero beyond the length, and lengths 0 to 32.
///
/// It is a binary trie whose paths without branches are cut short, in one array: a lookup visits at most one
/// node per branch on its way, insert and erase change at most two nodes, and memory is under 32 bytes per
/// prefix.
class PIMBSR_API PrefixTrie {
 public:
  /// A prefix; 0.0.0.0/0 by default.
  struct Prefix {
    U32 bits = 0;   ///< the address in host byte order, zero beyond the length
    U8 length = 0;  ///< number of leading bits that count, 0 to 32
    bool operator==(Prefix const&) const = default;
  };
  /// What a lookup found.
  struct Match {
    bool found = false;  ///< whether there is such a member
    Prefix prefix;       ///< that member; the default where none was found
  };

  PrefixTrie() = default;

  /// Number of members.
  U32 size() const { return size_; }
  /// Nodes in use: the members and the branches between them, so fewer than twice size().
  U32 nodes() const { return static_cast<U32>(nodes_.size() - free_.size()); }
  /// Adds a prefix; false if it was there.
  bool insert(Prefix prefix);
  /// Removes a prefix; false if it wasn't there.
  bool erase(Prefix prefix);
  /// Whether exactly this prefix is a member.
  bool contains(Prefix prefix) const;
  /// The longest member that covers `prefix`, itself included.
  Match longestMatch(Prefix prefix) const { return cover(prefix, prefix.length); }
  /// The longest member that covers `prefix` and is shorter.
  Match parent(Prefix prefix) const;

 private:
  using Index = U32;
  static constexpr Index none = ~Index{0};

  struct Node {
    U32 bits;
    U8 length;
    bool isMember;
    Index child[2] = {none, none};
  };

  Match cover(Prefix prefix, U8 longest) const;
  Index make(Prefix prefix, bool isMember);
  void drop(Index* link);
  void insertBetween(Index* link, Prefix prefix);

  std::vector<Node> nodes_;
  std::vector<Index> free_;
  Index root_ = none;
  U32 size_ = 0;
};

}  // namespace Routing
