// Any text -> a path into the model. It names something or is an error; what it names is also the first entry
// of the tree from there, and each path of that tree is taken.

#include <cstdint>
#include <string_view>
#include <vector>

#include "fuzz/Goal.h"
#include "host/ModelTree.h"
#include "model/Status.h"
#include "runtime/Assert.h"

namespace {

using pimbsr::host::ModelEntry;
using pimbsr::host::ModelRoot;
using pimbsr::host::PathError;

fuzz::Goal memberNamed("an attribute of a member");
fuzz::Goal quoteNamed("a key with a quote in it");

std::vector<ModelRoot> makeRoots() {
  auto status = Routing::Pim::Bsr::statusFactory("bsr");
  auto const zone = Lanet::IpGenPrefix::parse("239.0.0.0/8");
  status->cbsrIs(zone)->priorityIs(5);
  status->zoneAclIs("it's [a/b]\\", Lanet::IntfId("eth0"));
  status->crpStatusIs(zone)->statusIs("set")->crpSetIs(zone)->rpIs(Lanet::IpGenAddr::parse("10.0.0.1"));
  return {{"status", status}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static std::vector<ModelRoot> const roots = makeRoots();
  std::string_view const path(reinterpret_cast<char const*>(data), size);
  try {
    ModelEntry const entry = readPath(roots, path);
    memberNamed.reachedIf(entry.path == "status/cbsr['239.0.0.0/8']/priority" && entry.value == "5");
    quoteNamed.reachedIf(entry.value == "'eth0'");
    auto const tree = readTree(roots, path, {.maxEntries = 50});
    ZET_ASSERT(tree.entries.front().value == entry.value, "a tree begins with what its path names");
    if (!tree.next.empty()) {
      auto const rest = readTree(roots, path, {.maxEntries = 1, .from = tree.next});
      ZET_ASSERT(rest.entries.front().path == tree.next, "a page begins where the one before ended");
    }
    for (ModelEntry const& each : tree.entries) {
      ZET_ASSERT(readPath(roots, each.path).value == each.value, "a path of a tree is taken");
    }
  } catch (PathError const&) {
    // no path into the model
  }
  return 0;
}
