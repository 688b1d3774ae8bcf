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
/// key.

/// An object from which paths begin.
struct ModelRoot {
  std::string name;
  Zet::Ptr<Zet::PtrInterface const> object;
};

/// What a path names.
struct ModelEntry {
  std::string path;
  std::string type;   ///< of the value, the object or the members
  std::string value;  ///< text form; of a collection the number of its members
  std::string unit;   ///< empty if it has none
};

/// A path that names nothing. The text says which part, and what would be valid where that is a short list.
class PIMBSR_API PathError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The objects of a router: status, pim, rp-set, machines, and the configuration where there is one.
PIMBSR_API std::vector<ModelRoot> modelRoots(Router const& router);

/// What a path names. Raises PathError. An absent key of a collection of plain values reads as the default
/// value, as the accessor gives it; an absent object is an error.
PIMBSR_API ModelEntry readPath(std::span<ModelRoot const> roots, std::string_view path);

/// The same with all that is in it, in the order of the rows and of the collections; of all roots for the
/// empty path. It stops after `max` entries. readPath() takes each path that it gives. Raises PathError.
PIMBSR_API std::vector<ModelEntry> readTree(std::span<ModelRoot const> roots, std::string_view path,
                                            std::size_t max);

}  // namespace pimbsr::host
