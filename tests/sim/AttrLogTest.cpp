#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "runtime/Trace.h"
#include "tests/sim/SimSupport.h"
#include "tests/support/Mirror.h"

/// Attribute logs of all routers of a simulation: they change nothing.
namespace pimbsr::sim {
namespace {

namespace fs = std::filesystem;
using Routing::Pim::Bsr::Status;
using StatusMirror = test::Mirror<Status>;

/// Records all that happens, traces too, and follows the status of each router with a log if `hasLogs`.
class Course final : public Report {
 public:
  explicit Course(bool hasLogs) : hasLogs_(hasLogs) {}

  void onChanges(Node const& node, std::span<host::Change const> changes) override {
    diary.onChanges(node, changes);
    follow(node);
  }
  void onReception(Node const& node, NodeInterface const& intf, host::Reception const& what) override {
    diary.onReception(node, intf, what);
    follow(node);
  }
  void onNeighbor(Node const& node, NodeInterface const& intf, Lanet::IpGenAddr const& who,
                  bool up) override {
    diary.onNeighbor(node, intf, who, up);
    follow(node);
  }
  void onDr(Node const& node, NodeInterface const& intf, Lanet::IpGenAddr const& dr) override {
    diary.onDr(node, intf, dr);
    follow(node);
  }
  void onState(Node const& node, Lanet::IpGenPrefix const& zone,
               Routing::Pim::Bsr::BsrCandidateState state) override {
    diary.onState(node, zone, state);
    follow(node);
  }
  void onLoss(Network const& network, Link const* link, Node const* node, Loss loss, Bytes packet) override {
    diary.onLoss(network, link, node, loss, packet);
  }
  void onCommand(Network const& network, Statement const& statement) override {
    diary.onCommand(network, statement);
  }
  void onShow(Network const& network, Show const& show) override { diary.onShow(network, show); }
  void onTrace(Node const& node, Zet::TraceLine const& line) override {
    diary.lines.push_back(node.name() + " " + line.handle + " " + line.text);
  }
  void onLog(Node const& node, Zet::LogHandle const&, std::string const& text) override {
    diary.lines.push_back(node.name() + " log " + text);
  }

  /// Whether each copy equals its original; the number of copies in `copies`.
  bool areCopiesEqual(int& copies) {
    bool areEqual = true;
    for (auto& [status, mirror] : mirrors_) {
      mirror->sync(100);
      ++copies;
      areEqual = areEqual && mirror->isEqual() && mirror->demuxer->asked.empty();
    }
    return areEqual;
  }

  test::Diary diary;

 private:
  /// A router that has started is followed from its first event on; each later event flushes its log.
  void follow(Node const& node) {
    if (!hasLogs_ || node.router() == nullptr) return;
    Zet::Ptr<Status> status = node.router()->status();
    auto& mirror = mirrors_[status.ptr()];
    if (!mirror) {
      auto copy = Routing::Pim::Bsr::statusFactory(status->name());
      mirror = std::make_unique<StatusMirror>(status, copy);
    }
    mirror->sync();
  }

  bool hasLogs_;
  std::map<Status*, std::unique_ptr<StatusMirror>> mirrors_;
};

/// The statements of a scenario test, without what they must print.
std::string statementsOf(fs::path const& path) {
  std::ifstream file(path);
  std::string statements;
  bool isOutput = false;
  for (std::string line; std::getline(file, line);) {
    if (line == "----" || line == "====") {
      isOutput = line == "----";
    } else if (!isOutput) {
      statements += line + '\n';
    }
  }
  return statements;
}

struct Played {
  std::vector<std::string> lines;
  std::vector<test::Tapped> packets;
  U64 exceptions = 0;
  int copies = 0;
  bool areCopiesEqual = true;
};

/// Plays statements line by line, since a scenario test may state mistakes on purpose.
Played play(std::string const& statements, bool hasLogs) {
  Course course(hasLogs);
  test::TapRecorder tap;
  Simulation simulation(1, course, ~Kinds{0});
  simulation.network().tapAdd(&tap);
  std::istringstream lines(statements);
  for (std::string line; std::getline(lines, line);) {
    try {
      simulation.execute(line);
    } catch (std::exception const& e) {
      course.diary.lines.push_back(e.what());
    }
  }
  Played played{.exceptions = simulation.network().exceptions()};
  played.areCopiesEqual = course.areCopiesEqual(played.copies);
  played.lines = course.diary.lines;
  played.packets = tap.packets;
  return played;
}

class AttrLogs : public testing::Test {
 protected:
  AttrLogs() { tracesAre(true); }
  ~AttrLogs() override { tracesAre(false); }
  static void tracesAre(bool on) {
    for (Zet::TraceHandle* handle : Zet::TraceHandle::handles()) handle->enabledIs(on);
  }
};

TEST_F(AttrLogs, ChangeNothingInAnyScenario) {
  int copies = 0;
  for (auto const& entry : fs::directory_iterator(PIMBSR_SOURCE_DIR "/tests/scenarios")) {
    if (entry.path().extension() != ".txt") continue;
    std::string const statements = statementsOf(entry.path());
    Played const plain = play(statements, false);
    Played const logged = play(statements, true);
    EXPECT_EQ(plain.lines, logged.lines) << entry.path();
    EXPECT_EQ(plain.exceptions, logged.exceptions) << entry.path();
    ASSERT_EQ(plain.packets.size(), logged.packets.size()) << entry.path();
    for (std::size_t i = 0; i < plain.packets.size(); ++i) {
      EXPECT_EQ(plain.packets[i].time, logged.packets[i].time);
      EXPECT_EQ(plain.packets[i].bytes, logged.packets[i].bytes);
    }
    EXPECT_TRUE(logged.areCopiesEqual) << entry.path();
    copies += logged.copies;
  }
  EXPECT_GT(copies, 20);
}

}  // namespace
}  // namespace pimbsr::sim
