// The demo chart's compressed frame, decoded frame and golden files, reduced to digests recorded
// with the scalar reference codec. The fast path must reproduce them byte for byte, and so must
// the reference itself (FBC_FORCE_SCALAR=1) after any change.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::fnv1a;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;

struct Digests {
  std::uint64_t compressed, decoded, golden;
};

Digests chartDigests(const std::string& env, const std::string& threads) {
  TempDir dir;
  const auto run = [&](const std::string& args) {
    const auto r = runFbc(dir, args, env);
    EXPECT_EQ(r.status, 0) << args << ": " << r.err;
  };
  run("demo --out demo");
  // The chart goes back in through the 16-bit PNG the demo wrote: its 12-bit values return exactly.
  run("encode " + threads + " demo/chart.png chart.bin");
  run("decode " + threads + " --width 640 --height 480 chart.bin decoded.raw");
  run("golden " + threads + " --frame-index 3 --outdir golden demo/chart.png");
  std::string golden;
  for (const char* name : {"fbc_golden_ref_com_input_0003.txt", "fbc_com_input_0003.raw",
                           "fbc_golden_ref_com_0003.txt", "fbc_golden_ref_dec_input_0003.txt",
                           "fbc_golden_ref_dec_0003.txt"})
    golden += readBytes(dir.path() + "/golden/" + name);
  return {fnv1a(readBytes(dir.path() + "/chart.bin")),
          fnv1a(readBytes(dir.path() + "/decoded.raw")), fnv1a(golden)};
}

}  // namespace

TEST(OutputDigests, DemoChartAsRecordedOnBothPathsAndAnyThreadCount) {
  const auto recorded = fbc::test::readDigests(FBC_SOURCE_DIR "/tests/tools/data/digests.txt");
  for (const std::string env : {"", "FBC_FORCE_SCALAR=1"}) {
    for (const std::string threads : {"--threads 1", "--threads 3"}) {
      const Digests d = chartDigests(env, threads);
      const std::string at = env + " " + threads;
      EXPECT_EQ(d.compressed, recorded.at("compressed"))
          << at << std::hex << " compressed 0x" << d.compressed;
      EXPECT_EQ(d.decoded, recorded.at("decoded")) << at << std::hex << " decoded 0x" << d.decoded;
      EXPECT_EQ(d.golden, recorded.at("golden")) << at << std::hex << " golden 0x" << d.golden;
    }
  }
}

// Rows split among threads, as many as the rows and more, on odd sizes (short last blocks, one
// row, one pixel) and both paths: every output of encode, decode and golden is the same bytes
// as on one thread. The .raw input takes the direct path from its 16-bit samples, the .pgm
// copy of it the frame driver's.
TEST(OutputDigests, EveryThreadCountGivesTheSameBytes) {
  struct Size {
    int w, h;
  };
  // 1001x1051: encode and decode go out in several slices of rows, the last one short and odd.
  for (const Size s : {Size{1, 1}, Size{13, 3}, Size{45, 7}, Size{8, 2}, Size{1001, 1051}}) {
    TempDir dir;
    std::string raw, pgm = "P5\n" + std::to_string(s.w) + " " + std::to_string(s.h) + "\n4095\n";
    std::uint64_t state = 0x1234567ull * static_cast<std::uint64_t>(s.w * 100 + s.h);
    for (int i = 0; i < s.w * s.h; ++i) {
      state = state * 6364136223846793005ull + 1442695040888963407ull;
      const int v = i % 5 == 0 ? static_cast<int>(state >> 52) : (i * 37) % 4096;
      raw += static_cast<char>(v & 0xFF);
      raw += static_cast<char>(v >> 8);
      pgm += static_cast<char>(v >> 8);
      pgm += static_cast<char>(v & 0xFF);
    }
    fbc::test::writeBytes(dir.path() + "/in.raw", raw);
    fbc::test::writeBytes(dir.path() + "/in.pgm", pgm);
    const std::string size =
        " --width " + std::to_string(s.w) + " --height " + std::to_string(s.h) + " ";
    for (const std::string env : {"", "FBC_FORCE_SCALAR=1"}) {
      std::string first;
      for (const int t : {1, 2, 3, 8, 64}) {
        const std::string threads = "--threads " + std::to_string(t);
        for (const std::string& cmd :
             {"encode" + size + "in.raw r.bin", "encode" + size + "in.pgm p.bin",
              "decode" + size + "r.bin d.raw", "decode" + size + "r.bin d.pgm",
              "golden --frame-index 1 --outdir g in.raw" + size}) {
          const auto r = runFbc(dir, cmd + " " + threads, env);
          ASSERT_EQ(r.status, 0) << cmd << ": " << r.err;
        }
        std::string all;
        for (const char* f : {"r.bin", "p.bin", "d.raw", "d.pgm", "g/fbc_golden_ref_com_0001.txt",
                              "g/fbc_golden_ref_dec_0001.txt"})
          all += readBytes(dir.path() + "/" + f) + "|";
        if (t == 1) first = all;
        EXPECT_EQ(all, first) << s.w << "x" << s.h << " " << env << " " << threads;
        EXPECT_EQ(readBytes(dir.path() + "/r.bin"), readBytes(dir.path() + "/p.bin"))
            << s.w << "x" << s.h;
      }
    }
  }
}
