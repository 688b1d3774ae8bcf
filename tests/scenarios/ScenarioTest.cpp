// Plays the scenario files beside this file (see ScenarioFile.h). With --rewrite they are written anew with
// what is printed now; read the difference before you keep it.

#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <string>
#include <vector>

#include "tests/scenarios/ScenarioFile.h"

namespace test {
namespace {

namespace fs = std::filesystem;

bool rewrite = false;

void writeFile(fs::path const& path, std::vector<Block> const& blocks) {
  std::ofstream file(path);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    file << (i == 0 ? "" : "====\n") << blocks[i].statements << "----\n" << blocks[i].output;
  }
}

class ScenarioFile : public testing::TestWithParam<fs::path> {};

TEST_P(ScenarioFile, PrintsTheExpectedLines) {
  std::vector<Block> written = readBlocks(GetParam());
  std::vector<Block> played = written;
  play(played);
  if (rewrite) return writeFile(GetParam(), played);
  for (std::size_t i = 0; i < written.size(); ++i) {
    SCOPED_TRACE("statements from line " + std::to_string(written[i].line));
    EXPECT_EQ(written[i].output, played[i].output);
  }
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

class CorrectedScenario : public testing::TestWithParam<fs::path> {
 protected:
  std::string play(Way const& way) const {
    std::vector<Block> blocks = file.blocksOf(way);
    test::play(blocks);
    return blocks[0].output;
  }
  void writeAnew() const {
    std::ofstream written(GetParam());
    written << file.statements;
    for (Way const& way : file.ways) written << "---- " << way.first << '\n' << play(way);
  }

  CorrectedFile const file = readCorrected(GetParam());
};

TEST_P(CorrectedScenario, PrintsTheExpectedLinesInEachWay) {
  if (rewrite) return writeAnew();
  ASSERT_GE(file.ways.size(), 2u);
  for (Way const& way : file.ways) {
    SCOPED_TRACE(way.first);
    EXPECT_EQ(way.output, play(way));
  }
}

TEST_P(CorrectedScenario, IsPlayedWithoutAndWithACorrection) {
  ASSERT_GE(file.ways.size(), 2u);
  EXPECT_EQ(file.ways[0].first.substr(file.ways[0].first.size() - 5), " none");
  EXPECT_NE(file.ways[0].output, file.ways[1].output);
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
