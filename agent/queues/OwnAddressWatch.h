#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "agent/base/FileDescriptor.h"
#include "agent/base/Loop.h"
#include "model/Lanet.h"
#include "runtime/Types.h"

namespace pimbsr::agent {

/// PIM packets from an address of this system that came in by a link.
struct OwnAddressUse {
  int interfaceIndex = 0;
  Lanet::IpAddr address;
  std::string hardwareAddress;  ///< of the last sender, as "02:00:00:00:00:01"; empty on links without one
  Zet::U64 packets = 0;
};

/// Finds other systems on the links that send PIM packets from an address of this one. The kernel drops such
/// packets before any raw socket gets them, so that this is a packet socket. Its filter passes nothing else,
/// and wakes this process for nothing else.
///
/// A flood of them costs `maxPackets` reads in a second; what comes beyond is not counted.
class OwnAddressWatch {
 public:
  static constexpr int maxPackets = 16;
  static constexpr double restTime = 1;  ///< seconds from one look to the next
  /// Addresses that the filter holds.
  static constexpr std::size_t maxAddresses = 256;

  using Found = std::function<void(OwnAddressUse const&)>;

  /// Opens the socket, for packets of no address. Where the system permits none, logs that, and nothing is
  /// ever found. To be made before the process filters its system calls, which permit no other such socket.
  OwnAddressWatch(Loop& loop, Found found);
  OwnAddressWatch(OwnAddressWatch const&) = delete;
  OwnAddressWatch& operator=(OwnAddressWatch const&) = delete;

  /// Looks for these sources from now on; the first maxAddresses count.
  void addressesAre(std::vector<Lanet::IpAddr> const& addresses);

 private:
  void open();
  void filterIs(std::vector<Lanet::IpAddr> const& addresses);
  void watch();
  void take();
  bool receive(std::vector<OwnAddressUse>& uses);

  Loop& loop_;
  Found found_;
  FileDescriptor socket_;
  std::vector<Lanet::IpAddr> addresses_;
  std::unique_ptr<LoopReader> reader_;
  LoopTimer rest_;
};

}  // namespace pimbsr::agent
