// Plays the scenario files beside this file. Each has statements and what they must print:
//
//   statements
//   ----
//   output
//   ====
//   statements that go on from there
//   ----
//   output
//
// With --rewrite the files are written anew with what is printed now; read the difference before you keep it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cli/sim/SimText.h"
#include "sim/Simulation.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using pimbsr::cli::SimText;
using pimbsr::sim::ScenarioError;
using pimbsr::sim::Simulation;

bool rewrite = false;

/// Statements and what they must print.
struct Block {
  std::string statements;
  std::string output;
  int line = 0;  ///< of the first statement, from 1
};

std::vector<Block> readFile(fs::path const& path) {
  std::ifstream file(path);
  std::vector<Block> blocks(1, Block{.line = 1});
  bool inOutput = false;
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (line == "----") {
      inOutput = true;
    } else if (line == "====") {
      inOutput = false;
      blocks.push_back({.line = number + 1});
    } else {
      (inOutput ? blocks.back().output : blocks.back().statements) += line + '\n';
    }
  }
  return blocks;
}

void writeFile(fs::path const& path, std::vector<Block> const& blocks) {
  std::ofstream file(path);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    file << (i == 0 ? "" : "====\n") << blocks[i].statements << "----\n" << blocks[i].output;
  }
}

/// Plays the blocks one after the other and replaces their output by what is printed.
void play(std::vector<Block>& blocks) {
  std::ostringstream out;
  SimText report(out, out);
  Simulation simulation(1, report);
  for (Block& block : blocks) {
    out.str("");
    try {
      simulation.execute(block.statements, "scenario");
    } catch (ScenarioError const& error) {
      out << error.what() << '\n';
    }
    block.output = out.str();
  }
  EXPECT_EQ(simulation.network().exceptions(), 0u);
}

class ScenarioFile : public testing::TestWithParam<fs::path> {};

TEST_P(ScenarioFile, PrintsTheExpectedLines) {
  std::vector<Block> written = readFile(GetParam());
  std::vector<Block> played = written;
  play(played);
  if (rewrite) return writeFile(GetParam(), played);
  for (std::size_t i = 0; i < written.size(); ++i) {
    SCOPED_TRACE("statements from line " + std::to_string(written[i].line));
    EXPECT_EQ(written[i].output, played[i].output);
  }
}

std::vector<fs::path> scenarioFiles() {
  std::vector<fs::path> found;
  for (auto const& entry : fs::directory_iterator(PIMBSR_SOURCE_DIR "/tests/scenarios")) {
    if (entry.path().extension() == ".txt") found.push_back(entry.path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::string nameOf(testing::TestParamInfo<fs::path> const& info) {
  std::string name = info.param.stem().string();
  for (char& c : name) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Each, ScenarioFile, testing::ValuesIn(scenarioFiles()), nameOf);

}  // namespace
}  // namespace test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  test::rewrite = argc == 2 && std::string(argv[1]) == "--rewrite";
  return RUN_ALL_TESTS();
}
