#pragma once

#include <cstdlib>
#include <filesystem>
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

  std::string file(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace test
