#pragma once

#include "runtime/Notifiee.h"
#include "runtime/String8.h"

namespace Zet {

/// Base of every entity of the model: an object that can be watched, named and reached by reflection.
class PIMBSR_API Entity : public Notifier {
 public:
  /// The name given at construction; the text of its key for a keyed entity without one; else empty.
  virtual Name name() const { return Name(); }

  /// Number of the attribute isNondestructing.
  enum : AttributeId { attrIsNondestructing = -2 };
  /// The descriptor of what every entity has.
  static ZetType const& _fwkType();

  /// Carried for management, false at first; nothing here reads it.
  bool isNondestructing() const { return isNondestructing_; }
  /// A change isn't notified.
  void isNondestructingIs(bool on) { isNondestructing_ = on; }

 protected:
  Entity() = default;

 private:
  bool isNondestructing_ = false;
};

}  // namespace Zet
