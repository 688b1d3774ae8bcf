#pragma once

#include <span>

#include "agent/kernel/KernelTables.h"

namespace pimbsr::agent {

/// One of the tables of the kernel, as its answer to a request brings it, datagram by datagram. This class
/// doesn't communicate with the kernel itself.
class KernelAnswer {
 public:
  enum class State : U8 {
    incomplete,
    complete,  ///< but for changes meanwhile: isInterrupted()
    failed     ///< the kernel has reported an error
  };

  /// Expects the answer to the request with this sequence number.
  explicit KernelAnswer(U32 sequence) : sequence_(sequence) {}

  /// Adds what a datagram holds to the records. Messages of other requests, and those after the end of the
  /// answer, are ignored.
  State take(std::span<U8 const> datagram, KernelRecords& records);

  /// Whether the table changed while the kernel sent it, so that entries may be missing (NLM_F_DUMP_INTR).
  bool isInterrupted() const { return isInterrupted_; }
  /// The system's error number, if the kernel has reported one; else 0.
  int error() const { return error_; }

 private:
  void take(nlmsghdr const& message, KernelRecords& records);

  U32 sequence_;
  State state_ = State::incomplete;
  bool isInterrupted_ = false;
  int error_ = 0;
};

}  // namespace pimbsr::agent
