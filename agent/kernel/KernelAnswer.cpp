#include "agent/kernel/KernelAnswer.h"

#include <libmnl/libmnl.h>

#include <cstring>

namespace pimbsr::agent {

/// The result that the kernel reports: 0, or a negated errno.
static int resultIn(nlmsghdr const& message) {
  int result = 0;
  if (mnl_nlmsg_get_payload_len(&message) < sizeof result) return 0;
  std::memcpy(&result, mnl_nlmsg_get_payload(&message), sizeof result);
  return result;
}

KernelAnswer::State KernelAnswer::take(std::span<U8 const> datagram, KernelRecords& records) {
  forEachMessage(datagram, [&](nlmsghdr const& message) {
    if (message.nlmsg_seq == sequence_ && state_ == State::incomplete) take(message, records);
  });
  return state_;
}

void KernelAnswer::take(nlmsghdr const& message, KernelRecords& records) {
  if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) isInterrupted_ = true;
  if (message.nlmsg_type != NLMSG_DONE && message.nlmsg_type != NLMSG_ERROR) return records.add(message);
  int result = resultIn(message);
  error_ = result < 0 ? -result : 0;
  state_ = result < 0 ? State::failed : State::complete;
}

}  // namespace pimbsr::agent
