#include <gtest/gtest.h>

#include <vector>

#include "image/Frame.h"

namespace {

TEST(MirroredPos, ReflectsOnce) {
  EXPECT_EQ(mirroredPos(-1, 9), 1);
  EXPECT_EQ(mirroredPos(10, 9), 8);
  EXPECT_EQ(mirroredPos(9, 9), 9);
  EXPECT_EQ(mirroredPos(3, 9), 3);
  EXPECT_EQ(mirroredPos(-5, 2), 5);  // still outside; the accessors clamp it
}

TEST(ToYUV422, RejectsOtherColourSpaces) {
  Frame f(2, 1, Frame::CS_RGB);
  f.data[0] = 1;
  f.data[1] = 2;
  ::testing::internal::CaptureStdout();
  f.toYUV422();
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[Err] not CS_YUV type ! \n");
  EXPECT_EQ(f.data[0], 1);
  EXPECT_EQ(f.data[1], 2);
}

TEST(ToYUV422, AveragesPairsWithFloor) {
  Frame f(3, 2, Frame::CS_YUV);
  const PIXEL in[6] = {1, 2, 5, -3, 0, 9};
  std::copy(in, in + 6, f.data);
  f.toYUV422();
  // (1+2)>>1 = 1; 5 pairs with itself; (-3+0)>>1 = -2.
  const PIXEL expected[6] = {1, 1, 5, -2, -2, 9};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f.data[i], expected[i]) << i;
}

TEST(ColourSpace, ConversionsAreNoOps) {
  Frame f(2, 1, Frame::CS_YUV, 10);
  f.data[0] = 123;
  f.data[1] = -4;
  f.RGB2YUV();
  f.YUV2RGB();
  EXPECT_EQ(f.data[0], 123);
  EXPECT_EQ(f.data[1], -4);
  EXPECT_EQ(f.cs, Frame::CS_YUV);
}

struct SiteCase {
  int cfa;
  int x;
  int y;
  PIXEL blue;
};

class Bayer2RGBRamp : public ::testing::TestWithParam<SiteCase> {};

// 4x4 ramp c(x, y) = x + 10y; the stored value is the blue estimate.
TEST_P(Bayer2RGBRamp, KeepsBlueEstimate) {
  const SiteCase c = GetParam();
  Frame src(4, 4, Frame::CS_RAW, 12);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) src.C(x, y) = x + 10 * y;
  }
  Frame dst(4, 4, Frame::CS_RAW);
  Bayer2RGB(&src, &dst, c.cfa);
  EXPECT_EQ(dst.cs, Frame::CS_RGB);
  EXPECT_EQ(dst.depth, 12);
  EXPECT_EQ(dst.C(c.x, c.y), c.blue);
}

INSTANTIATE_TEST_SUITE_P(
    Colour, Bayer2RGBRamp,
    ::testing::Values(SiteCase{0, 0, 0, 11},  // R site, diagonal all mirror to c(1,1) = 11
                      SiteCase{0, 1, 1, 11},  // B site keeps its own sample
                      SiteCase{0, 1, 0, 12},  // Gr: vertical (2*(11 + 22 + 13) + 4) >> 3
                      SiteCase{0, 0, 1, 16},  // Gb: horizontal (2*(11 + 22 + 31) + 4) >> 3
                      SiteCase{0, 3, 3, 33},  // B site
                      SiteCase{0, 2, 2, 22},  // R site: (11 + 13 + 31 + 33 + 2) >> 2
                      SiteCase{2, 0, 0, 0},   // BGGR: B site
                      SiteCase{2, 1, 1, 11},  // R site: (0 + 2 + 20 + 22 + 2) >> 2
                      SiteCase{2, 1, 0, 11},  // Gb: horizontal (20 + 0 + 20 + 22 + 4 + 22 + 4) >> 3
                      SiteCase{2, 0, 1, 11},  // Gr: vertical (2 + 0 + 2 + 22 + 40 + 22 + 4) >> 3
                      SiteCase{1, 0, 0, 11},  // GRBG Gr: vertical (2*(12 + 20 + 12) + 4) >> 3
                      SiteCase{3, 0, 0, 11}));  // GBRG Gb: horizontal (2*(21 + 2 + 21) + 4) >> 3

TEST(Demosaic, SiteGivesAllThreeEstimates) {
  Frame src(4, 4, Frame::CS_RAW, 12);
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 4; ++x) src.C(x, y) = x + 10 * y;
  }
  int rgb[3];
  fbc::demosaicSite(src, CFA_RGGB, 0, 0, rgb);
  EXPECT_EQ(rgb[0], 0);   // own
  EXPECT_EQ(rgb[1], 6);   // (1 + 1 + 10 + 10 + 2) >> 2
  EXPECT_EQ(rgb[2], 11);  // diagonal
  std::vector<int> all;
  fbc::demosaicToRGB(src, CFA_RGGB, all);
  ASSERT_EQ(all.size(), 48u);
  EXPECT_EQ(all[0], 0);
  EXPECT_EQ(all[1], 6);
  EXPECT_EQ(all[2], 11);
  EXPECT_EQ(all[3 * 5 + 2], 11);  // (1,1) B site keeps its own blue
}

TEST(YUV422To444, InterpolatesChroma) {
  Frame src(4, 1, Frame::CS_YUV422, 10);
  const PIXEL in[4] = {100, 200, 300, 400};
  std::copy(in, in + 4, src.data);
  Frame dst(4, 1, Frame::CS_RAW);
  YUV422To444(&src, &dst);
  EXPECT_EQ(dst.cs, Frame::CS_YUV);
  EXPECT_EQ(dst.depth, 10);
  // t = 200 200 400 400; (3*200+200)>>2, (3*200+400)>>2, (3*400+200)>>2, (3*400+400)>>2
  const PIXEL expected[4] = {200, 250, 350, 400};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(dst.data[i], expected[i]) << i;
  EXPECT_EQ(src.data[0], 100);
}

TEST(YUV422To444, ChromaLimitedTo10Bits) {
  Frame src(2, 1, Frame::CS_YUV422, 12);
  src.data[0] = 2000;
  src.data[1] = 2000;
  Frame dst(2, 1, Frame::CS_RAW);
  YUV422To444(&src, &dst);
  EXPECT_EQ(dst.data[0], 1023);
  EXPECT_EQ(dst.data[1], 1023);
}

}  // namespace
