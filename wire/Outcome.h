#pragma once

#include <utility>
#include <variant>

#include "model/DropReason.h"
#include "runtime/Assert.h"

namespace pimbsr::wire {

/// The result of reading a packet: the value read, or the reason for which the packet was dropped.
template <class T>
class [[nodiscard]] Outcome {
 public:
  /// A value that was read.
  Outcome(T value) : either_(std::in_place_index<0>, std::move(value)) {}
  /// A packet that was dropped.
  Outcome(DropReason reason) : either_(std::in_place_index<1>, reason) {}

  /// True if there is a value.
  explicit operator bool() const { return either_.index() == 0; }

  /// The value; only if there is one.
  T const& operator*() const {
    ZET_ASSERT(*this, "the packet was accepted");
    return *std::get_if<0>(&either_);
  }
  /// A member of the value; only if there is one.
  T const* operator->() const { return &**this; }

  /// The drop reason; only if there is no value.
  DropReason reason() const {
    ZET_ASSERT(!*this, "the packet was dropped");
    return *std::get_if<1>(&either_);
  }

 private:
  std::variant<T, DropReason> either_;
};

}  // namespace pimbsr::wire
