#include "host/ModelTree.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

#include "host/NearestNames.h"
#include "host/Router.h"
#include "host/RouterParts.h"
#include "runtime/Reflection.h"

namespace pimbsr::host {

namespace {

using Zet::AttributeKind;
using Zet::AttributeRow;
using Zet::Ptr;
using Zet::PtrInterface;
using Zet::String8;
using Object = Ptr<PtrInterface const>;

std::string textOf(String8 const& text) { return std::string(text.view()); }

// Text ------------------------------------------------------------------------------------------------------

constexpr char const* hexDigits = "0123456789abcdef";

bool isPrintable(char c) { return c >= ' ' && c <= '~'; }

/// A text with the bytes for which `isKept` is false as a percent sign and digits.
template <class IsKept>
std::string escaped(std::string_view text, IsKept const& isKept) {
  std::string written;
  for (char c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if (isKept(c)) {
      written += c;
    } else {
      written.append({'%', hexDigits[byte >> 4], hexDigits[byte & 15]});
    }
  }
  return written;
}

/// A text as it is in paths and values.
std::string plain(String8 const& text) {
  return escaped(text.view(), [](char c) { return isPrintable(c) && c != '%'; });
}

/// A path that was given, in plain ASCII, with the same meaning.
std::string plainPath(std::string_view given) { return escaped(given, isPrintable); }

/// The text holds parts of a path that may have any bytes, and goes to terminals.
std::string printable(std::string text) {
  constexpr std::size_t maxLength = 1000;
  if (text.size() > maxLength) text = text.substr(0, maxLength) + "...";
  std::replace_if(
      text.begin(), text.end(), [](char c) { return !isPrintable(c); }, '?');
  return text;
}

[[noreturn]] void fail(std::size_t column, std::string const& text) {
  throw PathError("column " + std::to_string(column) + ": " + printable(text));
}

/// The text of which plain() is `written`, which begins at a column.
std::string fromPlain(std::string_view written, std::size_t column) {
  std::string text;
  for (std::size_t at = 0; at < written.size(); ++at) {
    unsigned byte = 0;
    if (written[at] != '%') {
      text += written[at];
    } else if (auto const* digits = written.data() + at + 1;
               written.size() - at > 2 && std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      text += static_cast<char>(byte);
      at += 2;
    } else {
      fail(column + at, "a % without two hexadecimal digits after it");
    }
  }
  return text;
}

// Paths -----------------------------------------------------------------------------------------------------

/// A step of a path: an attribute, and a key in its text form if there is one.
struct Step {
  std::string name;
  std::size_t column = 0;
  std::optional<std::string> key = std::nullopt;
  std::size_t keyColumn = 0;
};

/// Reads a path step by step.
class PathReader {
 public:
  explicit PathReader(std::string_view path) : path_(path) {}

  bool isAtEnd() const { return at_ == path_.size(); }

  Step take() {
    std::size_t const end = std::min(path_.find_first_of("/[", at_), path_.size());
    Step step{.name = std::string(path_.substr(at_, end - at_)), .column = column()};
    at_ = end;
    if (!isAtEnd() && path_[at_] == '[') takeKey(step);
    if (isAtEnd()) return step;
    if (path_[at_] != '/') fail(column(), "no / before " + std::string(path_.substr(at_)));
    ++at_;
    if (isAtEnd()) fail(column(), "nothing after the last /");
    return step;
  }

 private:
  std::size_t column() const { return at_ + 1; }

  void takeKey(Step& step) {
    ++at_;
    std::size_t const length = keyLength();
    step.keyColumn = column();
    step.key = fromPlain(path_.substr(at_, length), column());
    at_ += length + 1;
  }
  /// The length of the key up to the bracket that ends it.
  std::size_t keyLength() const {
    bool isQuoted = false;
    for (std::size_t at = at_; at < path_.size(); ++at) {
      if (isQuoted && path_[at] == '\\') {
        ++at;
      } else if (path_[at] == '\'') {
        isQuoted = !isQuoted;
      } else if (path_[at] == ']' && !isQuoted) {
        return at - at_;
      }
    }
    fail(column(), "a key without ] after it: " + std::string(path_.substr(at_)));
  }

  std::string_view path_;
  std::size_t at_ = 0;
};

// Attributes ------------------------------------------------------------------------------------------------

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

/// The shown rows of a type, those of its bases first.
void addShownRows(Zet::ZetType const& type, std::vector<AttributeRow const*>& rows) {
  if (type.base != nullptr) addShownRows(*type.base, rows);
  for (AttributeRow const& row : type.rows) {
    if (isShown(row)) rows.push_back(&row);
  }
}
std::vector<AttributeRow const*> shownRows(PtrInterface const& object) {
  std::vector<AttributeRow const*> rows;
  addShownRows(object.fwkType(), rows);
  return rows;
}

/// As in "; nearest: priority, priorityUnknown"; empty for no names.
template <class Names>
std::string nearestText(Names const& names) {
  std::string text;
  for (auto const& name : names) text += (text.empty() ? "; nearest: " : ", ") + std::string(name);
  return text;
}

constexpr std::size_t maxNearest = 3;

AttributeRow const& rowOf(PtrInterface const& object, Step const& step) {
  AttributeRow const* row = object.fwkType().row(String8(step.name));
  if (row != nullptr && isShown(*row)) return *row;
  std::vector<std::string_view> names;
  for (AttributeRow const* shown : shownRows(object)) names.emplace_back(shown->name);
  fail(step.column, std::string(object.fwkType().name) + " has no attribute " + step.name +
                        nearestText(nearestNames(step.name, names, maxNearest)));
}

/// The keys that have most of their beginning in common with an absent one. Edit distances would cost more
/// than a walk over a large collection may.
std::vector<std::string> nearestKeys(PtrInterface const& object, AttributeRow const& row,
                                     std::string_view absent) {
  using Ranked = std::pair<std::size_t, std::string>;
  std::vector<Ranked> best;
  auto isNearer = [](Ranked const& a, Ranked const& b) { return a.first > b.first; };
  walk(object, row, [&](String8 const& key, String8 const&, PtrInterface const*) {
    std::string_view const text = key.view();
    auto const end = std::mismatch(text.begin(), text.end(), absent.begin(), absent.end()).first;
    Ranked const ranked{static_cast<std::size_t>(end - text.begin()), plain(key)};
    best.insert(std::upper_bound(best.begin(), best.end(), ranked, isNearer), ranked);
    if (best.size() > maxNearest) best.pop_back();
  });
  std::vector<std::string> keys;
  keys.reserve(best.size());
  for (Ranked& ranked : best) keys.push_back(std::move(ranked.second));
  return keys;
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

/// The place of a step from an object.
Place follow(Object const& object, Step const& step) {
  AttributeRow const& row = rowOf(*object, step);
  if (step.key && !row.isIndexed()) fail(step.keyColumn, step.name + " takes no key");
  if (row.isIndexed() && !step.key) return {.object = object, .row = &row};
  Place place{object, &row, step.key ? String8(*step.key) : String8(), step.key.has_value()};
  if (!holdsObjects(row)) {
    if (place.hasKey && row.read != nullptr) row.read(*object, place.key);  // raises for a key that isn't one
    return place;
  }
  Object const member = memberAt(*object, row, place.key);
  if (!member && place.hasKey) {
    fail(step.keyColumn, step.name + " has no member " + plain(place.key) +
                             nearestText(nearestKeys(*object, row, place.key.view())));
  }
  return member && isInside(row) ? Place{.object = member} : place;
}

Place rootOf(std::span<ModelRoot const> roots, Step const& step) {
  std::string names;
  for (ModelRoot const& root : roots) {
    if (root.name == step.name && !step.key) return {.object = root.object};
    names += (names.empty() ? "" : ", ") + root.name;
  }
  fail(step.column, (step.name.empty() ? "an empty name" : step.name) + " is no root; valid are " + names);
}

/// The errors of keys that the text forms don't take get the column of their step.
Place placeOf(Place const& from, Step const& step) {
  if (from.row != nullptr) fail(step.column, std::string(from.row->name) + " has no attributes");
  try {
    return follow(from.object, step);
  } catch (Zet::Exception const& e) {
    fail(step.keyColumn, step.name + " takes no such key: " + e.what());
  }
}

Place resolve(std::span<ModelRoot const> roots, std::string_view path) {
  PathReader reader(path);
  Place place = rootOf(roots, reader.take());
  while (!reader.isAtEnd()) place = placeOf(place, reader.take());
  return place;
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
  std::string value = plain(String8(valueOf(place)));
  if (place.row == nullptr) return {std::move(path), place.object->fwkType().name, std::move(value), ""};
  return {std::move(path), place.row->type, std::move(value), place.row->unit};
}

// Trees -----------------------------------------------------------------------------------------------------

/// The parts of a path that come after the first `length` letters: names with their slash and keys with their
/// brackets, as a tree makes them.
std::vector<std::string> partsAfter(std::string_view path, std::size_t length) {
  std::vector<std::string> parts;
  PathReader reader(path);
  while (!reader.isAtEnd()) {
    Step const step = reader.take();
    bool const isRoot = step.column == 1;
    if (step.column > length + (isRoot ? 0 : 1)) parts.push_back((isRoot ? "" : "/") + step.name);
    if (step.key && step.keyColumn > length + 1) parts.push_back("[" + plain(String8(*step.key)) + "]");
  }
  return parts;
}

/// Whether an entry of a tree may have this path.
bool isWithin(std::string_view path, std::string_view tree) {
  if (!path.starts_with(tree)) return false;
  std::string_view const rest = path.substr(tree.size());
  return tree.empty() || rest.empty() || rest.front() == '/' || rest.front() == '[';
}

[[noreturn]] void failGone(std::string const& path) {
  throw PathError(printable(path) + " is not in the tree any more; ask for it from its beginning");
}

/// Gathers what is at a place and in it, from an entry on.
class Tree {
 public:
  using Parts = std::span<std::string const>;

  explicit Tree(std::size_t max) : max_(max) {}

  /// Adds a place and what is in it; with `from` only what comes from there on.
  void add(std::string const& path, Place const& place, int depth, Parts from) {
    if (isFull()) return;
    if (from.empty()) addEntry(path, place);
    bool const isObject = place.row == nullptr;
    bool const isCollection = !isObject && place.row->walk != nullptr && !place.hasKey;
    if (depth > 0 && isObject) {
      addRows(path, place.object, depth, from);
    } else if (depth > 0 && isCollection) {
      addMembers(path, place, depth, from);
    } else if (!from.empty()) {
      failGone(path + from.front());
    }
  }
  ModelPage page;

 private:
  bool isFull() const { return !page.next.empty(); }

  void addEntry(std::string const& path, Place const& place) {
    if (page.entries.size() < max_) {
      page.entries.push_back(entryOf(path, place));
    } else {
      page.next = path;
    }
  }
  void addRows(std::string const& path, Object const& object, int depth, Parts from) {
    for (AttributeRow const* row : shownRows(*object)) {
      std::string const part = std::string("/") + row->name;
      if (isFull() || !begins(from, part)) continue;
      Parts const rest = takeFirst(from);
      add(path + part, follow(object, {.name = row->name}), depth - 1, rest);
    }
    if (!from.empty()) failGone(path + from.front());
  }
  void addMembers(std::string const& path, Place const& place, int depth, Parts from) {
    if (isFull()) return;
    AttributeRow const& row = *place.row;
    walk(*place.object, row, [&](String8 const& key, String8 const&, PtrInterface const* member) {
      if (isFull()) return;
      std::string const part = "[" + plain(key) + "]";
      if (!begins(from, part)) return;
      Parts const rest = takeFirst(from);
      bool const isObject = member != nullptr && isInside(row);
      Place const at = isObject ? Place{.object = member} : Place{place.object, &row, key, true};
      add(path + part, at, depth - 1, rest);
    });
    if (!from.empty()) failGone(path + from.front());
  }
  /// Whether a part is where the tree begins, or comes after that.
  static bool begins(Parts from, std::string const& part) { return from.empty() || from.front() == part; }
  /// What of `from` is below its first part; from then on nothing is passed over.
  static Parts takeFirst(Parts& from) {
    Parts const rest = from.empty() ? from : from.subspan(1);
    from = {};
    return rest;
  }

  std::size_t max_;
};

/// All roots, from a root on if there is one.
void addRoots(Tree& tree, std::span<ModelRoot const> roots, int depth, Tree::Parts from) {
  bool hasBegun = from.empty();
  for (ModelRoot const& root : roots) {
    bool const isFirst = !hasBegun && from.front() == root.name;
    hasBegun = hasBegun || isFirst;
    Tree::Parts const rest = isFirst ? from.subspan(1) : Tree::Parts();
    if (hasBegun) tree.add(root.name, {.object = root.object}, depth, rest);
  }
  if (!hasBegun) failGone(from.front());
}

}  // namespace

std::vector<ModelRoot> modelRoots(Router const& router) {
  std::vector<ModelRoot> roots{{"status", router.status()},
                               {"pim", router.pimStatus()},
                               {"rp-set", router.rpCandidateStatus()},
                               {"message-counters", partsOf(router).messageCounters},
                               {"root", partsOf(router).root},
                               {"gate", partsOf(router).gate},
                               {"crp-gate", partsOf(router).crpGate},
                               {"pam-manager", partsOf(router).gate->pimPamManager()},
                               {"bsm-info", partsOf(router).gate->bsmInfo()},
                               {"crp-msg-info", partsOf(router).crpGate->crpMsgInfo()},
                               {"bsm-status", partsOf(router).root->bsmStatus()},
                               {"crp-msg-status", partsOf(router).root->crpMsgStatus()},
                               {"interfaces", partsOf(router).root->allIntfStatusDir()}};
  if (auto configSm = partsOf(router).configSm; configSm) {
    roots.push_back({"config-sm", configSm});
    roots.push_back({"config", configSm->config()});
    roots.push_back({"clear-config", configSm->clearConfig()});
    roots.push_back({"access-lists", configSm->ipAclConfig()});
    roots.push_back({"source-interfaces", configSm->sourceIntfSm()});
  }
  std::erase_if(roots, [](ModelRoot const& root) { return !root.object; });
  return roots;
}

ModelEntry readPath(std::span<ModelRoot const> roots, std::string_view path) {
  std::string const ascii = plainPath(path);
  return entryOf(ascii, resolve(roots, ascii));
}

ModelPage readTree(std::span<ModelRoot const> roots, std::string_view given, TreeBounds const& bounds) {
  std::string const path = plainPath(given), first = plainPath(bounds.from);
  std::vector<std::string> from;
  if (!first.empty()) {
    if (!isWithin(first, path)) failGone(first);
    from = partsAfter(first, path.size());
  }
  Tree tree(bounds.maxEntries);
  if (path.empty()) {
    addRoots(tree, roots, bounds.depth, from);
  } else {
    tree.add(path, resolve(roots, path), bounds.depth, from);
  }
  return std::move(tree.page);
}

}  // namespace pimbsr::host
