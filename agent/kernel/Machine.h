#pragma once

#include <map>
#include <string>
#include <vector>

#include "agent/kernel/KernelView.h"
#include "agent/queues/QueueSet.h"
#include "pim/Port.h"

namespace pimbsr::agent {

/// How packets come and go on one interface.
struct LinkReport {
  CountsByKind queues;  ///< receive queues that are or were open
  std::string
      sendError;  ///< why the last packet that couldn't be sent wasn't, in the system's words; or empty
};

/// By interface; that of packets to single addresses, and of those sent by the routes, has the empty name.
using LinkReports = std::map<std::string, LinkReport>;

/// The computer that an agent runs on: its interfaces and routes as they stand, and a way onto its links.
class Machine : public pim::Port {
 public:
  /// What the kernel said last.
  virtual KernelView const& kernel() const = 0;
  /// Begins to take PIM packets from a link, and to send along it. Throws std::system_error if that can't be.
  virtual void open(KernelLink const& link) = 0;
  /// Ends that; a link that isn't open is left alone.
  virtual void close(std::string const& name) = 0;
  /// Neighbors, or addresses of neighbors, of a link have changed. The machine keeps their packets apart from
  /// what others send, as far as it can, and asks for the addresses (Agent::neighborsOf()) later, once for
  /// all changes until then. A link that isn't open is left alone.
  virtual void neighborsChanged(std::string const& name) = 0;
  /// The senders of accepted advertisements have changed. The machine keeps their packets apart from what
  /// others send, and asks for them (Agent::advertisers()) later, once for all changes until then.
  virtual void advertisersChanged() = 0;
  /// What became of packets since the start or the last clear.
  virtual LinkReports linkReports() = 0;
  /// Counts start at 0 again, and errors are forgotten.
  virtual void clearReports() = 0;
};

}  // namespace pimbsr::agent
