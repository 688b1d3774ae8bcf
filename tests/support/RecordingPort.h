#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "pim/Port.h"
#include "tests/support/Messages.h"

namespace test {

/// The outside of a router as a test sees it: addresses from tables, and every packet kept.
class RecordingPort : public pimbsr::pim::Port {
 public:
  struct Packet {
    std::string intf;
    std::vector<Zet::U8> bytes;
  };

  bool send(Lanet::IntfId const& intfId, std::span<Zet::U8 const> packet) override {
    if (fails) return false;
    sent.push_back({std::string(intfId.stringValue().view()), {packet.begin(), packet.end()}});
    return true;
  }
  Lanet::IpGenAddr primaryAddress(Lanet::IntfId const& intfId) const override {
    auto at = addresses.find(std::string(intfId.stringValue().view()));
    return at == addresses.end() ? Lanet::IpGenAddr() : addr(at->second);
  }
  std::vector<Lanet::IpGenAddr> secondaryAddresses(Lanet::IntfId const&) const override {
    return secondaries;
  }
  bool isOwnAddress(Lanet::IpGenAddr const& address) const override {
    for (auto const& [name, own] : addresses) {
      if (addr(own) == address) return true;
    }
    return false;
  }

  std::map<std::string, std::string> addresses = {{"eth0", "192.0.2.9"}, {"eth1", "198.51.100.9"}};
  std::vector<Lanet::IpGenAddr> secondaries;
  std::vector<Packet> sent;
  bool fails = false;
};

}  // namespace test
