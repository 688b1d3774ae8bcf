// Reads any bytes as the stream of a client of the control socket. In whichever pieces they come, the lines
// are the same; a line is rejected in plain ASCII, or is a request that is read alike when it is written.
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/control/ControlProtocol.h"
#include "runtime/Assert.h"

namespace {

using namespace pimbsr::agent;
using Json = nlohmann::ordered_json;

bool isPlain(std::string_view text) {
  for (char c : text) {
    if (c < ' ' || c > '~') return false;
  }
  return true;
}

Json jsonOf(Request const& request) {
  Json json{{"command", nameOf(request.command)}};
  if (!request.what.empty()) json["what"] = request.what;
  if (request.what == "rp") json["group"] = request.group.stringValue().charPtr();
  if (!request.path.empty()) json["path"] = request.path;
  if (request.what == "tree") json["depth"] = static_cast<unsigned>(request.tree.depth);
  if (!request.tree.from.empty()) json["from"] = request.tree.from;
  if (request.command != Command::trace) return json;
  json["handle"] = request.handle;
  json["level"] = request.level ? Json(static_cast<unsigned>(*request.level)) : Json("off");
  return json;
}

bool equal(Request const& a, Request const& b) {
  return a.command == b.command && a.what == b.what && a.group == b.group && a.path == b.path &&
         a.tree.depth == b.tree.depth && a.tree.from == b.tree.from && a.handle == b.handle &&
         a.level == b.level;
}

void check(std::string const& line) {
  std::optional<Request> request;
  try {
    request = parseRequest(line);
  } catch (RequestError const& error) {
    ZET_ASSERT(isPlain(error.what()), "an error may go to a terminal");
    ZET_ASSERT(Json::accept(errorLine(error.what())), "an error is sent as JSON");
    return;
  }
  ZET_ASSERT(equal(*request, parseRequest(jsonOf(*request).dump())), "a request means what it says");
}

struct Lines {
  std::vector<std::string> whole;
  bool rejected = false;
};

// As a connection does: nothing is added while a line is left.
Lines linesOf(std::string_view bytes, std::size_t piece) {
  LineBuffer buffer(64);
  Lines lines;
  for (std::size_t at = 0; at < bytes.size() && !lines.rejected; at += piece) {
    buffer.add(bytes.substr(at, piece));
    while (buffer.isReady() && !lines.rejected) {
      try {
        lines.whole.push_back(buffer.next().value());
        ZET_ASSERT(lines.whole.back().size() < 64, "a line is within its bound");
      } catch (RequestError const&) {
        lines.rejected = true;
      }
    }
  }
  return lines;
}

void checkPieces(std::string_view bytes) {
  Lines const whole = linesOf(bytes, bytes.size() + 1);
  for (std::size_t piece : {1, 7, 64}) {
    Lines const pieces = linesOf(bytes, piece);
    ZET_ASSERT(pieces.whole == whole.whole && pieces.rejected == whole.rejected, "pieces make no difference");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  std::string_view const bytes(reinterpret_cast<char const*>(data), size);
  checkPieces(bytes);
  LineBuffer buffer;
  buffer.add(bytes);
  try {
    while (std::optional<std::string> line = buffer.next()) check(*line);
  } catch (RequestError const&) {
    // longer than any request
  }
  return 0;
}
