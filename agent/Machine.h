#pragma once

#include <string>

#include "agent/KernelView.h"
#include "pim/Port.h"

namespace pimbsr::agent {

/// The computer that an agent runs on: its interfaces and routes as they stand, and a way onto its links.
class Machine : public pim::Port {
 public:
  /// What the kernel said last.
  virtual KernelView const& kernel() const = 0;
  /// Begins to take PIM packets from a link, and to send along it. Throws std::system_error if that can't be.
  virtual void open(KernelLink const& link) = 0;
  /// Ends that; a link that isn't open is left alone.
  virtual void close(std::string const& name) = 0;
};

}  // namespace pimbsr::agent
