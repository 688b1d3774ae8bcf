#pragma once

#include "runtime/PtrInterface.h"

namespace Routing::Pim::Bsr {

/// What a host has the machines do with RP sets in place of their own rules.
class PIMBSR_API StoreRules : public Zet::PtrInterface {
 public:
  /// Whether the RPs of a record that stay are taken before those that it withdraws.
  virtual bool takesWithdrawalsLast() const = 0;
  /// A record that withdraws RPs and has others was taken in that order.
  virtual void handleWithdrawnLast() = 0;
};

}  // namespace Routing::Pim::Bsr
