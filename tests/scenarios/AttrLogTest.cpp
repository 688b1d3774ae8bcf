#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "host/ModelTree.h"
#include "host/Router.h"
#include "model/Acl.h"
#include "model/Config.h"
#include "model/Interface.h"
#include "model/MessageCounters.h"
#include "model/SourceIntf.h"
#include "runtime/Context.h"
#include "runtime/Trace.h"
#include "tests/scenarios/ScenarioFile.h"
#include "tests/support/Mirror.h"

/// Attribute logs of all that the routers of a simulation hold: they change nothing.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using pimbsr::sim::Bytes;
using pimbsr::sim::Simulation;
using Zet::Ptr;
using Zet::PtrInterface;

/// A root and its copy, with a log between them.
class AnyMirror {
 public:
  virtual ~AnyMirror() = default;
  virtual void sync(std::size_t piece) = 0;
  virtual bool isEqual() const = 0;
};

template <class C>
class MirrorOf final : public AnyMirror {
 public:
  explicit MirrorOf(Ptr<C> const& root) : mirror_(root, emptyCopy(*root)) {}
  void sync(std::size_t piece) override {
    if (mirror_.out->needsSnapshot() || mirror_.out->pending() > 0) mirror_.sync(piece);
  }
  bool isEqual() const override {
    return mirror_.isEqual() && mirror_.demuxer->asked.empty() && mirror_.out->failures() == 0;
  }

 private:
  static Ptr<C> emptyCopy(C const& root) {
    if constexpr (std::is_constructible_v<C, Zet::Name>) {
      return Zet::make<C>(root.name());
    } else {
      return Zet::make<C>();
    }
  }
  Mirror<C> mirror_;
};

/// Whether the log carries more of a root than of any entity.
bool isLogged(PtrInterface const& root) {
  int rows = 0;
  Zet::NboAttrLog::forLogged(root.fwkType(), [&](Zet::AttributeRow const&) { ++rows; });
  return rows > 1;
}

/// The logs of all roots of all routers, from their first packet on.
class Logs : public pimbsr::sim::Tap {
 public:
  explicit Logs(Simulation& simulation) : simulation_(simulation) { simulation.network().tapAdd(this); }
  void onPacket(Zet::U32, double, Bytes) override { follow(); }

  /// Each packet is sent within a handler, where a log may be flushed too.
  void follow() {
    auto& network = simulation_.network();
    for (Zet::U32 i = 0; i < network.nodeCount(); ++i) {
      pimbsr::host::Router const* router = network.node(i).router();
      if (router != nullptr && routers_.insert(router->status()).second) addRoots(*router);
    }
    for (auto& [root, mirror] : mirrors_) mirror->sync(0);
  }
  /// The classes of the roots; each copy must equal its root.
  std::set<std::string> check() {
    std::set<std::string> classes;
    for (auto& [root, mirror] : mirrors_) {
      mirror->sync(100);
      EXPECT_TRUE(mirror->isEqual()) << root->fwkType().name;
      classes.insert(root->fwkType().name);
    }
    return classes;
  }

 private:
  struct ByAddress {
    bool operator()(Ptr<PtrInterface const> const& a, Ptr<PtrInterface const> const& b) const {
      return a.ptr() < b.ptr();
    }
  };

  void addRoots(pimbsr::host::Router const& router) {
    for (pimbsr::host::ModelRoot const& root : pimbsr::host::modelRoots(router)) {
      bool const isAdded =
          addAnyOf<Bsr::Status, Routing::Pim::Status, Routing::Pim::RpCandidateStatus,
                   Routing::Pim::Slosh::MessageCounters, Interface::AllIntfStatusDir, Bsr::Config,
                   Bsr::ClearConfig, Acl::AclTypeConfig, Ip::SourceIntf::SourceIntfSm>(root.object);
      EXPECT_EQ(isAdded, isLogged(*root.object)) << root.name;
    }
  }
  template <class... C>
  bool addAnyOf(Ptr<PtrInterface const> const& root) {
    return (addIf<C>(root) || ...);
  }
  template <class C>
  bool addIf(Ptr<PtrInterface const> const& root) {
    auto const* found = dynamic_cast<C const*>(root.ptr());
    if (found != nullptr) mirrors_[root] = std::make_unique<MirrorOf<C>>(const_cast<C*>(found));
    return found != nullptr;
  }

  Simulation& simulation_;
  /// These hold what they name, so that no address is used again.
  std::set<Ptr<PtrInterface const>, ByAddress> routers_;
  std::map<Ptr<PtrInterface const>, std::unique_ptr<AnyMirror>, ByAddress> mirrors_;
};

/// Packets as they were put on links.
class Packets : public pimbsr::sim::Tap {
 public:
  void onPacket(Zet::U32 link, double time, Bytes packet) override {
    all.push_back({link, time, {packet.begin(), packet.end()}});
  }
  struct Sent {
    Zet::U32 link;
    double time;
    std::vector<Zet::U8> bytes;
    bool operator==(Sent const&) const = default;
  };
  std::vector<Sent> all;
};

/// Counts packets that don't arrive.
class LossCounter : public pimbsr::sim::Listener {
 public:
  void onLoss(pimbsr::sim::Network const&, pimbsr::sim::Link const*, pimbsr::sim::Node const*,
              pimbsr::sim::Loss, Bytes) override {
    ++count;
  }
  int count = 0;
};

/// The next random numbers: one of each router, then those of the network, which are seen by the packets that
/// it drops of many on a link that loses half of them.
std::vector<int> nextDraws(Simulation& simulation) {
  auto& network = simulation.network();
  std::vector<int> draws;
  for (Zet::U32 i = 0; i < network.nodeCount(); ++i)
    draws.push_back(const_cast<Zet::Context&>(network.node(i).context()).rand());
  if (network.linkCount() == 0) return draws;
  LossCounter losses;
  simulation.recorderIs(&losses, pimbsr::sim::losses);
  network.linkUpIs(0, true);
  simulation.execute("faults loss 50%", "draws");
  std::vector<Zet::U8> const packet{0x45, 0, 0, 20, 0, 0, 0, 0, 1, 103, 0, 0, 10, 0, 0, 99, 224, 0, 0, 13};
  for (int i = 0; i < 64; ++i) {
    int const before = losses.count;
    network.inject(0, packet);
    draws.push_back(losses.count - before);
  }
  simulation.recorderIs(nullptr, 0);
  return draws;
}

/// What a play shows to the outside.
struct Played {
  std::vector<Block> blocks;
  std::vector<Packets::Sent> packets;
  std::vector<int> draws;         ///< the random numbers that would follow
  std::set<std::string> classes;  ///< of the roots that had a log
};

Played played(std::vector<Block> const& blocks, bool hasLogs) {
  Played result{.blocks = blocks};
  Packets packets;
  std::unique_ptr<Logs> logs;
  std::size_t calls = 0;  // before the first block and after each
  play(result.blocks, [&](Simulation& simulation) {
    if (calls == 0) simulation.network().tapAdd(&packets);
    if (hasLogs && !logs) logs = std::make_unique<Logs>(simulation);
    if (logs) {
      logs->follow();
      result.classes = logs->check();
    }
    if (calls++ < blocks.size()) return;
    result.packets = packets.all;
    result.draws = nextDraws(simulation);
  });
  return result;
}

class AttrLogs : public testing::Test {
 protected:
  AttrLogs() { tracesAre(true); }
  ~AttrLogs() override { tracesAre(false); }
  static void tracesAre(bool on) {
    for (Zet::TraceHandle* handle : Zet::TraceHandle::handles()) handle->enabledIs(on);
  }
  void expectSameWithLogs(std::vector<Block> const& blocks, std::string const& name) {
    Played const plain = played(blocks, false), logged = played(blocks, true);
    for (std::size_t i = 0; i < blocks.size(); ++i) {
      // Not EXPECT_EQ: the difference of two long texts takes minutes to print.
      EXPECT_TRUE(plain.blocks[i].output == logged.blocks[i].output) << name << ":" << blocks[i].line;
    }
    EXPECT_TRUE(plain.packets == logged.packets) << name;
    EXPECT_TRUE(plain.draws == logged.draws) << name;
    drawn.insert(logged.draws.begin(), logged.draws.end());
    classes.insert(logged.classes.begin(), logged.classes.end());
    packets += logged.packets.size();
    for (Block const& block : logged.blocks) traced |= block.output.find("PimBsrSm") != std::string::npos;
  }
  void expectAllSeen() const {
    EXPECT_EQ(classes.size(), 9u) << "each root that a log can follow has had one";
    EXPECT_GT(packets, 500u);
    EXPECT_TRUE(traced) << "traces are compared too";
    EXPECT_GT(drawn.size(), 20u) << "random numbers are compared too";
  }

  std::set<std::string> classes;
  std::set<int> drawn;
  std::size_t packets = 0;
  bool traced = false;
};

TEST_F(AttrLogs, ChangeNothingInAnyScenario) {
  for (auto const& path : scenarioFiles("scenarios")) expectSameWithLogs(readBlocks(path), path.stem());
  expectAllSeen();
}

TEST_F(AttrLogs, ChangeNothingWithAnyCorrection) {
  for (auto const& path : scenarioFiles("scenarios/corrected")) {
    CorrectedFile const file = readCorrected(path);
    for (Way const& way : file.ways) {
      expectSameWithLogs(file.blocksOf(way), path.stem().string() + " " + way.first);
    }
  }
  expectAllSeen();
}

}  // namespace
}  // namespace test
