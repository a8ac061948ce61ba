// Frame and Mat: construction, clamped access, depth conversion, copies; and the colour
// conversions and demosaicing over frames.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "image/Frame.h"

namespace {

using Pixels = std::vector<PIXEL>;

Pixels pixels(const Frame& f) {
  return Pixels(f.data, f.data + f.size());
}

// 3x2 frame holding 10*y + x + 1.
Frame makeRamp() {
  Frame f(3, 2, Frame::CS_RAW, 12);
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 3; ++x) f.GetPixel(x, y) = 10 * y + x + 1;
  }
  return f;
}

// 4x4 ramp c(x, y) = x + 10y.
Frame makeBayerRamp() {
  Frame f(4, 4, Frame::CS_RAW, 12);
  for (int i = 0; i < 16; ++i) f.data[i] = i % 4 + 10 * (i / 4);
  return f;
}

void expectAttributes(const Frame& f, Frame::CS_TYPE cs, int depth, int cfa, int rgbir) {
  EXPECT_EQ(f.cs, cs);
  EXPECT_EQ(f.depth, depth);
  EXPECT_EQ(f.cfa, cfa);
  EXPECT_EQ(f.rgbir, rgbir);
}

TEST(Frame, ConstructorsSetAttributes) {
  const Frame empty(Frame::CS_YUV, CFA_BGGR, 10, RGBIR_LAYOUT3);
  EXPECT_EQ(empty.width, 0);
  EXPECT_EQ(empty.height, 0);
  EXPECT_EQ(empty.data, nullptr);
  EXPECT_EQ(empty.refCount, nullptr);
  expectAttributes(empty, Frame::CS_YUV, 10, CFA_BGGR, RGBIR_LAYOUT3);

  const Frame sized(4, 2, Frame::CS_RAW);
  expectAttributes(sized, Frame::CS_RAW, 16, CFA_RGGB, 8);
  ASSERT_NE(sized.refCount, nullptr);
  EXPECT_EQ(*sized.refCount, 1);
  EXPECT_EQ(pixels(sized), Pixels(8, 0));
}

TEST(Frame, AccessorsClampToEdgesAfterAddingOffsets) {
  Frame f = makeRamp();
  EXPECT_EQ(f.GetPixel(-5, -5), 1);
  EXPECT_EQ(f.GetPixel(3 + 3, 2 + 3), 13);
  EXPECT_EQ(f.GetPixel(-1, 1), 11);
  EXPECT_EQ(f.GetPixel(7, 0), 3);
  f.offsetX = 1;
  f.offsetY = 1;
  EXPECT_EQ(f.GetPixel(0, 0), 12);
  EXPECT_EQ(f.GetPixel(5, -9), 3);  // (6, -8) clamps to (2, 0)

  Frame g(2, 2, Frame::CS_RGB);  // every channel name reaches the one sample
  g.R(1, 1) = 7;
  EXPECT_EQ((Pixels{g.G(1, 1), g.B(1, 1), g.Y(1, 1), g.C(1, 1), g.U(1, 1), g.V(1, 1), g.Cb(1, 1),
                    g.Cr(1, 1), g.GetPixel(0, 0)}),
            (Pixels{7, 7, 7, 7, 7, 7, 7, 7, 0}));
}

TEST(Frame, ConvertDepthShiftsFourTimes) {
  const struct {
    int from, to;
    PIXEL before, after;
  } cases[] = {{10, 12, 3, 768},      // 3 << (4 * 2)
               {10, 8, 768, 3},       // 768 >> (4 * 2)
               {12, 10, -4096, -16},  // arithmetic: -4096 >> 8
               {8, 16, 1, 0},         // 1 << 32 leaves nothing
               {0, 40, 5, 0},         // one step of 40 empties the sample
               {40, 0, -5, -1},       // and keeps only the sign fill
               {12, 12, 4095, 4095}};
  for (const auto& c : cases) {
    Frame f(1, 1, Frame::CS_RAW, c.from);
    f.C(0, 0) = c.before;
    f.convertDepth(c.to);
    EXPECT_EQ(f.C(0, 0), c.after) << c.from << " to " << c.to;
    EXPECT_EQ(f.depth, c.to);
  }
  Frame empty(Frame::CS_RAW, CFA_RGGB, 10, RGBIR_NONE);  // only the depth changes
  empty.convertDepth(12);
  EXPECT_EQ(empty.depth, 12);

  // With offsetX 1 on a 3x1 row, pixels 0, 1, 2 reach samples 1, 2, 2 (clamped): sample 0 is
  // never shifted, sample 1 four times (1 << 8), sample 2 eight times (1 << 16).
  Frame row(3, 1, Frame::CS_RAW, 10);
  for (int i = 0; i < 3; ++i) row.data[i] = 1;
  row.offsetX = 1;
  row.convertDepth(12);
  EXPECT_EQ(pixels(row), (Pixels{1, 256, 65536}));
}

TEST(Frame, CropRepeatsEdgesAndResetsAttributes) {
  Frame f(3, 3, Frame::CS_RAW, 12, CFA_GBRG, RGBIR_LAYOUT2);
  for (int i = 0; i < 9; ++i) f.data[i] = i + 1;  // row r, column c holds 3r + c + 1
  const Frame c = f.crop(-1, 1, 3, 3);
  EXPECT_EQ(c.width, 3);
  EXPECT_EQ(c.height, 3);
  expectAttributes(c, Frame::CS_RAW, 16, CFA_RGGB, RGBIR_NONE);
  // Columns -1, 0, 1 read 0, 0, 1; rows 1, 2, 3 read 1, 2, 2.
  EXPECT_EQ(pixels(c), (Pixels{4, 4, 5, 7, 7, 8, 7, 7, 8}));

  const Frame empty = f.crop(0, 0, 0, 5);  // the size as asked, without samples
  EXPECT_EQ(empty.width, 0);
  EXPECT_EQ(empty.height, 5);
  EXPECT_EQ(empty.size(), 0u);
}

TEST(Frame, CopiesAreDeepAndAssignmentKeepsTargetOffsets) {
  const Frame f = makeRamp();
  Frame copy(f);
  copy.GetPixel(0, 0) = 99;
  EXPECT_EQ(f.GetPixel(0, 0), 1);
  EXPECT_NE(copy.data, f.data);
  Frame cloned = f.clone();
  EXPECT_EQ(cloned.GetPixel(2, 1), 13);
  EXPECT_EQ(cloned.depth, 12);
  EXPECT_NE(cloned.data, f.data);

  Frame target(Frame::CS_YUV, CFA_BGGR, 8, RGBIR_LAYOUT1);
  target.offsetX = 1;
  target = f;
  EXPECT_EQ(target.offsetX, 1);
  expectAttributes(target, Frame::CS_RAW, 12, CFA_RGGB, RGBIR_NONE);
  EXPECT_EQ(target.data[5], 13);

  PIXEL* buffer = copy.data;
  Frame moved(std::move(copy));
  EXPECT_EQ(moved.data, buffer);
  EXPECT_EQ(copy.data, nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(copy.width, 0);
}

TEST(Frame, CloneFrameOfFrameWithoutBufferIsZeroFilled) {
  Frame f(Frame::CS_YUV, CFA_BGGR, 10, RGBIR_LAYOUT3);
  f.width = 2;  // a recorded size without a buffer
  f.height = 3;
  std::unique_ptr<Frame> c(f.cloneFrame());
  ASSERT_NE(c->data, nullptr);
  EXPECT_EQ(c->width, 2);
  EXPECT_EQ(c->height, 3);
  EXPECT_EQ(pixels(*c), Pixels(6, 0));
  expectAttributes(*c, Frame::CS_YUV, 10, CFA_BGGR, RGBIR_LAYOUT3);
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
  EXPECT_EQ(pixels(f), Pixels(2, 0));
  EXPECT_THROW(f.create(-1, 4), std::bad_array_new_length);
}

TEST(Frame, ToMatLimitsFromAboveOnlyAndSplitChannelTakesLow16Bits) {
  Frame f(4, 1, Frame::CS_RAW);
  f.data[0] = 40000;
  f.data[1] = -2;
  f.data[2] = 32767;
  f.data[3] = -70000;  // low 16 bits 0xEE90 = -4464 as a short
  for (int channel = 0; channel < 4; ++channel) {
    Mat<short> m;
    f.toMat(m, channel);
    ASSERT_EQ(m.width, 4);
    EXPECT_EQ(std::vector<short>(m.data, m.data + 4),
              (std::vector<short>{32767, -2, 32767, -4464}));
  }
  f.data[0] = 70000;  // 70000 - 65536
  Mat<short> a;
  Mat<short> c;
  splitChannel(&a, nullptr, &c, f);
  ASSERT_EQ(a.width, 4);
  EXPECT_EQ(std::vector<short>(a.data, a.data + 2), (std::vector<short>{4464, -2}));
  EXPECT_EQ(c.data[0], 4464);
}

// 0 R, 1 Gr, 2 Gb, 3 B at (0,0), (1,0), (0,1), (1,1); layouts beyond 3 as 3.
TEST(Frame, ReadCfaColorGivesSiteCodesOfEachLayout) {
  const int codes[5][4] = {{0, 1, 2, 3}, {1, 0, 3, 2}, {3, 2, 1, 0}, {2, 3, 0, 1}, {2, 3, 0, 1}};
  const int layouts[5] = {CFA_RGGB, CFA_GRBG, CFA_BGGR, CFA_GBRG, 7};
  for (int i = 0; i < 5; ++i) {
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 4; ++x) {
        EXPECT_EQ(readCFAColor(layouts[i], x, y), codes[i][(y & 1) * 2 + (x & 1)])
            << layouts[i] << ": " << x << "," << y;
      }
    }
  }
}

TEST(Colour, MirroredPosReflectsOnce) {
  EXPECT_EQ(mirroredPos(-1, 9), 1);
  EXPECT_EQ(mirroredPos(10, 9), 8);
  EXPECT_EQ(mirroredPos(9, 9), 9);
  EXPECT_EQ(mirroredPos(3, 9), 3);
  EXPECT_EQ(mirroredPos(-5, 2), 5);  // still outside; the accessors clamp it
}

TEST(Colour, ToYUV422AveragesPairsWithFloorOfYuvOnly) {
  Frame rgb(2, 1, Frame::CS_RGB);
  rgb.data[0] = 1;
  rgb.data[1] = 2;
  ::testing::internal::CaptureStdout();
  rgb.toYUV422();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[Err] not CS_YUV type ! \n");
  EXPECT_EQ(pixels(rgb), (Pixels{1, 2}));

  Frame f(3, 2, Frame::CS_YUV);
  const PIXEL in[6] = {1, 2, 5, -3, 0, 9};
  std::copy(in, in + 6, f.data);
  f.toYUV422();
  // (1+2)>>1 = 1; 5 pairs with itself; (-3+0)>>1 = -2.
  EXPECT_EQ(pixels(f), (Pixels{1, 1, 5, -2, -2, 9}));

  f.RGB2YUV();  // no-ops
  f.YUV2RGB();
  EXPECT_EQ(pixels(f), (Pixels{1, 1, 5, -2, -2, 9}));
  EXPECT_EQ(f.cs, Frame::CS_YUV);
}

// On the ramp c(x, y) = x + 10y, Bayer2RGB stores the blue estimate.
TEST(Colour, Bayer2RGBKeepsBlueEstimate) {
  const struct {
    int cfa, x, y;
    PIXEL blue;
  } cases[] = {{0, 0, 0, 11},   // R site, diagonal all mirror to c(1,1) = 11
               {0, 1, 1, 11},   // B site keeps its own sample
               {0, 1, 0, 12},   // Gr: vertical (2*(11 + 22 + 13) + 4) >> 3
               {0, 0, 1, 16},   // Gb: horizontal (2*(11 + 22 + 31) + 4) >> 3
               {0, 3, 3, 33},   // B site
               {0, 2, 2, 22},   // R site: (11 + 13 + 31 + 33 + 2) >> 2
               {2, 0, 0, 0},    // BGGR: B site
               {2, 1, 1, 11},   // R site: (0 + 2 + 20 + 22 + 2) >> 2
               {2, 1, 0, 11},   // Gb: horizontal (20 + 0 + 20 + 22 + 4 + 22 + 4) >> 3
               {2, 0, 1, 11},   // Gr: vertical (2 + 0 + 2 + 22 + 40 + 22 + 4) >> 3
               {1, 0, 0, 11},   // GRBG Gr: vertical (2*(12 + 20 + 12) + 4) >> 3
               {3, 0, 0, 11}};  // GBRG Gb: horizontal (2*(21 + 2 + 21) + 4) >> 3
  Frame src = makeBayerRamp();
  for (const auto& c : cases) {
    Frame dst(4, 4, Frame::CS_RAW);
    Bayer2RGB(&src, &dst, c.cfa);
    EXPECT_EQ(dst.cs, Frame::CS_RGB);
    EXPECT_EQ(dst.depth, 12);
    EXPECT_EQ(dst.C(c.x, c.y), c.blue) << c.cfa << ": " << c.x << "," << c.y;
  }
}

TEST(Colour, DemosaicSiteGivesAllThreeEstimates) {
  const Frame src = makeBayerRamp();
  int rgb[3];
  fbc::demosaicSite(src, CFA_RGGB, 0, 0, rgb);
  // own, (1 + 1 + 10 + 10 + 2) >> 2, diagonal
  EXPECT_EQ(std::vector<int>(rgb, rgb + 3), (std::vector<int>{0, 6, 11}));
  std::vector<int> all;
  fbc::demosaicToRGB(src, CFA_RGGB, all);
  ASSERT_EQ(all.size(), 48u);
  EXPECT_EQ(std::vector<int>(all.begin(), all.begin() + 3), (std::vector<int>{0, 6, 11}));
  EXPECT_EQ(all[3 * 5 + 2], 11);  // (1,1) B site keeps its own blue
}

TEST(Colour, YUV422To444InterpolatesChromaLimitedTo10Bits) {
  Frame src(4, 1, Frame::CS_YUV422, 10);
  const PIXEL in[4] = {100, 200, 300, 400};
  std::copy(in, in + 4, src.data);
  Frame dst(4, 1, Frame::CS_RAW);
  YUV422To444(&src, &dst);
  EXPECT_EQ(dst.cs, Frame::CS_YUV);
  EXPECT_EQ(dst.depth, 10);
  // t = 200 200 400 400; (3*200+200)>>2, (3*200+400)>>2, (3*400+200)>>2, (3*400+400)>>2
  EXPECT_EQ(pixels(dst), (Pixels{200, 250, 350, 400}));
  EXPECT_EQ(src.data[0], 100);

  Frame wide(2, 1, Frame::CS_YUV422, 12);
  wide.data[0] = 2000;
  wide.data[1] = 2000;
  Frame limited(2, 1, Frame::CS_RAW);
  YUV422To444(&wide, &limited);
  EXPECT_EQ(pixels(limited), (Pixels{1023, 1023}));
}

}  // namespace
