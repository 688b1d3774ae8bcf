#include "cli/sim/RandomCommand.h"

#include <fmt/format.h>

#include <charconv>
#include <ostream>
#include <vector>

#include "cli/sim/SimText.h"
#include "sim/trial/RandomScenario.h"
#include "sim/trial/Trial.h"

namespace pimbsr::cli {

using sim::RandomScenario;
using sim::TrialResult;

/// A whole number, and nothing else, within bounds.
static bool readNumber(std::string_view text, Zet::U32 low, Zet::U32 high, Zet::U32& number) {
  char const* end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && low <= number && number <= high;
}

Zet::U32 parseTrials(std::string const& text) {
  Zet::U32 trials = 0;
  if (readNumber(text, 1, 1000000, trials)) return trials;
  throw UsageError(fmt::format("--random: '{}' is no whole number from 1 to 1000000", text));
}

void parseRouters(std::string const& text, RandomOptions& options) {
  std::size_t dash = text.find('-');
  std::string_view low = std::string_view(text).substr(0, dash);
  std::string_view high = dash == std::string::npos ? low : std::string_view(text).substr(dash + 1);
  auto read = [](std::string_view part, Zet::U32& number) {
    return readNumber(part, RandomScenario::minRouters, RandomScenario::maxRouters, number);
  };
  if (read(low, options.fewest) && read(high, options.most) && options.fewest <= options.most) return;
  throw UsageError(fmt::format("--routers: '{}' is no number from {} to {}, nor a span such as 10-50", text,
                               RandomScenario::minRouters, RandomScenario::maxRouters));
}

/// Number of routers of a seed; it depends on nothing else, so that one seed can be played alone.
static Zet::U32 routersOf(RandomOptions const& options, Zet::U64 seed) {
  return options.fewest + static_cast<Zet::U32>(sim::spread(seed) % (options.most - options.fewest + 1));
}

/// Writes why a seed failed, and plays it again to show its course.
static void writeFailure(Zet::U64 seed, Zet::U32 routers, sim::TrialSettings const& settings,
                         TrialResult const& result, std::ostream& out) {
  out << fmt::format("Seed {} with {} routers is not as it must be:\n", seed, routers);
  for (std::string const& finding : result.findings) out << "  " << finding << '\n';
  out << "\nIts scenario\n" << result.scenario << "\nIts course\n";
  SimText report(out, out);
  sim::runTrial(seed, routers, settings, &report);
  out << '\n';
}

static std::string listOf(std::vector<Zet::U64> const& seeds) {
  constexpr std::size_t most = 10;
  auto end = seeds.begin() + static_cast<std::ptrdiff_t>(std::min(most, seeds.size()));
  return fmt::format("{}{}", fmt::join(seeds.begin(), end, ", "), seeds.size() > most ? ", ..." : "");
}

ExitCode simulateRandom(RandomOptions const& options, std::ostream& out, std::ostream& err) {
  std::vector<Zet::U64> failed;
  Zet::U64 events = 0;
  sim::TrialSettings const settings{options.ingress, options.corrections};
  for (Zet::U64 seed = options.firstSeed, left = options.trials; left > 0; ++seed, --left) {
    Zet::U32 routers = routersOf(options, seed);
    TrialResult result = sim::runTrial(seed, routers, settings);
    events += result.events;
    if (result.findings.empty()) continue;
    if (failed.empty()) writeFailure(seed, routers, settings, result, out);
    failed.push_back(seed);
  }
  std::string verdict = failed.empty() ? std::string("all agreed")
                                       : fmt::format("{} failed, of seed {}", failed.size(), listOf(failed));
  out << fmt::format("{} random networks of {} to {} routers from seed {}, {} events: {}.\n", options.trials,
                     options.fewest, options.most, options.firstSeed, events, verdict);
  ExitCode written = finish(out, err);
  return failed.empty() ? written : exitFailed;
}

}  // namespace pimbsr::cli
