#include "cli/complete/Complete.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <ostream>
#include <span>
#include <string_view>

#include "agent/base/TraceLevel.h"
#include "agent/control/ControlClient.h"
#include "agent/control/ControlProtocol.h"
#include "cli/complete/CompletePath.h"
#include "cli/show/ControlCommands.h"
#include "view/Interfaces.h"
#include "view/Zones.h"

namespace pimbsr::cli {

using Words = std::vector<std::string>;

namespace {

/// The words of a command line before the one that is completed.
struct Line {
  CLI::App const* command = nullptr;  ///< the subcommand; the program itself where none is given yet
  Words positionals;
  std::string socket;
  std::string option;  ///< the last word, if it is an option that takes a value; else empty
  std::string begun;   ///< the word that is completed; perhaps empty
};

bool isHidden(CLI::Option const& option) { return option.get_group().empty(); }

Line lineOf(CLI::App const& app, std::span<std::string const> words) {
  Line line{.command = &app};
  for (std::string const& word : words) {
    if (!line.option.empty()) {
      if (line.option == "--socket") line.socket = word;
      line.option.clear();
    } else if (word.starts_with("-")) {
      static constexpr std::string_view socketOption = "--socket=";
      if (word.starts_with(socketOption)) line.socket = word.substr(socketOption.size());
      CLI::Option const* option = line.command->get_option_no_throw(word);
      if (option != nullptr && option->get_expected_min() > 0) line.option = word;
    } else if (line.command != &app) {
      line.positionals.push_back(word);
    } else {
      auto all = app.get_subcommands([&](CLI::App const* one) { return one->get_name() == word; });
      if (!all.empty()) line.command = all.front();
    }
  }
  return line;
}

/// Seconds for which a shell may wait for the words of an agent.
constexpr double patience = 0.5;

/// A view of the running agent; empty if it doesn't answer, or is of a version with other views.
template <class View>
View viewOf(Line const& line, char const* what) {
  View view;
  try {
    agent::tryInTurn(readingSockets(line.socket), [&](std::string const& path) {
      view = view::readView<View>(agent::ask(path, {{"command", "show"}, {"what", what}}, patience));
    });
  } catch (std::exception const&) {
    // no words of it
  }
  return view;
}

Words zonesOf(Line const& line) {
  Words names;
  for (view::BsrZone const& zone : viewOf<view::Bsr>(line, "bsr").zones)
    names.push_back(view::cellOf(zone.zone, ""));
  return names;
}

Words interfacesOf(Line const& line) {
  Words names;
  for (view::Interface const& one : viewOf<view::Interfaces>(line, "interfaces").interfaces)
    names.push_back(one.interface);
  return names;
}

template <class Names>
Words wordsOf(Names const& names) {
  return Words(names.begin(), names.end());
}

Words pathsOf(Line const& line) { return pathsFrom(readingSockets(line.socket), line.begun, patience); }

Words subjectsOf(Line const& line) {
  std::string const& name = line.command->get_name();
  std::string const& what = line.positionals.front();
  if (name == "trace") return {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "off"};
  if (name == "clear" && what == "neighbors") return interfacesOf(line);
  if (name == "clear" && (what == "bsr" || what == "rp-set")) return zonesOf(line);
  if (name == "show" && what == "rp-set") return zonesOf(line);
  if (name == "show" && what == "tree") return pathsOf(line);
  return {};
}

Words positionalsOf(Line const& line) {
  std::string const& name = line.command->get_name();
  if (line.positionals.size() == 1) return subjectsOf(line);
  if (!line.positionals.empty()) return {};
  if (name == "trace") return agent::traceHandles();
  if (name == "clear") return wordsOf(agent::clearNames());
  if (name == "get" || name == "watch") return pathsOf(line);
  if (name != "show") return {};
  Words views = wordsOf(agent::viewNames());
  views.emplace_back("all");
  return views;
}

Words optionsOf(CLI::App const& command) {
  Words names;
  for (CLI::Option const* option : command.get_options()) {
    if (isHidden(*option)) continue;
    for (std::string const& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

Words subcommandsOf(CLI::App const& app) {
  Words names;
  for (CLI::App const* one : app.get_subcommands([](CLI::App const*) { return true; }))
    names.push_back(one->get_name());
  return names;
}

}  // namespace

Words completionsOf(CLI::App const& app, Words const& words) {
  std::string const begun = words.empty() ? "" : words.back();
  Line line = lineOf(app, std::span(words).first(words.empty() ? 0 : words.size() - 1));
  line.begun = begun;
  Words found;
  if (!line.option.empty()) return found;
  if (begun.starts_with("-")) {
    found = optionsOf(*line.command);
  } else {
    found = line.command == &app ? subcommandsOf(app) : positionalsOf(line);
  }
  std::erase_if(found, [&](std::string const& word) { return word.empty() || !word.starts_with(begun); });
  std::sort(found.begin(), found.end());
  return found;
}

ExitCode complete(CLI::App const& app, Words const& words, std::ostream& out, std::ostream& err) {
  for (std::string const& word : completionsOf(app, words)) out << word << '\n';
  return finish(out, err);
}

}  // namespace pimbsr::cli
