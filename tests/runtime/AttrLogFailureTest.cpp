#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/Config.h"
#include "model/Status.h"
#include "tests/support/Allocations.h"
#include "tests/support/Messages.h"
#include "tests/support/Mirror.h"
#include "tests/support/TestContext.h"

/// Failures inside the attribute log: they reach no one else, and a snapshot repairs what they left.
namespace test {
namespace {

namespace Bsr = Routing::Pim::Bsr;
using Bsr::Status;
using Zet::Ptr;
using Zet::U32;
using Zet::U64;
using Bytes = std::vector<Zet::U8>;
using Flows = std::vector<U32>;

/// A status tree with a candidate and its copy, and a configuration in the same channel.
class AttrLogFailure : public ModelTest {
 protected:
  AttrLogFailure() {
    otherFlow->rootIs<Bsr::Config>(config);
    mirror.demuxer->copyIs(8, copyOfConfig);
    mirror.sync();
    otherFlow->flush();
    mirror.demuxer->bytes(mirror.tape->bytes);
    mirror.tape->bytes.clear();
  }
  /// A member comes of which the copy hears nothing.
  void loseMember() {
    status->cbsrIs(zone);
    mirror.out->flush();
    mirror.tape->bytes.clear();
  }
  /// A change that the copy can't apply, and a change of the other flow after it.
  Bytes changes(Zet::U16 priority, U32 holdTime) {
    status->cbsr(zone)->priorityIs(priority);
    mirror.out->flush();
    config->holdTimeIs(holdTime);
    otherFlow->flush();
    return std::exchange(mirror.tape->bytes, {});
  }
  void raiseOnAsk() {
    mirror.demuxer->onAsk = [] { throw std::runtime_error("no connection"); };
  }

  Lanet::IpGenPrefix const zone = prefix("239.0.0.0/8");
  Ptr<Status> status = Bsr::statusFactory("bsr");
  Ptr<Bsr::Config> config = Bsr::configFactory("bsr"), copyOfConfig = Bsr::configFactory("bsr");
  Mirror<Status> mirror{status, Bsr::statusFactory("bsr")};
  Ptr<Zet::NboAttrLog::FlowOut> otherFlow = Zet::make<Zet::NboAttrLog::FlowOut>(8, mirror.tape);
};

// The host raises ---------------------------------------------------------------------------------------

TEST_F(AttrLogFailure, ARaisingHostLosesNoByteOfThoseThatFollow) {
  loseMember();
  raiseOnAsk();
  EXPECT_NO_THROW(mirror.demuxer->bytes(changes(1, 200)));
  EXPECT_EQ(copyOfConfig->holdTime(), 200u);
  EXPECT_EQ(mirror.demuxer->asked, Flows{mirror.flow});
  EXPECT_EQ(mirror.demuxer->lastError(), "no connection");
  EXPECT_FALSE(mirror.demuxer->hasNotificationActive());
}

TEST_F(AttrLogFailure, ARaisingHostLosesNoByteInPiecesOfAnySize) {
  loseMember();
  raiseOnAsk();
  Bytes const bytes = changes(1, 200);
  for (Zet::U8 const& byte : bytes) EXPECT_NO_THROW(mirror.demuxer->bytes({&byte, 1}));
  EXPECT_EQ(copyOfConfig->holdTime(), 200u);
}

TEST_F(AttrLogFailure, AHostThatRaisedIsAskedAgainByTheNextChangeUntilItTakesIt) {
  loseMember();
  raiseOnAsk();
  for (Zet::U16 i = 1; i <= 3; ++i) mirror.demuxer->bytes(changes(i, 200u + i));
  EXPECT_EQ(mirror.demuxer->asked.size(), 3u);
  mirror.demuxer->onAsk = [] { throw 1; };
  EXPECT_NO_THROW(mirror.demuxer->bytes(changes(4, 300)));
  EXPECT_EQ(mirror.demuxer->lastError(), "an exception of unknown type");
  mirror.demuxer->onAsk = nullptr;
  for (Zet::U16 i = 5; i <= 7; ++i) mirror.demuxer->bytes(changes(i, 200u + i));
  EXPECT_EQ(mirror.demuxer->asked.size(), 5u) << "asked once it was taken";
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual()) << logged(*mirror.copy);
}

TEST_F(AttrLogFailure, AHostThatSendsTheSnapshotAndRaisesThenHasARepairedCopy) {
  loseMember();
  mirror.demuxer->onAsk = [&] {
    mirror.out->snapshotIs();
    mirror.tape->bytes.clear();
    mirror.out->flush();
    mirror.demuxer->bytes(mirror.tape->bytes);
    throw std::runtime_error("too late");
  };
  mirror.demuxer->bytes(changes(1, 200));
  EXPECT_TRUE(mirror.isEqual()) << logged(*mirror.copy);
  mirror.demuxer->onAsk = nullptr;
  mirror.tape->bytes.clear();
  mirror.demuxer->bytes(changes(2, 201));
  EXPECT_EQ(mirror.demuxer->asked, Flows{mirror.flow}) << "nothing is due any more";
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLogFailure, AHostThatResetsTheReaderAndRaisesIsAskedByEachFlowWhoseNextChangeFails) {
  loseMember();
  mirror.demuxer->onAsk = [&] {
    mirror.demuxer->reset();
    throw std::runtime_error("no connection");
  };
  mirror.demuxer->bytes(changes(1, 200));
  EXPECT_EQ(mirror.demuxer->asked, (Flows{mirror.flow, 8}));
  mirror.demuxer->bytes(changes(2, 201));
  EXPECT_EQ(mirror.demuxer->asked, (Flows{mirror.flow, 8, mirror.flow, 8}));
  EXPECT_EQ(mirror.demuxer->rejected(), 4u) << "no change is ignored";
}

TEST_F(AttrLogFailure, APartOfAHeaderLeavesASnapshotAskedFor) {
  loseMember();
  mirror.demuxer->bytes(changes(1, 200));
  EXPECT_EQ(mirror.demuxer->asked, Flows{mirror.flow});
  Zet::NboAttrLog::Out part;
  put(part, U32{5});
  put(part, mirror.flow);
  put(part, static_cast<Zet::U8>(Zet::NboAttrLog::Op::value));
  U64 const before = mirror.demuxer->rejected();
  mirror.demuxer->bytes(part.bytes());
  EXPECT_EQ(mirror.demuxer->rejected(), before + 1);
  EXPECT_EQ(mirror.demuxer->asked, Flows{mirror.flow});
  mirror.out->snapshotIs();
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual());
}

TEST_F(AttrLogFailure, AHostThatRaisesInTheSettersCallReachesNeitherTheSetterNorItsWatchers) {
  class Watcher : public Bsr::BsrCandidate::NotifieeConst {
   public:
    void onPriority() override { ++heard; }
    int heard = 0;
  };
  loseMember();
  raiseOnAsk();
  // The channel leads to the reader on the same stack, and each change is flushed from within the setter.
  mirror.tape->onSend = [&] { mirror.demuxer->bytes(mirror.tape->bytes); };
  class Flusher : public Bsr::BsrCandidate::NotifieeConst {
   public:
    void onPriority() override { out->flush(); }
    Ptr<Zet::NboAttrLog::FlowOut> out;
  };
  auto flusher = Zet::make<Flusher>();
  flusher->out = mirror.out;
  flusher->notifierIs(Ptr<Bsr::BsrCandidate const>(status->cbsr(zone)));
  auto watcher = Zet::make<Watcher>();
  watcher->notifierIs(Ptr<Bsr::BsrCandidate const>(status->cbsr(zone)));
  EXPECT_NO_THROW(status->cbsr(zone)->priorityIs(9));
  EXPECT_EQ(watcher->heard, 1);
  EXPECT_EQ(Zet::Context::current().notificationExceptions(), 0u);
  EXPECT_EQ(mirror.out->failures(), 0u) << "the channel has taken the bytes";
  EXPECT_EQ(mirror.demuxer->asked.size(), 1u);
}

// Memory is missing -------------------------------------------------------------------------------------

/// Counts what a watcher beside the log hears.
class Hearing : public Status::NotifieeConst {
 public:
  void onBsTimeout() override { ++heard; }
  void onCbsr(Lanet::IpGenPrefix const&) override { ++heard; }
  int heard = 0;
};

/// Carries out an attempt with each number of a failing allocation, until none fails any more.
int forEachFailure(std::function<bool(int)> const& attempt) {
  int number = 1;
  while (attempt(number)) {
    if (++number < 1000) continue;
    ADD_FAILURE() << "allocations go on failing";
    break;
  }
  return number - 1;
}

TEST_F(AttrLogFailure, ALogWithoutMemoryReachesNeitherTheSetterNorOtherWatchers) {
  auto hearing = Zet::make<Hearing>();
  hearing->notifierIs(Ptr<Status const>(status));
  int const failed = forEachFailure([&](int number) {
    // A second log, whose buffers are empty: there is one before the other watcher and one after it.
    Mirror<Status> fresh(status, Bsr::statusFactory("bsr"));
    status->cbsrIs(zone);
    fresh.sync();
    hearing->heard = 0;
    U64 const before = mirror.out->failures() + fresh.out->failures();
    bool hasFailed = false;
    {
      FailingAllocation failing(number);
      for (U32 i = 1; i <= 100; ++i)
        EXPECT_NO_THROW(status->bsTimeoutIs(1000 * static_cast<U32>(number) + i));
      EXPECT_NO_THROW(status->cbsrDel(zone));
      hasFailed = failing.hasFailed();
    }
    EXPECT_EQ(hearing->heard, 101);
    EXPECT_EQ(Zet::Context::current().notificationExceptions(), 0u);
    EXPECT_EQ(mirror.out->failures() + fresh.out->failures(), before + hasFailed);
    fresh.sync();
    mirror.sync();
    EXPECT_TRUE(fresh.isEqual() && mirror.isEqual()) << number;
    return hasFailed;
  });
  EXPECT_GT(failed, 3);
}

TEST_F(AttrLogFailure, AFlushWithoutMemoryIsMadeGoodByASnapshot) {
  for (bool isWhole : {false, true}) {
    int const failed = forEachFailure([&](int number) {
      status->cbsrIs(zone)->priorityIs(static_cast<Zet::U16>(number));
      status->zoneAclIs("acl", intf("eth0"));
      if (isWhole) mirror.out->snapshotIs();
      bool hasFailed = false;
      {
        FailingAllocation failing(number);
        EXPECT_NO_THROW(mirror.out->flush());
        hasFailed = failing.hasFailed();
      }
      mirror.demuxer->bytes(std::exchange(mirror.tape->bytes, {}));
      mirror.sync();
      EXPECT_TRUE(mirror.isEqual()) << number;
      mirror.tape->bytes.clear();
      status->cbsrDel(zone);
      return hasFailed;
    });
    EXPECT_GT(failed, 0) << isWhole;
  }
  EXPECT_TRUE(mirror.demuxer->asked.empty());
}

/// Brings bytes of which one allocation fails; then a change, and the snapshot if it is asked for. Returns
/// whether one has failed.
bool bringAndRepair(Mirror<Status>& mirror, Bytes const& bytes, int number) {
  bool hasFailed = false;
  {
    FailingAllocation failing(number);
    EXPECT_NO_THROW(mirror.demuxer->bytes(bytes));
    hasFailed = failing.hasFailed();
  }
  if (mirror.demuxer->isBroken()) {
    mirror.demuxer->reset();
    mirror.out->snapshotIs();
  }
  mirror.source->bsTimeoutIs(mirror.source->bsTimeout() + 1);
  mirror.sync();
  if (!mirror.demuxer->asked.empty()) mirror.out->snapshotIs();
  mirror.demuxer->asked.clear();
  mirror.sync();
  return hasFailed;
}

TEST_F(AttrLogFailure, AReaderWithoutMemoryIsMadeGoodByASnapshotForWhichTheNextChangeAsks) {
  for (bool isWhole : {false, true}) {
    for (bool isCut : {false, true}) {
      int const failed = forEachFailure([&](int number) {
        status->cbsrIs(prefix("239.1.0.0/16"))->priorityIs(static_cast<Zet::U16>(number));
        status->zoneAclIs("acl", intf("eth" + std::to_string(number)));
        status->countersIs("a name that needs memory of its own")->rxInc(1);
        if (isWhole) mirror.out->snapshotIs();
        mirror.tape->bytes.clear();
        mirror.out->flush();
        Bytes bytes = mirror.tape->bytes;
        if (isCut) bytes.resize(bytes.size() - 3);  // the rest is lost
        bool const hasFailed = bringAndRepair(mirror, bytes, number);
        if (isCut) {
          mirror.demuxer->reset();
          mirror.out->snapshotIs();
          mirror.sync();
        }
        EXPECT_TRUE(mirror.isEqual()) << number << "\n" << logged(*mirror.copy);
        status->cbsrDelAll();
        status->countersDel();
        mirror.sync();
        return hasFailed;
      });
      EXPECT_GT(failed, isCut ? 0 : 3) << isWhole << isCut;
    }
  }
}

TEST_F(AttrLogFailure, BytesThatAHandlerBringsWithoutMemoryBreakTheChannelBeforeTheNextMessage) {
  class Watcher : public Status::Notifiee {
   public:
    void onBsTimeout() override {
      FailingAllocation failing(1);
      demuxer->bytes(more);
    }
    Zet::NboAttrLog::Demuxer* demuxer = nullptr;
    Bytes more = Bytes(1000, 0);
  };
  auto watcher = Zet::make<Watcher>();
  watcher->demuxer = mirror.demuxer.ptr();
  watcher->notifierIs(mirror.copy);
  status->bsTimeoutIs(6);
  status->szTimeoutIs(7);
  mirror.sync();
  EXPECT_TRUE(mirror.demuxer->isBroken());
  EXPECT_EQ(mirror.copy->bsTimeout(), 6u);
  EXPECT_EQ(mirror.copy->szTimeout(), 0u);
  mirror.demuxer->reset();
  mirror.out->snapshotIs();
  watcher->notifierIs(nullptr);
  mirror.sync();
  EXPECT_TRUE(mirror.isEqual());
}

}  // namespace
}  // namespace test
