// Plays a corpus through a fuzz target where there is no libFuzzer: every file given as an argument or in a
// folder given, and of each file FUZZ_MUTATIONS mutations (100 unless set) that are the same in every run.
// The files must reach the goals of the target; mutations don't count.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <vector>

#include "fuzz/Goal.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;
constexpr size_t maxSize = 65536;

size_t mutationsPerFile() {
  char const* wanted = std::getenv("FUZZ_MUTATIONS");
  return wanted == nullptr ? 100 : std::strtoul(wanted, nullptr, 10);
}

/// The files of a folder, or the file itself.
std::vector<std::filesystem::path> filesOf(std::filesystem::path const& path) {
  if (std::filesystem::is_regular_file(path)) return {path};
  std::vector<std::filesystem::path> files;
  for (auto const& entry : std::filesystem::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

Bytes read(std::filesystem::path const& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file.string());
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A copy of exactly the input's size, so that a read past its end is a read past an allocation.
void run(Bytes const& input) {
  Bytes const exact(input.begin(), input.end());
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

template <class B>
auto position(B& bytes, size_t at) {
  return bytes.begin() + static_cast<std::ptrdiff_t>(at);
}

// Returns whether all were reached.
bool checkGoals() {
  bool areReached = true;
  for (fuzz::Goal const* goal : fuzz::Goal::all()) {
    if (goal->isReached()) continue;
    std::fprintf(stderr, "no file reaches the goal: %.*s\n", static_cast<int>(goal->name().size()),
                 goal->name().data());
    areReached = false;
  }
  return areReached;
}

// One to four small changes. Only the generator itself is used, since the library's distributions may differ.
class Mutator {
 public:
  Bytes mutated(Bytes bytes, Bytes const& other) {
    for (auto changes = 1 + below(4); changes > 0; --changes) change(bytes, other);
    if (bytes.size() > maxSize) bytes.resize(maxSize);
    return bytes;
  }

 private:
  size_t below(size_t bound) { return bound == 0 ? 0 : random_() % bound; }

  void change(Bytes& bytes, Bytes const& other) {
    static constexpr uint8_t edges[] = {0x00, 0x01, 0x7f, 0x80, 0xfe, 0xff};
    size_t const at = below(bytes.size());
    switch (bytes.empty() ? 4 : below(6)) {
      case 0:
        bytes[at] = static_cast<uint8_t>(bytes[at] ^ (1u << below(8)));
        break;
      case 1:
        bytes[at] = edges[below(std::size(edges))];
        break;
      case 2:
        bytes.resize(at);
        break;
      case 3:
        bytes.erase(position(bytes, at),
                    position(bytes, at + below(std::min<size_t>(bytes.size() - at, 16))));
        break;
      case 4:
        bytes.insert(position(bytes, at), static_cast<uint8_t>(random_()));
        break;
      default:
        bytes.resize(at);
        bytes.insert(bytes.end(), position(other, below(other.size())), other.end());
    }
  }

  std::mt19937 random_{1};
};

}  // namespace

int main(int argc, char** argv) try {
  std::vector<Bytes> inputs;
  for (int i = 1; i < argc; ++i) {
    for (auto const& file : filesOf(argv[i])) inputs.push_back(read(file));
  }
  if (inputs.empty()) throw std::runtime_error("no input: give files, or folders that hold some");
  for (Bytes const& input : inputs) run(input);
  if (!checkGoals()) return 1;
  Mutator mutator;
  size_t const mutations = mutationsPerFile();
  for (size_t i = 0; i < inputs.size(); ++i) {
    for (size_t n = 0; n < mutations; ++n) {
      run(mutator.mutated(inputs[i], inputs[(i + n) % inputs.size()]));
    }
  }
  std::printf("%zu inputs and %zu mutations of each\n", inputs.size(), mutations);
  return 0;
} catch (std::exception const& e) {
  std::fprintf(stderr, "%s\n", e.what());
  return 1;
}
