// The fbc tool fed hostile files: one defect for each kind of file each loader reads, spread over
// the subcommands, and the fuzzers' recorded findings replayed through the tool. Each run must end
// with status 2, one line on standard error naming the file, and nothing left behind.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

using namespace fbc::test;

// Deterministic binary garbage: bytes of a seeded Mersenne twister (its sequence is fixed by the
// standard, so every machine feeds the same bytes).
std::string garbage(std::uint32_t seed, std::size_t size) {
  std::mt19937 gen(seed);
  std::string s(size, '\0');
  for (char& c : s) c = static_cast<char>(gen() & 0xFF);
  return s;
}

// A recorded finding of the picture or INI fuzzer: the file it wrote, without the bytes that
// picked the reader and its arguments (7 for pictures).
std::string finding(const std::string& name, std::size_t skip) {
  return readBytes(FBC_SOURCE_DIR "/fuzz/regressions/" + name).substr(skip);
}

struct BadInput {
  std::string name;   // the test's name
  std::string args;   // the command line; the bad file appears in it by name
  std::string file;   // the bad file's name
  std::string bytes;  // and its contents
};

// gtest names a case by its name instead of dumping its bytes.
void PrintTo(const BadInput& c, std::ostream* os) {
  *os << c.name << ": fbc " << c.args;
}

std::vector<BadInput> badInputs() {
  const std::string rgbBody(16 * 4 * 3, '\x40'), greyBody(16 * 4, '\x40');
  const std::string map = readBytes(FBC_SOURCE_DIR "/data/fbc_registers.txt");
  const char* const raw = "--width 16 --height 4 ";
  return {
      {"PpmTruncatedBody", "encode bad.ppm out.bin", "bad.ppm",
       "P6\n16 4\n255\n" + rgbBody.substr(0, 100)},
      {"PgmMaxvalTooLarge", "golden --frame-index 0 --outdir gold bad.pgm", "bad.pgm",
       "P5\n16 4\n70000\n" + greyBody},
      {"RawPackedTruncated", std::string("roundtrip ") + raw + "--raw-mode 4 bad.raw --out pics",
       "bad.raw", garbage(4, 100)},
      {"FrameLong", std::string("decode ") + raw + "bad.bin out.raw", "bad.bin",
       std::string(65, '\0')},
      {"ParamsGarbage", "params check bad.ini", "bad.ini", garbage(7, 600)},
      {"RegistersNegativeAddress", "regs --registers bad.txt good.ini", "bad.txt",
       map + "param FBC extra 0 1\n  field -3 0:0\n"},
      {"RegistersTruncated", "random --count 1 --seed 1 --outdir tests --registers bad.txt",
       "bad.txt", map.substr(0, map.find("param FBC reg_tr_ext_en") + 20)},
      {"SettingsMinAboveMax", "random --count 2 --seed 1 --outdir tests --settings bad.ini",
       "bad.ini", "[GlobalControl]\nheight_min=9\nheight_max=8\n"},
      {"FindingP3HugeClaim", "encode bad.ppm out.bin", "bad.ppm",
       finding("image/p3_huge_claim", 7)},
      {"FindingRawHugeClaim", "encode --width 64 --height 64 --raw-mode 1 bad.raw out.bin",
       "bad.raw", finding("image/raw_huge_claim", 7)},
      {"FindingIni", "params show --params bad.ini", "bad.ini",
       finding("ini/new_key_after_empty_section", 0)},
  };
}

class BadInputTest : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputTest, ExitsTwoWithOneLineNamingTheFileAndLeavesNothing) {
  const BadInput& c = GetParam();
  const TempDir dir;
  // The valid files besides the bad one: a 16x4 picture of 12-bit samples and the defaults.
  std::string raw;
  for (int i = 0; i < 64; ++i) raw += {static_cast<char>(i * 53 & 0xFF), static_cast<char>(i % 16)};
  writeBytes(dir.file("in.raw"), raw);
  writeBytes(dir.file("good.ini"), kDefaultParams);
  writeBytes(dir.file(c.file), c.bytes);
  // Scratch files of the tool go to a directory of the test, which must stay empty.
  std::filesystem::create_directory(dir.file("tmp"));
  const std::set<std::string> names = listDir(dir.path()), files = listTree(dir.path());

  const Outcome r = runFbc(dir, c.args, "TMPDIR='" + dir.file("tmp") + "'");

  // A signal or a sanitizer report ends with another status.
  EXPECT_EQ(r.status, 2) << r.err;
  const std::string prefix = "fbc " + c.args.substr(0, c.args.find(' ')) + ": ";
  EXPECT_EQ(r.err.compare(0, prefix.size(), prefix), 0) << r.err;
  ASSERT_FALSE(r.err.empty());
  EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;  // exactly one line
  EXPECT_NE(r.err.find(c.file), std::string::npos) << r.err;
  EXPECT_EQ(listDir(dir.path()), names);
  EXPECT_EQ(listTree(dir.path()), files);
}

INSTANTIATE_TEST_SUITE_P(Fbc, BadInputTest, ::testing::ValuesIn(badInputs()),
                         [](const auto& test) { return test.param.name; });

// Garbage of exactly the frame's size is a valid frame: every 64-bit value is a block code. It
// decodes without a complaint, and the samples stay within the 12-bit range times 16.
TEST(BadInput, GarbageFrameOfTheRightSizeDecodes) {
  const TempDir dir;
  writeBytes(dir.file("in.bin"), garbage(11, 64));
  const Outcome r = runFbc(dir, "decode --width 16 --height 4 in.bin out.raw");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const std::string out = readBytes(dir.file("out.raw"));
  ASSERT_EQ(out.size(), 128u);
  for (std::size_t i = 0; i < out.size(); i += 2) EXPECT_EQ(out[i] & 15, 0) << "sample " << i / 2;
}

}  // namespace
