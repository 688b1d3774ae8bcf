#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sim/Simulation.h"

/// The scenario files beside this file. Each has statements and what they must print:
///
///   statements
///   ----
///   output
///   ====
///   statements that go on from there
///   ----
///   output
///
/// Those in the folder corrected have statements and what they print in several ways, each after a statement
/// that is carried out first: "corrections none" for the machines alone, and the corrections that change it:
///
///   statements
///   ---- corrections none
///   output
///   ---- corrections NAME
///   output
namespace test {

/// Statements and what they must print.
struct Block {
  std::string statements;
  std::string output;
  int line = 0;  ///< of the first statement, from 1
};

std::vector<Block> readBlocks(std::filesystem::path const& path);

/// One way to play the statements of a file in the folder corrected, and what is printed then.
struct Way {
  std::string first;  ///< the statement that is carried out first
  std::string output;
};

struct CorrectedFile {
  std::string statements;
  std::vector<Way> ways;

  /// All statements of one way.
  std::vector<Block> blocksOf(Way const& way) const {
    return {{.statements = way.first + '\n' + statements}};
  }
};

CorrectedFile readCorrected(std::filesystem::path const& path);

/// The files of a folder of tests/, in the order of their names.
std::vector<std::filesystem::path> scenarioFiles(std::string const& folder);

/// Plays blocks one after the other, as `pimbsr sim` does, and replaces their output by what is printed, with
/// traces, logs and errors of statements. `follow` is given the simulation before the first block and after
/// each. Expects that the engine catches no exception.
void play(std::vector<Block>& blocks, std::function<void(pimbsr::sim::Simulation&)> const& follow = nullptr);

}  // namespace test
