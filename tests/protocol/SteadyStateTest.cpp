// A router spends its days on messages that repeat what is known: they must allocate nothing.

#include "tests/support/Allocations.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using Routing::Pim::Packet::BootstrapMessage;
using Zet::Ptr;
using Zet::U32;

std::string const range = "239.1.0.0/16";
std::string const one = "203.0.113.1";
std::string const two = "203.0.113.2";

/// Sends nothing, and says that it did.
class Sink : public Routing::Pim::IO::MessageInfo::Notifiee {
 public:
  explicit Sink(Ptr<Routing::Pim::IO::PamCounter> sent) : sent_(std::move(sent)) {}
  void onCount() override { sent_->txCountInc(1); }

 private:
  Ptr<Routing::Pim::IO::PamCounter> sent_;
};

/// Counts the changes of one RP.
class RpListener : public Routing::Pim::RpCandidate::NotifieeConst {
 public:
  void onPriority() override { ++changes; }
  int changes = 0;
};

class Timer : public Kiv::TimerWheel::NotifieeConst {};

/// Runs with traces off, as a router does.
class SteadyState : public testing::Test {
 protected:
  SteadyState() {
    engine.outbox->notifierIs(nullptr);
    sink->notifierIs(engine.manager->txMessageInfo());
    engine.rpf->neighbors[addr(Bsm().bsr)] = addr(Bsm().source);
    for (char const* name : {"eth0", "eth1", "eth2"}) engine.addIntf(name);
  }
  void TearDown() override { EXPECT_EQ(context.notificationExceptions(), 0u); }

  void later() { context.nowIs(context.now() + 1); }

  Zet::Context context;
  Zet::Context::Scope scope{context};
  Engine engine;
  Ptr<Sink> sink = Zet::make<Sink>(engine.manager->txPamCounter());
};

TEST_F(SteadyState, TheCountSeesAnAllocation) {
  EXPECT_EQ(allocationsOf([] { Zet::make<BootstrapMessage>(); }), 1);
  EXPECT_EQ(allocationsOf([] {}), 0);
}

// A message -------------------------------------------------------------------------------------------

/// A zone, and the message that is repeated in it.
struct Scenario {
  std::string name;
  std::string zone;
  Bsm given;
};

class RepeatedMessage : public SteadyState, public testing::WithParamInterface<Scenario> {
 protected:
  RepeatedMessage() {
    for (int i = 0; i < 2; ++i) engine.receive(make(scenario.given));
    expires = mirrored()->expires();
    later();
  }
  Ptr<Routing::Pim::RpCandidate> mirrored() const {
    return engine.rpCandidateStatus->crpSet(prefix(range))->rp(addr(one));
  }

  Scenario const& scenario = GetParam();
  Ptr<BootstrapMessage> repeated = make(scenario.given);
  double expires;
};

TEST_P(RepeatedMessage, RefreshesStoredAndMirroredRpsWithoutAnAllocation) {
  Lanet::IpGenPrefix const zone = prefix(scenario.zone);
  EXPECT_EQ(allocationsOf([&] { engine.root->storeRpSet(zone, repeated, false); }), 0);
  EXPECT_EQ(engine.rp(scenario.zone, range, one)->expires(), expires + 1);
  EXPECT_EQ(mirrored()->expires(), expires + 1);
}

TEST_P(RepeatedMessage, IsCheckedAndForwardedWithoutAnAllocation) {
  Lanet::IntfId const eth0 = intf("eth0");
  U32 const sent = engine.manager->txPamCounter()->txCount();
  int const made = allocationsOf([&] {
    engine.bsmInfo->intfIdIs(eth0);
    engine.bsmInfo->messageIs(repeated);
    engine.bsmInfo->countInc(1);
  });
  EXPECT_EQ(made, 0);
  EXPECT_EQ(mirrored()->expires(), expires + 1);
  EXPECT_EQ(engine.manager->txPamCounter()->txCount(), sent + 3);
}

Scenario const scenarios[] = {
    {"ofTheGlobalZone",
     "224.0.0.0/4",
     {.groups = {{range, {{one}, {two}}}, {"232.0.0.0/8", {{one, 200, 7}}}}}},
    {"ofAScopedZone",
     "239.0.0.0/8",
     {.groups = {{"239.0.0.0/8", {}, scopedFlag}, {range, {{one}, {two}}}, {"239.2.0.0/16", {{two}}}}}},
    {"ofBidirectionalRanges", "224.0.0.0/4", {.groups = {{range, {{one}, {two}}, bidirFlag}}}},
};
INSTANTIATE_TEST_SUITE_P(Zones, RepeatedMessage, testing::ValuesIn(scenarios),
                         [](auto const& scenario) { return scenario.param.name; });

// A write and a timer ---------------------------------------------------------------------------------

TEST_F(SteadyState, AWriteThatEightReactorsHearOfAllocatesNothing) {
  engine.receive(make(scenarios[0].given));
  auto rp = engine.rp(scenarios[0].zone, range, one);
  std::vector<Ptr<RpListener>> listeners(7);  // beside the one that the zone's tree has
  for (auto& listener : listeners) {
    listener = Zet::make<RpListener>();
    listener->notifierIs(rp);
  }
  U32 const priority = rp->priority().value();
  EXPECT_EQ(allocationsOf([&] { rp->priorityIs(priority); }), 0);
  EXPECT_EQ(listeners.back()->changes, 0);
  EXPECT_EQ(allocationsOf([&] { rp->priorityIs(priority + 1); }), 0);
  EXPECT_EQ(listeners.back()->changes, 1);
}

TEST_F(SteadyState, ArmingATimerAnewAllocatesNothing) {
  std::vector<Ptr<Timer>> timers(1000);
  // Each before the last, so that most find no run to be appended to.
  double time = context.now() + 2000;
  for (auto& timer : timers) {
    timer = Zet::make<Timer>();
    timer->notifierIs(engine.wheel);
    timer->timeMinIs(time -= 1);
  }
  EXPECT_EQ(allocationsOf([&] {
              for (auto& timer : timers) timer->timeMinIs(timer->timeMin() + 50);
              for (auto& timer : timers) timer->timeMinIs(timer->timeMin() - 80);
              for (auto& timer : timers) timer->timeMinIs(Kiv::never);
            }),
            0);
}

}  // namespace
}  // namespace test
