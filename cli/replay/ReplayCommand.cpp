#include "cli/replay/ReplayCommand.h"

#include <filesystem>
#include <memory>
#include <ostream>

#include "cli/replay/Capture.h"
#include "cli/replay/Replay.h"
#include "cli/replay/ReplayJson.h"
#include "cli/replay/ReplayText.h"

namespace pimbsr::cli {

static std::unique_ptr<ReplayReport> makeReport(ReplayOptions const& options, std::ostream& out) {
  if (options.json) return std::make_unique<ReplayJson>(out);
  return std::make_unique<ReplayText>(out, std::filesystem::path(options.file).filename().string());
}

ExitCode replay(ReplayOptions const& options, std::ostream& out, std::ostream& err) {
  try {
    Capture capture(options.file);
    std::unique_ptr<ReplayReport> report = makeReport(options, out);
    Tracing tracing(options.traces);
    Replay(options, *report, err).play(capture);
  } catch (CaptureError const& error) {
    out.flush();
    err << "pimbsr: " << error.what() << '\n';
    return exitFailed;
  }
  return finish(out, err);
}

}  // namespace pimbsr::cli
