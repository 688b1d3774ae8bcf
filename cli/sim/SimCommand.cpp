#include "cli/sim/SimCommand.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

#include "cli/page/Page.h"
#include "cli/sim/SimJson.h"
#include "cli/sim/SimText.h"
#include "sim/PcapWriter.h"
#include "sim/Simulation.h"

namespace pimbsr::cli {

Zet::U64 parseSeed(std::string const& text) {
  Zet::U64 seed = 0;
  char const* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, seed);
  if (error == std::errc() && stop == end) return seed;
  throw UsageError(fmt::format("--seed: '{}' is no whole number from 0 to 18446744073709551615", text));
}

bool parseLoad(std::string const& text) {
  if (text == "links") return true;
  throw UsageError(fmt::format("--load: '{}' is unknown; valid is links", text));
}

static std::string textOfFile(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!file.is_open() || file.bad()) throw UsageError(fmt::format("cannot read {}", path));
  return text;
}

static std::unique_ptr<sim::Report> makeReport(SimOptions const& options, std::ostream& out,
                                               std::ostream& err) {
  bool isDocument = options.delivery.json || !options.delivery.page.empty();
  if (isDocument) return std::make_unique<SimJson>(deliver(options.delivery, out), err, options.linkLoad);
  return std::make_unique<SimText>(out, err);
}

static void play(SimOptions const& options, std::ostream& out, std::ostream& err) {
  if (!options.delivery.page.empty() && isSavedDocument(options.file)) {
    return deliver(options.delivery, out)(savedSimulation(options.file));
  }
  std::string text = textOfFile(options.file);
  std::unique_ptr<sim::Report> report = makeReport(options, out, err);
  Tracing tracing(options.traces);
  sim::Simulation simulation(options.seed, *report);
  simulation.network().ingressIs(options.ingress);
  simulation.network().correctionsAre(options.corrections);
  std::optional<sim::PcapWriter> captures;
  if (!options.pcapFolder.empty()) {
    captures.emplace(options.pcapFolder, simulation.network());
    simulation.network().tapAdd(&*captures);
  }
  simulation.execute(text, options.file);
  simulation.end();
  if (captures) captures->close();
}

ExitCode simulate(SimOptions const& options, std::ostream& out, std::ostream& err) {
  try {
    play(options, out, err);
  } catch (sim::ScenarioError const& error) {
    out.flush();
    err << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  } catch (UsageError const& error) {
    err << "pimbsr: " << error.what() << '\n';
    return exitUsage;
  } catch (sim::PcapError const& error) {
    out.flush();
    err << "pimbsr: " << error.what() << '\n';
    return exitFailed;
  }
  return finish(out, err);
}

}  // namespace pimbsr::cli
