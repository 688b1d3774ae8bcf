#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

#include "agent/base/FileDescriptor.h"

namespace pimbsr::agent {

/// A control socket that can't be opened. The text has the reason and a remedy.
class ControlError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A stream socket of the Unix family that listens at a path for as long as this object lives.
///
/// Its file is readable and writable for its owner and group alone at any moment; the group is set before a
/// client can connect. A socket without a listener is replaced; a socket with one, and any other file at the
/// path, is an error.
class ControlSocket {
 public:
  /// Makes the last folder of the path, too, if it is missing. `group` names the group of the file; empty for
  /// that of the process. Throws ControlError, also for a group that is unknown or can't be set: only root
  /// may set any, and others one that the process is in.
  explicit ControlSocket(std::string path, std::string const& group = "");
  /// Removes the file, unless another one has replaced it.
  ~ControlSocket();
  ControlSocket(ControlSocket const&) = delete;
  ControlSocket& operator=(ControlSocket const&) = delete;

  /// Listens and never blocks.
  int fd() const { return socket_.get(); }
  std::string const& path() const { return path_; }

 private:
  std::string path_;
  FileDescriptor socket_;
  dev_t device_ = 0;  ///< with inode_: of the file that was made
  ino_t inode_ = 0;
};

/// A stream socket of the Unix family that is connected with the one at `path`, or with errno the reason why
/// it isn't. `flags` are those of socket(2), and a `seconds` above 0 bounds each wait.
FileDescriptor connectTo(std::string const& path, int flags, double seconds = 0);

}  // namespace pimbsr::agent
