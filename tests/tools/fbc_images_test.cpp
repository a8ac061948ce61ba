// The fbc tool with picture files: PPM/PGM/raw input, decoded pictures, error and comparison maps.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

namespace fs = std::filesystem;
using fbc::test::listDir;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

// Big-endian 16-bit samples, as binary PNM bodies with a maximum above 255 hold them.
std::string be16(const std::vector<int>& samples) {
  std::string s;
  for (int v : samples) {
    s += static_cast<char>((v >> 8) & 0xFF);
    s += static_cast<char>(v & 0xFF);
  }
  return s;
}

// The compressed frame of a flat block of value v: DPCM at cost 0, code 1001 | 12-bit base v |
// zero codes = 0x9vvv000000000000, stored little-endian: six zero bytes, v & 0xFF, 0x90 | v >> 8.
std::string flatBlockCode(int v) {
  return std::string(6, '\0') + static_cast<char>(v & 0xFF) + static_cast<char>(0x90 | (v >> 8));
}

// The packing modes themselves are the reader's (its tests pin each); the tool passes the option.
// Eight 10-bit values 0x048 in one stream: words 2048 0481 4812 8120 1204 0 0 0; 0x48 * 4.
TEST(PictureInput, RawModeReachesTheReader) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"),
             std::string("\x48\x20\x81\x04\x12\x48\x20\x81\x04\x12\x00\x00\x00\x00\x00\x00", 16));
  const Outcome r = runFbc(dir, "encode --width 8 --height 1 --raw-mode 4 in.raw out.bin");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readBytes(dir.file("out.bin")), flatBlockCode(0x120));
}

TEST(PictureInput, PpmBecomesTheMosaicOfCfa) {
  const TempDir dir;
  // 8x1 at maximum 4095 (scale 1): every pixel (0x123, 0x123, 0). RGGB row 0 is R G R G ...,
  // all 0x123; BGGR row 0 is B G B G ..., 0 and 0x123 alternating.
  std::vector<int> rgb;
  for (int i = 0; i < 8; ++i) rgb.insert(rgb.end(), {0x123, 0x123, 0});
  writeBytes(dir.file("in.ppm"), "P6\n8 1\n4095\n" + be16(rgb));
  Outcome r = runFbc(dir, "encode in.ppm rggb.bin");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(readBytes(dir.file("rggb.bin")), flatBlockCode(0x123));
  r = runFbc(dir, "encode --width 8 --height 1 --cfa 2 in.ppm bggr.bin");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(readBytes(dir.file("bggr.bin")), flatBlockCode(0x123));
}

// 8x2 two-level rows, each coded exactly by MinMax:
//   row 0: 1000 2000 1000 2000 ...   row 1: 3000 500 3000 500 ...
// Decoded values are 16 times these: 16000 32000 / 48000 8000.
class DecodePicture : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string words;
    for (int y = 0; y < 2; ++y) {
      for (int x = 0; x < 8; ++x) {
        const int v = y == 0 ? (x % 2 == 0 ? 1000 : 2000) : (x % 2 == 0 ? 3000 : 500);
        words += static_cast<char>(v & 0xFF);
        words += static_cast<char>(v >> 8);
      }
    }
    writeBytes(dir_.file("in.raw"), words);
    const Outcome r = runFbc(dir_, "encode --width 8 --height 2 in.raw in.bin");
    ASSERT_EQ(r.status, 0) << r.err;
  }
  TempDir dir_;
};

TEST_F(DecodePicture, PgmHoldsSixteenTimesTheValues) {
  const Outcome r = runFbc(dir_, "decode --width 8 --height 2 in.bin out.pgm");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string pgm = readBytes(dir_.file("out.pgm"));
  const std::string header = "P5\n8 2\n65535\n";
  ASSERT_EQ(pgm.size(), header.size() + 8 * 2 * 2);
  EXPECT_EQ(pgm.substr(0, header.size() + 4),
            header + std::string("\x3E\x80\x7D\x00", 4));                     // 16000, 32000
  EXPECT_EQ(pgm.substr(pgm.size() - 4), std::string("\xBB\x80\x1F\x40", 4));  // 48000, 8000
}

struct DemosaicCase {
  const char* cfaOption;
  std::string firstPixel;  // R, G, B of pixel (0, 0), big-endian 16-bit
};

class DecodePpm : public DecodePicture, public ::testing::WithParamInterface<DemosaicCase> {};

// Pixel (0, 0) with neighbours mirrored: left/right 32000, up/down 48000, diagonals 8000.
//   RGGB, a red site: R own 16000, G (32000*2 + 48000*2 + 2) >> 2 = 40000, B diagonal 8000
//   GBRG, green on a blue row: R vertical (8 * 48000 + 4) >> 3 = 48000, G own 16000,
//   B horizontal: rows -2 and +2 mirror to 2 (clamped to 1) and 0:
//     (8000 + 2*32000 + 32000 + 8000 + 2*32000 + 32000 + 4) >> 3 = 26000
TEST_P(DecodePpm, DemosaicsWithAllThreeValues) {
  const Outcome r = runFbc(
      dir_, std::string("decode --width 8 --height 2 ") + GetParam().cfaOption + " in.bin out.ppm");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string ppm = readBytes(dir_.file("out.ppm"));
  const std::string header = "P6\n8 2\n65535\n";
  ASSERT_EQ(ppm.size(), header.size() + 8 * 2 * 6);
  EXPECT_EQ(ppm.substr(0, header.size() + 6), header + GetParam().firstPixel);
}

INSTANTIATE_TEST_SUITE_P(Fbc, DecodePpm,
                         ::testing::Values(DemosaicCase{"", be16({16000, 40000, 8000})},
                                           DemosaicCase{"--cfa 3", be16({48000, 16000, 26000})}));

TEST(RoundtripPictures, ExactInputGivesABlackErrorMapAndNoComparisonForGrey) {
  const TempDir dir;
  std::string body;
  for (int i = 0; i < 32; ++i) body += "18 ";  // 18 * 16 = 0x120, flat blocks coded exactly
  writeBytes(dir.file("in.pgm"), "P2\n16 2\n255\n" + body);
  const Outcome r = runFbc(dir, "roundtrip in.pgm --out pics --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(listDir(dir.file("pics")),
            (std::set<std::string>{"input.pgm", "decoded.pgm", "modes.ppm", "errors.ppm"}));
  EXPECT_NE(r.out.find("\nerror map: black, every pixel decoded exactly\n"), std::string::npos)
      << r.out;
  EXPECT_EQ(readBytes(dir.file("pics/errors.ppm")),
            "P6\n16 2\n255\n" + std::string(16 * 2 * 3, '\0'));
}

// Full-range noise is coded with loss: the map's top colour, white, marks the largest error.
TEST(RoundtripPictures, ErrorMapAndComparisonOfBayerInput) {
  const TempDir dir;
  std::vector<int> rgb;
  unsigned state = 12345;
  for (int i = 0; i < 16 * 4 * 3; ++i) {
    state = state * 1103515245u + 12345u;
    rgb.push_back(static_cast<int>((state >> 8) & 0xFFF));
  }
  writeBytes(dir.file("noise.ppm"), "P6\n16 4\n4095\n" + be16(rgb));
  const Outcome r = runFbc(dir, "roundtrip noise.ppm --cfa 1 --out pics --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::size_t at = r.out.find("largest absolute error ");
  ASSERT_NE(at, std::string::npos) << r.out;
  const int largest = std::atoi(r.out.c_str() + at + 23);
  ASSERT_GT(largest, 0);
  EXPECT_NE(r.out.find("to white at " + std::to_string(largest) + " (the largest error)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(
      r.out.find("\ncompare: input (left) and decoded (right), demosaiced with CFA layout 1\n"),
      std::string::npos);

  const std::string errors = readBytes(dir.file("pics/errors.ppm"));
  const std::string header = "P6\n16 4\n255\n";
  ASSERT_EQ(errors.size(), header.size() + 16 * 4 * 3);
  EXPECT_EQ(errors.substr(0, header.size()), header);
  EXPECT_NE(errors.find("\xFF\xFF\xFF", header.size()), std::string::npos);

  // 16 + 8 black columns + 16, two bytes per value at maximum 4095.
  const std::string compare = readBytes(dir.file("pics/compare.ppm"));
  const std::string compareHeader = "P6\n40 4\n4095\n";
  ASSERT_EQ(compare.size(), compareHeader.size() + 40 * 4 * 6);
  EXPECT_EQ(compare.substr(0, compareHeader.size()), compareHeader);
  EXPECT_EQ(compare.substr(compareHeader.size() + 16 * 6, 8 * 6), std::string(8 * 6, '\0'));
}

TEST(RoundtripPictures, RawInputIsBayerOnlyWithCfa) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"), std::string(8 * 2 * 2, '\x01'));
  Outcome r = runFbc(dir, "roundtrip --width 8 --height 2 in.raw --out grey --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_FALSE(fs::exists(dir.file("grey/compare.ppm")));
  r = runFbc(dir, "roundtrip --width 8 --height 2 --cfa 0 in.raw --out bayer --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(fs::exists(dir.file("bayer/compare.ppm")));
}

// A real 12-bit photograph, when the distribution's test-data package provides one.
TEST(RoundtripPictures, RealPhotograph) {
  const std::string photo = "/usr/share/libjxl-testdata/jxl/flower/flower_small.rgb.depth12.ppm";
  if (!fs::is_regular_file(photo)) {
    GTEST_SKIP() << "libjxl-testdata is not installed (" << photo << " is missing)";
  }
  const TempDir dir;
  const Outcome r = runFbc(dir, "roundtrip '" + photo + "' --out pics --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.rfind(photo + ": 510x532, 271320 pixels in 34048 blocks of 1x8\n", 0), 0u)
      << r.out;
  EXPECT_EQ(readBytes(dir.file("pics/errors.ppm")).size(),
            15 + 510u * 532 * 3);  // "P6\n510 532\n255\n"
  EXPECT_EQ(readBytes(dir.file("pics/compare.ppm")).size(),
            17 + 1028u * 532 * 6);  // "P6\n1028 532\n4095\n"
}

}  // namespace
