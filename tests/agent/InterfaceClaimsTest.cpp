#include "agent/process/InterfaceClaims.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/agent/NetworkLab.h"

namespace test {
namespace {

using pimbsr::agent::InterfaceClaims;
using testing::ElementsAre;
using testing::IsEmpty;
using Conflict = InterfaceClaims::Conflict;

/// Names that no agent of this system uses.
std::string named(std::string const& name) { return "t" + std::to_string(getpid()) + name; }

TEST(InterfaceClaimsTest, AnInterfaceIsClaimedOnceAndTheHolderIsNamed) {
  InterfaceClaims first, second;
  EXPECT_THAT(first.claim({named("a"), named("b")}), IsEmpty());
  EXPECT_THAT(first.claim({named("a"), named("b")}), IsEmpty()) << "its own";
  EXPECT_THAT(second.claim({named("b"), named("c")}), ElementsAre(Conflict{named("b"), getpid()}));
  EXPECT_THAT(first.claim({named("a"), named("c")}), IsEmpty()) << "a conflict claims nothing";
  EXPECT_THAT(second.claim({named("b")}), IsEmpty()) << "the first has given it up";
  EXPECT_THAT(second.claim({named("a"), named("c")}),
              ElementsAre(Conflict{named("a"), getpid()}, Conflict{named("c"), getpid()}));
  EXPECT_THAT(first.claim({named("b")}), ElementsAre(Conflict{named("b"), getpid()}))
      << "what the second had stays";
}

TEST(InterfaceClaimsTest, AClaimEndsWithItsHolder) {
  InterfaceClaims claims;
  {
    InterfaceClaims former;
    EXPECT_THAT(former.claim({named("a")}), IsEmpty());
  }
  EXPECT_THAT(claims.claim({named("a")}), IsEmpty());
}

TEST(InterfaceClaimsTest, ManyQuestionsDoNotWaitForAnAnswer) {
  InterfaceClaims first, second;
  EXPECT_THAT(first.claim({named("a")}), IsEmpty());
  for (int i = 0; i < 20; ++i) EXPECT_EQ(second.claim({named("a")}).size(), 1u);
}

class InterfaceClaimsNetworkTest : public NetworkTest {};

TEST_F(InterfaceClaimsNetworkTest, AnotherNetworkNamespaceHasClaimsOfItsOwn) {
  InterfaceClaims outside;
  EXPECT_THAT(outside.claim({named("a")}), IsEmpty());
  NetworkNamespace network;
  Inside inside(network);
  InterfaceClaims within;
  EXPECT_THAT(within.claim({named("a")}), IsEmpty());
}

}  // namespace
}  // namespace test
