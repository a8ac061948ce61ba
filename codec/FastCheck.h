// The checker of the fast path: every vector variant the host runs against the scalar reference,
// bit for bit, on seeded rows of blocks and codes under seeded register values.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "codec/FastCodec.h"

namespace fbc {

struct SelfTestOptions {
  std::uint64_t seed = 0x5eed1234;
  long long count = 2000;  // register sets per check; each codes a few rows
  std::string filter;      // only checks whose name contains it ("encode", "avx2", ...)
};

struct SelfTestResult {
  bool ok = true;
  std::vector<std::string> checks;  // names of the checks run, e.g. "encode[avx2]"
  long long blocks = 0;             // blocks compared
  std::string report;               // at the first mismatch: what differs and how to replay it
};

// Checks every variant this CPU runs, or the ones given.
SelfTestResult runSelfTest(const SelfTestOptions& options);
SelfTestResult runSelfTest(const SelfTestOptions& options,
                           const std::vector<CodecVariant>& variants);

// What 'fbc selftest' prints of a run: at a mismatch the report on `err` (after flushing `out`,
// so that the two keep their order on a terminal), else the checks run and the blocks compared on
// `out`. Returns result.ok.
bool printSelfTest(const SelfTestResult& result, std::ostream& out, std::ostream& err);

}  // namespace fbc
