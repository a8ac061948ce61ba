// coverage.json, the cover-point counts of one test, and the coverage table of a report.
#pragma once

#include <ostream>
#include <string>

#include "codec/Coverage.h"

namespace fbc::cli {

// {"points": {"mode.hadamard": 12, ...}}: every point of the table, in table order.
std::string coverageJson(const fbc::Coverage& coverage);

// Reads a coverage.json; points it does not name count 0. A file that is not such an object, or
// names a point this tool does not know, is an input Error naming the file.
fbc::Coverage readCoverageJson(const std::string& path);

// Points and how often they were hit (by `tests` of them when `tests` is given), then the points
// never hit, those the register map puts out of reach apart with their reason.
void printCoverage(std::ostream& os, const fbc::Coverage& hits, const fbc::Coverage* tests);

}  // namespace fbc::cli
