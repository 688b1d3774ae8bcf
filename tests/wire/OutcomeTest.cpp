#include "wire/Outcome.h"

#include <gtest/gtest.h>

namespace pimbsr::wire {
namespace {

TEST(OutcomeDeath, AskingForWhatIsNotThereIsOurOwnError) {
  Outcome<int> accepted(7);
  Outcome<int> dropped(DropReason::version);
  EXPECT_EQ(*accepted, 7);
  EXPECT_EQ(dropped.reason(), DropReason::version);
  EXPECT_DEATH(accepted.reason(), "the packet was dropped");
  EXPECT_DEATH(*dropped, "the packet was accepted");
}

}  // namespace
}  // namespace pimbsr::wire
