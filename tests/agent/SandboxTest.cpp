#include "agent/process/Sandbox.h"

#include <fcntl.h>
#include <linux/bpf.h>
#include <linux/keyctl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <uv.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "agent/process/Files.h"
#include "agent/process/ServiceNotify.h"
#include "tests/agent/InChild.h"
#include "tests/support/ScratchFolder.h"

namespace test {
namespace {

using pimbsr::agent::enterSandbox;

/// A call that must do something, or must be denied.
struct Call {
  char const* name;
  std::function<bool()> act;
};

/// The names of the calls that don't come to what they must. They are made in the sandbox, in one process, by
/// a user who keeps all other privileges, so that the filter alone denies calls.
std::string wrongOnes(std::vector<Call> const& calls) {
  return inChild([&] {
    enterSandbox();
    std::string wrong;
    for (Call const& call : calls) {
      errno = 0;
      if (!call.act()) wrong += std::string(call.name) + " (" + std::strerror(errno) + ")\n";
    }
    return wrong;
  });
}

bool isDenied(long result) { return result < 0 && errno == EPERM; }

/// Opens a socket and says whether that was allowed.
bool opens(int family, int type, int protocol) {
  int fd = socket(family, type, protocol);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

bool deniesSocket(int family, int type, int protocol) { return isDenied(socket(family, type, protocol)); }

TEST(SandboxTest, OtherProcessesAndProgramsAreDenied) {
  char* none[] = {nullptr};
  EXPECT_EQ(
      wrongOnes({
          {"fork", [] { return isDenied(fork()); }},
          {"vfork", [] { return isDenied(syscall(SYS_vfork)); }},
          {"clone3", [] { return isDenied(syscall(SYS_clone3, nullptr, 0)); }},
          {"execve", [&] { return isDenied(execve("/bin/true", none, none)); }},
          {"execveat", [&] { return isDenied(syscall(SYS_execveat, AT_FDCWD, "/bin/true", none, none, 0)); }},
          {"ptrace", [] { return isDenied(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr)); }},
          {"kill of others", [] { return isDenied(kill(getppid(), 0)); }},
          {"process_vm_readv",
           [] { return isDenied(syscall(SYS_process_vm_readv, getppid(), 0, 0, 0, 0, 0)); }},
      }),
      "");
}

TEST(SandboxTest, CallsThatChangeTheSystemOrTheProcessAreDenied) {
  rlimit limit{1, 1};
  EXPECT_EQ(wrongOnes({
                {"mount", [] { return isDenied(mount("none", "/nonexistent", "tmpfs", 0, nullptr)); }},
                {"chroot", [] { return isDenied(chroot("/nonexistent")); }},
                {"unshare", [] { return isDenied(unshare(CLONE_NEWNET)); }},
                {"setns", [] { return isDenied(setns(0, 0)); }},
                {"bpf", [] { return isDenied(syscall(SYS_bpf, BPF_MAP_CREATE, nullptr, 0)); }},
                {"keyctl", [] { return isDenied(syscall(SYS_keyctl, KEYCTL_GET_KEYRING_ID, 0, 0)); }},
                {"io_uring", [] { return isDenied(syscall(SYS_io_uring_setup, 1, nullptr)); }},
                {"setuid", [] { return isDenied(syscall(SYS_setuid, 0)); }},
                {"capset", [] { return isDenied(syscall(SYS_capset, nullptr, nullptr)); }},
                {"seccomp", [] { return isDenied(syscall(SYS_seccomp, 0, 0, nullptr)); }},
                {"personality", [] { return isDenied(personality(0xffffffff)); }},
                {"chown", [] { return isDenied(chown("/nonexistent", 0, 0)); }},
                {"link", [] { return isDenied(link("/nonexistent", "/nonexistent2")); }},
                {"setting a limit", [&] { return isDenied(setrlimit(RLIMIT_NOFILE, &limit)); }},
                {"prctl that writes", [] { return isDenied(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0)); }},
            }),
            "");
}

TEST(SandboxTest, MemoryIsNeverMadeExecutable) {
  auto map = [](int protection) {
    return mmap(nullptr, 4096, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  };
  EXPECT_EQ(
      wrongOnes({
          {"map", [&] { return map(PROT_READ | PROT_WRITE) != MAP_FAILED; }},
          {"map executable", [&] { return map(PROT_READ | PROT_EXEC) == MAP_FAILED && errno == EPERM; }},
          {"make executable",
           [&] { return isDenied(mprotect(map(PROT_READ | PROT_WRITE), 4096, PROT_READ | PROT_EXEC)); }},
          {"make read-only", [&] { return mprotect(map(PROT_READ | PROT_WRITE), 4096, PROT_READ) == 0; }},
      }),
      "");
}

TEST(SandboxTest, SocketsOfOtherKindsAreDenied) {
  EXPECT_EQ(wrongOnes({
                {"tcp", [] { return deniesSocket(AF_INET, SOCK_STREAM, 0); }},
                {"udp", [] { return deniesSocket(AF_INET, SOCK_DGRAM, 0); }},
                {"udp numbered as pim", [] { return deniesSocket(AF_INET, SOCK_DGRAM, 103); }},
                {"raw icmp", [] { return deniesSocket(AF_INET, SOCK_RAW, 1); }},
                {"raw of all", [] { return deniesSocket(AF_INET, SOCK_RAW, 255); }},
                {"ipv6", [] { return deniesSocket(AF_INET6, SOCK_RAW, 103); }},
                {"packet", [] { return deniesSocket(AF_PACKET, SOCK_RAW, 0); }},
                {"other netlink", [] { return deniesSocket(AF_NETLINK, SOCK_RAW, 16); }},
                {"vsock", [] { return deniesSocket(AF_VSOCK, SOCK_STREAM, 0); }},
            }),
            "");
}

TEST(SandboxTest, SocketsOfAnAgentOpen) {
  NEEDS_ROOT();
  int flags = SOCK_CLOEXEC | SOCK_NONBLOCK;
  EXPECT_EQ(wrongOnes({
                {"pim", [] { return opens(AF_INET, SOCK_RAW, 103); }},
                {"pim with flags", [=] { return opens(AF_INET, SOCK_RAW | flags, 103); }},
                {"routes", [=] { return opens(AF_NETLINK, SOCK_RAW | flags, 0); }},
                {"unix stream", [=] { return opens(AF_UNIX, SOCK_STREAM | flags, 0); }},
                {"unix datagram", [=] { return opens(AF_UNIX, SOCK_DGRAM | flags, 0); }},
            }),
            "");
}

TEST(SandboxTest, FilesAreReplacedAndRead) {
  ScratchFolder folder;
  EXPECT_EQ(
      wrongOnes({
          {"replace",
           [&] {
             pimbsr::agent::replaceFile(folder.file("history"), "text");
             pimbsr::agent::replaceFile(folder.file("history"), "other text");
             return true;
           }},
          {"read", [&] { return pimbsr::agent::readFile(folder.file("history"), 100) == "other text"; }},
          {"folders", [&] { return std::filesystem::create_directories(folder.file("a/b")); }},
          {"walk", [&] { return std::filesystem::directory_iterator(folder.file("a"))->is_directory(); }},
          {"remove", [&] { return unlink(folder.file("history").c_str()) == 0; }},
          {"chmod", [&] { return chmod(folder.file("a").c_str(), 0700) == 0; }},
          {"absolute", [&] { return std::filesystem::absolute("x").is_absolute(); }},
      }),
      "");
}

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, path.c_str());
  return address;
}

bool serves(std::string const& path) {
  sockaddr_un address = addressOf(path);
  auto* where = reinterpret_cast<sockaddr*>(&address);
  int server = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
  int client = socket(AF_UNIX, SOCK_STREAM, 0);
  return bind(server, where, sizeof address) == 0 && chmod(path.c_str(), 0660) == 0 &&
         listen(server, 5) == 0 && connect(client, where, sizeof address) == 0 &&
         accept4(server, nullptr, nullptr, SOCK_CLOEXEC) >= 0;
}

bool notifies(std::string const& path) {
  sockaddr_un address = addressOf(path);
  int manager = socket(AF_UNIX, SOCK_DGRAM, 0);
  if (bind(manager, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return false;
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  return pimbsr::agent::notifyService("READY=1");
}

TEST(SandboxTest, UnixSocketsServeAndNotify) {
  ScratchFolder folder;
  EXPECT_EQ(wrongOnes({
                {"serve", [&] { return serves(folder.file("control")); }},
                {"notify", [&] { return notifies(folder.file("notify")); }},
            }),
            "");
}

/// An event loop made inside the sandbox: a timer, a signal and a poll each end a part of it.
bool runLoop() {
  uv_loop_t loop;
  uv_timer_t timer;
  uv_signal_t signal;
  static int calls = 0;
  if (uv_loop_init(&loop) != 0 || uv_timer_init(&loop, &timer) != 0 || uv_signal_init(&loop, &signal) != 0)
    return false;
  uv_signal_start(
      &signal, [](uv_signal_t* at, int) { ++calls, uv_signal_stop(at); }, SIGHUP);
  uv_timer_start(
      &timer, [](uv_timer_t*) { ++calls, raise(SIGHUP); }, 1, 0);
  uv_run(&loop, UV_RUN_DEFAULT);
  return calls == 2;
}

TEST(SandboxTest, EventLoopExceptionsAndTheClockWork) {
  EXPECT_EQ(wrongOnes({
                {"event loop", runLoop},
                {"exception",
                 [] {
                   try {
                     throw std::runtime_error("caught");
                   } catch (std::runtime_error const&) {
                     return true;
                   }
                 }},
                {"memory", [] { return !std::vector<char>(std::size_t{64} << 20, 'x').empty(); }},
                {"sleep", [] { return usleep(1000) == 0; }},
                {"limits",
                 [] {
                   rlimit now{};
                   return getrlimit(RLIMIT_NOFILE, &now) == 0;
                 }},
                {"own signal", [] { return kill(getpid(), 0) == 0; }},
            }),
            "");
}

}  // namespace
}  // namespace test
