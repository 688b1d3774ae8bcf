#include "cli/replay/ReplayCommand.h"

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/capture/Capture.h"
#include "cli/page/Page.h"
#include "cli/replay/Replay.h"
#include "cli/replay/ReplayJson.h"
#include "cli/replay/ReplayText.h"

namespace pimbsr::cli {

static std::unique_ptr<ReplayReport> makeReport(ReplayOptions const& options, std::ostream& out) {
  bool isDocument = options.delivery.json || !options.delivery.page.empty();
  if (isDocument) return std::make_unique<ReplayJson>(deliver(options.delivery, out));
  return std::make_unique<ReplayText>(out, std::filesystem::path(options.file).filename().string());
}

static void play(ReplayOptions const& options, std::ostream& out, std::ostream& err) {
  if (!options.delivery.page.empty() && isSavedDocument(options.file)) {
    return deliver(options.delivery, out)(savedReplay(options.file));
  }
  Capture capture(options.file);
  std::unique_ptr<ReplayReport> report = makeReport(options, out);
  Tracing tracing(options.traces);
  Replay(options, *report, err).play(capture);
}

ExitCode replay(ReplayOptions const& options, std::ostream& out, std::ostream& err) {
  try {
    play(options, out, err);
  } catch (UsageError const& error) {
    out.flush();
    err << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  } catch (CaptureError const& error) {
    out.flush();
    err << "pimbsr: " << error.what() << '\n';
    return exitFailed;
  }
  return finish(out, err);
}

}  // namespace pimbsr::cli
