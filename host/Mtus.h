#pragma once

#include <algorithm>
#include <map>

#include "model/Interface.h"
#include "model/Lanet.h"
#include "runtime/Types.h"

namespace pimbsr::host {

using Zet::U32;

/// The MTUs of a router's interfaces, in bytes. The machines are given them, or a boundless one where the
/// host cuts the messages.
class Mtus {
 public:
  static constexpr U32 usual = 1500;  ///< of an interface whose MTU is 0 or not known
  static constexpr U32 boundless = ~U32{0};
  static constexpr U32 minimum = 68;  ///< of an IPv4 link (RFC 791)

  /// `interfaces` is what the machines read.
  explicit Mtus(Zet::Ptr<Interface::AllIntfStatusDir> const& interfaces) : interfaces_(interfaces) {}

  void mtuIs(Lanet::IntfId const& intfId, U32 mtu) {
    mtus_[intfId] = mtu;
    interfaces_->intfStatusIs(intfId)->mtuIs(isHidden_ ? boundless : mtu);
  }
  void del(Lanet::IntfId const& intfId) {
    mtus_.erase(intfId);
    interfaces_->intfStatusDel(intfId);
  }
  /// Whether the machines are to see boundless MTUs.
  void hiddenIs(bool isHidden) {
    isHidden_ = isHidden;
    for (auto const& [intfId, mtu] : mtus_)
      interfaces_->intfStatusIs(intfId)->mtuIs(isHidden ? boundless : mtu);
  }

  U32 of(Lanet::IntfId const& intfId) const {
    auto at = mtus_.find(intfId);
    return at == mtus_.end() ? usual : valid(at->second);
  }
  /// The least of all, and no more than the usual one.
  U32 least() const {
    U32 least = usual;
    for (auto const& [intfId, mtu] : mtus_) least = std::min(least, valid(mtu));
    return least;
  }

 private:
  static U32 valid(U32 mtu) { return mtu == 0 ? usual : std::max(mtu, minimum); }

  Zet::Ptr<Interface::AllIntfStatusDir> interfaces_;
  std::map<Lanet::IntfId, U32> mtus_;
  bool isHidden_ = false;
};

}  // namespace pimbsr::host
