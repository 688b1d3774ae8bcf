#include "agent/process/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "agent/base/FileDescriptor.h"

namespace pimbsr::agent {

[[noreturn]] static void fail(int error, std::string const& what) {
  throw std::system_error(error, std::generic_category(), what);
}

/// Only regular files are opened, since a pipe could block.
static FileDescriptor openFile(std::string const& path, int flags) {
  FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0640));
  if (!file) fail(errno, path);
  struct stat status {};
  if (fstat(file.get(), &status) < 0) fail(errno, path);
  if (!S_ISREG(status.st_mode)) fail(EINVAL, path + " is no regular file");
  return file;
}

std::string readFile(std::string const& path, std::size_t maxLength) {
  FileDescriptor file = openFile(path, O_RDONLY);
  std::string text(maxLength + 1, '\0');
  std::size_t size = 0;
  while (size < text.size()) {
    ssize_t count = read(file.get(), text.data() + size, text.size() - size);
    if (count < 0) fail(errno, path);
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > maxLength) fail(EFBIG, path);
  text.resize(size);
  return text;
}

void replaceFile(std::string const& path, std::string const& text) {
  std::string fresh = path + ".new";
  unlink(fresh.c_str());
  FileDescriptor file = openFile(fresh, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
  std::size_t size = 0;
  while (size < text.size()) {
    ssize_t count = write(file.get(), text.data() + size, text.size() - size);
    if (count < 0) fail(errno, fresh);
    size += static_cast<std::size_t>(count);
  }
  if (fsync(file.get()) < 0) fail(errno, fresh);
  if (std::rename(fresh.c_str(), path.c_str()) != 0) fail(errno, path);
}

}  // namespace pimbsr::agent
