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
// Those in the folder corrected have statements and what they print in several ways, each after a statement
// that is carried out first: "corrections none" for the machines alone, and the corrections that change it:
//
//   statements
//   ---- corrections none
//   output
//   ---- corrections NAME
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

std::vector<fs::path> scenarioFiles(std::string const& folder) {
  std::vector<fs::path> found;
  for (auto const& entry : fs::directory_iterator(PIMBSR_SOURCE_DIR "/tests/" + folder)) {
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

INSTANTIATE_TEST_SUITE_P(Each, ScenarioFile, testing::ValuesIn(scenarioFiles("scenarios")), nameOf);

// Corrections -----------------------------------------------------------------------------------------

/// One way to play the statements, and what is printed then.
struct Way {
  std::string first;  ///< the statement that is carried out first
  std::string output;
};

class CorrectedScenario : public testing::TestWithParam<fs::path> {
 protected:
  void SetUp() override {
    std::ifstream file(GetParam());
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("---- ")) {
        ways.push_back({line.substr(5), ""});
      } else {
        (ways.empty() ? statements : ways.back().output) += line + '\n';
      }
    }
  }
  std::string play(Way const& way) const {
    std::vector<Block> blocks = {{.statements = way.first + '\n' + statements}};
    test::play(blocks);
    return blocks[0].output;
  }
  void writeAnew() const {
    std::ofstream file(GetParam());
    file << statements;
    for (Way const& way : ways) file << "---- " << way.first << '\n' << play(way);
  }

  std::string statements;
  std::vector<Way> ways;
};

TEST_P(CorrectedScenario, PrintsTheExpectedLinesInEachWay) {
  if (rewrite) return writeAnew();
  ASSERT_GE(ways.size(), 2u);
  for (Way const& way : ways) {
    SCOPED_TRACE(way.first);
    EXPECT_EQ(way.output, play(way));
  }
}

TEST_P(CorrectedScenario, IsPlayedWithoutAndWithACorrection) {
  ASSERT_GE(ways.size(), 2u);
  EXPECT_EQ(ways[0].first.substr(ways[0].first.size() - 5), " none");
  EXPECT_NE(ways[0].output, ways[1].output);
}

INSTANTIATE_TEST_SUITE_P(Each, CorrectedScenario, testing::ValuesIn(scenarioFiles("scenarios/corrected")),
                         nameOf);

}  // namespace
}  // namespace test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  test::rewrite = argc == 2 && std::string(argv[1]) == "--rewrite";
  return RUN_ALL_TESTS();
}
