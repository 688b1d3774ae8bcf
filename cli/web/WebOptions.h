#pragma once

#include <string>
#include <vector>

namespace pimbsr::cli {

/// What `pimbsr web` was given.
struct WebOptions {
  std::vector<std::string> agents;  ///< each NAME=SOCKET; empty for the read-only socket of this system
  std::string listen;               ///< ADDRESS:PORT, or unix:PATH; empty for the default
  std::string tokenFile;            ///< empty for none
  std::vector<std::string> hosts;   ///< further names of this server in the header Host
  bool metricsOnly = false;         ///< serves /metrics and nothing else
  unsigned idleExit = 0;            ///< seconds without a request after which it ends; 0 for never
};

/// Where an HTTP server listens by default.
inline constexpr char const* defaultListen = "127.0.0.1:9743";

}  // namespace pimbsr::cli
