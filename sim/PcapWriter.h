#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/Listener.h"
#include "sim/Network.h"

struct pcap;
struct pcap_dumper;

namespace pimbsr::sim {

/// A capture file that can't be written. The text names it.
class PcapError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Writes what is put on each link of a network into a capture file of its own: <link>.pcap, of raw IP
/// packets. The clock of the captures starts at Zet::Context::firstTime, a date in 2001.
class PcapWriter final : public Tap {
 public:
  /// The folder is made if it isn't there. The network outlives the writer. Throws PcapError.
  PcapWriter(std::string const& folder, Network const& network);
  ~PcapWriter() override;

  /// Throws PcapError where the link's file can't be made.
  void onPacket(U32 link, double time, Bytes packet) override;
  /// Makes the files of links that had no packet, and brings all to the disk. Throws PcapError.
  void close();

 private:
  struct Close {
    void operator()(pcap* handle) const;
    void operator()(pcap_dumper* file) const;
  };

  pcap_dumper* fileOf(U32 link);

  std::string folder_;
  Network const& network_;
  std::unique_ptr<pcap, Close> handle_;
  std::vector<std::unique_ptr<pcap_dumper, Close>> files_;  ///< by link; null until the first packet
};

}  // namespace pimbsr::sim
