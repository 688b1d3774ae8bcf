#include "agent/control/ControlSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <grp.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

namespace pimbsr::agent {

static constexpr std::size_t maxPathLength = sizeof(sockaddr_un::sun_path) - 1;

static sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, maxPathLength);
  return address;
}

static sockaddr const* generic(sockaddr_un const& address) {
  return reinterpret_cast<sockaddr const*>(&address);
}

static void boundWaits(int socket, double seconds) {
  double whole = std::floor(seconds);
  timeval bound{.tv_sec = static_cast<time_t>(whole),
                .tv_usec = static_cast<suseconds_t>((seconds - whole) * 1e6)};
  setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof bound);
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &bound, sizeof bound);
}

FileDescriptor connectTo(std::string const& path, int flags, double seconds) {
  if (path.size() > maxPathLength) {
    errno = ENAMETOOLONG;
    return {};
  }
  FileDescriptor result(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
  if (!result) return {};
  if (seconds > 0) boundWaits(result.get(), seconds);
  sockaddr_un address = addressOf(path);
  if (connect(result.get(), generic(address), sizeof address) == 0) return result;
  int reason = errno;
  result = FileDescriptor();
  errno = reason;
  return {};
}

// Opening ---------------------------------------------------------------------------------------------------

[[noreturn]] static void fail(std::string const& path, std::string const& reason) {
  throw ControlError(fmt::format("control socket {}: {}", path, reason));
}

[[noreturn]] static void fail(std::string const& path, char const* what, int error) {
  fail(path, fmt::format("{}: {}", what, std::strerror(error)));
}

static void checkPath(std::string const& path) {
  if (path.empty()) fail("''", "the path is empty; valid is one such as /run/pimbsr/control.sock");
  if (path.size() <= maxPathLength) return;
  fail(path, fmt::format("the path is {} bytes long; valid are at most {}", path.size(), maxPathLength));
}

static std::string folderOf(std::string const& path) {
  std::size_t slash = path.rfind('/');
  if (slash == path.npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Holds the folder for itself among all agents, so that of two that start at once one finds the other.
/// Others may pass through a folder that is made here, but not open it, and so not lock it.
static FileDescriptor lockFolder(std::string const& path) {
  std::string folder = folderOf(path);
  if (mkdir(folder.c_str(), 0711) != 0 && errno != EEXIST) {
    fail(path, ("cannot make the folder " + folder).c_str(), errno);
  }
  FileDescriptor result(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!result) fail(path, ("cannot open the folder " + folder).c_str(), errno);
  if (flock(result.get(), LOCK_EX | LOCK_NB) != 0) {
    fail(path, "another program holds the folder; perhaps another pimbsr is just starting there");
  }
  return result;
}

/// A socket without a listener is that of an agent that was killed.
static void removeStale(std::string const& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) {
    if (errno == ENOENT) return;
    fail(path, "cannot look there", errno);
  }
  if (!S_ISSOCK(found.st_mode)) fail(path, "a file that is no socket is there; valid is a path of its own");
  FileDescriptor other = connectTo(path, SOCK_NONBLOCK);
  if (other || errno == EAGAIN) {
    fail(path, "another pimbsr runs on it; stop that one, or give this one a socket of its own");
  }
  if (errno != ECONNREFUSED) fail(path, "cannot find out whether another pimbsr runs on it", errno);
  if (unlink(path.c_str()) != 0) fail(path, "cannot remove the socket of a former pimbsr", errno);
}

/// The mode must be right from the first moment, so it is the mask that makes it.
static int bindWithMode(int socket, sockaddr_un const& address) {
  mode_t former = umask(0117);
  int result = bind(socket, generic(address), sizeof address);
  int reason = errno;
  umask(former);
  errno = reason;
  return result;
}

static gid_t groupId(std::string const& path, std::string const& name) {
  errno = 0;
  ::group const* found = getgrnam(name.c_str());
  if (found != nullptr) return found->gr_gid;
  fail(path,
       fmt::format("there is no group '{0}'; valid is a group of this system, such as one that 'groupadd "
                   "--system {0}' makes",
                   name));
}

static void setGroup(std::string const& path, std::string const& name, gid_t id) {
  if (lchown(path.c_str(), static_cast<uid_t>(-1), id) == 0) return;
  int error = errno;
  unlink(path.c_str());
  fail(path, fmt::format("cannot give it to the group '{}': {}; the agent must run as root or be a member",
                         name, std::strerror(error)));
}

/// Connections that wait to be accepted. The kernel's queue is one for all users, so it is no longer than
/// what a server takes in one turn: whoever connects without end delays others by that much.
static constexpr int backlog = 64;

ControlSocket::ControlSocket(std::string path, std::string const& group) : path_(std::move(path)) {
  checkPath(path_);
  gid_t id = group.empty() ? getegid() : groupId(path_, group);
  FileDescriptor lock = lockFolder(path_);
  removeStale(path_);
  FileDescriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) fail(path_, "cannot make a socket", errno);
  if (bindWithMode(made.get(), addressOf(path_)) != 0) fail(path_, "cannot make it", errno);
  struct stat file {};
  if (lstat(path_.c_str(), &file) != 0) fail(path_, "it went as it was made", errno);
  device_ = file.st_dev;
  inode_ = file.st_ino;
  if (!group.empty()) setGroup(path_, group, id);
  if (listen(made.get(), backlog) != 0) fail(path_, "cannot listen", errno);
  socket_ = std::move(made);
}

ControlSocket::~ControlSocket() {
  struct stat file {};
  if (lstat(path_.c_str(), &file) != 0) return;
  if (file.st_dev == device_ && file.st_ino == inode_) unlink(path_.c_str());
}

}  // namespace pimbsr::agent
