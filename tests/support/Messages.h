#pragma once

#include <string>
#include <vector>

#include "model/Packet.h"

namespace test {

Lanet::IpGenAddr addr(std::string const& text);
Lanet::IpGenPrefix prefix(std::string const& text);
Lanet::IntfId intf(std::string const& name);

inline constexpr Zet::U8 scopedFlag = 0x01;
inline constexpr Zet::U8 bidirFlag = 0x80;

/// Messages as a test writes them down.
struct Rp {
  std::string address;
  Zet::U16 holdtime = 150;
  Zet::U8 priority = 0;
};

struct Group {
  std::string prefix;
  std::vector<Rp> rps;
  Zet::U8 flags = 0;
  int rpCount = -1;      ///< -1: as many as are listed
  int fragRpCount = -1;  ///< -1: as many as are listed
};

struct Bsm {
  std::string bsr = "10.0.0.1";
  Zet::U8 priority = 10;
  std::vector<Group> groups = {};
  Zet::U16 tag = 1;
  bool forward = true;
  Zet::U8 hashMaskLen = 30;
  std::string source = "192.0.2.1";
  std::string destination = "224.0.0.13";
};

Zet::Ptr<Routing::Pim::Packet::BootstrapMessage> make(Bsm const& given);

/// One line that shows a message whole, with records in walk order: what a test of outgoing messages
/// compares.
std::string show(Routing::Pim::Packet::BootstrapMessage const& message);

}  // namespace test
