#include "cli/replay/ReplayOptions.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <vector>

#include "cli/base/Errors.h"
#include "tests/support/Messages.h"

namespace pimbsr::cli {
namespace {

using test::addr;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(ReplayOptionsTest, TimesAreTakenWithinTheirRanges) {
  EXPECT_EQ(parseBsTimeout("12"), 12u);
  EXPECT_EQ(parseBsTimeout("1073741823"), 1073741823u);
  EXPECT_EQ(parseSzTimeout("120"), 120u);
  EXPECT_EQ(parseSzTimeout("4294967295"), 4294967295u);
  EXPECT_EQ(parseUntil("0"), 0);
  EXPECT_EQ(parseUntil("1.5"), 1.5);
  EXPECT_EQ(parseUntil("4294967295"), 4294967295.0);
}

TEST(ReplayOptionsTest, TimeOutsideItsRangeIsRejectedWithTheRange) {
  struct Case {
    std::function<void(std::string const&)> parse;
    std::vector<std::string> wrong;
    std::string range;
  };
  Case const cases[] = {
      {parseBsTimeout,
       {"11", "1073741824", "18446744073709551616", "-12", "+12", "12.5", "12s", " 12", "", "0x20"},
       "no whole number of seconds from 12 to 1073741823"},
      {parseSzTimeout, {"119", "4294967296", "1e3", ""}, "from 120 to 4294967295"},
      {parseUntil, {"-1", "4294967295.5", "inf", "nan", "1,5", "soon", ""}, "from 0 to 4294967295"},
  };
  for (Case const& one : cases) {
    for (std::string const& text : one.wrong) {
      EXPECT_THAT([&] { one.parse(text); }, ThrowsMessage<UsageError>(HasSubstr(one.range))) << text;
      EXPECT_THAT([&] { one.parse(text); }, ThrowsMessage<UsageError>(HasSubstr("'" + text + "'")));
    }
  }
}

TEST(ReplayOptionsTest, RpfNeighborsAreTakenByBsr) {
  ReplayOptions options;
  parseRpf("198.51.100.1=192.0.2.1", options);
  parseRpf("198.51.100.2=192.0.2.1", options);
  EXPECT_EQ(options.rpf.size(), 2u);
  EXPECT_EQ(options.rpf[addr("198.51.100.2")], addr("192.0.2.1"));
}

TEST(ReplayOptionsTest, RpfNeighborThatIsNoPairOfUnicastAddressesIsRejected) {
  ReplayOptions options;
  for (char const* text : {"", "198.51.100.1", "198.51.100.1=", "=192.0.2.1", "198.51.100.1=192.0.2.1=1",
                           "224.0.0.13=192.0.2.1", "198.51.100.1=0.0.0.0", "198.51.100.1=fe80::1", "a=b"}) {
    EXPECT_THAT([&] { parseRpf(text, options); }, ThrowsMessage<UsageError>(HasSubstr("no BSR=NEIGHBOR")))
        << text;
  }
  parseRpf("198.51.100.1=192.0.2.1", options);
  EXPECT_THAT([&] { parseRpf("198.51.100.1=192.0.2.2", options); },
              ThrowsMessage<UsageError>(HasSubstr("BSR 198.51.100.1 has a neighbor already")));
}

}  // namespace
}  // namespace pimbsr::cli
