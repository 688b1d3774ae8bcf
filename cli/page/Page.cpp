#include "cli/page/Page.h"

#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/base/Errors.h"
#include "cli/page/Pack.h"
#include "cli/page/PageText.h"
#include "view/Replay.h"
#include "view/Simulation.h"

namespace pimbsr::cli {

using view::Json;

// Pages -----------------------------------------------------------------------------------------------

/// "<" appears within texts alone, where JSON has an escape for it.
static std::string escaped(std::string const& json) {
  std::string text;
  text.reserve(json.size());
  for (char one : json) {
    if (one == '<') {
      text += "\\u003c";
    } else {
      text += one;
    }
  }
  return text;
}

void writePage(std::ostream& out, Json const& document) {
  out << pageBeforeConnect << pageBeforeData << escaped(pack(document).dump()) << pageAfterData;
}

void writeLivePage(std::ostream& out) {
  out << pageBeforeConnect << "connect-src 'self'; " << pageBeforeData << pageAfterData;
}

static void writePageFile(std::string const& path, Json const& document) {
  std::ofstream file(path, std::ios::binary);
  if (file.is_open()) writePage(file, document);
  if (!file.flush()) throw UsageError(fmt::format("--html: cannot write {}", path));
}

std::function<void(Json const&)> deliver(Delivery const& delivery, std::ostream& out) {
  return [delivery, &out](Json const& document) {
    if (delivery.json) out << document.dump(2) << '\n';
    if (delivery.page.empty()) return;
    writePageFile(delivery.page, document);
    if (!delivery.json) out << fmt::format("Wrote {}; open it in a browser.\n", delivery.page);
  };
}

// Saved documents -------------------------------------------------------------------------------------

bool isSavedDocument(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  char first = 0;
  return file >> first && first == '{';
}

/// A document of ours is nested ten deep at most; one nested deeply would end the process where it is copied.
static bool checkDepth(int depth, Json::parse_event_t, Json const&) {
  static constexpr int maxDepth = 64;
  if (depth > maxDepth) throw view::ReadError(fmt::format("it is nested deeper than {}", maxDepth));
  return true;
}

/// Reads it as its view too, so that all members are there and of the right type.
template <class View>
static Json savedDocument(std::string const& path, char const* command) {
  try {
    std::ifstream file(path, std::ios::binary);
    Json document = Json::parse(file, checkDepth);
    view::readView<View>(document);
    return document;
  } catch (nlohmann::json::exception const& error) {
    throw UsageError(fmt::format("{} is no document of {} --json: {}", path, command, error.what()));
  } catch (view::ReadError const& error) {
    throw UsageError(fmt::format("{} is no document of {} --json: {}", path, command, error.what()));
  }
}

Json savedSimulation(std::string const& path) { return savedDocument<view::Simulation>(path, "sim"); }

Json savedReplay(std::string const& path) { return savedDocument<view::Replay>(path, "replay"); }

}  // namespace pimbsr::cli
