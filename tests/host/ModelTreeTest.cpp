#include "host/ModelTree.h"

#include <set>
#include <string>

#include "tests/support/Engine.h"

namespace test {
namespace {

using pimbsr::host::ModelEntry;
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

TEST_F(ModelTree, APathThatNamesNothingIsAnErrorThatSaysWhich) {
  EXPECT_EQ(error(""), " is no root; status, root, gate, bsm would be valid");
  EXPECT_EQ(error("stat"), "stat is no root; status, root, gate, bsm would be valid");
  EXPECT_EQ(error("status/colour"), "Routing::Pim::Bsr::Status has no attribute colour");
  EXPECT_EQ(error("status/af/x"), "af has no attributes");
  EXPECT_EQ(error("status/af['x']"), "af takes no key");
  EXPECT_EQ(error("status/cbsr['10.0.0.0/8']"), "cbsr has no member '10.0.0.0/8'");
  EXPECT_EQ(error("status/cbsr['10.0.0.0/8'"), "a key without ] after it: '10.0.0.0/8'");
  EXPECT_EQ(error("status/cbsr['239.0.0.0/8']x"), "no / before x");
  EXPECT_EQ(error("status/"), "nothing after the last /");
  EXPECT_NE(error("status/cbsr[x]"), "no error but ");
}

TEST_F(ModelTree, MethodsHaveNoPathAndNothingIsCalled) {
  EXPECT_EQ(error("root/handleInitialized"),
            "Routing::Pim::Bsr::PimBsrSm has no attribute handleInitialized");
}

TEST_F(ModelTree, EveryPathOfTheTreeIsTakenAndReadsTheSame) {
  std::set<std::string> types, paths;
  for (ModelEntry const& entry : readTree(roots, "", 100000)) {
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

TEST_F(ModelTree, ATreeBeginsAtItsPathAndEndsAtItsBound) {
  auto const entries = readTree(roots, "status/cbsr", 100);
  ASSERT_GT(entries.size(), 3u);
  EXPECT_EQ(entries[0].path, "status/cbsr");
  EXPECT_EQ(entries[1].path, "status/cbsr['239.0.0.0/8']");
  EXPECT_EQ(readTree(roots, "", 5).size(), 5u);
  EXPECT_THROW(readTree(roots, "none", 5), PathError);
}

}  // namespace
}  // namespace test
