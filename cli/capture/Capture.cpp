#include "cli/capture/Capture.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <pcap/pcap.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace pimbsr::cli {

// Time ------------------------------------------------------------------------------------------------

bool CaptureTime::isReal() const { return seconds >= 1'000'000'000 && seconds < S64{1} << 32; }

double CaptureTime::value() const { return static_cast<double>(seconds) + nanoseconds / 1e9; }

double CaptureTime::since(CaptureTime const& other) const {
  // Each in double, since a damaged stamp may be further away than an integer holds.
  double whole = static_cast<double>(seconds) - static_cast<double>(other.seconds);
  return whole + static_cast<double>(nanoseconds - other.nanoseconds) / 1e9;
}

std::string CaptureTime::text() const {
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} UTC", fmt::gmtime(static_cast<std::time_t>(seconds)),
                     nanoseconds / 1'000'000);
}

// File ------------------------------------------------------------------------------------------------

static bool isCutShort(std::string_view text) { return text.find("truncated") != text.npos; }

/// The file, open and not empty.
static FILE* openFile(std::string const& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw CaptureError(fmt::format("cannot open {}: {}", path, std::strerror(errno)));
  errno = 0;
  int first = std::fgetc(file);
  if (first != EOF) {
    std::ungetc(first, file);
    return file;
  }
  std::string error = std::ferror(file) != 0 ? fmt::format("cannot read {}: {}", path, std::strerror(errno))
                                             : fmt::format("{} is empty, which no capture is", path);
  std::fclose(file);
  throw CaptureError(error);
}

static pcap* openCapture(std::string const& path) {
  FILE* file = openFile(path);
  char text[PCAP_ERRBUF_SIZE] = "";
  pcap* capture = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, text);
  if (capture != nullptr) return capture;
  std::fclose(file);
  std::string_view error = isCutShort(text) ? "is cut short within its head" : "is no pcap or pcapng capture";
  throw CaptureError(fmt::format("{} {} ({})", path, error, text));
}

static std::string linkTypeName(int linkType) {
  if (char const* name = pcap_datalink_val_to_name(linkType)) return fmt::format("{} ({})", name, linkType);
  if (linkType >= DLT_USER0 && linkType <= DLT_USER15) {
    return fmt::format("USER{} ({})", linkType - DLT_USER0, linkType);
  }
  return std::to_string(linkType);
}

Capture::Capture(std::string const& path)
    : path_(path), file_(openCapture(path)), linkType_(pcap_datalink(file_.get())) {
  if (isLinkTypeKnown(linkType_)) return;
  throw CaptureError(fmt::format("{} is of link type {}, which can't be read; those that can are {}", path,
                                 linkTypeName(linkType_), knownLinkTypes()));
}

Capture::~Capture() = default;

void Capture::Close::operator()(pcap* file) const { pcap_close(file); }

/// A damaged stamp may have more than a second in its fraction, or less than nothing.
static CaptureTime normal(S64 seconds, S64 nanoseconds) {
  constexpr S64 second = 1'000'000'000;
  S64 carried = nanoseconds / second - (nanoseconds % second < 0 ? 1 : 0);
  return {seconds + carried, nanoseconds - carried * second};
}

bool Capture::next(Frame& frame) {
  pcap_pkthdr* header = nullptr;
  U8 const* bytes = nullptr;
  int result = pcap_next_ex(file_.get(), &header, &bytes);
  if (result == PCAP_ERROR_BREAK) return false;
  if (result != 1) {
    char const* text = pcap_geterr(file_.get());
    std::string_view error =
        isCutShort(text) ? "is cut short in the middle of packet" : "is damaged at packet";
    throw CaptureError(fmt::format("{} {} {} ({})", path_, error, frames_ + 1, text));
  }
  frame.number = ++frames_;
  frame.time = normal(header->ts.tv_sec, header->ts.tv_usec);  // nanoseconds, as asked for above
  frame.packet = ipPacketOf(linkType_, {bytes, header->caplen});
  return true;
}

}  // namespace pimbsr::cli
