#include "wire/DropReason.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "wire/Outcome.h"

namespace pimbsr::wire {
namespace {

TEST(DropReason, NumbersRunFromZeroWithoutAGap) {
  std::size_t next = 0;
  for (DropReason reason : dropReasons()) EXPECT_EQ(static_cast<std::size_t>(reason), next++);
  EXPECT_EQ(next, static_cast<std::size_t>(DropReason::helloOption) + 1) << "the last reason has a row";
}

TEST(DropReason, NamesAreUniqueAndInKebabCase) {
  std::set<std::string_view> names;
  for (DropReason reason : dropReasons()) {
    EXPECT_THAT(std::string(name(reason)), testing::MatchesRegex("[a-z]+(-[a-z]+)*"));
    EXPECT_TRUE(names.insert(name(reason)).second) << name(reason);
  }
}

TEST(DropReason, NamesStayAsReportsKnowThem) {
  std::vector<std::string_view> names;
  for (DropReason reason : dropReasons()) names.push_back(name(reason));
  EXPECT_THAT(names,
              testing::ElementsAre("ip-header", "ip-protocol", "ip-fragment", "truncated", "version", "type",
                                   "checksum", "address-family", "encoding", "prefix-length",
                                   "group-not-multicast", "bsr-not-unicast", "rp-not-unicast", "rp-twice",
                                   "frag-rp-count", "prefix-count", "prefix-twice", "hello-option"));
}

TEST(DropReason, EachIsExplainedInOneSentenceOfItsOwn) {
  std::set<std::string_view> sentences;
  for (DropReason reason : dropReasons()) {
    EXPECT_THAT(std::string(sentence(reason)), testing::MatchesRegex("An? .*\\.|The .*\\.|One .*\\."))
        << name(reason);
    EXPECT_TRUE(sentences.insert(sentence(reason)).second) << name(reason);
  }
}

TEST(DropReasonDeath, NumbersBeyondTheLastAreOurOwnFault) {
  EXPECT_DEATH(name(static_cast<DropReason>(dropReasons().size())), "drop reason has a row");
}

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
