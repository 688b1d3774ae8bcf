#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "agent/base/RequestError.h"
#include "host/ModelTree.h"
#include "model/Lanet.h"

namespace pimbsr::agent {

/// Bytes of the longest request, its newline included.
inline constexpr std::size_t maxRequest = 4096;

/// What can be asked over the control socket.
enum class Command { show, get, watch, clear, reload, trace, metrics, version };

/// Its name on the wire, and whether it changes nothing of the agent.
std::string_view nameOf(Command command);
bool isReading(Command command);

/// Of show "tree": the part that is asked for.
struct TreePart {
  int depth = host::maxTreeDepth;  ///< as in host::TreeBounds
  std::string from;                ///< as in host::TreeBounds
};

/// A request, validated except for what only a running agent knows.
struct Request {
  Command command = Command::version;
  std::string what;     ///< of show one of viewNames(), of clear one of clearNames(); else empty
  Lanet::IpAddr group;  ///< of show "rp": the multicast group asked for; else 0.0.0.0
  /// Of clear "bsr" and "rp-set": the zone to clear; of show "rp-set": the zone or range; empty for all. Else
  /// empty.
  Lanet::IpGenPrefix zone = {};
  /// Of clear "neighbors": the interface to clear, perhaps of no interface at all; empty for all. Else empty.
  std::string interface = {};
  /// Of get, watch and show "tree": a path of the model, which may be wrong; or empty.
  std::string path = {};
  TreePart tree = {};        ///< of show "tree"
  std::string handle;        ///< of trace: never empty, and perhaps no handle at all; else empty
  std::optional<int> level;  ///< of trace: 0 to 9, up to which is traced; nothing is off
};

/// What `show` can be asked for, and what `clear` can be asked for.
std::span<std::string_view const> viewNames();
std::span<std::string_view const> clearNames();

/// Reads one request: a flat JSON object, with or without the newline after it. Throws RequestError, with
/// what was read and what would be valid, for anything else: an unknown command or member, one that is
/// missing, given twice, of another type or out of its range, and anything nested. The text is plain ASCII.
Request parseRequest(std::string_view line);

/// The begin of a line that grants a request; the result and one "}" follow. Who passes a result on need not
/// parse the line.
inline constexpr std::string_view granted = R"({"ok":true,"result":)";
/// An answer as one line of JSON with its newline, a view::Answer: {"ok":true,"result":...}, or
/// {"ok":false,"error":"..."}. Bytes that are no UTF-8 are replaced.
std::string answerLine(nlohmann::ordered_json const& result);
std::string errorLine(std::string_view error);

/// Collects the bytes of a connection into lines. It holds what was added and not taken yet, so that its
/// owner bounds its memory by adding nothing while lines are left.
class LineBuffer {
 public:
  /// `maxLength` counts the newline and is above 0.
  explicit LineBuffer(std::size_t maxLength = maxRequest) : maxLength_(maxLength) {}

  void add(std::string_view bytes) { bytes_ += bytes; }
  /// Takes the first line, without its newline; nothing while it is not whole. Throws RequestError once it is
  /// longer than allowed, and then at each call.
  std::optional<std::string> next();
  /// Whether next() would return a line or throw.
  bool isReady() const;
  /// Whether nothing is left, not even the beginning of a line.
  bool empty() const { return bytes_.empty(); }
  void clear() { bytes_.clear(); }

 private:
  std::size_t maxLength_;
  std::string bytes_;
};

}  // namespace pimbsr::agent
