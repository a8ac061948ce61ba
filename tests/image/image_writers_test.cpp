#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "image/Frame.h"
#include "image/PPM.h"
#include "image/ParsePPM.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;

TEST(CPPM2, AppendPixelLimitsFromAboveOnly) {
  TempDir dir;
  CPPM2 ppm;
  ppm.newppm(dir.file("a.ppm").c_str(), 1, 1, 256);
  ppm.appendpixel(300, -1, 7);
  ppm.closeppm();
  EXPECT_EQ(readBytes(dir.file("a.ppm")), "P6\n1 1\n255\n\xFF\xFF\x07");
}

// Each writer's own line when its file cannot be opened.
TEST(Writers, OpenFailureIsReported) {
  CPPM2 ppm;
  ::testing::internal::CaptureStdout();
  ppm.newppm("/nonexistent/dir/a.ppm", 1, 1, 256);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "ppm file open error!\n");
  Frame f(1, 1, Frame::CS_RGB);
  ::testing::internal::CaptureStderr();
  f.store("/nonexistent/dir/s.ppm");
  f.dumpFramePat("/nonexistent/dir/p.txt");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "Error : StorePPM Failed\nERROR : cannot open file /nonexistent/dir/p.txt\n");
}

TEST(StorePPM16B, RotatesChannelsAndScales) {
  TempDir dir;
  const int values[6] = {1, 2, 3, 2000, 0, 0};
  StorePPM16B(dir.file("b.ppm").c_str(), values, 2, 1);
  // (1,2,3) -> 3<<6, 1<<6, 2<<6; 2000<<6 = 128000 limited to 65535
  EXPECT_EQ(readBytes(dir.file("b.ppm")), "P3\n2 1\n65535\n192 64 128 \n0 65535 0 \n");
}

TEST(StorePPM, WritesBytesInOrderAndTheFieldWriterAddsTheExtension) {
  TempDir dir;
  const unsigned char rgb[6] = {1, 2, 3, 250, 251, 252};
  StorePPM(dir.file("c.ppm").c_str(), rgb, 2, 1);
  EXPECT_EQ(readBytes(dir.file("c.ppm")), "P6\n2 1\n255\n\x01\x02\x03\xFA\xFB\xFC");
  const unsigned values[3] = {4, 5, 6};
  StorePPMField(dir.file("f").c_str(), values, 1, 1);
  EXPECT_EQ(readBytes(dir.file("f.ppm")), "P6\n1 1\n255\n\x04\x05\x06");
}

struct InterlaceCase {
  int mode;
  const char* rows;  // four rows of one pixel
};

class StorePPMFrame_ : public ::testing::TestWithParam<InterlaceCase> {};

TEST_P(StorePPMFrame_, InterlacesFields) {
  TempDir dir;
  const unsigned first[6] = {1, 2, 3, 4, 5, 6};
  const unsigned second[6] = {7, 8, 9, 10, 11, 12};
  StorePPMFrame(dir.file("i").c_str(), first, second, 1, 4, GetParam().mode);
  EXPECT_EQ(readBytes(dir.file("i.ppm")),
            std::string("P6\n1 4\n255\n") + std::string(GetParam().rows, 12));
}

INSTANTIATE_TEST_SUITE_P(
    Writers, StorePPMFrame_,
    ::testing::Values(InterlaceCase{1, "\x01\x02\x03\0\0\0\x04\x05\x06\0\0\0"},
                      InterlaceCase{-1, "\0\0\0\x07\x08\x09\0\0\0\x0A\x0B\x0C"},
                      InterlaceCase{0, "\x01\x02\x03\x07\x08\x09\x04\x05\x06\x0A\x0B\x0C"}));

struct StoreCase {
  Frame::CS_TYPE cs;
  int depth;
  PIXEL value;
  int writer;         // 0 storePPM, 1 storePPM_8b, 2 storePPM_12b
  std::string pixel;  // bytes after the header
};

class FrameStore : public ::testing::TestWithParam<StoreCase> {};

TEST_P(FrameStore, WritesGreyBytes) {
  const StoreCase c = GetParam();
  TempDir dir;
  Frame f(1, 1, c.cs, c.depth);
  f.C(0, 0) = c.value;
  const std::string name = dir.file("s.ppm");
  ::testing::internal::CaptureStdout();
  if (c.writer == 0) f.storePPM(name);
  if (c.writer == 1) f.storePPM_8b(name);
  if (c.writer == 2) f.storePPM_12b(name);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "store PPM : " + name + "\n");
  EXPECT_EQ(readBytes(name), "P6\n1 1\n255\n" + c.pixel);
}

INSTANTIATE_TEST_SUITE_P(
    Writers, FrameStore,
    ::testing::Values(
        StoreCase{Frame::CS_RGB, 10, 1023, 0, "\xFF\xFF\xFF"},
        StoreCase{Frame::CS_RGB, 8, 200, 0, "\xC8\xC8\xC8"},
        StoreCase{Frame::CS_RGB, 6, 3, 0, "\x0C\x0C\x0C"},  // 3 << 2
        StoreCase{Frame::CS_RAW, 12, 100, 0, ""}, StoreCase{Frame::CS_YUV422, 12, 100, 0, ""},
        StoreCase{Frame::CS_YUV, 8, 0x1AB, 0, "\xAB\xAB\xAB"},
        StoreCase{Frame::CS_YUV, 6, 3, 0, "\xC0\xC0\xC0"},      // three shifts by 2
        StoreCase{Frame::CS_YUV, 10, 1000, 0, "\x0F\x0F\x0F"},  // 250, (251)>>2, (63)>>2
        StoreCase{Frame::CS_YUV, 10, 1023, 0, "\x10\x10\x10"},  // 255, (256)>>2, (65)>>2
        StoreCase{Frame::CS_RAW, 12, 0x1FF, 1, "\xFF\xFF\xFF"},
        StoreCase{Frame::CS_RGB, 12, 4100, 2, std::string("\0\0\0", 3)},  // 256, low byte
        StoreCase{Frame::CS_RAW, 12, 5000, 2, "\xFF\xFF\xFF"},            // limited to 4095
        StoreCase{Frame::CS_RAW, 12, -5, 2, std::string("\0\0\0", 3)}));

TEST(FrameStore, StorePPMYUVHasNoHeader) {
  TempDir dir;
  Frame f(2, 1, Frame::CS_YUV);
  f.data[0] = 0x1234;
  f.data[1] = 0x56;
  ::testing::internal::CaptureStdout();
  f.storePPMYUV(dir.file("y.yuv"));
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(readBytes(dir.file("y.yuv")), "\x34\x34\x34\x56\x56\x56");
}

TEST(FrameStore, AllTypesSelectedByMode) {
  TempDir dir;
  Frame f(1, 1, Frame::CS_RGB, 8);
  ::testing::internal::CaptureStdout();
  f.storeAllTypePPM(dir.file("all"), 0);
  ::testing::internal::GetCapturedStdout();
  EXPECT_TRUE(std::filesystem::exists(dir.file("all.ppm")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("all_8b.ppm")));
  EXPECT_TRUE(std::filesystem::exists(dir.file("all_12b.ppm")));
}

TEST(DumpFramePat, OneLinePerPixel) {
  TempDir dir;
  Frame f(2, 2, Frame::CS_YUV);
  f.data[0] = 0x3FF;
  f.data[1] = 5;
  f.data[2] = 0x10;
  f.data[3] = 0xABC;
  f.dumpFramePat(dir.file("p.txt"));
  EXPECT_EQ(readBytes(dir.file("p.txt")),
            "//format : x y Y U V\n"
            "0000 0000 3ff 3ff 3ff\n"
            "0001 0000 005 005 005\n"
            "0000 0001 010 010 010\n"
            "0001 0001 abc abc abc\n");
}

struct DumpCase {
  Frame::CS_TYPE cs;
  std::string bytes;
};

class DumpFrame : public ::testing::TestWithParam<DumpCase> {};

TEST_P(DumpFrame, WordsPerColourSpace) {
  TempDir dir;
  Frame f(2, 1, GetParam().cs);
  f.data[0] = 0x1234;
  f.data[1] = 0x10056;  // only the low 16 bits are written
  f.dumpFrame(dir.path(), "d", 1);
  EXPECT_EQ(readBytes(dir.file("d.bin")), GetParam().bytes);
}

INSTANTIATE_TEST_SUITE_P(
    Writers, DumpFrame,
    ::testing::Values(DumpCase{Frame::CS_RAW, std::string("\x34\x12\x56\x00", 4)},
                      DumpCase{Frame::CS_RGB,
                               std::string("\x34\x12\x34\x12\x34\x12\x56\x00\x56\x00\x56\x00", 12)},
                      DumpCase{Frame::CS_YUV,
                               std::string("\x34\x12\x34\x12\x34\x12\x56\x00\x56\x00\x56\x00", 12)},
                      DumpCase{Frame::CS_YUV422,
                               std::string("\x34\x12\x34\x12\x56\x00\x56\x00", 8)}));

TEST(DumpFrame, OnlyWhenEnabledIsOne) {
  TempDir dir;
  Frame f(1, 1, Frame::CS_RAW);
  f.dumpFrame(dir.path(), "off", 2);
  EXPECT_FALSE(std::filesystem::exists(dir.file("off.bin")));
  ::testing::internal::CaptureStdout();
  f.dumpFrame("/nonexistent/dir", "x", 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Failed to open file /nonexistent/dir/x.bin\n");
}

}  // namespace
