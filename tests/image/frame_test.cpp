#include <gtest/gtest.h>

#include <memory>

#include "image/Frame.h"

namespace {

// 3x2 frame holding 10*y + x + 1.
Frame makeRamp() {
  Frame f(3, 2, Frame::CS_RAW, 12);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) f.GetPixel(x, y) = 10 * y + x + 1;
  }
  return f;
}

TEST(Frame, ConstructorsSetAttributes) {
  const Frame empty(Frame::CS_YUV, CFA_BGGR, 10, RGBIR_LAYOUT3);
  EXPECT_EQ(empty.width, 0);
  EXPECT_EQ(empty.height, 0);
  EXPECT_EQ(empty.data, nullptr);
  EXPECT_EQ(empty.refCount, nullptr);
  EXPECT_EQ(empty.cs, Frame::CS_YUV);
  EXPECT_EQ(empty.depth, 10);
  EXPECT_EQ(empty.cfa, CFA_BGGR);
  EXPECT_EQ(empty.rgbir, RGBIR_LAYOUT3);

  const Frame sized(4, 2, Frame::CS_RAW);
  EXPECT_EQ(sized.depth, 16);
  EXPECT_EQ(sized.cfa, CFA_RGGB);
  EXPECT_EQ(sized.rgbir, 8);
  ASSERT_NE(sized.refCount, nullptr);
  EXPECT_EQ(*sized.refCount, 1);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(sized.data[i], 0);
}

TEST(Frame, AccessorsClampToEdges) {
  const Frame f = makeRamp();
  EXPECT_EQ(f.GetPixel(-5, -5), 1);
  EXPECT_EQ(f.GetPixel(3 + 3, 2 + 3), 13);
  EXPECT_EQ(f.GetPixel(-1, 1), 11);
  EXPECT_EQ(f.GetPixel(7, 0), 3);
}

TEST(Frame, OffsetsAreAddedBeforeClamping) {
  Frame f = makeRamp();
  f.offsetX = 1;
  f.offsetY = 1;
  EXPECT_EQ(f.GetPixel(0, 0), 12);
  EXPECT_EQ(f.GetPixel(5, -9), 3);  // (6, -8) clamps to (2, 0)
}

TEST(Frame, AllChannelNamesShareOneSample) {
  Frame f(2, 2, Frame::CS_RGB);
  f.R(1, 1) = 7;
  EXPECT_EQ(f.G(1, 1), 7);
  EXPECT_EQ(f.B(1, 1), 7);
  EXPECT_EQ(f.Y(1, 1), 7);
  EXPECT_EQ(f.C(1, 1), 7);
  EXPECT_EQ(f.U(1, 1), 7);
  EXPECT_EQ(f.V(1, 1), 7);
  EXPECT_EQ(f.Cb(1, 1), 7);
  EXPECT_EQ(f.Cr(1, 1), 7);
  EXPECT_EQ(f.GetPixel(0, 0), 0);
}

struct DepthCase {
  int from;
  int to;
  PIXEL before;
  PIXEL after;
};

class ConvertDepth : public ::testing::TestWithParam<DepthCase> {};

TEST_P(ConvertDepth, ShiftsFourTimes) {
  const DepthCase c = GetParam();
  Frame f(1, 1, Frame::CS_RAW, c.from);
  f.C(0, 0) = c.before;
  f.convertDepth(c.to);
  EXPECT_EQ(f.C(0, 0), c.after);
  EXPECT_EQ(f.depth, c.to);
}

INSTANTIATE_TEST_SUITE_P(
    Frame, ConvertDepth,
    ::testing::Values(DepthCase{10, 12, 3, 768},      // 3 << (4 * 2)
                      DepthCase{10, 8, 768, 3},       // 768 >> (4 * 2)
                      DepthCase{12, 10, -4096, -16},  // arithmetic: -4096 >> 8
                      DepthCase{8, 16, 1, 0},         // 1 << 32 leaves nothing
                      DepthCase{0, 40, 5, 0},         // one step of 40 empties the sample
                      DepthCase{40, 0, -5, -1},       // and keeps only the sign fill
                      DepthCase{12, 12, 4095, 4095}));

TEST(Frame, ConvertDepthOfEmptyFrameOnlySetsDepth) {
  Frame f(Frame::CS_RAW, CFA_RGGB, 10, RGBIR_NONE);
  f.convertDepth(12);
  EXPECT_EQ(f.depth, 12);
}

TEST(Frame, CropRepeatsEdgesAndResetsAttributes) {
  Frame f(3, 3, Frame::CS_RAW, 12, CFA_GBRG, RGBIR_LAYOUT2);
  for (int i = 0; i < 9; ++i) f.data[i] = i + 1;  // row r, column c holds 3r + c + 1
  const Frame c = f.crop(-1, 1, 3, 3);
  EXPECT_EQ(c.width, 3);
  EXPECT_EQ(c.height, 3);
  EXPECT_EQ(c.cs, Frame::CS_RAW);
  EXPECT_EQ(c.depth, 16);
  EXPECT_EQ(c.cfa, CFA_RGGB);
  EXPECT_EQ(c.rgbir, RGBIR_NONE);
  // Columns -1, 0, 1 read 0, 0, 1; rows 1, 2, 3 read 1, 2, 2.
  const PIXEL expected[9] = {4, 4, 5, 7, 7, 8, 7, 7, 8};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(c.data[i], expected[i]) << i;

  const Frame empty = f.crop(0, 0, 0, 5);  // the size as asked, without samples
  EXPECT_EQ(empty.width, 0);
  EXPECT_EQ(empty.height, 5);
  EXPECT_EQ(empty.size(), 0u);
}

// With offsetX 1 on a 3x1 row, pixels 0, 1, 2 reach samples 1, 2, 2 (clamped): sample 0 is never
// shifted, sample 1 four times (1 << 8), sample 2 eight times (1 << 16).
TEST(Frame, ConvertDepthShiftsThroughTheOffsetAccessors) {
  Frame f(3, 1, Frame::CS_RAW, 10);
  for (int i = 0; i < 3; ++i) f.data[i] = 1;
  f.offsetX = 1;
  f.convertDepth(12);
  EXPECT_EQ(f.data[0], 1);
  EXPECT_EQ(f.data[1], 256);
  EXPECT_EQ(f.data[2], 65536);
}

TEST(Frame, CopiesAreDeep) {
  const Frame f = makeRamp();
  Frame copy(f);
  copy.GetPixel(0, 0) = 99;
  EXPECT_EQ(f.GetPixel(0, 0), 1);
  EXPECT_NE(copy.data, f.data);

  Frame cloned = f.clone();
  EXPECT_EQ(cloned.GetPixel(2, 1), 13);
  EXPECT_EQ(cloned.depth, 12);
  EXPECT_NE(cloned.data, f.data);
}

TEST(Frame, AssignmentKeepsTargetOffsets) {
  const Frame f = makeRamp();
  Frame target(Frame::CS_YUV, CFA_BGGR, 8, RGBIR_LAYOUT1);
  target.offsetX = 1;
  target = f;
  EXPECT_EQ(target.offsetX, 1);
  EXPECT_EQ(target.cs, Frame::CS_RAW);
  EXPECT_EQ(target.depth, 12);
  EXPECT_EQ(target.cfa, CFA_RGGB);
  EXPECT_EQ(target.rgbir, RGBIR_NONE);
  EXPECT_EQ(target.data[5], 13);
}

TEST(Frame, MoveLeavesSourceEmpty) {
  Frame f = makeRamp();
  PIXEL* buffer = f.data;
  Frame moved(std::move(f));
  EXPECT_EQ(moved.data, buffer);
  EXPECT_EQ(f.data, nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(f.width, 0);
}

TEST(Frame, CloneFrameOfFrameWithoutBufferIsZeroFilled) {
  Frame f(Frame::CS_YUV, CFA_BGGR, 10, RGBIR_LAYOUT3);
  f.width = 2;  // a recorded size without a buffer
  f.height = 3;
  std::unique_ptr<Frame> c(f.cloneFrame());
  ASSERT_NE(c->data, nullptr);
  EXPECT_EQ(c->width, 2);
  EXPECT_EQ(c->height, 3);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(c->data[i], 0);
  EXPECT_EQ(c->cs, Frame::CS_YUV);
  EXPECT_EQ(c->depth, 10);
  EXPECT_EQ(c->cfa, CFA_BGGR);
  EXPECT_EQ(c->rgbir, RGBIR_LAYOUT3);
}

TEST(Frame, ReleaseForgetsSizeButNotDataPointer) {
  Frame f = makeRamp();
  f.offsetX = 2;
  f.release();
  EXPECT_EQ(f.width, 0);
  EXPECT_EQ(f.height, 0);
  EXPECT_EQ(f.refCount, nullptr);
  f.create(2, 1);
  EXPECT_EQ(f.offsetX, 2);
  EXPECT_EQ(f.data[0], 0);
  EXPECT_EQ(f.data[1], 0);
}

TEST(Frame, CreateRejectsImpossibleSizes) {
  Frame f(Frame::CS_RAW);
  EXPECT_THROW(f.create(-1, 4), std::bad_array_new_length);
}

TEST(Frame, ToMatLimitsFromAboveOnly) {
  Frame f(4, 1, Frame::CS_RAW);
  f.data[0] = 40000;
  f.data[1] = -2;
  f.data[2] = 32767;
  f.data[3] = -70000;  // low 16 bits 0xEE90 = -4464 as a short
  for (int channel = 0; channel < 4; ++channel) {
    Mat<short> m;
    f.toMat(m, channel);
    ASSERT_EQ(m.width, 4);
    EXPECT_EQ(m.data[0], 32767);
    EXPECT_EQ(m.data[1], -2);
    EXPECT_EQ(m.data[2], 32767);
    EXPECT_EQ(m.data[3], -4464);
  }
}

TEST(Frame, SplitChannelTakesLow16Bits) {
  Frame f(2, 1, Frame::CS_RGB);
  f.data[0] = 70000;  // 70000 - 65536
  f.data[1] = 5;
  Mat<short> a;
  Mat<short> c;
  splitChannel(&a, nullptr, &c, f);
  ASSERT_EQ(a.width, 2);
  EXPECT_EQ(a.data[0], 4464);
  EXPECT_EQ(a.data[1], 5);
  EXPECT_EQ(c.data[0], 4464);
}

struct CfaCase {
  int cfa;
  int codes[4];  // (0,0), (1,0), (0,1), (1,1)
};

class ReadCfaColor : public ::testing::TestWithParam<CfaCase> {};

TEST_P(ReadCfaColor, SiteCodesOfEachLayout) {
  const CfaCase c = GetParam();
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) {
      EXPECT_EQ(readCFAColor(c.cfa, x, y), c.codes[(y & 1) * 2 + (x & 1)]) << x << "," << y;
    }
  }
}

// 0 R, 1 Gr, 2 Gb, 3 B.
INSTANTIATE_TEST_SUITE_P(Frame, ReadCfaColor,
                         ::testing::Values(CfaCase{CFA_RGGB, {0, 1, 2, 3}},
                                           CfaCase{CFA_GRBG, {1, 0, 3, 2}},
                                           CfaCase{CFA_BGGR, {3, 2, 1, 0}},
                                           CfaCase{CFA_GBRG, {2, 3, 0, 1}},
                                           CfaCase{7, {2, 3, 0, 1}}));

}  // namespace
