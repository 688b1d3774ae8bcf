#pragma once

#include <sys/socket.h>
#include <sys/types.h>

#include <array>
#include <cstddef>

namespace pimbsr::agent {

/// One message over a Unix socket that keeps message boundaries: bytes, and an open file beside them.
class FileMessage {
 public:
  /// A message of these bytes, to be sent or received into them; they outlive it.
  FileMessage(void* bytes, std::size_t size);
  FileMessage(FileMessage const&) = delete;
  FileMessage& operator=(FileMessage const&) = delete;

  /// Adds an open file to a message that is to be sent; it stays the caller's.
  void fileIs(int file);
  /// The open file of a received message, which is the caller's then; below 0 if it has none.
  int file() const;

  /// Sends it without waiting. Returns whether the socket took it; errno says why not.
  bool send(int socket);
  /// Receives one message, waiting for it; files close on exec. Returns how many bytes it has, 0 after the
  /// end of the connection, or a number below 0 for an error. A peer that ended without reading all it was
  /// sent makes no error: what it has sent still arrives.
  ssize_t receive(int socket);

 private:
  msghdr headerWith(bool file);

  iovec part_;
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control_{};
  bool hasFile_ = false;
};

/// An open file in memory that holds a text, read from its start; below 0 if the system has none to give, and
/// errno says why. It is the caller's.
int memoryFile(char const* name, char const* text, std::size_t size);

}  // namespace pimbsr::agent
