#include "agent/process/Privileges.h"

#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <string>

#include "agent/process/Sandbox.h"
#include "tests/agent/InChild.h"

namespace test {
namespace {

using pimbsr::agent::dropPrivileges;
using pimbsr::agent::enterSandbox;
using pimbsr::agent::privilegesHeld;
using pimbsr::agent::RawSockets;
using testing::ContainsRegex;
using testing::HasSubstr;

/// A line of /proc/self/status without its name.
std::string statusField(std::string const& name) {
  std::ifstream in("/proc/self/status");
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  }
  return "missing";
}

std::string capabilitySets() {
  std::string text;
  for (char const* set : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"}) {
    text += std::to_string(std::stoull(statusField(set), nullptr, 16)) + " ";
  }
  return text + statusField("NoNewPrivs");
}

/// Another user with CAP_NET_RAW in every set, as a service manager starts it.
void becomeServiceUser() {
  prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
  if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)
    throw std::runtime_error("setuid");
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[2] = {{1u << CAP_NET_RAW, 1u << CAP_NET_RAW, 1u << CAP_NET_RAW}, {0, 0, 0}};
  if (syscall(SYS_capset, &header, sets) != 0) throw std::runtime_error("capset");
  if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_RAW, 0, 0) != 0)
    throw std::runtime_error("ambient");
}

std::string const netRaw = std::to_string(1u << CAP_NET_RAW);

TEST(PrivilegesTest, RootKeepsNetRawAlone) {
  NEEDS_ROOT();
  std::string sets = inChild([] {
    dropPrivileges();
    return capabilitySets();
  });
  EXPECT_EQ(sets, "0 " + netRaw + " " + netRaw + " " + netRaw + " 0 1");
}

TEST(PrivilegesTest, ServiceUserKeepsNetRawAndLosesTheAmbientSet) {
  NEEDS_ROOT();
  std::string sets = inChild([] {
    becomeServiceUser();
    std::string bounding = statusField("CapBnd");
    dropPrivileges();
    if (statusField("CapBnd") != bounding) return std::string("bounding set changed");
    return capabilitySets();
  });
  EXPECT_THAT(sets, ContainsRegex("^0 " + netRaw + " " + netRaw + " [0-9]+ 0 1$"));
}

TEST(PrivilegesTest, ProcessWithoutPrivilegesGivesUpTheWayToNewOnes) {
  std::string sets = inChild([] {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return std::string("setuid failed");
    dropPrivileges();
    return capabilitySets();
  });
  EXPECT_THAT(sets, ContainsRegex("^0 0 0 [0-9]+ 0 1$"));
}

/// Ends the process that calls capset(2), as the filters of services do.
void forbidCapset() {
  std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW), &seccomp_release);
  if (seccomp_rule_add(filter.get(), SCMP_ACT_KILL_PROCESS, SCMP_SYS(capset), 0) != 0 ||
      seccomp_load(filter.get()) != 0)
    throw std::runtime_error("filter");
}

TEST(PrivilegesTest, ProcessWithoutCapabilitiesCallsNoCapset) {
  NEEDS_ROOT();
  std::string sets = inChild([] {
    if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0)
      return std::string("setuid failed");
    forbidCapset();
    dropPrivileges(RawSockets::none);
    return capabilitySets();
  });
  EXPECT_THAT(sets, ContainsRegex("^0 0 0 [0-9]+ 0 1$"));
}

TEST(PrivilegesTest, DroppingTwiceIsDroppingOnce) {
  NEEDS_ROOT();
  std::string sets = inChild([] {
    dropPrivileges();
    dropPrivileges();
    return capabilitySets();
  });
  EXPECT_EQ(sets, "0 " + netRaw + " " + netRaw + " " + netRaw + " 0 1");
}

TEST(PrivilegesTest, DroppedPrivilegesAreDeniedAndRawSocketsOpen) {
  NEEDS_ROOT();
  std::string found = inChild([] {
    dropPrivileges();
    std::string text;
    text += socket(AF_INET, SOCK_RAW, 103) >= 0 ? "raw " : "no-raw ";
    text += syscall(SYS_sethostname, "", -1) < 0 && errno == EPERM ? "no-admin " : "admin ";
    text += setuid(65534) < 0 && errno == EPERM ? "no-setuid" : "setuid";
    return text;
  });
  EXPECT_EQ(found, "raw no-admin no-setuid");
}

TEST(PrivilegesTest, ReportOfRootHasAllPrivileges) {
  NEEDS_ROOT();
  std::string text = inChild(privilegesHeld);
  EXPECT_THAT(text, HasSubstr("User ID                   0 (effective 0)\n"));
  EXPECT_THAT(text, ContainsRegex("Effective capabilities    (all|.*net_raw.*)\n"));
  EXPECT_THAT(text, HasSubstr("New privileges            possible\n"));
  EXPECT_THAT(text, HasSubstr("System-call filter        none\n"));
  EXPECT_THAT(text, HasSubstr("Reading /etc/shadow       allowed\n"));
  EXPECT_THAT(text, HasSubstr("Starting a process        allowed\n"));
  EXPECT_THAT(text, HasSubstr("Executing a program       allowed\n"));
}

TEST(PrivilegesTest, ReportOfTheServiceUserInTheSandboxHasRawSocketsAlone) {
  NEEDS_ROOT();
  std::string text = inChild([] {
    becomeServiceUser();
    dropPrivileges();
    enterSandbox();
    return privilegesHeld();
  });
  EXPECT_THAT(text, HasSubstr("User ID                   65534 (effective 65534)\n"));
  EXPECT_THAT(text, HasSubstr("Effective capabilities    net_raw\n"));
  EXPECT_THAT(text, HasSubstr("Permitted capabilities    net_raw\n"));
  EXPECT_THAT(text, HasSubstr("Inheritable capabilities  none\n"));
  EXPECT_THAT(text, HasSubstr("Ambient capabilities      none\n"));
  EXPECT_THAT(text, HasSubstr("New privileges            impossible\n"));
  EXPECT_THAT(text, HasSubstr("System-call filter        on\n"));
  EXPECT_THAT(text, HasSubstr("Opening a raw PIM socket  allowed\n"));
  EXPECT_THAT(text, HasSubstr("Reading /etc/shadow       denied: Permission denied\n"));
  EXPECT_THAT(text, HasSubstr("Starting a process        denied: Operation not permitted\n"));
  EXPECT_THAT(text, HasSubstr("Executing a program       denied: Operation not permitted\n"));
}

}  // namespace
}  // namespace test
