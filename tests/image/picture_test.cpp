#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "image/Picture.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;
using fbc::test::writeBytes;

struct MosaicCase {
  int cfa;
  PIXEL expected[4];  // (0,0), (1,0), (0,1), (1,1)
};

class LoadPpm : public ::testing::TestWithParam<MosaicCase> {};

// Pixels (1,2,3) (4,5,6) / (7,8,9) (10,11,12) at maximum 255, scaled by 16 to 12 bits.
TEST_P(LoadPpm, SamplesMosaicAt12Bits) {
  TempDir dir;
  writeBytes(dir.file("in.ppm"),
             std::string("P6\n2 2\n255\n") + std::string("\1\2\3\4\5\6\7\x08\x09\x0A\x0B\x0C", 12));
  fbc::PictureOptions options;
  options.cfa = GetParam().cfa;
  Frame f(Frame::CS_RGB);
  std::string error;
  ASSERT_TRUE(fbc::loadPicture(dir.file("in.ppm"), options, f, error)) << error;
  EXPECT_EQ(f.cs, Frame::CS_RAW);
  EXPECT_EQ(f.depth, 12);
  EXPECT_EQ(f.cfa, GetParam().cfa);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(f.data[i], GetParam().expected[i]) << i;
}

INSTANTIATE_TEST_SUITE_P(Picture, LoadPpm,
                         ::testing::Values(MosaicCase{0, {16, 80, 128, 192}},    // R G / G B
                                           MosaicCase{1, {32, 64, 144, 176}},    // G R / B G
                                           MosaicCase{2, {48, 80, 128, 160}},    // B G / G R
                                           MosaicCase{3, {32, 96, 112, 176}}));  // G B / R G

TEST(LoadPgm, ScalesGreyTo12Bits) {
  TempDir dir;
  writeBytes(dir.file("a.pgm"), std::string("P5\n2 1\n1023\n\x03\xFF\x00\x01", 16));
  writeBytes(dir.file("b.PGM"), "P2 1 1 15 15\n");
  Frame f(Frame::CS_RAW);
  std::string error;
  fbc::PictureOptions options;
  ASSERT_TRUE(fbc::loadPicture(dir.file("a.pgm"), options, f, error)) << error;
  EXPECT_EQ(f.data[0], 4092);  // 1023 * 4
  EXPECT_EQ(f.data[1], 4);
  ASSERT_TRUE(fbc::loadPicture(dir.file("b.PGM"), options, f, error)) << error;
  EXPECT_EQ(f.data[0], 3840);  // 15 * 4096 / 16
}

TEST(LoadRaw, PlainAndPackedModes) {
  TempDir dir;
  writeBytes(dir.file("in.raw"), std::string("\xFF\x0F\x01\x00", 4));
  fbc::PictureOptions options;
  options.width = 2;
  options.height = 1;
  options.cfa = 2;
  Frame f(Frame::CS_RAW);
  std::string error;
  ASSERT_TRUE(fbc::loadPicture(dir.file("in.raw"), options, f, error)) << error;
  EXPECT_EQ(f.data[0], 4095);
  EXPECT_EQ(f.data[1], 1);
  EXPECT_EQ(f.cfa, CFA_BGGR);

  writeBytes(dir.file("p.raw"), "\x01\xFC\xFF\x0F");
  options.rawMode = 4;
  ASSERT_TRUE(fbc::loadPicture(dir.file("p.raw"), options, f, error)) << error;
  EXPECT_EQ(f.data[0], 4);
  EXPECT_EQ(f.data[1], 4092);
}

struct LoadError {
  const char* name;
  std::string content;
  int width;
  int height;
  int rawMode;
  std::string message;  // after "<path>: "
};

class LoadFailure : public ::testing::TestWithParam<LoadError> {};

TEST_P(LoadFailure, ReportsOneLine) {
  const LoadError c = GetParam();
  TempDir dir;
  writeBytes(dir.file(c.name), c.content);
  fbc::PictureOptions options;
  options.width = c.width;
  options.height = c.height;
  options.rawMode = c.rawMode;
  Frame f(Frame::CS_RAW);
  std::string error;
  EXPECT_FALSE(fbc::loadPicture(dir.file(c.name), options, f, error));
  EXPECT_EQ(error, dir.file(c.name) + ": " + c.message);
}

INSTANTIATE_TEST_SUITE_P(
    Picture, LoadFailure,
    ::testing::Values(LoadError{"a.raw", std::string("\xFF\x0F\x00\x10", 4), 2, 1, fbc::kRawPlain16,
                                "sample 4096 at pixel (1, 0) is above 4095"},
                      LoadError{"b.raw", std::string(6, '\0'), 2, 1, fbc::kRawPlain16,
                                "size 6 bytes, expected 4 (2x1 samples of 2 bytes)"},
                      LoadError{"c.raw", std::string(4, '\0'), 0, 0, fbc::kRawPlain16,
                                "a raw picture needs a width and a height"},
                      LoadError{"d.raw", std::string(4, '\0'), 2, 1, 5,
                                "raw packing mode 5 is out of range (0..4)"},
                      LoadError{"e.pgm", "P3 1 1 255 1 2 3\n", 0, 0, 0,
                                "expected a grey picture (P2 or P5), found P3"},
                      LoadError{"f.bmp", "BM", 0, 0, 0,
                                "unknown picture type \".bmp\" (expected .ppm, .pgm or .raw)"},
                      LoadError{"g.ppm", "P5 1 1 255 \x01", 0, 0, 0,
                                "unknown magic \"P5\" (expected P3 or P6)"}));

TEST(LoadPicture, RejectsBadCfa) {
  fbc::PictureOptions options;
  options.cfa = 4;
  Frame f(Frame::CS_RAW);
  std::string error;
  EXPECT_FALSE(fbc::loadPicture("x.ppm", options, f, error));
  EXPECT_EQ(error, "x.ppm: CFA layout 4 is out of range (0..3)");
}

TEST(WritePicture, SixteenBitGreyAndColour) {
  TempDir dir;
  Frame f(2, 1, Frame::CS_RAW);
  f.data[0] = 0x1234;
  f.data[1] = 70000;
  std::string error;
  ASSERT_TRUE(fbc::writePgm16(dir.file("g.pgm"), f, error)) << error;
  EXPECT_EQ(readBytes(dir.file("g.pgm")), "P5\n2 1\n65535\n\x12\x34\xFF\xFF");

  fbc::RgbImage image{1, 1, {1, -5, 0xABCD}};
  ASSERT_TRUE(fbc::writePpm16(dir.file("c.ppm"), image, error)) << error;
  EXPECT_EQ(readBytes(dir.file("c.ppm")),
            std::string("P6\n1 1\n65535\n\x00\x01\x00\x00\xAB\xCD", 19));
  // Nothing but the two pictures: no temporary file is left beside them.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                          std::filesystem::directory_iterator()),
            2);
}

TEST(WritePicture, BytesPickTheSampleWidthFromTheMaximum) {
  Frame f(2, 1, Frame::CS_RAW, 12);
  f.data[0] = 4095;
  f.data[1] = -1;
  EXPECT_EQ(fbc::pgmBytes(f, 4095), std::string("P5\n2 1\n4095\n\x0F\xFF\x00\x00", 16));
  const fbc::RgbImage image{1, 1, {300, 7, -2}};
  EXPECT_EQ(fbc::ppmBytes(image, 255), std::string("P6\n1 1\n255\n\xFF\x07\x00", 14));
  EXPECT_EQ(fbc::pictureExtension("dir.d/Photo.PPM"), ".ppm");
  EXPECT_EQ(fbc::pictureExtension("dir.d/photo"), "");
}

TEST(WritePicture, EightBitForViewing) {
  TempDir dir;
  Frame f(3, 1, Frame::CS_RAW, 12);
  f.data[0] = 4095;
  f.data[1] = 16;
  f.data[2] = -3;
  std::string error;
  ASSERT_TRUE(fbc::writePgm8(dir.file("g.pgm"), f, 12, error)) << error;
  EXPECT_EQ(readBytes(dir.file("g.pgm")), std::string("P5\n3 1\n255\n\xFF\x01\x00", 14));

  ASSERT_TRUE(fbc::writePpm8(dir.file("c.ppm"), fbc::greyImage(f), 12, error)) << error;
  EXPECT_EQ(readBytes(dir.file("c.ppm")),
            std::string("P6\n3 1\n255\n\xFF\xFF\xFF\x01\x01\x01\0\0\0", 20));

  fbc::RgbImage wrong{2, 2, {1, 2, 3}};
  EXPECT_FALSE(fbc::writePpm8(dir.file("w.ppm"), wrong, 8, error));
  EXPECT_EQ(error, dir.file("w.ppm") + ": picture holds 3 values, expected 3 per pixel of 2x2");
  EXPECT_FALSE(std::filesystem::exists(dir.file("w.ppm")));
}

TEST(WritePicture, FailureLeavesNothingBehind) {
  TempDir dir;
  writeBytes(dir.file("keep.pgm"), "old");
  Frame f(1, 1, Frame::CS_RAW);
  std::string error;
  EXPECT_FALSE(fbc::writePgm16(dir.file("missing/x.pgm"), f, error));
  EXPECT_EQ(error.rfind(dir.file("missing/x.pgm") + ": cannot create file (", 0), 0u) << error;
  ASSERT_TRUE(fbc::writePgm16(dir.file("keep.pgm"), f, error)) << error;
  EXPECT_EQ(readBytes(dir.file("keep.pgm")), std::string("P5\n1 1\n65535\n\0\0", 15));
}

TEST(HeatColour, RampsThroughRedAndYellowToWhite) {
  int rgb[3];
  fbc::heatColour(0, 100, rgb);
  EXPECT_EQ(rgb[0], 0);
  EXPECT_EQ(rgb[1], 0);
  EXPECT_EQ(rgb[2], 0);
  fbc::heatColour(1, 2, rgb);  // level 765 / 2 = 382
  EXPECT_EQ(rgb[0], 255);
  EXPECT_EQ(rgb[1], 127);
  EXPECT_EQ(rgb[2], 0);
  fbc::heatColour(500, 100, rgb);
  EXPECT_EQ(rgb[0], 255);
  EXPECT_EQ(rgb[1], 255);
  EXPECT_EQ(rgb[2], 255);
}

TEST(SideBySide, PadsWithBlack) {
  const fbc::RgbImage left{1, 1, {1, 2, 3}};
  const fbc::RgbImage right{1, 2, {4, 5, 6, 7, 8, 9}};
  const fbc::RgbImage out = fbc::sideBySide(left, right, 1);
  EXPECT_EQ(out.width, 3);
  EXPECT_EQ(out.height, 2);
  EXPECT_EQ(out.rgb, (std::vector<int>{1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0, 7, 8, 9}));
}

}  // namespace
