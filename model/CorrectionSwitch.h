#pragma once

#include "runtime/Types.h"

namespace pimbsr {

/// Whether a named deviation from what the machines do by themselves is in use, and how often it changed
/// something. Off unless a host turns it on.
class CorrectionSwitch {
 public:
  /// Whether the deviation is in use.
  bool isOn() const { return isOn_; }
  /// Turns it on or off; the count stays.
  void isOnIs(bool on) { isOn_ = on; }
  /// How often it changed something; a look that changed nothing doesn't count.
  Zet::U64 acts() const { return acts_; }
  /// Counts that it changed something, once for each call, on or off.
  void noteAct() { ++acts_; }

 private:
  bool isOn_ = false;
  Zet::U64 acts_ = 0;
};

}  // namespace pimbsr
