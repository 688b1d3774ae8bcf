#include "sim/PcapWriter.h"

#include <fmt/format.h>
#include <pcap/pcap.h>

#include <cmath>
#include <cstdio>
#include <filesystem>

#include "wire/Wire.h"

namespace pimbsr::sim {

void PcapWriter::Close::operator()(pcap* handle) const { pcap_close(handle); }

void PcapWriter::Close::operator()(pcap_dumper* file) const { pcap_dump_close(file); }

PcapWriter::PcapWriter(std::string const& folder, Network const& network)
    : folder_(folder), network_(network), handle_(pcap_open_dead(DLT_RAW, wire::maxPacketLength)) {
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (error) throw PcapError(fmt::format("cannot make the folder {}: {}", folder_, error.message()));
}

PcapWriter::~PcapWriter() = default;

pcap_dumper* PcapWriter::fileOf(U32 link) {
  if (link >= files_.size()) files_.resize(link + 1);
  if (!files_[link]) {
    std::string path = fmt::format("{}/{}.pcap", folder_, network_.link(link).options.name);
    files_[link].reset(pcap_dump_open(handle_.get(), path.c_str()));
    // libpcap's text names the file.
    if (!files_[link]) throw PcapError(fmt::format("cannot write {}", pcap_geterr(handle_.get())));
  }
  return files_[link].get();
}

void PcapWriter::onPacket(U32 link, double time, Bytes packet) {
  double seconds = Zet::Context::firstTime + time;
  pcap_pkthdr header{};
  header.ts.tv_sec = static_cast<time_t>(seconds);
  header.ts.tv_usec = static_cast<suseconds_t>((seconds - std::floor(seconds)) * 1e6);
  header.caplen = header.len = static_cast<bpf_u_int32>(packet.size());
  pcap_dump(reinterpret_cast<u_char*>(fileOf(link)), &header, packet.data());
}

void PcapWriter::close() {
  for (U32 link = 0; link < network_.linkCount(); ++link) {
    pcap_dumper* file = fileOf(link);
    if (pcap_dump_flush(file) != 0 || std::ferror(pcap_dump_file(file)) != 0) {
      throw PcapError(fmt::format("cannot write {}/{}.pcap", folder_, network_.link(link).options.name));
    }
  }
}

}  // namespace pimbsr::sim
