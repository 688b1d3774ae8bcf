#include "tests/scenarios/ScenarioFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "cli/sim/SimText.h"

namespace test {

using pimbsr::sim::ScenarioError;
using pimbsr::sim::Simulation;

std::vector<Block> readBlocks(std::filesystem::path const& path) {
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

CorrectedFile readCorrected(std::filesystem::path const& path) {
  CorrectedFile read;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("---- ")) {
      read.ways.push_back({line.substr(5), ""});
    } else {
      (read.ways.empty() ? read.statements : read.ways.back().output) += line + '\n';
    }
  }
  return read;
}

std::vector<std::filesystem::path> scenarioFiles(std::string const& folder) {
  std::vector<std::filesystem::path> found;
  for (auto const& entry : std::filesystem::directory_iterator(PIMBSR_SOURCE_DIR "/tests/" + folder)) {
    if (entry.path().extension() == ".txt") found.push_back(entry.path());
  }
  std::sort(found.begin(), found.end());
  return found;
}

void play(std::vector<Block>& blocks, std::function<void(Simulation&)> const& follow) {
  std::ostringstream out;
  pimbsr::cli::SimText report(out, out);
  Simulation simulation(1, report);
  if (follow) follow(simulation);
  for (Block& block : blocks) {
    out.str("");
    try {
      simulation.execute(block.statements, "scenario");
    } catch (ScenarioError const& error) {
      out << error.what() << '\n';
    }
    block.output = out.str();
    if (follow) follow(simulation);
  }
  EXPECT_EQ(simulation.network().exceptions(), 0u);
}

}  // namespace test
