#include "view/Digest.h"

#include <gtest/gtest.h>

namespace pimbsr::view {
namespace {

using host::RangeView;
using host::RpView;
using host::ZoneView;

Lanet::IpGenPrefix prefix(char const* text) { return Lanet::IpGenPrefix::parse(text); }
Lanet::IpGenAddr address(char const* text) { return Lanet::IpGenAddr::parse(text); }

RpView rp(char const* text, Zet::U32 priority, Zet::U16 holdTime, double expires = 100) {
  return {.address = address(text), .priority = priority, .holdTime = holdTime, .expires = expires};
}

/// The example of docs/control.md.
ZoneView example() {
  ZoneView zone{.zone = prefix("224.0.0.0/4")};
  zone.bsr = host::BsrView{.address = address("10.0.1.1"), .priority = 64, .hashMaskLen = 30};
  zone.rpSet = {RangeView{prefix("224.0.0.0/4"), {rp("10.0.3.1", 192, 150)}},
                RangeView{prefix("239.1.0.0/16"), {rp("9.0.0.1", 0, 150), rp("10.0.3.1", 0, 75)}}};
  return zone;
}

TEST(DigestTest, ExampleOfTheDocumentHasItsText) {
  EXPECT_EQ(digestTextOf(example(), 10), R"(pimbsr digest 1
zone 224.0.0.0/4
bsr 10.0.1.1 priority 64 hash-mask-length 30
range 224.0.0.0/4 rp 10.0.3.1 priority 192 holdtime 150
range 239.1.0.0/16 rp 9.0.0.1 priority 0 holdtime 150
range 239.1.0.0/16 rp 10.0.3.1 priority 0 holdtime 75
)");
  EXPECT_EQ(digestOf(example(), 10), "7f8c5d15");
}

TEST(DigestTest, KeptAndStaleRpsAreMarked) {
  ZoneView zone{.zone = prefix("239.1.0.0/16")};
  zone.rpSet = {RangeView{prefix("239.1.0.0/16"), {rp("10.0.3.1", 0, 75, 100), rp("10.0.3.2", 0, 75, 10)}}};
  EXPECT_EQ(digestTextOf(zone, 10), R"(pimbsr digest 1
zone 239.1.0.0/16
bsr none
range 239.1.0.0/16 rp 10.0.3.1 priority 0 holdtime 75 kept
range 239.1.0.0/16 rp 10.0.3.2 priority 0 holdtime 75 stale
)");
  EXPECT_EQ(digestOf(zone, 10), "6f592f5a");
}

TEST(DigestTest, TimesModesAndWithdrawnRpsAreNoPartOfIt) {
  struct Case {
    char const* what;
    void (*change)(ZoneView&);
  };
  Case const cases[] = {
      {"the expiry of the BSR", [](ZoneView& zone) { zone.bsr->expiryTime += 7; }},
      {"the expiry of an RP", [](ZoneView& zone) { zone.rpSet[0].rps[0].expires += 7; }},
      {"the mode", [](ZoneView& zone) { zone.rpSet[0].rps[0].mode = Routing::Pim::Mode::bidir; }},
      {"a withdrawn RP", [](ZoneView& zone) { zone.rpSet[0].rps.push_back(rp("10.0.9.9", 0, 0)); }},
      {"an empty range",
       [](ZoneView& zone) {
         zone.rpSet.push_back({prefix("239.9.0.0/16"), {}});
       }},
  };
  for (Case const& c : cases) {
    ZoneView zone = example();
    c.change(zone);
    EXPECT_EQ(digestOf(zone, 10), digestOf(example(), 10)) << c.what;
  }
}

TEST(DigestTest, AllElseIsAPartOfIt) {
  struct Case {
    char const* what;
    void (*change)(ZoneView&);
  };
  Case const cases[] = {
      {"the zone", [](ZoneView& zone) { zone.zone = prefix("239.1.0.0/16"); }},
      {"the BSR", [](ZoneView& zone) { zone.bsr->address = address("10.0.1.2"); }},
      {"its priority", [](ZoneView& zone) { zone.bsr->priority = 65; }},
      {"the hash mask length", [](ZoneView& zone) { zone.bsr->hashMaskLen = 31; }},
      {"a range", [](ZoneView& zone) { zone.rpSet[1].range = prefix("239.1.0.0/17"); }},
      {"an RP", [](ZoneView& zone) { zone.rpSet[1].rps[0].address = address("9.0.0.2"); }},
      {"its priority", [](ZoneView& zone) { zone.rpSet[1].rps[0].priority = 1; }},
      {"its holdtime", [](ZoneView& zone) { zone.rpSet[1].rps[0].holdTime = 151; }},
      {"an RP that is gone", [](ZoneView& zone) { zone.rpSet[1].rps.pop_back(); }},
      {"an RP of a former BSR", [](ZoneView& zone) { zone.rpSet[1].rps[0].kept = true; }},
      {"an RP whose time is over", [](ZoneView& zone) { zone.rpSet[1].rps[0].expires = 9; }},
      {"no BSR", [](ZoneView& zone) { zone.bsr.reset(); }},
  };
  for (Case const& c : cases) {
    ZoneView zone = example();
    c.change(zone);
    EXPECT_NE(digestOf(zone, 10), digestOf(example(), 10)) << c.what;
  }
}

}  // namespace
}  // namespace pimbsr::view
