#include <gtest/gtest.h>

#include <vector>

#include "model/DropReason.h"

namespace {

class Listener final : public pimbsr::DropListener {
 public:
  void onDrop(pimbsr::DropReason reason) override { heard.push_back(reason); }
  std::vector<pimbsr::DropReason> heard;
};

TEST(DropListenerTest, ADropIsReportedToTheInnermostListenerOfTheThread) {
  using pimbsr::DropReason;
  Listener outer, inner;
  pimbsr::reportDrop(DropReason::zoneQuota);
  {
    pimbsr::DropListener::Scope const scope(outer);
    pimbsr::reportDrop(DropReason::rpQuota);
    {
      pimbsr::DropListener::Scope const nested(inner);
      pimbsr::reportDrop(DropReason::zoneRanges);
    }
    pimbsr::reportDrop(DropReason::fragmentQuota);
  }
  pimbsr::reportDrop(DropReason::zoneQuota);
  EXPECT_EQ(outer.heard, (std::vector{DropReason::rpQuota, DropReason::fragmentQuota}));
  EXPECT_EQ(inner.heard, (std::vector{DropReason::zoneRanges}));
}

}  // namespace
