#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/kernel/KernelView.h"
#include "agent/queues/QueueSet.h"
#include "pim/Port.h"

namespace pimbsr::agent {

/// The receive queues and the last send error of one interface.
struct LinkReport {
  CountsByKind queues;    ///< receive queues that are or were open
  std::string sendError;  ///< the system's message for the last packet that it didn't send; or empty
};

/// By interface. Unicast packets, and those sent by the routes, have the empty name.
using LinkReports = std::map<std::string, LinkReport>;

/// The system that an agent runs on: its present interfaces and routes, and the packets of its links.
class Platform : public pim::Port {
 public:
  /// The kernel's interfaces and addresses as read last.
  virtual KernelView const& kernel() const = 0;
  /// Begins to receive and send PIM packets on a link. Throws std::system_error.
  virtual void open(KernelLink const& link) = 0;
  /// Ends that. Without effect on a link that isn't open.
  virtual void close(std::string const& name) = 0;
  /// Neighbors, or addresses of neighbors, of a link have changed. The platform receives their packets in
  /// queues of their own where it can, and reads the addresses (Agent::neighborsOf()) later, once for all
  /// changes until then. Without effect on a link that isn't open.
  virtual void neighborsChanged(std::string const& name) = 0;
  /// The senders of accepted advertisements have changed. The platform receives their packets in a queue
  /// of their own, and reads the senders (Agent::advertisers()) later, once for all changes until then.
  virtual void advertisersChanged() = 0;
  /// Counts and errors since the start or the last clear.
  virtual LinkReports linkReports() = 0;
  /// Resets the counts to 0 and forgets the errors.
  virtual void clearReports() = 0;
};

}  // namespace pimbsr::agent
