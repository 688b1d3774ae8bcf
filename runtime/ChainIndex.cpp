#include "runtime/ChainIndex.h"

#include <algorithm>

#include "runtime/Assert.h"
#include "runtime/Meter.h"

namespace Zet {

static constexpr U32 fanout = 32;
static constexpr U32 minFill = fanout / 4;  ///< below it a node is joined with a neighbor, or filled from it

/// A node: members with their hashes, in order. Those of a leaf are the chain's; a branch has the first one
/// of each child.
struct ChainIndex::Node {
  explicit Node(bool leaf) : isLeaf(leaf) {}

  void shift(U32 from, U32 to);
  void copy(Node const& source, U32 from, U32 n, U32 to);

  U32 count = 0;
  bool const isLeaf;
  U32 hashes[fanout];
  void* members[fanout];
};

struct ChainIndex::Branch : Node {
  Branch() : Node(false) {}

  /// Takes the first member of a child as that of its entry.
  void refresh(U32 at) {
    hashes[at] = children[at]->hashes[0];
    members[at] = children[at]->members[0];
  }

  Node* children[fanout];
};

/// One insertion.
struct ChainIndex::Edit {
  Place const* place;  ///< null: after all others
  U32 hash;
  void* member;
  Neighbors neighbors;
};

template <class T>
static void shiftArray(T* array, U32 count, U32 from, U32 to) {
  if (to > from) {
    std::copy_backward(array + from, array + count, array + count + (to - from));
  } else {
    std::copy(array + from, array + count, array + to);
  }
}

/// Moves the entries at `from` and after it to `to`: makes room, or removes the entries between.
void ChainIndex::Node::shift(U32 from, U32 to) {
  shiftArray(hashes, count, from, to);
  shiftArray(members, count, from, to);
  if (!isLeaf) shiftArray(static_cast<Branch*>(this)->children, count, from, to);
  count = count + to - from;
}

/// Writes `n` entries of another node of the same level over those at `to`.
void ChainIndex::Node::copy(Node const& source, U32 from, U32 n, U32 to) {
  std::copy_n(source.hashes + from, n, hashes + to);
  std::copy_n(source.members + from, n, members + to);
  if (isLeaf) return;
  std::copy_n(static_cast<Branch const&>(source).children + from, n,
              static_cast<Branch*>(this)->children + to);
}

ChainIndex::ChainIndex() : root_(new Node(true)) {}

ChainIndex::~ChainIndex() { drop(root_); }

void ChainIndex::drop(Node* node) {
  for (U32 i = 0; !node->isLeaf && i < node->count; ++i) drop(static_cast<Branch*>(node)->children[i]);
  free(node);
}

void ChainIndex::free(Node* node) {
  if (node->isLeaf) {
    delete node;
  } else {
    delete static_cast<Branch*>(node);
  }
}

// Look-up ---------------------------------------------------------------------------------------------

/// How many entries of a node come before a place.
U32 ChainIndex::countBefore(Node const& node, Place const& place) {
  U32 at = 0;
  for (U32 left = node.count; left > 0;) {
    U32 const half = left / 2;
    U32 const middle = at + half;
    Meter::visit();
    bool const isBefore = node.hashes[middle] != place.hash ? node.hashes[middle] < place.hash
                                                            : place.isBefore(node.members[middle], place.key);
    // Both are selections and not branches: the outcome of a comparison with a random key can't be predicted.
    at = isBefore ? middle + 1 : at;
    left = isBefore ? left - half - 1 : half;
  }
  return at;
}

void* ChainIndex::first() const { return root_->members[0]; }

void* ChainIndex::last() const {
  Node const* node = root_;
  while (!node->isLeaf) node = static_cast<Branch const*>(node)->children[node->count - 1];
  return node->members[node->count - 1];
}

/// Goes down to the last leaf whose first member is before the place: the member before the place is there.
ChainIndex::Neighbors ChainIndex::find(Place const& place) const {
  Node const* node = root_;
  U32 at = countBefore(*node, place);
  while (!node->isLeaf) {
    node = static_cast<Branch const*>(node)->children[at == 0 ? 0 : at - 1];
    at = countBefore(*node, place);
  }
  return {at == 0 ? nullptr : node->members[at - 1], at == node->count ? nullptr : node->members[at]};
}

// Insertion -------------------------------------------------------------------------------------------

void ChainIndex::append(U32 hash, void* member) {
  Edit edit{nullptr, hash, member, {}};
  add(edit);
}

ChainIndex::Neighbors ChainIndex::insert(Place const& place, void* member) {
  Edit edit{&place, place.hash, member, {}};
  add(edit);
  return edit.neighbors;
}

void ChainIndex::add(Edit& edit) {
  ++size_;
  Node* second = insertIn(*root_, edit);
  if (second == nullptr) return;
  auto* root = new Branch;
  addChild(*root, 0, root_);
  addChild(*root, 1, second);
  root_ = root;
}

/// Inserts below a node; returns the node that must follow it now, if it had to be split.
ChainIndex::Node* ChainIndex::insertIn(Node& node, Edit& edit) {
  U32 const at = edit.place == nullptr ? node.count : countBefore(node, *edit.place);
  return node.isLeaf ? insertInLeaf(node, at, edit) : insertInBranch(static_cast<Branch&>(node), at, edit);
}

ChainIndex::Node* ChainIndex::insertInLeaf(Node& leaf, U32 at, Edit& edit) {
  edit.neighbors = {at == 0 ? nullptr : leaf.members[at - 1], at == leaf.count ? nullptr : leaf.members[at]};
  // The neighbors are read before the split, which moves them apart.
  Node* second = leaf.count == fanout ? split(leaf) : nullptr;
  bool const isInSecond = second != nullptr && at > leaf.count;
  if (isInSecond) at -= leaf.count;
  Node& target = isInSecond ? *second : leaf;
  target.shift(at, at + 1);
  target.hashes[at] = edit.hash;
  target.members[at] = edit.member;
  return second;
}

ChainIndex::Node* ChainIndex::insertInBranch(Branch& branch, U32 at, Edit& edit) {
  // A place before the first entry belongs to the first child, whose entry then changes; hence the refresh.
  U32 child = at == 0 ? 0 : at - 1;
  Node* made = insertIn(*branch.children[child], edit);
  branch.refresh(child);
  if (made == nullptr) return nullptr;
  Node* second = branch.count == fanout ? split(branch) : nullptr;
  bool const isInSecond = second != nullptr && child >= branch.count;
  if (isInSecond) child -= branch.count;
  addChild(isInSecond ? static_cast<Branch&>(*second) : branch, child + 1, made);
  return second;
}

/// Moves the upper half of a full node to a new one.
ChainIndex::Node* ChainIndex::split(Node& node) {
  Node* second = node.isLeaf ? new Node(true) : new Branch;
  U32 const kept = node.count / 2;
  second->copy(node, kept, node.count - kept, 0);
  second->count = node.count - kept;
  node.count = kept;
  return second;
}

void ChainIndex::addChild(Branch& branch, U32 at, Node* child) {
  branch.shift(at, at + 1);
  branch.children[at] = child;
  branch.refresh(at);
}

// Removal ---------------------------------------------------------------------------------------------

void ChainIndex::erase(Place const& place, void const* member) {
  eraseIn(*root_, place, member);
  --size_;
  while (!root_->isLeaf && root_->count == 1) {
    Node* former = root_;
    root_ = static_cast<Branch*>(former)->children[0];
    free(former);
  }
}

void ChainIndex::eraseIn(Node& node, Place const& place, void const* member) {
  U32 at = countBefore(node, place);
  bool const isEntry = at < node.count && node.members[at] == member;
  if (node.isLeaf) {
    ZET_ASSERT(isEntry, "a member of the index at its place");
    node.shift(at + 1, at);
    return;
  }
  ZET_ASSERT(isEntry || at > 0, "a member of the index at its place");
  if (!isEntry) --at;
  auto& branch = static_cast<Branch&>(node);
  eraseIn(*branch.children[at], place, member);
  branch.refresh(at);
  if (branch.children[at]->count < minFill) balance(branch, at);
}

/// Joins a child with one beside it, or shares their entries evenly where they are too many for one node.
void ChainIndex::balance(Branch& branch, U32 at) {
  U32 const left = at == 0 ? 0 : at - 1;
  Node& low = *branch.children[left];
  Node& high = *branch.children[left + 1];
  U32 const all = low.count + high.count;
  U32 const kept = all <= fanout ? all : all / 2;
  if (kept > low.count) {
    low.copy(high, 0, kept - low.count, low.count);
    high.shift(kept - low.count, 0);
  } else {
    U32 const given = low.count - kept;
    high.shift(0, given);
    high.copy(low, kept, given, 0);
  }
  low.count = kept;
  branch.refresh(left);
  if (high.count != 0) return branch.refresh(left + 1);
  free(&high);
  branch.shift(left + 2, left + 1);
}

}  // namespace Zet
