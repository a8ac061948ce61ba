#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "image/DataDumper.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;

Frame frameOf(int width, int height, std::initializer_list<PIXEL> values) {
  Frame f(width, height, Frame::CS_RAW);
  std::copy(values.begin(), values.end(), f.data);
  return f;
}

struct PackCase {
  const char* name;
  int width;
  int height;
  std::vector<PIXEL> samples;
  int bits;
  int nBytes;
  const char* text;
};

class NByteAligned : public ::testing::TestWithParam<PackCase> {};

TEST_P(NByteAligned, PacksWordsPerRow) {
  const PackCase c = GetParam();
  Frame f(c.width, c.height, Frame::CS_RAW);
  std::copy(c.samples.begin(), c.samples.end(), f.data);
  TempDir dir;
  DataDumper::dumpNByteAlignedData(dir.file("d.txt").c_str(), f, c.bits, c.nBytes);
  EXPECT_EQ(readBytes(dir.file("d.txt")), c.text);
}

INSTANTIATE_TEST_SUITE_P(
    Dumper, NByteAligned,
    ::testing::Values(
        // 0x3FF | 0x001 << 10 | 0 << 20
        PackCase{"three10bit", 3, 1, {0x3FF, 0x001, 0x000}, 10, 4, "000007ff\n"},
        // Five samples per row, three per word: each row gives a full and a two-sample word.
        PackCase{"rowOfFive",
                 5,
                 2,
                 {1, 2, 3, 4, 5, 6, 7, 8, 9, 10},
                 10,
                 4,
                 "00300801\n00001404\n00801c06\n00002809\n"},
        // Eight 12-bit samples fill 12 bytes exactly: 23 61 45 | 89 c7 ab | ef 2d 01 | 45 83 67
        PackCase{"twelveBit",
                 8,
                 1,
                 {0x123, 0x456, 0x789, 0xABC, 0xDEF, 0x012, 0x345, 0x678},
                 12,
                 12,
                 "678345012defabc789456123\n"},
        PackCase{"bytes", 8, 1, {0, 1, 2, 3, 4, 5, 6, 7}, 8, 8, "0706050403020100\n"},
        // Bytes are added, not ORed: 0x1F then 0x01 << 4 gives 0x2F.
        PackCase{"additive", 2, 1, {0x1F, 0x01}, 4, 1, "2f\n"},
        PackCase{"noRows", 4, 0, {}, 8, 8, ""}),
    [](const ::testing::TestParamInfo<PackCase>& p) { return std::string(p.param.name); });

TEST(PackLine, ZeroBitsSkipsTheRow) {
  const Frame f = frameOf(3, 2, {1, 2, 3, 4, 5, 6});
  unsigned char buf[4] = {9, 9, 9, 9};
  int x = 1;
  int y = 0;
  DataDumper::packLine(f, 0, 4, buf, x, y);
  EXPECT_EQ(x, 0);
  EXPECT_EQ(y, 1);
  for (unsigned char b : buf) EXPECT_EQ(b, 0);
}

TEST(PackLine, StopsWhenNextSampleWouldNotFit) {
  const Frame f = frameOf(4, 1, {0xAB, 0xCD, 0xEF, 0x12});
  unsigned char buf[2];
  int x = 0;
  int y = 0;
  DataDumper::packLine(f, 8, 2, buf, x, y);
  EXPECT_EQ(buf[0], 0xAB);
  EXPECT_EQ(buf[1], 0xCD);
  EXPECT_EQ(x, 2);
  EXPECT_EQ(y, 0);
  DataDumper::packLine(f, 8, 2, buf, x, y);
  EXPECT_EQ(buf[0], 0xEF);
  EXPECT_EQ(x, 0);
  EXPECT_EQ(y, 1);
}

TEST(PackLineTwoRow, HalvesFromTwoRowsAndStepsTwoRows) {
  const Frame f = frameOf(2, 2, {0x11, 0x22, 0x33, 0x44});
  unsigned char buf[4];
  int x = 0;
  int y = 0;
  DataDumper::packLineTwoRow(f, 8, 4, buf, x, y);
  EXPECT_EQ(buf[0], 0x11);
  EXPECT_EQ(buf[1], 0x22);
  EXPECT_EQ(buf[2], 0x33);
  EXPECT_EQ(buf[3], 0x44);
  EXPECT_EQ(x, 0);
  EXPECT_EQ(y, 2);
}

TEST(DumpPackedDataTwoRow, WritesPairsOfRows) {
  const Frame f = frameOf(4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
  TempDir dir;
  DataDumper::dumpPackedDataTwoRow(dir.file("t.txt").c_str(), f, 8, 4);
  EXPECT_EQ(readBytes(dir.file("t.txt")), "06050201\n08070403\n");
}

TEST(DumpPackedDataTileMode, WalksTilesInRasterOrder) {
  const Frame f = frameOf(4, 2, {1, 2, 3, 4, 5, 6, 7, 8});
  TempDir dir;
  DataDumper::dumpPackedDataTileMode(dir.file("t.txt").c_str(), f, 2, 2, 8, 2);
  EXPECT_EQ(readBytes(dir.file("t.txt")), "0201\n0605\n0403\n0807\n");
}

TEST(DumpPlainData, MasksAndPads) {
  TempDir dir;
  const int values[4] = {1023, 4095, 5, -1};
  DataDumper::dumpPlainData(dir.file("p.txt").c_str(), values, 4, 3, 10);
  EXPECT_EQ(readBytes(dir.file("p.txt")), "3ff\n3ff\n005\n3ff\n");
  DataDumper::dumpPlainData(dir.file("q.txt").c_str(), values + 3, 1, 3, 32);
  EXPECT_EQ(readBytes(dir.file("q.txt")), "ffffffff\n");
}

TEST(DumpPlainData, FrameRowByRow) {
  TempDir dir;
  const Frame f = frameOf(2, 2, {1, 2, 0x1234, 4});
  DataDumper::dumpPlainData(dir.file("f.txt").c_str(), f, 4, 12);
  EXPECT_EQ(readBytes(dir.file("f.txt")), "0001\n0002\n0234\n0004\n");
}

}  // namespace
