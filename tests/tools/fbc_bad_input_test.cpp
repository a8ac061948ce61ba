// The fbc tool fed hostile files: truncated, oversized, wrong magic, negative sizes, non-numeric
// fields and binary garbage, in every kind of file every subcommand reads. Each run must end with
// status 2, one line on standard error naming the file, and nothing left behind.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::kDefaultParams;
using fbc::test::listDir;
using fbc::test::listTree;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

// Deterministic binary garbage: bytes of a seeded Mersenne twister (its sequence is fixed by the
// standard, so every machine feeds the same bytes).
std::string garbage(std::uint32_t seed, std::size_t size) {
  std::mt19937 gen(seed);
  std::string s(size, '\0');
  for (char& c : s) c = static_cast<char>(gen() & 0xFF);
  return s;
}

// The default parameter file with the line of `key` replaced by `key=value`.
std::string defaultsWith(const std::string& key, const std::string& value) {
  std::string text = kDefaultParams;
  const std::size_t at = text.find("\n" + key + "=") + 1;
  text.replace(at, text.find('\n', at) - at, key + "=" + value);
  return text;
}

std::string repeat(const std::string& s, std::size_t n) {
  std::string out;
  out.reserve(s.size() * n);
  for (std::size_t i = 0; i < n; ++i) out += s;
  return out;
}

// The register map shipped with the project.
std::string goodMap() { return readBytes(FBC_SOURCE_DIR "/data/fbc_registers.txt"); }

struct BadInput {
  std::string name;   // the test's name
  std::string args;   // the command line; the bad file appears in it by name
  std::string file;   // the bad file's name
  std::string bytes;  // and its contents
};

// gtest names a case by its name instead of dumping its bytes.
void PrintTo(const BadInput& c, std::ostream* os) { *os << c.name << ": fbc " << c.args; }

// Every valid file the command lines below refer to besides the bad one: a 16x4 picture of
// plain 12-bit samples, its 64-byte compressed frame (any bytes are block codes) and a complete
// parameter file. The output locations (out.*, gold/, pics/, tests/) do not exist beforehand.
void writeGoodInputs(const TempDir& dir) {
  std::string raw;
  for (int i = 0; i < 64; ++i) raw += {static_cast<char>(i * 53 & 0xFF), static_cast<char>(i % 16)};
  writeBytes(dir.file("in.raw"), raw);
  writeBytes(dir.file("in.bin"), std::string(64, '\x11'));
  writeBytes(dir.file("good.ini"), kDefaultParams);
}

std::vector<BadInput> badInputs() {
  std::vector<BadInput> cases;
  const auto add = [&](const std::string& name, const std::string& args, const std::string& file,
                       const std::string& bytes) { cases.push_back({name, args, file, bytes}); };

  // Pictures, each through the three commands that read one. `opts` sizes a headerless .raw.
  struct Picture {
    const char* name;
    const char* file;
    std::string bytes;
    const char* opts;
  };
  const std::string rgbBody(16 * 4 * 3, '\x40'), greyBody(16 * 4, '\x40');
  const char* const rawSize = "--width 16 --height 4";
  const std::vector<Picture> pictures = {
      {"PpmEmpty", "bad.ppm", "", ""},
      {"PpmTruncatedHeader", "bad.ppm", "P6\n16 4\n", ""},
      {"PpmTruncatedBody", "bad.ppm", "P6\n16 4\n255\n" + rgbBody.substr(0, 100), ""},
      {"PpmWrongMagic", "bad.ppm", "P9\n16 4\n255\n" + rgbBody, ""},
      {"PpmNegativeWidth", "bad.ppm", "P6\n-16 4\n255\n" + rgbBody, ""},
      {"PpmNonNumericHeight", "bad.ppm", "P6\n16 four\n255\n" + rgbBody, ""},
      {"PpmMaxvalZero", "bad.ppm", "P6\n16 4\n0\n" + rgbBody, ""},
      {"PpmOversizedDimensions", "bad.ppm", "P6\n4000000000 4000000000\n255\n" + rgbBody, ""},
      {"PpmGarbage", "bad.ppm", garbage(1, 300), ""},
      {"PgmTruncatedBody", "bad.pgm", "P5\n16 4\n255\n" + greyBody.substr(0, 63), ""},
      {"PgmColourMagic", "bad.pgm", "P6\n16 4\n255\n" + rgbBody, ""},
      {"PgmNegativeHeight", "bad.pgm", "P5\n16 -4\n255\n" + greyBody, ""},
      {"PgmNonNumericMaxval", "bad.pgm", "P5\n16 4\nmax\n" + greyBody, ""},
      {"PgmMaxvalTooLarge", "bad.pgm", "P5\n16 4\n70000\n" + greyBody, ""},
      {"PgmGarbage", "bad.pgm", "P5\n" + garbage(2, 200), ""},
      {"RawEmpty", "bad.raw", "", rawSize},
      {"RawTruncated", "bad.raw", std::string(127, '\0'), rawSize},
      {"RawOversized", "bad.raw", std::string(129, '\0'), rawSize},
      {"RawGarbage", "bad.raw", garbage(3, 128), rawSize},  // samples above 4095
      {"RawPackedTruncated", "bad.raw", garbage(4, 100), "--width 16 --height 4 --raw-mode 4"},
      {"RawPackedOversized", "bad.raw", garbage(5, 1000), "--width 16 --height 4 --raw-mode 1"},
      {"RawPackedEmpty", "bad.raw", "", "--width 16 --height 4 --raw-mode 0"},
  };
  for (const Picture& p : pictures) {
    // golden and roundtrip take the size from a picture's header; only .raw needs the options.
    const std::string opts = std::string(p.opts) + (*p.opts != '\0' ? " " : "");
    add(std::string("Encode") + p.name, "encode " + opts + p.file + " out.bin", p.file, p.bytes);
    add(std::string("Golden") + p.name, "golden " + opts + "--frame-index 0 --outdir gold " + p.file, p.file,
        p.bytes);
    add(std::string("Roundtrip") + p.name, "roundtrip " + opts + p.file + " --out pics", p.file, p.bytes);
  }

  // Compressed frames of a 16x4 picture: exactly 64 bytes, whatever they hold.
  const std::string decode = "decode --width 16 --height 4 bad.bin ";
  add("DecodeShortFrame", decode + "out.raw", "bad.bin", std::string(63, '\0'));
  add("DecodeLongFrame", decode + "out.pgm", "bad.bin", std::string(65, '\0'));
  add("DecodeEmptyFrame", decode + "out.ppm", "bad.bin", "");
  add("DecodeGarbageFrame", decode + "out.raw", "bad.bin", garbage(6, 1000));

  // Parameter files, through every command that loads one. Each holds one defect in an otherwise
  // complete file, so that even 'params check', which lists every problem, has one to list.
  const std::vector<std::pair<std::string, std::string>> params = {
      {"Garbage", garbage(7, 600)},
      {"GarbageInSection", "[FBC]\n" + garbage(8, 600)},
      {"NulBytes", defaultsWith("reg_tr_ext_en", std::string("0\0\0" "1", 4))},
      {"NulInKey", std::string(kDefaultParams) + std::string("reg_tr\0_ext_en=1\n", 17)},
      {"EndlessLine", defaultsWith("reg_edge_diffmin_th", std::string(100000, '1'))},
      {"HugeArray", defaultsWith("reg_mode_en", repeat("1,", 50000) + "1")},
      {"NonNumeric", defaultsWith("reg_edge_diffmin_th", "two hundred")},
      {"NegativeSizes", defaultsWith("reg_comp_lut_in", "-5,-4,-3,-2,-1,0,0,0,0,0,0,0,0,0,0")},
      // Cut in the middle of the last line: its key is there, its value is not.
      {"Truncated", std::string(kDefaultParams).substr(0, sizeof kDefaultParams - 3)},
      {"Empty", ""},
  };
  const std::vector<std::pair<std::string, std::string>> paramCommands = {
      {"Encode", "encode --width 16 --height 4 --params bad.ini in.raw out.bin"},
      {"Decode", "decode --width 16 --height 4 --params bad.ini in.bin out.raw"},
      {"Golden", "golden --width 16 --height 4 --frame-index 0 --outdir gold --params bad.ini in.raw"},
      {"Roundtrip", "roundtrip --width 16 --height 4 --params bad.ini in.raw --out pics"},
      {"ParamsShow", "params show --params bad.ini"},
      {"ParamsCheck", "params check bad.ini"},
      {"Regs", "regs bad.ini"},
  };
  for (const auto& [command, args] : paramCommands) {
    for (const auto& [defect, bytes] : params) add(command + "Params" + defect, args, "bad.ini", bytes);
  }

  // Register maps, through every command that checks parameters against one.
  const std::string map = goodMap();
  const std::vector<std::pair<std::string, std::string>> maps = {
      {"TruncatedMidLine", map.substr(0, map.find("param FBC reg_tr_ext_en") + 20)},
      {"TruncatedAtParam", map.substr(0, map.find("param FBC reg_tr_ext_en"))},
      {"Empty", ""},
      {"Garbage", garbage(9, 2000)},
      {"BadNumber", "param Enable reg_fbc_en 0 1x default 1\n" + map},
      {"NegativeAddress", "param Enable reg_fbc_en 0 1 default 1\n  field -3 0:0\n" + map},
      {"OverlappingFields", map + "param FBC extra 0 1\n  field 0x0001 1:1\n"},
      {"EndlessLine", "param Enable reg_fbc_en 0 1 default " + repeat("1,", 100000) + "1\n"},
  };
  const std::vector<std::pair<std::string, std::string>> mapCommands = {
      {"Encode", "encode --width 16 --height 4 --registers bad.txt in.raw out.bin"},
      {"Decode", "decode --width 16 --height 4 --registers bad.txt in.bin out.raw"},
      {"Golden", "golden --width 16 --height 4 --frame-index 0 --outdir gold --params good.ini "
                 "--registers bad.txt in.raw"},
      {"Roundtrip", "roundtrip --width 16 --height 4 --params good.ini --set reg_tr_ext_en=1 "
                    "--registers bad.txt in.raw --out pics"},
      {"ParamsShow", "params show --registers bad.txt"},
      {"ParamsDefaults", "params defaults --registers bad.txt out.ini"},
      {"ParamsCheck", "params check --registers bad.txt good.ini"},
      {"ParamsRandom", "params random --seed 1 --registers bad.txt out.ini"},
      {"Regs", "regs --registers bad.txt good.ini"},
      {"Random", "random --count 1 --seed 1 --outdir tests --registers bad.txt"},
  };
  for (const auto& [command, args] : mapCommands) {
    for (const auto& [defect, bytes] : maps) add(command + "Registers" + defect, args, "bad.txt", bytes);
  }

  // Settings of the random generator.
  const std::string random = "random --count 2 --seed 1 --outdir tests --settings bad.ini";
  const std::vector<std::pair<std::string, std::string>> settings = {
      {"Garbage", garbage(10, 500)},
      {"NulBytes", std::string("[GlobalControl]\nwidth_min=8\0\n", 29)},
      {"NonNumeric", "[GlobalControl]\nwidth_max=wide\n"},
      {"NegativeWidth", "[GlobalControl]\nwidth_min=-16\n"},
      {"NegativeFrames", "[GlobalControl]\nframes=-1\n"},
      {"HugeHeight", "[GlobalControl]\nheight_max=99999999999999999999\n"},
      {"WidthMinAboveMax", "[GlobalControl]\nwidth_min=200\nwidth_max=100\n"},
      {"HeightMinAboveMax", "[GlobalControl]\nheight_min=9\nheight_max=8\n"},
      {"HugeCfaList", "[GlobalControl]\ncfa=" + repeat("0,", 10000) + "1\n"},
      {"NoSection", "width_min=8\n"},
      {"Empty", ""},
  };
  for (const auto& [defect, bytes] : settings) add("RandomSettings" + defect, random, "bad.ini", bytes);
  return cases;
}

class BadInputTest : public ::testing::TestWithParam<BadInput> {};

TEST_P(BadInputTest, ExitsTwoWithOneLineNamingTheFileAndLeavesNothing) {
  const BadInput& c = GetParam();
  const TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  writeGoodInputs(dir);
  writeBytes(dir.file(c.file), c.bytes);
  // Scratch files of the tool go to a directory of the test, which must stay empty.
  std::filesystem::create_directory(dir.file("tmp"));
  const std::set<std::string> names = listDir(dir.path()), files = listTree(dir.path());

  const Outcome r = runFbc(dir, c.args, "TMPDIR='" + dir.file("tmp") + "'");

  // A signal or a sanitizer report ends with another status.
  EXPECT_EQ(r.status, 2) << r.err;
  const std::string command = c.args.substr(0, c.args.find(' '));
  const std::string prefix = "fbc " + command + ": ";
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
  for (std::size_t i = 0; i < out.size(); i += 2) {
    const int v = static_cast<unsigned char>(out[i]) | static_cast<unsigned char>(out[i + 1]) << 8;
    EXPECT_EQ(v % 16, 0) << "sample " << i / 2;
  }
}

}  // namespace
