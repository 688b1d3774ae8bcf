#pragma once

#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "agent/NeighborWatch.h"
#include "agent/account/HistoryEntry.h"
#include "agent/base/LogRecord.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// Logs what happens to the learned state: which BSR a zone has, which state this router's candidacy has, and
/// that a zone has no RP left.
class EventLog {
 public:
  /// Logs the changes of one event.
  void onChanges(std::vector<HistoryEntry> const& changes);

 private:
  void count(HistoryEntry const& change);
  void logEmptied(std::vector<HistoryEntry> const& changes);

  using RpKey = std::tuple<Lanet::IpGenPrefix, Lanet::IpGenPrefix, Lanet::IpGenAddr>;  ///< zone, range, RP

  /// How many RPs a zone has, in all ranges, kept ones included; those with any.
  std::map<Lanet::IpGenPrefix, Zet::U64> rps_;
  std::set<RpKey> kept_;  ///< RPs of former BSRs that stay in use
};

/// Logs that a neighbor came or went.
void logNeighbor(NeighborChange const& change);
/// Log that an interface speaks PIM now, or no more and why.
void logInterfaceUp(std::string const& name, Lanet::IpGenAddr const& address);
void logInterfaceDown(std::string const& name, std::string const& why);
/// Logs that another system, with a hardware address or none, sends from the address that an interface has.
void logDuplicateAddress(std::string const& name, Lanet::IpAddr address, std::string const& sender,
                         Zet::U64 packets);
/// Logs something else about an interface.
void logInterface(LogEvent const& event, std::string const& name, std::string const& text);

}  // namespace pimbsr::agent
