#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "model/Config.h"
#include "model/Status.h"
#include "tests/support/Messages.h"
#include "tests/support/Mirror.h"
#include "tests/support/TestContext.h"

/// Random changes of a tree, with watchers that change it too, against its copy.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::Status;
using Zet::Ptr;
using Zet::U32;

/// One change, chosen by a few numbers.
struct Step {
  int what;
  int key;
  U32 value;
};

Lanet::IpGenPrefix zoneOf(int key) { return prefix("239." + std::to_string(key) + ".0.0/16"); }
Lanet::IpGenAddr addressOf(int key) { return addr("10.0.0." + std::to_string(key)); }

void changeCandidate(Status& status, Step const& step) {
  auto candidate = status.cbsrIs(zoneOf(step.key));
  candidate->priorityIs(static_cast<Zet::U16>(step.value));
  candidate->stateIs(static_cast<Bsr::BsrCandidateState>(step.value % 4));
}

void changeRp(Status& status, Step const& step) {
  auto set = status.crpStatusIs(zoneOf(step.key))->statusIs("set")->crpSetIs(zoneOf(step.key));
  if (step.value % 3 == 0) return set->rpDel(addressOf(step.key));
  set->rpIs(addressOf(step.key))->expiresIs(step.value);
}

void apply(Status& status, Step const& step) {
  switch (step.what) {
    case 0:
      return status.bsTimeoutIs(step.value);
    case 1:
      return status.zoneAclIs(Zet::format("acl%d", step.key), intf("eth" + std::to_string(step.value)));
    case 2:
      return void(status.zoneAclDel(Zet::format("acl%d", step.key)));
    case 3:
      return void(status.cbsrIs(zoneOf(step.key)));
    case 4:
      return status.cbsrDel(zoneOf(step.key));
    case 5:
      return changeCandidate(status, step);
    case 6:
      return status.cbsrDelAll();
    case 7:
      return changeRp(status, step);
    case 8:
      return status.crpStatusDel(zoneOf(step.key));
    case 9:
      return status.countersIs("c")->rxInc(step.value);
    case 10:
      return status.countersDel();
    default:
      return status.crpPermitIs(zoneOf(step.key), step.value % 2 == 0);
  }
}

/// Makes its own changes inside handlers, at most so many.
class Meddler : public Status::Notifiee {
 public:
  explicit Meddler(std::vector<Step> steps) : steps_(std::move(steps)) {}
  void onBsTimeout() override { next(); }
  void onCbsr(Lanet::IpGenPrefix const&) override { next(); }
  void onCrpStatus(Lanet::IpGenPrefix const&) override { next(); }
  void onCounters() override { next(); }
  void onZoneAcl(Zet::String8 const&) override { next(); }

 private:
  void next() {
    if (steps_.empty()) return;
    Step const step = steps_.back();
    steps_.pop_back();
    apply(*notifier(), step);
  }
  std::vector<Step> steps_;
};

rc::Gen<std::vector<Step>> steps() {
  return rc::gen::container<std::vector<Step>>(rc::gen::map(
      rc::gen::tuple(rc::gen::inRange(0, 12), rc::gen::inRange(0, 3), rc::gen::inRange<U32>(0, 6)),
      [](std::tuple<int, int, U32> const& t) {
        return Step{std::get<0>(t), std::get<1>(t), std::get<2>(t)};
      }));
}

class AttrLogProperty : public ModelTest {};

RC_GTEST_FIXTURE_PROP(AttrLogProperty, ACopyIsEqualAfterEachFlush, ()) {
  auto status = Bsr::statusFactory("bsr");
  Mirror<Status> mirror(status, Bsr::statusFactory("bsr"));
  auto before = Zet::make<Meddler>(*steps());
  before->notifierIs(status);
  if (*rc::gen::arbitrary<bool>()) mirror.sync();  // else the log comes after all watchers
  auto after = Zet::make<Meddler>(*steps());
  after->notifierIs(status);
  mirror.sync();
  for (Step const& step : *steps()) {
    apply(*status, step);
    if (*rc::gen::arbitrary<bool>()) continue;
    mirror.sync(*rc::gen::inRange<std::size_t>(1, 40));
    RC_ASSERT(logged(*status) == logged(*mirror.copy));
  }
  mirror.sync();
  RC_ASSERT(logged(*status) == logged(*mirror.copy));
  RC_ASSERT(mirror.demuxer->asked.empty());
}

RC_GTEST_FIXTURE_PROP(AttrLogProperty, AnyLossIsRepairedByOneSnapshot, ()) {
  auto status = Bsr::statusFactory("bsr");
  Mirror<Status> mirror(status, Bsr::statusFactory("bsr"));
  mirror.sync();
  for (Step const& step : *steps()) {
    apply(*status, step);
    if (*rc::gen::inRange(0, 4) == 0) {
      mirror.out->flush();  // to no one
    } else {
      mirror.sync();
    }
  }
  mirror.out->snapshotIs();
  mirror.sync();
  RC_ASSERT(logged(*status) == logged(*mirror.copy));
}

RC_GTEST_FIXTURE_PROP(AttrLogProperty, AnyBytesLeaveTheCopyUsable, ()) {
  auto status = Bsr::statusFactory("bsr");
  Mirror<Status> mirror(status, Bsr::statusFactory("bsr"));
  for (Step const& step : *steps()) apply(*status, step);
  mirror.sync();
  status->cbsrIs(zoneOf(9))->priorityIs(7);
  mirror.tape->bytes.clear();
  mirror.out->snapshotIs();
  mirror.out->flush();
  std::vector<Zet::U8> bytes = mirror.tape->bytes;
  for (int i = *rc::gen::inRange(1, 4); i > 0; --i) {
    bytes[*rc::gen::inRange<std::size_t>(0, bytes.size())] = *rc::gen::arbitrary<Zet::U8>();
  }
  mirror.demuxer->bytes(bytes);
  mirror.demuxer->reset();
  mirror.out->snapshotIs();
  mirror.sync();
  RC_ASSERT(logged(*status) == logged(*mirror.copy));
}

}  // namespace
}  // namespace test
