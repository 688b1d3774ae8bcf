#pragma once

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

/// Search tree over the members of one long chain of a HashMap, in the order of the chain: by hash, and by
/// key among equal hashes. It is a B+-tree whose nodes hold the hashes beside the members, so that a member
/// is touched only where hashes are equal. It knows members as plain pointers, for all maps alike, and owns
/// none of them.
class PIMBSR_API ChainIndex {
 public:
  /// A place in the order: that of a hash and a key.
  struct Place {
    U32 hash;  ///< that of the key, bit-reversed
    /// Of the members' key type; only isBefore looks at it, and it may be null where isBefore doesn't.
    void const* key;
    /// Whether a member with this hash comes before the key.
    bool (*isBefore)(void const* member, void const* key);
  };
  /// The members on both sides of a place.
  struct Neighbors {
    void* before = nullptr;  ///< the last one before the place; null if there is none
    /// The first one not before the place; null if there is none, or if it is only known as the successor of
    /// `before` in the chain.
    void* after = nullptr;
  };

  ChainIndex();
  ~ChainIndex();
  ChainIndex(ChainIndex const&) = delete;
  ChainIndex& operator=(ChainIndex const&) = delete;

  /// Number of members.
  U32 size() const { return size_; }
  /// The first member; not for an empty index.
  void* first() const;
  /// The last member; not for an empty index.
  void* last() const;
  /// The members on both sides of a place, whether a member is at it or not.
  Neighbors find(Place const& place) const;

  /// Adds a member that comes after all others.
  void append(U32 hash, void* member);
  /// Adds a member at its place, where none is yet, and returns its neighbors.
  Neighbors insert(Place const& place, void* member);
  /// Removes a member, whose place is given.
  void erase(Place const& place, void const* member);

 private:
  struct Node;
  struct Branch;
  struct Edit;

  static U32 countBefore(Node const& node, Place const& place);
  static Node* split(Node& node);
  static void drop(Node* node);
  static void free(Node* node);
  static Node* insertIn(Node& node, Edit& edit);
  static Node* insertInLeaf(Node& leaf, U32 at, Edit& edit);
  static Node* insertInBranch(Branch& branch, U32 at, Edit& edit);
  static void addChild(Branch& branch, U32 at, Node* child);
  static void eraseIn(Node& node, Place const& place, void const* member);
  static void balance(Branch& branch, U32 at);
  void add(Edit& edit);

  Node* root_;
  U32 size_ = 0;
};

}  // namespace Zet
