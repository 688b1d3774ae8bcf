#pragma once

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/Export.h"
#include "runtime/Ptr.h"

namespace pimbsr::host {

class Router;

/// The model by name: entities, machines and records, with their attributes, read through the rows that the
/// declarations made.
///
/// A path is the name of a root and then, each after a slash, the names of attributes. The member of a
/// collection is named by its key in brackets: status/cbsr['239.0.0.0/8']/priority. A key is written in the
/// text form of its type: numbers as they are; addresses, prefixes, interfaces and strings in single quotes,
/// in which a backslash precedes a quote or a backslash. Within quotes, slashes and brackets are part of the
/// key. A byte that is no printable ASCII, and a percent sign, is a percent sign and two hexadecimal digits,
/// so that a path is one line of ASCII whatever a key holds. Values are written in the same way. A path that
/// is given may have such bytes as they are; the entries have it in ASCII.

/// Objects in objects end here; the declarations nest less deep.
inline constexpr int maxTreeDepth = 24;

/// An object from which paths begin.
struct ModelRoot {
  std::string name;                          ///< with which paths begin, such as "status"
  Zet::Ptr<Zet::PtrInterface const> object;  ///< never null
};

/// What a path names.
struct ModelEntry {
  std::string path;   ///< from the name of a root on, in ASCII
  std::string type;   ///< of the value, the object or the members
  std::string value;  ///< text form; of a collection the number of its members
  std::string unit;   ///< empty if it has none
};

/// A path that names nothing. The text says at which column of it in ASCII, counted from 1, and what is
/// nearest to it there. It is printable ASCII, and of a long name or key it has a part.
class PIMBSR_API PathError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The objects of a router: what it has learned, its machines and the exchange points between them, and the
/// configuration where there is one.
PIMBSR_API std::vector<ModelRoot> modelRoots(Router const& router);

/// What a path names. Raises PathError. An absent key of a collection of plain values reads as the default
/// value, as the accessor gives it; an absent object is an error.
PIMBSR_API ModelEntry readPath(std::span<ModelRoot const> roots, std::string_view path);

/// How much of a tree is wanted.
struct TreeBounds {
  std::size_t maxEntries = 1000;  ///< above 0
  int depth = maxTreeDepth;       ///< steps below the path, a name or a key each: 0 to maxTreeDepth
  std::string from;               ///< ModelPage::next of the page before; empty for the first page
};

/// A part of a tree, and where the next part begins.
struct ModelPage {
  std::vector<ModelEntry> entries;  ///< in the order of the rows and of the collections
  std::string next;                 ///< path of the first entry that isn't here; empty at the end
};

/// What a path names and all that is in it, in the order of the rows and of the collections; of all roots for
/// the empty path. readPath() takes each path that it gives. Its pages are of the times at which they are
/// read. Besides its entries, a page costs one walk over each collection that `from` is in. Raises PathError,
/// also where the entry of `from` is gone or isn't in the tree.
PIMBSR_API ModelPage readTree(std::span<ModelRoot const> roots, std::string_view path,
                              TreeBounds const& bounds = {});

}  // namespace pimbsr::host
