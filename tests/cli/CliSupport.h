#pragma once

#include <string>
#include <vector>

#include "cli/replay/ReplayOptions.h"
#include "runtime/Types.h"
#include "tests/support/Messages.h"

namespace test {

using Bytes = std::vector<Zet::U8>;

/// What a run of the command wrote and ended with.
struct RunResult {
  int code = 0;
  std::string out;
  std::string err;
};

/// Plays a capture in this process.
RunResult replay(pimbsr::cli::ReplayOptions const& options);
RunResult replay(std::string const& file);
/// Runs the built command with arguments as a shell reads them.
RunResult command(std::string const& arguments);

/// A file of the source tree, and one of the tests' own captures.
std::string sourceFile(std::string const& path);
std::string capture(std::string const& name);
std::string fileText(std::string const& path);

/// Compares with tests/golden/<name>; with PIMBSR_REWRITE set in the environment, writes that file instead.
void expectGolden(std::string const& name, std::string const& text);

/// A message as an IPv4 packet; it must be one that can be sent.
Bytes packetOf(Bsm const& bsm);
/// An IPv4 packet that carries PIM bytes.
Bytes ipv4Of(Bytes const& pim, std::string const& source = "192.0.2.1",
             std::string const& destination = "224.0.0.13", Zet::U16 identification = 0);

/// A part of a packet's payload, in bytes.
struct Part {
  std::size_t from = 0;
  std::size_t size = 0;
  bool more = true;  ///< whether the fragment says that another one follows
  int offset = -1;   ///< that the fragment says; -1: `from`
};
/// The fragment of a packet without IP options that carries a part of it.
Bytes fragmentOf(Bytes const& packet, Part const& part);

/// Builds a capture file of raw IP packets, which is removed with this object.
class CaptureFile {
 public:
  /// `start` is the time of the capture's second 0, in seconds since 1970.
  explicit CaptureFile(Zet::U32 start = 1768467600);
  ~CaptureFile();
  CaptureFile(CaptureFile const&) = delete;
  CaptureFile& operator=(CaptureFile const&) = delete;

  CaptureFile& add(double seconds, Bytes const& packet);
  CaptureFile& add(double seconds, Bsm const& bsm) { return add(seconds, packetOf(bsm)); }
  std::string const& path() const { return path_; }

 private:
  Zet::U32 start_;
  std::string path_;
};

}  // namespace test
