#include "cli/page/Page.h"

#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>

#include "cli/base/Errors.h"
#include "cli/page/Pack.h"
#include "cli/page/PageText.h"
#include "view/Json.h"
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

/// Reads it as its view, so that all members are there and of the right type, and no others, which could be
/// nested deeper than a page can be written.
template <class View>
static Json savedDocument(std::string const& path, char const* command) {
  try {
    std::ifstream file(path, std::ios::binary);
    return view::jsonOf(view::readView<View>(Json::parse(file)));
  } catch (nlohmann::json::exception const& error) {
    throw UsageError(fmt::format("{} is no document of {} --json: {}", path, command, error.what()));
  } catch (view::ReadError const& error) {
    throw UsageError(fmt::format("{} is no document of {} --json: {}", path, command, error.what()));
  }
}

Json savedSimulation(std::string const& path) { return savedDocument<view::Simulation>(path, "sim"); }

Json savedReplay(std::string const& path) { return savedDocument<view::Replay>(path, "replay"); }

}  // namespace pimbsr::cli
