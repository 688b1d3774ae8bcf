#pragma once

#include <string>
#include <vector>

#include "tests/support/Engine.h"

namespace test {

/// `n` RPs 203.0.113.1, 203.0.113.2 ...; from the 255th on 203.0.114.0 and so on.
inline std::vector<Rp> someRps(int n) {
  std::vector<Rp> all;
  for (int i = 1; i <= n; ++i) {
    all.push_back({"203.0." + std::to_string(113 + i / 255) + "." + std::to_string(i % 255)});
  }
  return all;
}

/// A range of the global zone or below it with so many RPs; by the sizing rule 12 + 12 * rps bytes.
inline Group someGroup(int number, int rps) {
  return {"239." + std::to_string(number) + ".0.0/16", someRps(rps)};
}

/// What a message carries: "239.1.0.0/16 5/3(3)" for a range of 5 RPs of which this message announces 3 and
/// holds 3, joined by " | ".
inline std::string records(Routing::Pim::Packet::BootstrapMessage const& message) {
  std::string all;
  for (auto group = message.groupRpData()->groupDataIterator(); group; ++group) {
    all += (all.empty() ? "" : " | ") + std::string(group->prefix().stringValue().view()) + " " +
           std::to_string(group->rpCount()) + "/" + std::to_string(group->fragRpCount()) + "(" +
           std::to_string(group->rpListCount()) + ")";
  }
  return all;
}

inline Routing::Pim::Packet::BootstrapMessage const& bsmOf(Sent const& sent) {
  return static_cast<Routing::Pim::Packet::BootstrapMessage const&>(*sent.message);
}

/// records() of each message that left along an interface, in order; of all interfaces if none is named.
inline std::vector<std::string> sentRecords(Engine const& engine, std::string const& intfName = "") {
  std::vector<std::string> all;
  for (Sent const& sent : engine.outbox->sent) {
    if (intfName.empty() || sent.intf == intfName) all.push_back(records(bsmOf(sent)));
  }
  return all;
}

/// The interfaces by which messages left, in order.
inline std::vector<std::string> sentIntfs(Engine const& engine) {
  std::vector<std::string> all;
  for (Sent const& sent : engine.outbox->sent) all.push_back(sent.intf);
  return all;
}

}  // namespace test
