#include "agent/kernel/KernelAnswer.h"

#include <gmock/gmock.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace test {
namespace {

using pimbsr::agent::KernelAnswer;
using pimbsr::agent::KernelRecords;
using Zet::U16;
using Zet::U32;
using Zet::U8;
using State = KernelAnswer::State;

constexpr U32 requested = 7;

/// A datagram of messages as the kernel sends them.
class AnswerDatagram {
 public:
  AnswerDatagram& address(U32 host, U16 flags = NLM_F_MULTI, U32 sequence = requested) {
    ifaddrmsg fixed{.ifa_family = AF_INET, .ifa_prefixlen = 24, .ifa_index = 5};
    nlmsghdr* message = begin(RTM_NEWADDR, flags, sequence);
    std::memcpy(mnl_nlmsg_put_extra_header(message, sizeof fixed), &fixed, sizeof fixed);
    mnl_attr_put_u32(message, IFA_LOCAL, Lanet::IpAddr::fromHost(host).netWord());
    return end(message);
  }
  AnswerDatagram& result(U16 type, int value, U16 flags = NLM_F_MULTI, U32 sequence = requested) {
    nlmsghdr* message = begin(type, flags, sequence);
    std::memcpy(mnl_nlmsg_put_extra_header(message, sizeof value), &value, sizeof value);
    return end(message);
  }
  AnswerDatagram& done(int value = 0, U16 flags = NLM_F_MULTI) { return result(NLMSG_DONE, value, flags); }

  std::vector<U8> const& bytes() const { return bytes_; }

 private:
  nlmsghdr* begin(U16 type, U16 flags, U32 sequence) {
    space_.fill(0);
    nlmsghdr* message = mnl_nlmsg_put_header(space_.data());
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    message->nlmsg_seq = sequence;
    return message;
  }
  AnswerDatagram& end(nlmsghdr const* message) {
    bytes_.insert(bytes_.end(), space_.data(), space_.data() + MNL_ALIGN(message->nlmsg_len));
    return *this;
  }

  alignas(nlmsghdr) std::array<U8, 128> space_{};
  std::vector<U8> bytes_;
};

class KernelAnswerTest : public testing::Test {
 protected:
  State take(AnswerDatagram const& datagram) { return answer.take(datagram.bytes(), records); }
  std::size_t taken() const {
    auto at = records.addresses.find(5);
    return at == records.addresses.end() ? 0 : at->second.size();
  }

  KernelAnswer answer{requested};
  KernelRecords records;
};

TEST_F(KernelAnswerTest, AnswerIsCompleteWithItsLastDatagram) {
  EXPECT_EQ(take(AnswerDatagram().address(1).address(2)), State::incomplete);
  EXPECT_EQ(take(AnswerDatagram().address(3)), State::incomplete);
  EXPECT_EQ(take(AnswerDatagram().done()), State::complete);
  EXPECT_EQ(taken(), 3u);
  EXPECT_FALSE(answer.isInterrupted());
}

TEST_F(KernelAnswerTest, EndMayBeInTheDatagramOfTheLastRecords) {
  EXPECT_EQ(take(AnswerDatagram().address(1).done().address(2)), State::complete);
  EXPECT_EQ(taken(), 1u) << "what follows the end is no part of it";
}

TEST_F(KernelAnswerTest, MessagesOfOtherRequestsAreNoPartOfIt) {
  EXPECT_EQ(take(AnswerDatagram().address(1, NLM_F_MULTI, requested - 1)), State::incomplete);
  EXPECT_EQ(take(AnswerDatagram().result(NLMSG_DONE, 0, NLM_F_MULTI | NLM_F_DUMP_INTR, requested - 1)),
            State::incomplete);
  EXPECT_EQ(take(AnswerDatagram().result(NLMSG_ERROR, -EBUSY, 0, requested + 1)), State::incomplete);
  EXPECT_EQ(taken(), 0u);
  EXPECT_FALSE(answer.isInterrupted());
}

TEST_F(KernelAnswerTest, TableThatChangedMeanwhileIsInterruptedWhereverTheKernelSaysSo) {
  for (int place = 0; place < 3; ++place) {
    KernelAnswer one{requested};
    auto flags = [place](int at) -> U16 { return NLM_F_MULTI | (at == place ? NLM_F_DUMP_INTR : 0); };
    one.take(AnswerDatagram().address(1, flags(0)).bytes(), records);
    one.take(AnswerDatagram().address(2, flags(1)).bytes(), records);
    EXPECT_EQ(one.take(AnswerDatagram().done(0, flags(2)).bytes(), records), State::complete);
    EXPECT_TRUE(one.isInterrupted()) << place;
  }
}

TEST_F(KernelAnswerTest, ErrorOfTheKernelEndsIt) {
  EXPECT_EQ(take(AnswerDatagram().address(1).result(NLMSG_ERROR, -EBUSY, 0)), State::failed);
  EXPECT_EQ(answer.error(), EBUSY);
  EXPECT_EQ(take(AnswerDatagram().done()), State::failed);
}

TEST_F(KernelAnswerTest, ErrorAtTheEndIsOneToo) {
  EXPECT_EQ(take(AnswerDatagram().address(1).done(-ENOMEM)), State::failed);
  EXPECT_EQ(answer.error(), ENOMEM);
}

TEST_F(KernelAnswerTest, DatagramsThatAreCutShortAreRead) {
  std::vector<U8> bytes = AnswerDatagram().address(1).address(2).done(-1).bytes();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    std::vector<U8> exact(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_EQ(KernelAnswer(requested).take(exact, records), State::incomplete) << length;
  }
}

}  // namespace
}  // namespace test
