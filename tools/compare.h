// The comparison of two golden sets behind 'fbc compare', for every command that compares golden
// files: the first difference told by file, line, block, field and the expected block's
// decision trace, then a summary of every differing file.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class RegisterTable;

namespace fbc::cli {

struct CompareSetup {
  std::string expected;  // a directory of golden files, or one golden file
  std::string actual;    // the same kind of object
  // Directories only: the names of the files to compare, each of which both must hold; empty:
  // every golden file of EXPECTED, each of which ACTUAL must hold.
  std::vector<std::string> names;
  int width = 0;       // 0: from run.sh beside EXPECTED, else from the raw input when only one fits
  int cfa = -1;        // -1: from run.sh beside EXPECTED, else 0
  std::string params;  // empty: params.ini beside EXPECTED, else the software defaults
  // The map the parameters are read with; null: the one run.sh beside EXPECTED names with
  // --registers, else the built-in map.
  RegisterTable* registers = nullptr;
};

struct GoldenComparison {
  std::size_t files = 0;  // files compared
  int differingFiles = 0;
  std::string report;  // the first difference and the summary; empty when identical
};

// Compares the golden files of setup.expected with those of setup.actual. Bad input (a missing
// file, a malformed line, a bad parameter file) is an input Error.
GoldenComparison compareGolden(const CompareSetup& setup);

}  // namespace fbc::cli
