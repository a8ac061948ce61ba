#include "tools/coverage_file.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/cli.h"

namespace fbc::cli {

std::string coverageJson(const fbc::Coverage& coverage) {
  nlohmann::ordered_json points = nlohmann::ordered_json::object();
  for (int p = 0; p < fbc::kCoverPointCount; ++p)
    points[fbc::coverPointInfo(p).name] = coverage.hits[p];
  nlohmann::ordered_json file;
  file["points"] = points;
  return file.dump(1) + "\n";
}

fbc::Coverage readCoverageJson(const std::string& path) {
  checkInputFile(path);
  std::ifstream in(path, std::ios::binary);
  const nlohmann::json file = nlohmann::json::parse(in, nullptr, false);
  if (file.is_discarded()) inputError(path + ": not JSON");
  if (!file.is_object() || !file.contains("points") || !file["points"].is_object()) {
    inputError(path + ": no object \"points\"");
  }
  fbc::Coverage coverage;
  for (const auto& [name, count] : file["points"].items()) {
    const int point = fbc::coverPointByName(name.c_str());
    if (point < 0) inputError(path + ": unknown cover point \"" + name + "\"");
    if (!count.is_number_unsigned()) inputError(path + ": \"" + name + "\" is not a count");
    coverage.hits[point] = count.get<std::uint64_t>();
  }
  return coverage;
}

void printCoverage(std::ostream& os, const fbc::Coverage& hits, const fbc::Coverage* tests) {
  std::vector<int> never, unreachable;
  int hit = 0;
  for (int p = 0; p < fbc::kCoverPointCount; ++p) {
    if (hits.hits[p] != 0) {
      ++hit;
    } else {
      (fbc::coverPointInfo(p).unreachable != nullptr ? unreachable : never).push_back(p);
    }
  }
  os << "coverage: " << hit << " of " << fbc::kCoverPointCount << " points hit\n";
  char line[160];
  std::snprintf(line, sizeof line, "  %-28s %12s%s\n", "point", "hits",
                tests != nullptr ? "     tests" : "");
  os << line;
  for (int p = 0; p < fbc::kCoverPointCount; ++p) {
    std::snprintf(line, sizeof line, "  %-28s %12llu", fbc::coverPointInfo(p).name,
                  static_cast<unsigned long long>(hits.hits[p]));
    os << line;
    if (tests != nullptr) {
      std::snprintf(line, sizeof line, " %9llu", static_cast<unsigned long long>(tests->hits[p]));
      os << line;
    }
    os << '\n';
  }
  os << "never hit: " << never.size() << (never.empty() ? "\n" : "");
  for (std::size_t k = 0; k < never.size(); ++k) {
    os << (k == 0 ? " (" : ", ") << fbc::coverPointInfo(never[k]).name
       << (k + 1 == never.size() ? ")\n" : "");
  }
  for (int p : unreachable) {
    os << "out of reach: " << fbc::coverPointInfo(p).name << ": "
       << fbc::coverPointInfo(p).unreachable << '\n';
  }
}

}  // namespace fbc::cli
