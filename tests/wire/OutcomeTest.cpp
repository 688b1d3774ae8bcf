#include "wire/Outcome.h"

#include <gtest/gtest.h>

namespace pimbsr::wire {
namespace {

TEST(OutcomeDeath, AskingForWhatIsNotThereIsOurOwnFault) {
  Outcome<int> accepted(7);
  Outcome<int> refused(DropReason::version);
  EXPECT_EQ(*accepted, 7);
  EXPECT_EQ(refused.reason(), DropReason::version);
  EXPECT_DEATH(accepted.reason(), "the packet was refused");
  EXPECT_DEATH(*refused, "the packet was accepted");
}

}  // namespace
}  // namespace pimbsr::wire
