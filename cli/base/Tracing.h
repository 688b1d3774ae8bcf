#pragma once

#include <string>
#include <vector>

namespace pimbsr::cli {

/// A wish to see the engine's trace of one handle, from level 0 up to and including `level`: a higher level
/// tells more.
struct TraceWish {
  std::string handle;
  int level = 0;
};

/// Reads "HANDLE:LEVEL". Throws UsageError, with what would be valid, for an unknown handle or level.
TraceWish parseTraceWish(std::string const& text);

/// Puts trace handles on for as long as it lives. Of several wishes for one handle the highest level counts.
class Tracing {
 public:
  explicit Tracing(std::vector<TraceWish> const& wishes);
  ~Tracing();
  Tracing(Tracing const&) = delete;
  Tracing& operator=(Tracing const&) = delete;

 private:
  std::vector<TraceWish> wishes_;
};

}  // namespace pimbsr::cli
