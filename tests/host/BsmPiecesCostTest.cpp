#include "host/BsmPieces.h"

#include <string>

#include "runtime/Meter.h"
#include "tests/support/Engine.h"

namespace test {
namespace {

using pimbsr::host::BsmPieces;
using Zet::U64;

static_assert(Zet::Meter::isOn, "this test is built with the meter");

class BsmPiecesCostTest : public EngineTest {
 protected:
  /// One of two RPs of one range of a zone, as one of many fragments under one tag.
  static Bsm piece(std::string const& zone, int number) {
    std::string const high = std::to_string(number / 256), low = std::to_string(number % 256);
    std::string const range = "225." + high + "." + low + ".0/24";
    return {.groups = {{zone, {}, scopedFlag}, {range, {{"203.0.113.1"}}, 0, 2, 1}}, .tag = 7};
  }

  /// Keeps a piece that the zone's machine keeps, and gives the visits.
  U64 keep(std::string const& zone, int number) {
    engine.receive(piece(zone, number));
    auto message = engine.root->nonCandidateSm(prefix(zone))->lastBsm();
    U64 const before = Zet::Meter::visited;
    pieces.handleAccepted(message);
    kept = pieces.fragmentsOf(message).size();
    return Zet::Meter::visited - before;
  }

  pimbsr::host::IngressSettings settings;
  BsmPieces pieces{*engine.root, settings};
  size_t kept = 0;  ///< pieces of the zone of the last message
};

TEST_F(BsmPiecesCostTest, MessageIsComparedWithFewOfManyPieces) {
  constexpr int many = 400;
  for (int i = 0; i < many; ++i) keep("239.0.0.0/16", i);
  EXPECT_EQ(kept, size_t{many});
  EXPECT_LT(keep("239.0.0.0/16", many), 100u);
  EXPECT_LT(keep("239.0.0.0/16", 7), 100u);
  EXPECT_EQ(kept, size_t{many + 1}) << "a piece that comes again is kept once";
}

TEST_F(BsmPiecesCostTest, PiecesOfOneZoneAreBounded) {
  for (size_t i = 0; i < BsmPieces::maxPieces; ++i) keep("239.0.0.0/16", static_cast<int>(i));
  EXPECT_EQ(kept, BsmPieces::maxPieces);
  keep("239.0.0.0/16", static_cast<int>(BsmPieces::maxPieces));
  EXPECT_EQ(kept, 1u);
}

TEST_F(BsmPiecesCostTest, PiecesOfAllZonesAreBoundedTogether) {
  constexpr int half = BsmPieces::maxPieces / 2;
  for (int i = 0; i < half; ++i) keep("239.0.0.0/16", i);
  for (int i = 0; i < half; ++i) keep("239.1.0.0/16", i);
  EXPECT_EQ(kept, size_t{half});
  keep("239.1.0.0/16", half);
  EXPECT_EQ(kept, 1u);
  for (int i = 1; i < half; ++i) keep("239.1.0.0/16", half + i);
  EXPECT_EQ(kept, size_t{half}) << "what was dropped frees its share";
  keep("239.2.0.0/16", 0);
  EXPECT_EQ(kept, 1u) << "each zone keeps its last message";
}

TEST_F(BsmPiecesCostTest, RecordsOfAllZonesAreBoundedTogether) {
  settings.rps = 60;  // a piece has two records and an RP
  for (int i = 0; i < 15; ++i) keep("239.0.0.0/16", i);
  EXPECT_EQ(kept, 15u);
  for (int i = 0; i < 5; ++i) keep("239.1.0.0/16", i);
  EXPECT_EQ(kept, 5u);
  keep("239.1.0.0/16", 5);
  EXPECT_EQ(kept, 1u) << "those of the other zone count";
  pieces.forget(prefix("239.0.0.0/16"));
  for (int i = 6; i < 20; ++i) keep("239.1.0.0/16", i);
  EXPECT_EQ(kept, 15u) << "what is forgotten frees its share";
}

}  // namespace
}  // namespace test
