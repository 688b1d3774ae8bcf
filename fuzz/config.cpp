// Reads any bytes as a configuration file. The reading and the lints end for all of them; what has no
// error must be written, read again and equal, and then be written alike.
#include <cstdint>
#include <string>
#include <string_view>

#include "agent/config/ConfigFile.h"
#include "agent/config/ConfigLint.h"
#include "agent/config/ConfigWriter.h"
#include "runtime/Assert.h"

namespace {

using namespace pimbsr::agent;

void checkFindings(std::vector<ConfigFinding> const& findings) {
  TextPlace last;
  for (ConfigFinding const& finding : findings) {
    ZET_ASSERT(!finding.text.empty(), "a finding has a text");
    ZET_ASSERT((finding.at.line == 0) == (finding.at.column == 0), "a place has a line and a column");
    ZET_ASSERT(last <= finding.at, "findings come in the order of the file");
    last = finding.at;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  ConfigReading const reading =
      readConfig(std::string_view(reinterpret_cast<char const*>(data), size), "fuzz");
  checkFindings(reading.errors);
  checkFindings(lint(reading));
  if (!reading.isSound()) return 0;
  std::string const written = writeToml(reading.settings);
  ConfigReading const again = readConfig(written, "written");
  ZET_ASSERT(again.isSound() && again.remarks.empty(), "what was written is accepted");
  ZET_ASSERT(again.settings == reading.settings, "what was written reads as it was");
  ZET_ASSERT(writeToml(again.settings) == written, "equal settings are written alike");
  return 0;
}
