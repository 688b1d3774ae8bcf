#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "model/Config.h"
#include "model/Status.h"
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

}  // namespace
}  // namespace test
