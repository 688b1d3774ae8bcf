#include "sim/ScenarioOutput.h"

#include <fmt/format.h>

#include <vector>

namespace pimbsr::sim {

Action readShow(ScenarioLine& line) {
  static constexpr std::string_view views[] = {"bsr", "rp-set", "neighbors", "counters", "states", "packets"};
  if (line.take("rp")) {
    U32 router = line.router();
    return ShowRp{router, line.group("a group")};
  }
  Show show;
  while (!line.atEnd()) {
    if (!line.names().routers.find(line.peek())) {
      show.view = static_cast<View>(line.oneOf("router or view", views));
      break;
    }
    show.routers.push_back(line.router());
  }
  return show;
}

std::span<KindName const> kindNames() {
  static constexpr KindName names[] = {
      {elections, "elections", "the BSR of a zone as each router has it"},
      {rps, "rps", "RPs that come, change and go"},
      {drops, "drops", "messages dropped, each kind once", "refusals"},
      {repeats, "repeats", "further drops of a kind"},
      {received, "received", "Bootstrap Messages and advertisements accepted"},
      {sent, "sent", "packets sent and passed on"},
      {neighbors, "neighbors", "neighbors, and who is the Designated Router"},
      {states, "states", "states of the election at a candidate"},
      {losses, "losses", "packets that did not arrive, and why"},
      {commands, "commands", "statements that change the network once it runs"},
  };
  return names;
}

static Kinds readKind(ScenarioLine& line) {
  std::vector<std::string_view> valid = {"all"};
  for (KindName const& kind : kindNames()) {
    if (!kind.former.empty() && line.take(kind.former))
      line.fail(fmt::format("'{}' is now called '{}'", kind.former, kind.name));
    valid.push_back(kind.name);
  }
  U32 number = line.oneOf("kind of event", valid);
  return number == 0 ? ~Kinds{0} : kindNames()[number - 1].kind;
}

static Action reportOf(ScenarioLine& line, bool on) {
  SetReport set{.on = on};
  do {
    set.kinds |= readKind(line);
  } while (!line.atEnd());
  return set;
}

Action readReport(ScenarioLine& line) { return reportOf(line, true); }
Action readQuiet(ScenarioLine& line) { return reportOf(line, false); }

}  // namespace pimbsr::sim
