// Picture and data writers: the model's PPM writers, frame stores and dumps, the packed hex
// dumper, and the tool's pictures.
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "image/DataDumper.h"
#include "image/Frame.h"
#include "image/PPM.h"
#include "image/ParsePPM.h"
#include "image/Picture.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;

Frame frameOf(int width, int height, std::initializer_list<PIXEL> values,
              Frame::CS_TYPE cs = Frame::CS_RAW, int depth = 16) {
  Frame f(width, height, cs, depth);
  std::copy(values.begin(), values.end(), f.data);
  return f;
}

class Writers : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return dir_.file(name); }
  fbc::test::TempDir dir_;
};

TEST_F(Writers, PlainArrays) {
  CPPM2 ppm;  // limits from above only
  ppm.newppm(file("a.ppm").c_str(), 1, 1, 256);
  ppm.appendpixel(300, -1, 7);
  ppm.closeppm();
  EXPECT_EQ(readBytes(file("a.ppm")), "P6\n1 1\n255\n\xFF\xFF\x07");

  const int values[6] = {1, 2, 3, 2000, 0, 0};
  StorePPM16B(file("b.ppm").c_str(), values, 2, 1);
  // (1,2,3) -> 3<<6, 1<<6, 2<<6; 2000<<6 = 128000 limited to 65535
  EXPECT_EQ(readBytes(file("b.ppm")), "P3\n2 1\n65535\n192 64 128 \n0 65535 0 \n");

  const unsigned char rgb[6] = {1, 2, 3, 250, 251, 252};
  StorePPM(file("c.ppm").c_str(), rgb, 2, 1);
  EXPECT_EQ(readBytes(file("c.ppm")), "P6\n2 1\n255\n\x01\x02\x03\xFA\xFB\xFC");
  const unsigned field[3] = {4, 5, 6};
  StorePPMField(file("f").c_str(), field, 1, 1);  // adds the extension
  EXPECT_EQ(readBytes(file("f.ppm")), "P6\n1 1\n255\n\x04\x05\x06");

  // Four rows of one pixel: the first field's rows, the second's, or both interlaced.
  const unsigned first[6] = {1, 2, 3, 4, 5, 6}, second[6] = {7, 8, 9, 10, 11, 12};
  const std::pair<int, const char*> interlaced[] = {
      {1, "\x01\x02\x03\0\0\0\x04\x05\x06\0\0\0"},
      {-1, "\0\0\0\x07\x08\x09\0\0\0\x0A\x0B\x0C"},
      {0, "\x01\x02\x03\x07\x08\x09\x04\x05\x06\x0A\x0B\x0C"}};
  for (const auto& [mode, rows] : interlaced) {
    StorePPMFrame(file("i").c_str(), first, second, 1, 4, mode);
    EXPECT_EQ(readBytes(file("i.ppm")), "P6\n1 4\n255\n" + std::string(rows, 12)) << mode;
  }
}

// Each writer's own line when its file cannot be opened.
TEST(WritersOpenFailure, IsReported) {
  CPPM2 ppm;
  ::testing::internal::CaptureStdout();
  ppm.newppm("/nonexistent/dir/a.ppm", 1, 1, 256);
  Frame(1, 1, Frame::CS_RAW).dumpFrame("/nonexistent/dir", "x", 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "ppm file open error!\nFailed to open file /nonexistent/dir/x.bin\n");
  Frame f(1, 1, Frame::CS_RGB);
  ::testing::internal::CaptureStderr();
  f.store("/nonexistent/dir/s.ppm");
  f.dumpFramePat("/nonexistent/dir/p.txt");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Error : StorePPM Failed\nERROR : cannot open file /nonexistent/dir/p.txt\n");
}

TEST_F(Writers, FrameStoresGreyBytes) {
  const struct {
    Frame::CS_TYPE cs;
    int depth;
    PIXEL value;
    int writer;         // 0 storePPM, 1 storePPM_8b, 2 storePPM_12b
    std::string pixel;  // bytes after the header
  } cases[] = {{Frame::CS_RGB, 10, 1023, 0, "\xFF\xFF\xFF"},
               {Frame::CS_RGB, 8, 200, 0, "\xC8\xC8\xC8"},
               {Frame::CS_RGB, 6, 3, 0, "\x0C\x0C\x0C"},  // 3 << 2
               {Frame::CS_RAW, 12, 100, 0, ""},
               {Frame::CS_YUV422, 12, 100, 0, ""},
               {Frame::CS_YUV, 8, 0x1AB, 0, "\xAB\xAB\xAB"},
               {Frame::CS_YUV, 6, 3, 0, "\xC0\xC0\xC0"},      // three shifts by 2
               {Frame::CS_YUV, 10, 1000, 0, "\x0F\x0F\x0F"},  // 250, (251)>>2, (63)>>2
               {Frame::CS_YUV, 10, 1023, 0, "\x10\x10\x10"},  // 255, (256)>>2, (65)>>2
               {Frame::CS_RAW, 12, 0x1FF, 1, "\xFF\xFF\xFF"},
               {Frame::CS_RGB, 12, 4100, 2, std::string(3, '\0')},  // 256, low byte
               {Frame::CS_RAW, 12, 5000, 2, "\xFF\xFF\xFF"},        // limited to 4095
               {Frame::CS_RAW, 12, -5, 2, std::string(3, '\0')}};
  const std::string name = file("s.ppm");
  for (const auto& c : cases) {
    const Frame f = frameOf(1, 1, {c.value}, c.cs, c.depth);
    ::testing::internal::CaptureStdout();
    if (c.writer == 0) f.storePPM(name);
    if (c.writer == 1) f.storePPM_8b(name);
    if (c.writer == 2) f.storePPM_12b(name);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "store PPM : " + name + "\n");
    EXPECT_EQ(readBytes(name), "P6\n1 1\n255\n" + c.pixel) << c.cs << " " << c.value;
  }
  ::testing::internal::CaptureStdout();
  frameOf(2, 1, {0x1234, 0x56}, Frame::CS_YUV).storePPMYUV(file("y.yuv"));  // no header
  frameOf(1, 1, {0}, Frame::CS_RGB, 8).storeAllTypePPM(file("all"), 0);     // all three
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(readBytes(file("y.yuv")), "\x34\x34\x34\x56\x56\x56");
  for (const char* suffix : {".ppm", "_8b.ppm", "_12b.ppm"}) {
    EXPECT_TRUE(std::filesystem::exists(file("all") + suffix)) << suffix;
  }
}

TEST_F(Writers, FrameDumps) {
  frameOf(2, 2, {0x3FF, 5, 0x10, 0xABC}, Frame::CS_YUV).dumpFramePat(file("p.txt"));
  EXPECT_EQ(readBytes(file("p.txt")),
            "//format : x y Y U V\n"
            "0000 0000 3ff 3ff 3ff\n"
            "0001 0000 005 005 005\n"
            "0000 0001 010 010 010\n"
            "0001 0001 abc abc abc\n");

  // Little-endian words, once per component; only the low 16 bits of 0x10056 are written.
  const std::string a = std::string("\x34\x12", 2), b = std::string("\x56\x00", 2);
  const std::pair<Frame::CS_TYPE, std::string> dumps[] = {{Frame::CS_RAW, a + b},
                                                          {Frame::CS_RGB, a + a + a + b + b + b},
                                                          {Frame::CS_YUV, a + a + a + b + b + b},
                                                          {Frame::CS_YUV422, a + a + b + b}};
  for (const auto& [cs, bytes] : dumps) {
    frameOf(2, 1, {0x1234, 0x10056}, cs).dumpFrame(dir_.path(), "d", 1);
    EXPECT_EQ(readBytes(file("d.bin")), bytes) << cs;
  }
  frameOf(1, 1, {0}).dumpFrame(dir_.path(), "off", 2);  // only when enabled is 1
  EXPECT_FALSE(std::filesystem::exists(file("off.bin")));
}

TEST_F(Writers, NByteAlignedPacksWordsPerRow) {
  const struct {
    int width, height;
    std::vector<PIXEL> samples;
    int bits, nBytes;
    const char* text;
  } cases[] = {
      {3, 1, {0x3FF, 0x001, 0x000}, 10, 4, "000007ff\n"},  // 0x3FF | 0x001 << 10 | 0 << 20
      // Five samples per row, three per word: each row gives a full and a two-sample word.
      {5, 2, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, 10, 4, "00300801\n00001404\n00801c06\n00002809\n"},
      // Eight 12-bit samples fill 12 bytes exactly: 23 61 45 | 89 c7 ab | ef 2d 01 | 45 83 67
      {8,
       1,
       {0x123, 0x456, 0x789, 0xABC, 0xDEF, 0x012, 0x345, 0x678},
       12,
       12,
       "678345012defabc789456123\n"},
      {8, 1, {0, 1, 2, 3, 4, 5, 6, 7}, 8, 8, "0706050403020100\n"},
      {2, 1, {0x1F, 0x01}, 4, 1, "2f\n"},  // added, not ORed: 0x1F then 0x01 << 4 gives 0x2F
      {4, 0, {}, 8, 8, ""}};
  for (const auto& c : cases) {
    Frame f(c.width, c.height, Frame::CS_RAW);
    std::copy(c.samples.begin(), c.samples.end(), f.data);
    DataDumper::dumpNByteAlignedData(file("d.txt").c_str(), f, c.bits, c.nBytes);
    EXPECT_EQ(readBytes(file("d.txt")), c.text) << c.bits << " bits in " << c.nBytes;
  }
}

TEST(PackLine, StopsWhenNextSampleWouldNotFitAndSkipsRowsAtZeroBits) {
  const Frame f = frameOf(4, 1, {0xAB, 0xCD, 0xEF, 0x12});
  unsigned char buf[4] = {9, 9, 9, 9};
  int x = 1, y = 0;
  DataDumper::packLine(f, 0, 4, buf, x, y);
  EXPECT_EQ(std::vector<int>(buf, buf + 4), (std::vector<int>{0, 0, 0, 0}));
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 1));
  y = 0;
  DataDumper::packLine(f, 8, 2, buf, x, y);
  EXPECT_EQ(std::vector<int>(buf, buf + 2), (std::vector<int>{0xAB, 0xCD}));
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(2, 0));
  DataDumper::packLine(f, 8, 2, buf, x, y);
  EXPECT_EQ(buf[0], 0xEF);
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 1));

  const Frame two = frameOf(2, 2, {0x11, 0x22, 0x33, 0x44});  // halves from two rows
  x = y = 0;
  DataDumper::packLineTwoRow(two, 8, 4, buf, x, y);
  EXPECT_EQ(std::vector<int>(buf, buf + 4), (std::vector<int>{0x11, 0x22, 0x33, 0x44}));
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(0, 2));
}

TEST_F(Writers, PackedAndPlainDumps) {
  const Frame f = frameOf(4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
  DataDumper::dumpPackedDataTwoRow(file("t.txt").c_str(), f, 8, 4);
  EXPECT_EQ(readBytes(file("t.txt")), "06050201\n08070403\n");
  DataDumper::dumpPackedDataTileMode(file("t.txt").c_str(), f, 2, 2, 8, 2);  // raster of tiles
  EXPECT_EQ(readBytes(file("t.txt")), "0201\n0605\n0403\n0807\n");

  const int values[4] = {1023, 4095, 5, -1};  // masked and padded
  DataDumper::dumpPlainData(file("p.txt").c_str(), values, 4, 3, 10);
  EXPECT_EQ(readBytes(file("p.txt")), "3ff\n3ff\n005\n3ff\n");
  DataDumper::dumpPlainData(file("q.txt").c_str(), values + 3, 1, 3, 32);
  EXPECT_EQ(readBytes(file("q.txt")), "ffffffff\n");
  DataDumper::dumpPlainData(file("f.txt").c_str(), frameOf(2, 2, {1, 2, 0x1234, 4}), 4, 12);
  EXPECT_EQ(readBytes(file("f.txt")), "0001\n0002\n0234\n0004\n");
}

TEST_F(Writers, PicturesOfTheTool) {
  std::string error;
  ASSERT_TRUE(fbc::writePgm16(file("g.pgm"), frameOf(2, 1, {0x1234, 70000}), error)) << error;
  EXPECT_EQ(readBytes(file("g.pgm")), "P5\n2 1\n65535\n\x12\x34\xFF\xFF");
  ASSERT_TRUE(fbc::writePpm16(file("c.ppm"), {1, 1, {1, -5, 0xABCD}}, error)) << error;
  EXPECT_EQ(readBytes(file("c.ppm")), std::string("P6\n1 1\n65535\n\x00\x01\x00\x00\xAB\xCD", 19));
  // Nothing but the two pictures: no temporary file is left beside them.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 2);

  // The sample width follows the maximum.
  EXPECT_EQ(fbc::pgmBytes(frameOf(2, 1, {4095, -1}, Frame::CS_RAW, 12), 4095),
            std::string("P5\n2 1\n4095\n\x0F\xFF\x00\x00", 16));
  EXPECT_EQ(fbc::ppmBytes({1, 1, {300, 7, -2}}, 255),
            std::string("P6\n1 1\n255\n\xFF\x07\x00", 14));
  EXPECT_EQ(fbc::pictureExtension("dir.d/Photo.PPM"), ".ppm");
  EXPECT_EQ(fbc::pictureExtension("dir.d/photo"), "");

  // Eight bits for viewing.
  const Frame f = frameOf(3, 1, {4095, 16, -3}, Frame::CS_RAW, 12);
  ASSERT_TRUE(fbc::writePgm8(file("g8.pgm"), f, 12, error)) << error;
  EXPECT_EQ(readBytes(file("g8.pgm")), std::string("P5\n3 1\n255\n\xFF\x01\x00", 14));
  ASSERT_TRUE(fbc::writePpm8(file("c8.ppm"), fbc::greyImage(f), 12, error)) << error;
  EXPECT_EQ(readBytes(file("c8.ppm")),
            std::string("P6\n3 1\n255\n\xFF\xFF\xFF\x01\x01\x01\0\0\0", 20));
}

TEST_F(Writers, PictureFailureLeavesNothingBehind) {
  std::string error;
  EXPECT_FALSE(fbc::writePpm8(file("w.ppm"), {2, 2, {1, 2, 3}}, 8, error));
  EXPECT_EQ(error, file("w.ppm") + ": picture holds 3 values, expected 3 per pixel of 2x2");
  EXPECT_FALSE(std::filesystem::exists(file("w.ppm")));
  fbc::test::writeBytes(file("keep.pgm"), "old");
  const Frame f(1, 1, Frame::CS_RAW);
  EXPECT_FALSE(fbc::writePgm16(file("missing/x.pgm"), f, error));
  EXPECT_EQ(error.rfind(file("missing/x.pgm") + ": cannot create file (", 0), 0u) << error;
  ASSERT_TRUE(fbc::writePgm16(file("keep.pgm"), f, error)) << error;
  EXPECT_EQ(readBytes(file("keep.pgm")), std::string("P5\n1 1\n65535\n\0\0", 15));
}

// Level 765 * value / maximum, red first, then green, then blue: 1 of 2 is level 382.
TEST(HeatColour, RampsThroughRedAndYellowToWhite) {
  const struct {
    int value, maxValue;
    std::vector<int> rgb;
  } cases[] = {{0, 100, {0, 0, 0}}, {1, 2, {255, 127, 0}}, {500, 100, {255, 255, 255}}};
  for (const auto& c : cases) {
    int rgb[3];
    fbc::heatColour(c.value, c.maxValue, rgb);
    EXPECT_EQ(std::vector<int>(rgb, rgb + 3), c.rgb) << c.value;
  }
  const fbc::RgbImage out = fbc::sideBySide({1, 1, {1, 2, 3}}, {1, 2, {4, 5, 6, 7, 8, 9}}, 1);
  EXPECT_EQ(out.width, 3);  // padded with black
  EXPECT_EQ(out.height, 2);
  EXPECT_EQ(out.rgb, (std::vector<int>{1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0, 7, 8, 9}));
}

}  // namespace
