// fbc cover: a small directed suite that hits every cover point the block can reach. Random
// register sets and pictures are coded with coverage on until every reachable point has been
// hit; a greedy set cover then keeps the fewest of them that together hit what all of them hit,
// and writes them as tests in the layout of 'fbc random'.
#include <algorithm>
#include <bitset>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/Coverage.h"
#include "framework/IPBase.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"
#include "tools/coverage_file.h"
#include "tools/random_tests.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "cover",
    "--out DIR [--seed S] [--budget BLOCKS] [--registers FILE]",
    "Searches register sets and pictures, coding them with coverage on, until every cover point\n"
    "the register map lets the block reach has been hit and 4000 sets at least have been tried,\n"
    "or until BLOCKS blocks have been coded. Then writes the fewest of them it finds that\n"
    "together hit every point hit (a greedy set cover) as tests in the layout of 'fbc random':\n"
    "DIR/test_NNNN with params.ini, input.raw, the golden files, run.sh and coverage.json\n"
    "('fbc random report DIR' sums them). Points out of reach are listed with the reason.\n"
    "Exit status 1 when a reachable point was not hit within the budget (the suite is written\n"
    "all the same).",
    {{"out", "DIR", "directory of the suite (created if missing; must hold no tests)"},
     {"seed", "S", "search seed, 0..4294967295, default 1"},
     {"budget", "BLOCKS",
      "blocks coded at most while searching, 1000..1000000000, default 4000000"},
     kOptRegisters},
    0,
    0};

// Every candidate codes one picture of 8 blocks by 8 rows: both row parities, every Bayer
// layout's pairing of rows, and room for several block shapes per register set.
constexpr int kWidth = 64;
constexpr int kHeight = 8;
constexpr int kBlocks = kWidth / 8 * kHeight;
constexpr long long kMinimumSearch = 4000LL * kBlocks;

using PointSet = std::bitset<kCoverPointCount>;

// One register set and picture of the search, drawn again from its seed when written.
struct Candidate {
  unsigned int seed = 0;
  int cfa = 0;
  Frame picture;
};

// The bytes a binding holds.
std::size_t bindingBytes(const TVarInfo& v) {
  return static_cast<std::size_t>(v.count) * (v.size == 1 || v.size == 2 ? v.size : 4);
}

int clamp12(int v) {
  return std::min(4095, std::max(0, v));
}

// Blocks that random pictures seldom hold: narrow ranges hugging 0 or 4095 (the decoders'
// clamps, DPCM's base update at the ends), two flat groups of any split (edge members' head and
// tail groups, balanced or not), low fields for the rounding registers.
void directBlock(PIXEL* p) {
  const int kind = randomVal(0, 3);
  if (kind == 0) {
    const bool high = randomVal(0, 1) == 1;
    const int spread = 1 << randomVal(0, 7);
    for (int k = 0; k < 8; ++k) p[k] = high ? 4095 - randomVal(0, spread) : randomVal(0, spread);
  } else if (kind == 1) {
    const int split = randomVal(1, 7);
    const int a = randomVal(0, 4095), b = randomVal(0, 4095);
    const int noiseA = randomVal(0, 1) == 0 ? 0 : 1 << randomVal(0, 5);
    const int noiseB = randomVal(0, 1) == 0 ? 0 : 1 << randomVal(0, 5);
    for (int k = 0; k < 8; ++k) {
      p[k] = k < split ? clamp12(a + randomVal(-noiseA, noiseA))
                       : clamp12(b + randomVal(-noiseB, noiseB));
    }
  } else if (kind == 2) {
    for (int k = 0; k < 8; ++k) p[k] = randomVal(0, 1) == 0 ? randomVal(0, 15) : randomVal(0, 4095);
  } else {
    const int base = randomVal(0, 4095), step = randomVal(-600, 600);
    for (int k = 0; k < 8; ++k) p[k] = clamp12(base + step * k);
  }
}

// The candidate of `seed` into `codec`: a register set that is the defaults with some parameters
// drawn, or all drawn (from the random ranges or the wider checking ranges), the block enabled;
// a generated picture with some blocks replaced by directed ones; a Bayer layout. A parameter
// bound to two fields (the curves' point keys) gets, in both, the value a parameter file of the
// set holds, the one saved last: so the test written from the set codes as searched.
Candidate drawCandidate(unsigned int seed, RegisterTable& regs, Compression1x8& codec) {
  Candidate c;
  c.seed = seed;
  setRandSeed(seed);
  const bool randomRange = randomVal(0, 1) == 1;
  const bool drawAll = randomVal(0, 2) == 0;  // else each parameter drawn with chance 1 in 4
  Compression1x8 drawn("FBC", false);
  resetCodec(drawn);
  TGlobalParam global;
  global.seed = seed;
  global.useRandomRange = randomRange;
  std::vector<std::string> errors;
  drawn.randomParam(regs, randomRange, errors);
  drawn.randomSpecificParam(regs, global, randomRange, errors);
  if (!errors.empty()) failure("register table: " + errors.front());

  resetCodec(codec);
  const auto field = [](Compression1x8& of, const Compression1x8& like, const void* var) {
    return reinterpret_cast<char*>(&of) +
           (static_cast<const char*>(var) - reinterpret_cast<const char*>(&like));
  };
  std::map<std::pair<std::string, std::string>, std::vector<const void*>>
      byKey;  // fields in address order
  for (const auto& [var, info] : codec.bindings()) byKey[info.name].push_back(var);
  for (const auto& [key, vars] : byKey) {
    if (!drawAll && randomVal(0, 3) != 0) continue;
    const TVarInfo& info = codec.bindings().at(const_cast<void*>(vars.back()));
    for (const void* var : vars)
      std::memcpy(field(codec, codec, var), field(drawn, codec, vars.back()), bindingBytes(info));
  }
  codec.setEnable(true);

  c.cfa = randomVal(0, 3);
  c.picture = generatePicture(kWidth, kHeight);
  const int directed = randomVal(0, kBlocks);
  for (int b = 0; b < directed; ++b) {
    const int at = randomVal(0, kBlocks - 1);
    directBlock(c.picture.data + at * 8);
  }
  return c;
}

PointSet pointsOf(const fbc::Coverage& coverage) {
  PointSet s;
  for (int p = 0; p < kCoverPointCount; ++p) s[static_cast<std::size_t>(p)] = coverage.hits[p] != 0;
  return s;
}

// Greedy set cover: repeatedly the candidate that adds the most points not yet covered (the
// earliest on ties), then each chosen one whose points the others cover anyway is dropped.
std::vector<std::size_t> greedyCover(const std::vector<PointSet>& sets, const PointSet& goal) {
  std::vector<std::size_t> chosen;
  PointSet covered;
  while ((covered & goal) != goal) {
    std::size_t best = 0, bestGain = 0;
    for (std::size_t k = 0; k < sets.size(); ++k) {
      const std::size_t gain = (sets[k] & goal & ~covered).count();
      if (gain > bestGain) {
        best = k;
        bestGain = gain;
      }
    }
    if (bestGain == 0) break;
    chosen.push_back(best);
    covered |= sets[best];
  }
  for (std::size_t k = chosen.size(); k-- > 0;) {
    PointSet others;
    for (std::size_t j = 0; j < chosen.size(); ++j) {
      if (j != k) others |= sets[chosen[j]];
    }
    if ((others & goal) == (covered & goal))
      chosen.erase(chosen.begin() + static_cast<std::ptrdiff_t>(k));
  }
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

}  // namespace

int runCover(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const std::string outdir = args.value("out");
  if (outdir.empty()) usageError("--out: empty directory name");
  const auto masterSeed = static_cast<unsigned int>(args.has("seed") ? args.seed(0xFFFFFFFFu) : 1);
  const long long budget = args.integer("budget", 1000, 1000000000, 4000000);
  const RegisterMap registerMap(args);
  RegisterTable& regs = registerMap.table();
  const std::string registersPath =
      args.has("registers") ? fs::absolute(args.value("registers")).string() : std::string();
  std::error_code ec;
  if (fs::exists(outdir, ec)) {
    if (!fs::is_directory(outdir, ec)) inputError(outdir + ": not a directory");
    for (const auto& entry : fs::directory_iterator(outdir, ec)) {
      if (entry.path().filename().string().compare(0, 5, "test_") == 0) {
        inputError(outdir + ": already holds tests (" + entry.path().filename().string() +
                   "); fbc cover writes a suite into a folder of its own");
      }
    }
  }

  PointSet reachable;
  for (int p = 0; p < kCoverPointCount; ++p) {
    reachable[static_cast<std::size_t>(p)] = fbc::coverPointInfo(p).unreachable == nullptr;
  }
  // The search: candidates until every reachable point is hit, and a few thousand at least for
  // the cover to choose from, or until the budget is spent.
  std::mt19937 master(masterSeed);
  std::vector<unsigned int> seeds;
  std::vector<PointSet> sets;
  PointSet hit;
  long long blocks = 0;
  while (blocks + kBlocks <= budget &&
         ((hit & reachable) != reachable || blocks < kMinimumSearch)) {
    Compression1x8 codec("FBC", false);
    const Candidate c = drawCandidate(static_cast<unsigned int>(master()), regs, codec);
    fbc::Coverage coverage;
    codec.coverage = &coverage;
    Frame out(kWidth, kHeight, Frame::CS_RAW, 16);
    codec.compressDecompressFrame(c.picture, out, c.cfa, 0);
    blocks += kBlocks;
    const PointSet points = pointsOf(coverage);
    seeds.push_back(c.seed);
    sets.push_back(points);
    hit |= points;
  }
  const long long searched = blocks / kBlocks;
  std::cout << "searched " << searched << " register set" << (searched == 1 ? "" : "s") << ", "
            << blocks << " blocks: " << hit.count() << " of " << kCoverPointCount
            << " points hit\n";

  const std::vector<std::size_t> chosen = greedyCover(sets, hit);
  ensureDirectory(outdir);
  for (std::size_t k = 0; k < chosen.size(); ++k) {
    Compression1x8 codec("FBC", false);
    Candidate c = drawCandidate(seeds[chosen[k]], regs, codec);
    TestCase t;
    t.index = static_cast<int>(k);
    t.seed = c.seed;
    t.enabled = true;
    t.width = kWidth;
    t.height = kHeight;
    t.cfa = c.cfa;
    t.source = "generated for coverage";
    char origin[96];
    std::snprintf(origin, sizeof origin, "fbc cover --seed %u, test %04d (register set seed %u)",
                  masterSeed, t.index, c.seed);
    t.origin = origin;
    TGlobalParam global;
    global.seed = c.seed;
    global.testIndex = t.index;
    global.frameCount = 1;
    writeTest(outdir, t, codec, regs, c.picture, global, registersPath, true);
    std::printf("test_%04d: %zu points, register set seed %u\n", t.index, sets[chosen[k]].count(),
                c.seed);
    std::fflush(stdout);
  }
  // What the written tests hit, run from their parameter files, is what counts.
  PointSet suite;
  for (std::size_t k = 0; k < chosen.size(); ++k) {
    char name[48];
    std::snprintf(name, sizeof name, "/test_%04zu/coverage.json", k);
    suite |= pointsOf(readCoverageJson(outdir + name));
  }
  if (suite != hit) failure(outdir + ": the written tests hit other points than the search found");
  std::cout << chosen.size() << " test" << (chosen.size() == 1 ? "" : "s") << " in " << outdir
            << " hit " << hit.count() << " of " << kCoverPointCount << " points\n";

  int missed = 0;
  for (int p = 0; p < kCoverPointCount; ++p) {
    if (hit[static_cast<std::size_t>(p)]) continue;
    const fbc::CoverPointInfo& info = fbc::coverPointInfo(p);
    if (info.unreachable != nullptr) {
      std::cout << "out of reach: " << info.name << ": " << info.unreachable << '\n';
    } else {
      std::cout << "not hit within the budget: " << info.name << ": " << info.description << '\n';
      ++missed;
    }
  }
  return missed == 0 ? kExitOk : kExitFailure;
}

}  // namespace fbc::cli
