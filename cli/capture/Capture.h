#pragma once

#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include "cli/capture/LinkLayer.h"
#include "runtime/Types.h"

struct pcap;

namespace pimbsr::cli {

using Zet::S64;
using Zet::U64;

/// A file that can't be read as a capture, or not to its end. The text names the file and says what is wrong
/// with it.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A time as a capture has it, kept exact: a double holds no nanoseconds of our century.
struct CaptureTime {
  S64 seconds = 0;  ///< since 1970, UTC, where the capturing host had a clock
  S64 nanoseconds = 0;

  /// Whether it is a date from 2001 to 2105, so that it was read from a clock.
  bool isReal() const;
  /// Seconds since 1970.
  double value() const;
  /// Seconds from another time to this one; negative if this one is earlier.
  double since(CaptureTime const& other) const;
  /// "2026-01-15 09:00:00.000 UTC"; only for a real time.
  std::string text() const;
};

/// One frame of a capture.
struct Frame {
  U64 number = 0;  ///< from 1
  CaptureTime time;
  IpPacket packet;  ///< good until the next frame is read
};

/// A capture file being read: pcap or pcapng, stamped in any unit.
class Capture {
 public:
  /// Opens a file. Throws CaptureError for one that isn't there, is empty, is no capture, or is of a link
  /// type that can't be read.
  explicit Capture(std::string const& path);
  ~Capture();
  Capture(Capture const&) = delete;
  Capture& operator=(Capture const&) = delete;

  /// Reads the next frame; false at the end. Throws CaptureError where the file is cut short or damaged.
  bool next(Frame& frame);

 private:
  struct Close {
    void operator()(pcap* file) const;
  };

  std::string path_;
  std::unique_ptr<pcap, Close> file_;
  int linkType_ = 0;
  U64 frames_ = 0;
};

}  // namespace pimbsr::cli
