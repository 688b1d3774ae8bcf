#include "host/ModelTree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string>

#include "tests/support/Engine.h"

namespace test {
namespace {

using pimbsr::host::ModelEntry;
using pimbsr::host::ModelPage;
using pimbsr::host::ModelRoot;
using pimbsr::host::PathError;
using pimbsr::host::readPath;
using pimbsr::host::readTree;

class ModelTree : public EngineTest {
 protected:
  ModelTree() {
    engine.addIntf("eth0");
    engine.receive({.groups = {{"224.0.0.0/4", {{"203.0.113.1"}}}}});
    engine.status->cbsrIs(prefix("239.0.0.0/8"))->priorityIs(9);
    engine.status->crpIs(addr("10.9.9.9"))->prefixOptionsIs(prefix("224.0.0.0/4"))->priorityIs(7);
    engine.status->zoneAclIs("it's [a/b]\\", intf("eth0"));
  }
  std::string read(std::string const& path) { return readPath(roots, path).value; }
  std::string error(std::string const& path) {
    try {
      return "no error but " + read(path);
    } catch (PathError const& e) {
      return e.what();
    }
  }
  /// Of a page that begins at a path.
  std::string errorFrom(std::string const& from) {
    try {
      readTree(roots, "status", {.from = from});
      return "no error";
    } catch (PathError const& e) {
      return e.what();
    }
  }

  std::vector<ModelRoot> roots{
      {"status", engine.status}, {"root", engine.root}, {"gate", engine.gate}, {"bsm", engine.bsmStatus}};
};

TEST_F(ModelTree, APathNamesAnAttributeOfAnEntityOrAMachine) {
  EXPECT_EQ(read("status/af"), "'ipv4'");
  EXPECT_EQ(read("status/cbsr['239.0.0.0/8']/priority"), "9");
  EXPECT_EQ(read("status/cbsr['239.0.0.0/8']/priorityUnknown"), "256");
  EXPECT_EQ(read("status/cbsr['239.0.0.0/8']"), "Entity('Routing::Pim::Bsr::BsrCandidate', '239.0.0.0/8')");
  EXPECT_EQ(read("status/cbsr"), "1");
  EXPECT_EQ(read("status/zoneAcl['it\\'s [a/b]\\\\']"), "'eth0'");
  EXPECT_EQ(read("root/nonCandidateSm['224.0.0.0/4']/state"), "'acceptPreferred'");
  EXPECT_EQ(read("root/pimIntf['eth0']"), "Entity('Routing::Pim::Intf', 'eth0')");
  EXPECT_EQ(readPath(roots, "status/bootstrapRouter['224.0.0.0/4']/setupTime").unit, "s");
}

TEST_F(ModelTree, APathThatNamesNothingIsAnErrorThatSaysWhereAndWhatIsNearest) {
  struct Case {
    char const* path;
    char const* text;
  };
  Case const cases[] = {
      {"", "column 1: an empty name is no root; valid are status, root, gate, bsm"},
      {"stat", "column 1: stat is no root; valid are status, root, gate, bsm"},
      {"status['x']", "column 1: status is no root; valid are status, root, gate, bsm"},
      {"status/crbs", "column 8: Routing::Pim::Bsr::Status has no attribute crbs; nearest: cbsr, crp, "},
      {"status/af/x", "column 11: af has no attributes"},
      {"status/af['x']", "column 11: af takes no key"},
      {"status/cbsr['239.0.0.0/9']",
       "column 13: cbsr has no member '239.0.0.0/9'; nearest: '239.0.0.0/8', '10.0.0.0/8'"},
      {"status/cbsr['10.0.0.0/8'", "column 13: a key without ] after it: '10.0.0.0/8'"},
      {"status/cbsr['239.0.0.0/8']x", "column 27: no / before x"},
      {"status/", "column 8: nothing after the last /"},
      {"status/cbsr[x]", "column 13: cbsr takes no such key: "},
      {"status/zoneAcl[x]/y", "column 16: zoneAcl takes no such key: "},
      {"status/zoneAcl['%4']", "column 17: a % without two hexadecimal digits after it"},
      {"status/zoneAcl['%-1']", "column 17: a % without two hexadecimal digits after it"},
      {"status/\x1b(0m\xff", "column 8: Routing::Pim::Bsr::Status has no attribute %1b(0m%ff; nearest: "},
      {"/status", "column 1: an empty name is no root"},
      {"status//af", "column 8: Routing::Pim::Bsr::Status has no attribute "},
      {"status[", "column 8: a key without ] after it"},
      {"status/cbsr[]", "column 13: cbsr takes no such key: "},
      {"status/cbsr['239.0.0.0/8']['239.0.0.0/8']", "column 27: no / before ["},
      {"status/cbsr['239.0.0.0/8'x]", "column 13: cbsr takes no such key: "},
      {"status/cbsr['239.0.0.0/8\\']", "column 13: a key without ] after it"},
      {"status/cbsr['999.0.0.0/8']", "column 13: cbsr takes no such key: "},
      {"status/cbsr['\xff\n']", "column 13: cbsr takes no such key: "},
      {"status/cbsr['239.0.0.0/8']/zone/zone", "column 33: zone has no attributes"},
      {"bsm/bsmStatus", "column 5: Routing::Pim::Bsr::PimBsmStatus has no attribute bsmStatus"},
  };
  engine.status->cbsrIs(prefix("10.0.0.0/8"));
  for (Case const& c : cases) EXPECT_THAT(error(c.path), testing::StartsWith(c.text)) << c.path;
}

TEST_F(ModelTree, AnAbsentKeyHasTheThreeNearestOfManyMembers) {
  for (int i = 0; i < 200; ++i) engine.status->crpIs(addr("10.8." + std::to_string(i) + ".1"));
  std::string const text = error("status/crp['10.9.9.8']");
  EXPECT_THAT(text, testing::HasSubstr("; nearest: '10.9.9.9', "));
  EXPECT_EQ(std::count(text.begin(), text.end(), ','), 2);
}

TEST_F(ModelTree, MethodsHaveNoPathAndNothingIsCalled) {
  EXPECT_THAT(
      error("root/handleInitialized"),
      testing::StartsWith("column 6: Routing::Pim::Bsr::PimBsrSm has no attribute handleInitialized"));
}

TEST_F(ModelTree, AnyByteOfAKeyIsInAPathOfPlainAscii) {
  std::string every;
  for (int byte = 1; byte < 256; ++byte) every += static_cast<char>(byte);
  engine.status->zoneAclIs(Zet::String8(every), intf(every.substr(120, 15).c_str()));
  std::size_t found = 0;
  for (ModelEntry const& entry : readTree(roots, "status/zoneAcl").entries) {
    for (char c : entry.path + entry.value) EXPECT_TRUE(c >= ' ' && c <= '~') << entry.path;
    found += entry.path.find("%01%02") != std::string::npos;
    EXPECT_EQ(read(entry.path), entry.value);
  }
  EXPECT_EQ(found, 1u);
  EXPECT_EQ(read("status/zoneAcl['it%5c%27s [a/b]%5C%5C']"), "'eth0'");
}

TEST_F(ModelTree, APathGivenWithAnyByteIsInAsciiInItsEntries) {
  std::string const raw = "status/zoneAcl['a\xff\n\x1b']", ascii = "status/zoneAcl['a%ff%0a%1b']";
  engine.status->zoneAclIs("a\xff\n\x1b", intf("eth1"));
  EXPECT_EQ(readPath(roots, raw).path, ascii);
  EXPECT_EQ(read(raw), "'eth1'");
  EXPECT_EQ(readTree(roots, raw).entries.front().path, ascii);
  EXPECT_EQ(readTree(roots, raw, {.from = ascii}).entries.front().path, ascii);
  EXPECT_EQ(readTree(roots, "status/zoneAcl", {.from = raw}).entries.front().path, ascii);
}

TEST_F(ModelTree, AnErrorIsPrintableAsciiAndHasAPartOfALongPath) {
  std::string const names(4000, 'x'), bytes(4000, '\xff');
  for (std::string const& path :
       {names, "status/" + names, "status/cbsr['" + names + "']", "status/zoneAcl['" + names, bytes,
        "status/" + bytes, "status/cbsr['" + bytes + "']", "status/cbsr['" + bytes, "status" + bytes}) {
    for (std::string const& text : {error(path), errorFrom(path), errorFrom("status/" + path)}) {
      EXPECT_LE(text.size(), 1200u);
      EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; })) << text;
    }
  }
}

TEST_F(ModelTree, EveryPathOfTheTreeIsTakenAndReadsTheSame) {
  std::set<std::string> types, paths;
  for (ModelEntry const& entry : readTree(roots, "", {.maxEntries = 100000}).entries) {
    ModelEntry const read = readPath(roots, entry.path);
    EXPECT_EQ(read.value, entry.value) << entry.path;
    EXPECT_EQ(read.type, entry.type) << entry.path;
    EXPECT_TRUE(paths.insert(entry.path).second) << entry.path;
    types.insert(entry.type);
  }
  for (char const* type :
       {"Routing::Pim::Bsr::Status", "Routing::Pim::Bsr::BsrCandidate", "Routing::Pim::RpCandidate",
        "Routing::Pim::Bsr::PimBsrSm", "Routing::Pim::Bsr::BsrNonCandidateSm",
        "Routing::Pim::Bsr::RpCandidateSm", "Routing::Pim::Bsr::PimBsrTrieBuilderSm",
        "Routing::Pim::Packet::BootstrapMessage"}) {
    EXPECT_TRUE(types.contains(type)) << type;
  }
}

TEST_F(ModelTree, ATreeBeginsAtItsPathAndEndsAtItsBounds) {
  auto const entries = readTree(roots, "status/cbsr").entries;
  ASSERT_GT(entries.size(), 3u);
  EXPECT_EQ(entries[0].path, "status/cbsr");
  EXPECT_EQ(entries[1].path, "status/cbsr['239.0.0.0/8']");
  EXPECT_EQ(readTree(roots, "", {.maxEntries = 5}).entries.size(), 5u);
  EXPECT_EQ(readTree(roots, "status/cbsr", {.depth = 0}).entries.size(), 1u);
  EXPECT_EQ(readTree(roots, "status/cbsr", {.depth = 1}).entries.size(), 2u);
  EXPECT_EQ(readTree(roots, "status/cbsr", {.depth = 2}).entries.size(), entries.size());
  EXPECT_EQ(readTree(roots, "", {.depth = 0}).entries.size(), roots.size());
  EXPECT_THROW(readTree(roots, "none"), PathError);
}

/// All entries of a tree, read in pages.
std::vector<std::string> pathsInPages(std::vector<ModelRoot> const& roots, std::string const& path,
                                      std::size_t max) {
  std::vector<std::string> paths;
  ModelPage page;
  do {
    page = readTree(roots, path, {.maxEntries = max, .from = page.next});
    EXPECT_LE(page.entries.size(), max);
    for (ModelEntry const& entry : page.entries) paths.push_back(entry.path);
  } while (!page.next.empty());
  return paths;
}

TEST_F(ModelTree, PagesOfAnyLengthAreTheWholeTree) {
  for (int i = 0; i < 5; ++i) engine.status->cbsrIs(prefix("239." + std::to_string(i) + ".0.0/16"));
  for (std::string const path : {"", "status", "status/cbsr", "root/nonCandidateSm['224.0.0.0/4']"}) {
    auto const whole = pathsInPages(roots, path, 100000);
    for (std::size_t max : {3, 50}) EXPECT_EQ(pathsInPages(roots, path, max), whole) << path << max;
  }
}

TEST_F(ModelTree, APageWhoseBeginningIsGoneIsAnError) {
  engine.status->cbsrIs(prefix("239.9.0.0/16"));
  std::string const from = "status/cbsr['239.9.0.0/16']/priority";
  EXPECT_EQ(readTree(roots, "status", {.from = from}).entries.front().path, from);
  engine.status->cbsrDel(prefix("239.9.0.0/16"));
  struct Case {
    char const* path;
    std::string from;
  };
  for (Case const& c :
       {Case{"status", from}, Case{"", from}, Case{"status/crp", from}, Case{"", "none"},
        Case{"status", "status/none"}, Case{"status/cb", "status/cbsr"}, Case{"status", "status/af/none"}}) {
    EXPECT_THROW(readTree(roots, c.path, {.from = c.from}), PathError) << c.path << " " << c.from;
  }
}

}  // namespace
}  // namespace test
