#include "host/ModelTree.h"

#include <optional>

#include "host/Router.h"
#include "runtime/Reflection.h"

namespace pimbsr::host {

namespace {

using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::String8;
using Object = Ptr<PtrInterface const>;

/// Objects in objects end here; the declarations nest less deep.
constexpr int maxDepth = 24;

std::string textOf(String8 const& text) { return std::string(text.view()); }

/// A step of a path: an attribute, and a key in its text form if there is one.
struct Step {
  std::string_view name;
  std::optional<std::string_view> key;
};

/// The length of the key at the beginning of a text, up to the bracket that ends it.
std::size_t keyLength(std::string_view text) {
  bool isQuoted = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isQuoted && text[at] == '\\') {
      ++at;
    } else if (text[at] == '\'') {
      isQuoted = !isQuoted;
    } else if (text[at] == ']' && !isQuoted) {
      return at;
    }
  }
  throw PathError("a key without ] after it: " + std::string(text));
}

/// Takes the first step off a path.
Step takeStep(std::string_view& path) {
  std::size_t const end = std::min(path.find_first_of("/["), path.size());
  Step step{path.substr(0, end), std::nullopt};
  path.remove_prefix(end);
  if (path.starts_with('[')) {
    path.remove_prefix(1);
    std::size_t const length = keyLength(path);
    step.key = path.substr(0, length);
    path.remove_prefix(length + 1);
  }
  if (path.empty()) return step;
  if (path.front() != '/') throw PathError("no / before " + std::string(path));
  path.remove_prefix(1);
  if (path.empty()) throw PathError("nothing after the last /");
  return step;
}

/// Calls a function for each member of a walk.
template <class Call>
class Visitor : public Zet::MemberVisitor {
 public:
  explicit Visitor(Call const& call) : call_(call) {}
  void onMember(String8 const& key, String8 const& value, PtrInterface const* object) override {
    call_(key, value, object);
  }

 private:
  Call const& call_;
};
template <class Call>
void walk(PtrInterface const& object, AttributeRow const& row, Call const& call) {
  Visitor visitor(call);
  row.walk(object, visitor);
}

bool isShown(AttributeRow const& row) {
  return row.kind != AttributeKind::method &&
         (row.read != nullptr || row.walk != nullptr || row.kind == AttributeKind::constant);
}

/// Whether the object of an attribute is shown under it: what the class owns or made, and not what it was
/// given.
bool isInside(AttributeRow const& row) {
  return row.kind != AttributeKind::constructor && row.kind != AttributeKind::reactor &&
         row.kind != AttributeKind::reactors;
}

/// Where a path leads to: an object, or an attribute of one.
struct Place {
  Object object;
  AttributeRow const* row = nullptr;  ///< null for the object itself
  String8 key;
  bool hasKey = false;
};

AttributeRow const& rowOf(PtrInterface const& object, std::string_view name) {
  AttributeRow const* row = object.fwkType().row(String8(name));
  if (row == nullptr || !isShown(*row)) {
    throw PathError(std::string(object.fwkType().name) + " has no attribute " + std::string(name));
  }
  return *row;
}

/// The member of a collection that holds objects, or null.
Object memberAt(PtrInterface const& object, AttributeRow const& row, String8 const& key) {
  if (row.member != nullptr) return row.member(object, key);
  Object found;
  walk(object, row, [&](String8 const& at, String8 const&, PtrInterface const* member) {
    if (at == key) found = member;
  });
  return found;
}

bool holdsObjects(AttributeRow const& row) {
  return row.member != nullptr || row.kind == AttributeKind::queue;
}

Place follow(Object const& object, Step const& step) {
  AttributeRow const& row = rowOf(*object, step.name);
  std::string const name(step.name);
  if (step.key && !row.isIndexed()) throw PathError(name + " takes no key");
  if (row.isIndexed() && !step.key) return {.object = object, .row = &row};
  Place const place{object, &row, step.key ? String8(*step.key) : String8(), step.key.has_value()};
  if (!holdsObjects(row)) return place;
  Object const member = memberAt(*object, row, place.key);
  if (!member && place.hasKey) throw PathError(name + " has no member " + textOf(place.key));
  return member && isInside(row) ? Place{.object = member} : place;
}

Place resolve(std::span<ModelRoot const> roots, std::string_view path) {
  Step const first = takeStep(path);
  std::string names;
  for (ModelRoot const& root : roots) {
    names += (names.empty() ? "" : ", ") + root.name;
    if (root.name != first.name || first.key) continue;
    Place place{.object = root.object};
    while (!path.empty()) {
      if (place.row != nullptr) throw PathError(std::string(place.row->name) + " has no attributes");
      place = follow(place.object, takeStep(path));
    }
    return place;
  }
  throw PathError(std::string(first.name) + " is no root; " + names + " would be valid");
}

std::string valueOf(Place const& place) {
  if (place.row == nullptr) return textOf(Zet::strepOfObject(place.object.ptr()));
  AttributeRow const& row = *place.row;
  if (row.isIndexed() && !place.hasKey) {
    std::size_t count = 0;
    walk(*place.object, row, [&](String8 const&, String8 const&, PtrInterface const*) { ++count; });
    return std::to_string(count);
  }
  return row.read != nullptr ? textOf(row.read(*place.object, place.key)) : row.start;
}

ModelEntry entryOf(std::string path, Place const& place) {
  if (place.row == nullptr) return {std::move(path), place.object->fwkType().name, valueOf(place), ""};
  return {std::move(path), place.row->type, valueOf(place), place.row->unit};
}

/// Gathers what is at a place and in it.
class Tree {
 public:
  explicit Tree(std::size_t max) : max_(max) {}

  void add(std::string const& path, Place const& place, int depth) {
    if (isFull()) return;
    entries.push_back(entryOf(path, place));
    if (depth == 0) return;
    if (place.row == nullptr) {
      addRows(path, *place.object, place.object->fwkType(), depth);
    } else if (place.row->walk != nullptr && !place.hasKey) {
      addMembers(path, place, depth);
    }
  }
  std::vector<ModelEntry> entries;

 private:
  bool isFull() const { return entries.size() >= max_; }

  void addRows(std::string const& path, PtrInterface const& object, Zet::ZetType const& type, int depth) {
    if (type.base != nullptr) addRows(path, object, *type.base, depth);
    for (AttributeRow const& row : type.rows) {
      if (isFull()) return;
      if (!isShown(row)) continue;
      Step const step{row.name, std::nullopt};
      add(path + "/" + row.name, follow(&object, step), depth - 1);
    }
  }
  void addMembers(std::string const& path, Place const& place, int depth) {
    AttributeRow const& row = *place.row;
    walk(*place.object, row, [&](String8 const& key, String8 const&, PtrInterface const* member) {
      bool const isObject = member != nullptr && isInside(row);
      Place const at = isObject ? Place{.object = member} : Place{place.object, &row, key, true};
      add(path + "[" + textOf(key) + "]", at, depth - 1);
    });
  }

  std::size_t max_;
};

}  // namespace

std::vector<ModelRoot> modelRoots(Router const& router) {
  std::vector<ModelRoot> roots{{"status", router.status()},
                               {"pim", router.pimStatus()},
                               {"rp-set", router.rpCandidateStatus()},
                               {"message-counters", router.messageCounters()},
                               {"root", router.root()},
                               {"gate", router.gate()},
                               {"crp-gate", router.crpGate()}};
  if (auto configSm = router.configSm(); configSm) {
    roots.push_back({"config-sm", configSm});
    roots.push_back({"config", configSm->config()});
    roots.push_back({"access-lists", configSm->ipAclConfig()});
  }
  std::erase_if(roots, [](ModelRoot const& root) { return !root.object; });
  return roots;
}

ModelEntry readPath(std::span<ModelRoot const> roots, std::string_view path) {
  try {
    return entryOf(std::string(path), resolve(roots, path));
  } catch (Zet::Exception const& e) {
    throw PathError(e.what());  // a key that isn't one
  }
}

std::vector<ModelEntry> readTree(std::span<ModelRoot const> roots, std::string_view path, std::size_t max) {
  Tree tree(max);
  if (path.empty()) {
    for (ModelRoot const& root : roots) tree.add(root.name, {.object = root.object}, maxDepth);
    return std::move(tree.entries);
  }
  try {
    tree.add(std::string(path), resolve(roots, path), maxDepth);
  } catch (Zet::Exception const& e) {
    throw PathError(e.what());
  }
  return std::move(tree.entries);
}

}  // namespace pimbsr::host
