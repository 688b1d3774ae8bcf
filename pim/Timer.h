#pragma once

#include <functional>
#include <utility>

#include "runtime/TimerWheel.h"

namespace pimbsr::pim {

/// A timer that calls a function at its expiry, owned by whoever made it.
class Timer : public Kiv::TimerWheel::NotifieeConst {
 public:
  Timer(Zet::Ptr<Kiv::TimerWheel const> const& wheel, std::function<void()> expiry)
      : expiry_(std::move(expiry)) {
    notifierIs(wheel);
  }
  void onTime() override { expiry_(); }

 private:
  std::function<void()> expiry_;
};

}  // namespace pimbsr::pim
