#include "agent/Files.h"

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

namespace pimbsr::agent {

[[noreturn]] static void fail(int error, std::string const& what) {
  throw std::system_error(error, std::generic_category(), what);
}

std::string readFile(std::string const& path, std::size_t longest) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) fail(errno, path);
  std::string text(longest + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (file.bad()) fail(errno != 0 ? errno : EIO, path);
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() > longest) fail(EFBIG, path);
  return text;
}

void replaceFile(std::string const& path, std::string const& text) {
  std::string fresh = path + ".new";
  errno = 0;
  std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  if (!file) fail(errno != 0 ? errno : EIO, fresh);
  if (std::rename(fresh.c_str(), path.c_str()) != 0) fail(errno, path);
}

}  // namespace pimbsr::agent
