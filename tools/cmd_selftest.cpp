// fbc selftest: every fast-path variant the host runs against the scalar reference, bit for bit.
#include <cstdint>
#include <iostream>
#include <string>

#include "codec/FastCheck.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "selftest",
    "[--seed S] [--count N] [--filter NAME]",
    "Compares every vector variant of the encoder and decoder this CPU supports (x86-64: sse2,\n"
    "avx2, avx512; aarch64: neon) with the scalar reference on seeded rows of blocks (noise,\n"
    "ramps, two levels, narrow ranges, end runs, extremes), random 64-bit codes and random\n"
    "register values, decoding into 16-bit and 32-bit samples; also the range check and the byte\n"
    "moves of the frame drivers.\n"
    "Stops at the first mismatch and prints what is needed to replay it. N register sets (or byte\n"
    "rows) per check (default 2000); S is the seed (default 0x5eed1234, decimal or 0x hex); NAME\n"
    "keeps the checks whose name contains it (\"encode\", \"decode[avx2]\", \"bytes\"). Exit\n"
    "status 0 when all agree, 1 at a mismatch, 2 when NAME matches no check.",
    {{"seed", "S", "seed of the inputs, default 0x5eed1234"},
     {"count", "N", "register sets per check, default 2000"},
     {"filter", "NAME", "only checks whose name contains NAME"}},
    0,
    0};

}  // namespace

int runSelftest(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  SelfTestOptions o;
  if (args.has("seed")) o.seed = args.seed(UINT64_MAX);
  o.count = args.integer("count", 1, 1LL << 40, o.count);
  if (args.has("filter")) o.filter = args.value("filter");
  std::cout << "seed 0x" << std::hex << o.seed << std::dec << ", " << o.count
            << " register sets per check\n";
  const SelfTestResult r = runSelfTest(o);
  if (r.checks.empty()) usageError("--filter: no check matches '" + o.filter + "' on this CPU");
  return printSelfTest(r, std::cout, std::cerr) ? kExitOk : kExitFailure;
}

}  // namespace fbc::cli
