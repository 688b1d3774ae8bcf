#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace test {

/// A folder of its own for one test, removed with what is in it. Its path is short enough for sockets.
class ScratchFolder {
 public:
  ScratchFolder() {
    char name[] = "/tmp/pimbsr-XXXXXX";
    if (mkdtemp(name) == nullptr) std::abort();
    path_ = name;
  }
  ~ScratchFolder() { std::filesystem::remove_all(path_); }
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;

  std::string const& path() const { return path_; }
  /// The path of a file in it, which need not be there.
  std::string file(std::string const& name) const { return path_ + "/" + name; }
  /// Writes a file in it, any bytes; returns its path.
  std::string write(std::string const& name, std::string const& text) const {
    std::ofstream(file(name), std::ios::binary) << text;
    return file(name);
  }

 private:
  std::string path_;
};

}  // namespace test
