#pragma once

#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "agent/base/FileDescriptor.h"

namespace pimbsr::agent {

/// Claims interfaces for this process, so that no two agents of one network namespace speak PIM on one: each
/// would drop what the other sends, and neighbors would get two Generation IDs from one address.
///
/// A claim is a Unix socket with an abstract name, which the kernel keeps for the network namespace and frees
/// at the end of the process. It names no file. Only claims of root, of this user and of the user pimbsr
/// count, so that other users can't keep an agent from an interface.
class InterfaceClaims {
 public:
  /// An interface that another process has claimed.
  struct Conflict {
    std::string interface;
    pid_t process = 0;

    bool operator==(Conflict const&) const = default;
  };

  /// Claims these interfaces and gives up all others. Where others have claimed some, returns all of those
  /// and changes nothing. An interface need not be there yet.
  std::vector<Conflict> claim(std::set<std::string> const& interfaces);

 private:
  std::map<std::string, FileDescriptor> claims_;  ///< by interface
};

/// A conflict as a sentence, with a remedy.
std::string textOf(InterfaceClaims::Conflict const& conflict);

}  // namespace pimbsr::agent
