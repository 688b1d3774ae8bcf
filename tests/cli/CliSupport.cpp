#include "tests/cli/CliSupport.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cli/replay/ReplayCommand.h"
#include "wire/Checksum.h"
#include "wire/Wire.h"

namespace test {

using Zet::U16;
using Zet::U32;
using Zet::U8;

// Running ---------------------------------------------------------------------------------------------

RunResult replay(pimbsr::cli::ReplayOptions const& options) {
  std::ostringstream out;
  std::ostringstream err;
  int code = pimbsr::cli::replay(options, out, err);
  return {code, out.str(), err.str()};
}

RunResult replay(std::string const& file) {
  pimbsr::cli::ReplayOptions options;
  options.file = file;
  return replay(options);
}

static std::string temporaryFile() {
  std::string path = testing::TempDir() + "pimbsr-cli-XXXXXX";
  int file = mkstemp(path.data());
  EXPECT_GE(file, 0) << path;
  close(file);
  return path;
}

static std::string takeText(std::string const& path) {
  std::string text = fileText(path);
  std::filesystem::remove(path);
  return text;
}

RunResult command(std::string const& arguments) {
  std::string out = temporaryFile();
  std::string err = temporaryFile();
  std::string line = std::string(PIMBSR_COMMAND " ") + arguments + " >" + out + " 2>" + err;
  int status = std::system(line.c_str());
  EXPECT_TRUE(WIFEXITED(status)) << line;
  return {WEXITSTATUS(status), takeText(out), takeText(err)};
}

// Files -----------------------------------------------------------------------------------------------

std::string sourceFile(std::string const& path) { return std::string(PIMBSR_SOURCE_DIR "/") + path; }

std::string capture(std::string const& name) { return sourceFile("tests/cli/captures/" + name); }

std::string fileText(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << path;
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void expectGolden(std::string const& name, std::string const& text) {
  std::string path = sourceFile("tests/golden/" + name);
  if (std::getenv("PIMBSR_REWRITE") != nullptr) {
    std::ofstream(path, std::ios::binary) << text;
    return;
  }
  EXPECT_EQ(fileText(path), text) << "read the difference; PIMBSR_REWRITE=1 in the environment takes it over";
}

// Captures --------------------------------------------------------------------------------------------

Bytes ipv4Of(Bytes const& pim, std::string const& source, std::string const& destination,
             U16 identification) {
  Bytes packet;
  pimbsr::wire::Ipv4Header header{.source = addr(source).v4Addr(),
                                  .destination = addr(destination).v4Addr(),
                                  .identification = identification};
  EXPECT_TRUE(pimbsr::wire::encodeIpv4(header, pim, packet));
  return packet;
}

Bytes fragmentOf(Bytes const& packet, Part const& part) {
  constexpr std::ptrdiff_t headerSize = 20;
  constexpr int moreFragments = 0x2000;
  auto data = packet.begin() + headerSize + static_cast<std::ptrdiff_t>(part.from);
  Bytes fragment(packet.begin(), packet.begin() + headerSize);
  fragment.insert(fragment.end(), data, data + static_cast<std::ptrdiff_t>(part.size));
  int offset = part.offset < 0 ? static_cast<int>(part.from) : part.offset;
  int fields[] = {static_cast<int>(fragment.size()), offset / 8 | (part.more ? moreFragments : 0)};
  int places[] = {2, 6};
  for (int i = 0; i < 2; ++i) {
    fragment[places[i]] = static_cast<U8>(fields[i] >> 8);
    fragment[places[i] + 1] = static_cast<U8>(fields[i]);
  }
  fragment[10] = fragment[11] = 0;
  U16 sum = pimbsr::wire::checksum(pimbsr::wire::Bytes(fragment).first(headerSize));
  fragment[10] = static_cast<U8>(sum >> 8);
  fragment[11] = static_cast<U8>(sum);
  return fragment;
}

Bytes packetOf(Bsm const& bsm) {
  Bytes pim;
  EXPECT_TRUE(pimbsr::wire::encodeBootstrap(*make(bsm), pim));
  return ipv4Of(pim, bsm.source, bsm.destination);
}

static void append(std::string const& path, std::initializer_list<U32> words) {
  std::ofstream file(path, std::ios::binary | std::ios::app);
  for (U32 word : words) file.write(reinterpret_cast<char const*>(&word), sizeof word);
}

CaptureFile::CaptureFile(U32 start) : start_(start), path_(temporaryFile()) {
  constexpr U32 version = 2 | 4 << 16;
  constexpr U32 rawIp = 101;
  append(path_, {0xa1b2c3d4, version, 0, 0, 65535, rawIp});
}

CaptureFile::~CaptureFile() { std::filesystem::remove(path_); }

CaptureFile& CaptureFile::add(double seconds, Bytes const& packet) {
  double whole = std::floor(seconds);
  auto microseconds = static_cast<U32>(std::lround((seconds - whole) * 1e6));
  auto size = static_cast<U32>(packet.size());
  append(path_, {start_ + static_cast<U32>(whole), microseconds, size, size});
  std::ofstream file(path_, std::ios::binary | std::ios::app);
  file.write(reinterpret_cast<char const*>(packet.data()), size);
  return *this;
}

}  // namespace test
