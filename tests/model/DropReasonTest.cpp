#include "model/DropReason.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace pimbsr {
namespace {

TEST(DropReason, NumbersRunFromOneWithoutAGap) {
  std::size_t next = 1;
  for (DropReason reason : allDropReasons()) EXPECT_EQ(static_cast<std::size_t>(reason), next++);
  EXPECT_EQ(name(DropReason::none), "");
  EXPECT_EQ(sentence(DropReason::none), "");
}

TEST(DropReason, NamesAreUniqueAndInKebabCase) {
  std::set<std::string_view> names;
  for (DropReason reason : allDropReasons()) {
    EXPECT_THAT(std::string(name(reason)), testing::MatchesRegex("[a-z]+(-[a-z]+)*"));
    EXPECT_TRUE(names.insert(name(reason)).second) << name(reason);
  }
}

TEST(DropReason, NamesStayAsReportsKnowThem) {
  std::vector<std::string_view> names;
  for (DropReason reason : allDropReasons()) names.push_back(name(reason));
  EXPECT_THAT(names, testing::ElementsAre(
                         "ip-header", "ip-protocol", "ip-fragment", "truncated", "version", "type",
                         "checksum", "address-family", "encoding", "prefix-length", "group-not-multicast",
                         "bsr-not-unicast", "rp-not-unicast", "rp-twice", "frag-rp-count", "prefix-count",
                         "prefix-twice", "hello-option", "own-address", "hash-mask-length", "holdtime",
                         "fragment-overflow", "multicast-advertisement", "ttl", "foreign-subnet",
                         "not-neighbor", "own-bsr", "hello-destination", "rate-limit", "neighbor-rate-limit",
                         "hello-rate-limit", "advertisement-rate-limit", "neighbor-quota", "bsm-too-long",
                         "zone-quota", "fragment-quota", "rp-quota", "zone-ranges", "range-full",
                         "displaced-rp", "sender-rps", "sender-ranges", "no-rpf-neighbor", "not-rpf-neighbor",
                         "no-forward", "unicast-bootstrap", "bootstrap-destination", "weaker-bsr", "border",
                         "sender-filter", "not-elected-bsr", "bsm-off", "bsr-filter"));
}

TEST(DropReason, EachIsExplainedInOneSentenceOfItsOwn) {
  std::set<std::string_view> sentences;
  for (DropReason reason : allDropReasons()) {
    EXPECT_THAT(std::string(sentence(reason)), testing::MatchesRegex("[A-Z].*\\.")) << name(reason);
    EXPECT_TRUE(sentences.insert(sentence(reason)).second) << name(reason);
  }
}

TEST(DropReasonDeath, NumbersBeyondTheLastAreOurOwnError) {
  EXPECT_DEATH(name(static_cast<DropReason>(allDropReasons().size() + 1)), "drop reason has a row");
}

}  // namespace
}  // namespace pimbsr
