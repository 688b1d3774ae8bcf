#pragma once

#include <string>
#include <vector>

namespace pimbsr::cli {

/// A request for the engine's trace of one handle, from level 0 up to and including `level`: a higher level
/// has more lines.
struct TraceRequest {
  std::string handle;
  int level = 0;
};

/// Reads "HANDLE:LEVEL". Throws UsageError, with what would be valid, for an unknown handle or level.
TraceRequest parseTraceRequest(std::string const& text);

/// Puts trace handles on for as long as it lives. Of several requests for one handle, that of the highest
/// level has effect.
class Tracing {
 public:
  explicit Tracing(std::vector<TraceRequest> const& requests);
  ~Tracing();
  Tracing(Tracing const&) = delete;
  Tracing& operator=(Tracing const&) = delete;

 private:
  std::vector<TraceRequest> requests_;
};

}  // namespace pimbsr::cli
