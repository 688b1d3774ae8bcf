#pragma once

#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "agent/base/Loop.h"
#include "agent/queues/PimSocket.h"
#include "tests/agent/NetworkLab.h"
#include "wire/Wire.h"

namespace test {

/// A PIM packet of a type, its first byte, with a number of four bytes after the PIM header.
inline std::vector<Zet::U8> numberedPacket(pimbsr::wire::Ipv4Header const& header, Zet::U8 type,
                                           Zet::U32 number) {
  std::vector<Zet::U8> payload = {type, 0, 0, 0, 0, 0, 0, 0};
  std::memcpy(payload.data() + 4, &number, sizeof number);
  std::vector<Zet::U8> bytes;
  EXPECT_TRUE(pimbsr::wire::encodeIpv4(header, payload, bytes));
  return bytes;
}

inline Zet::U32 numberOf(std::span<Zet::U8 const> packet) {
  Zet::U32 number = 0;
  std::memcpy(&number, packet.data() + 24, sizeof number);
  return number;
}

/// Counts shared with a child process that sends.
class SharedProgress {
 public:
  struct Counts {
    std::atomic<Zet::U32> taken = 0;
    std::atomic<bool> isOver = false;
  };

  SharedProgress()
      : memory_(mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (memory_ == MAP_FAILED) throw std::bad_alloc();
    counts_ = new (memory_) Counts;
  }
  ~SharedProgress() { munmap(memory_, sizeof(Counts)); }
  SharedProgress(SharedProgress const&) = delete;
  SharedProgress& operator=(SharedProgress const&) = delete;

  Counts* operator->() const { return counts_; }

 private:
  void* memory_;
  Counts* counts_ = nullptr;
};

/// Two systems on one link: "far", 10.0.1.253/23, sends, and the queues of "near", 10.0.1.254/23, receive.
class QueueLab : public NetworkTest {
 protected:
  void SetUp() override {
    NetworkTest::SetUp();
    if (HasFatalFailure() || IsSkipped()) return;
    near = std::make_unique<NetworkNamespace>();
    far = std::make_unique<NetworkNamespace>();
    {
      Inside inside(*far);
      ipAll({"link add name far index 8 type veth peer name near index 9 netns " + near->path(),
             "link set far up", "address add 10.0.1.253/23 dev far"});
    }
    {
      Inside inside(*near);
      ipAll({"link set near up", "address add 10.0.1.254/23 dev near"});
      for (char const* name : {"all", "near"}) setting("ipv4/conf/" + std::string(name) + "/rp_filter", "0");
      awaitRunning("near");
    }
    Inside inside(*far);
    sender = std::make_unique<pimbsr::agent::PimSocket>("far", 8);
  }

  /// Runs the event loop in the near system for so many seconds.
  void run(double seconds) {
    Inside inside(*near);
    pimbsr::agent::LoopTimer end(loop, [this] { loop.stop(); });
    end.startIn(seconds);
    loop.run();
  }
  /// Acts and runs the event loop for so many seconds, in which no file can be opened.
  void runWithoutFiles(double seconds, std::function<void()> const& act) {
    Inside inside(*near);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = {.rlim_cur = 3, .rlim_max = before.rlim_max};
    pimbsr::agent::LoopTimer end(loop, [this] { loop.stop(); });
    end.startIn(seconds);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    act();
    loop.run();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  }
  /// Expects that each number from 0 to the greatest was taken exactly once. Returns how many there are.
  std::size_t expectTakenOnce() const {
    if (taken.empty()) return 0;
    std::vector<int> copies(*std::max_element(taken.begin(), taken.end()) + 1);
    for (Zet::U32 number : taken) ++copies[number];
    EXPECT_EQ(std::count(copies.begin(), copies.end(), 0), 0) << "of " << copies.size() << " were lost";
    EXPECT_EQ(std::count_if(copies.begin(), copies.end(), [](int n) { return n > 1; }), 0) << "were doubled";
    return copies.size();
  }

  pimbsr::agent::Loop loop;
  std::vector<Lanet::IpAddr> known;  ///< addresses of known senders
  int walks = 0;                     ///< of these addresses
  std::vector<Zet::U32> taken;       ///< numbers of the packets received
  std::unique_ptr<NetworkNamespace> near;
  std::unique_ptr<NetworkNamespace> far;
  std::unique_ptr<pimbsr::agent::PimSocket> sender;
};

}  // namespace test
