#include "agent/helpers/FileMessage.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace pimbsr::agent {

FileMessage::FileMessage(void* bytes, std::size_t size) : part_{bytes, size} {}

msghdr FileMessage::headerWith(bool file) {
  msghdr header{};
  header.msg_iov = &part_;
  header.msg_iovlen = 1;
  if (!file) return header;
  header.msg_control = control_.data();
  header.msg_controllen = control_.size();
  return header;
}

void FileMessage::fileIs(int file) {
  msghdr header = headerWith(true);
  cmsghdr* rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(sizeof file);
  std::memcpy(CMSG_DATA(rights), &file, sizeof file);
  hasFile_ = true;
}

int FileMessage::file() const {
  int file = -1;
  auto const* rights = reinterpret_cast<cmsghdr const*>(control_.data());
  if (hasFile_) std::memcpy(&file, CMSG_DATA(rights), sizeof file);
  return file;
}

bool FileMessage::send(int socket) {
  msghdr header = headerWith(hasFile_);
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &header, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(part_.iov_len);
}

ssize_t FileMessage::receive(int socket) {
  msghdr header = headerWith(true);
  ssize_t got = 0;
  do {
    got = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
  } while (got < 0 && (errno == EINTR || errno == ECONNRESET));
  cmsghdr const* rights = got > 0 ? CMSG_FIRSTHDR(&header) : nullptr;
  hasFile_ = rights != nullptr && rights->cmsg_type == SCM_RIGHTS;
  return got;
}

static bool writeAll(int file, char const* text, std::size_t size) {
  while (size != 0) {
    ssize_t written = write(file, text, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text += written;
    size -= static_cast<std::size_t>(written);
  }
  return lseek(file, 0, SEEK_SET) == 0;
}

int memoryFile(char const* name, char const* text, std::size_t size) {
  int file = memfd_create(name, MFD_CLOEXEC);
  if (file < 0 || writeAll(file, text, size)) return file;
  int error = errno;
  close(file);
  errno = error;
  return -1;
}

}  // namespace pimbsr::agent
