// Quirks that neither the golden vectors nor the fast-path checker reach: the bool* code form, the
// field helpers, log2 of steps wider than any mode uses, DPCM's exact range limits and falling
// curve segments.
#include "codec_fixture.h"

using namespace fbc;

TEST(BlockCode, BytesAreLittleEndianAndElementsAreBits) {
  const unsigned char bytes[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  const BlockCode code = loadCode(bytes);
  EXPECT_EQ(code, 0xEFCDAB8967452301ull);
  unsigned char back[8];
  storeCode(code, back);
  EXPECT_EQ(0, std::memcmp(bytes, back, 8));

  bool elements[64];
  unpackCode(code, elements);
  EXPECT_TRUE(elements[0]);  // byte 0 bit 0
  EXPECT_FALSE(elements[1]);
  EXPECT_TRUE(elements[63]);   // first prefix bit: top bit of byte 7 (0xEF)
  EXPECT_FALSE(elements[60]);  // 0xEF = 1110 1111: bit 4 of byte 7 is 0
  EXPECT_EQ(packCode(elements), code);
}

TEST(BlockCode, FieldsAreLeastSignificantBitFirst) {
  EXPECT_EQ(putField(-64, 42, 7), BlockCode{0x40} << 42);
  EXPECT_EQ(getSignedField(BlockCode{0x40} << 42, 42, 7), -64);
  EXPECT_EQ(getSignedField(BlockCode{0x3F} << 42, 42, 7), 63);
  EXPECT_EQ(getField(~BlockCode{0}, 49, 12), 4095u);
  EXPECT_EQ(putField(0x1FFF, 0, 12), BlockCode{0xFFF});
}

TEST(BlockCode, Log2IsTheLowestSetBitAmongSeven) {
  const int cases[][2] = {{1, 0}, {64, 6}, {12, 2}, {128, 0}, {0, 0}, {96, 5}};
  for (const auto& c : cases) EXPECT_EQ(Compression1x8::log2(c[0]), c[1]) << c[0];
}

using DpcmMode = CodecTest;

TEST_F(DpcmMode, ApplicabilityFollowsRangeAndExpansion) {
  struct Case {
    int range, expansion, shift;
    bool applicable;
  } cases[] = {
      {63, 0, 0, true},   {64, 0, 1, true},    {511, 0, 3, true},   {512, 0, 3, false},
      {1023, 1, 4, true}, {1024, 1, 4, false}, {4095, 1, 4, false},
  };
  for (const Case& c : cases) {
    codec.reg_dpcm_stepsize_expansion_en = c.expansion;
    cost({0, c.range / 2, c.range, 0, 0, 0, 0, 0});
    EXPECT_EQ(codec.DPCMShift, c.shift) << c.range;
    EXPECT_EQ(codec.DPCMMaxErr != 4095, c.applicable) << c.range;
  }
}

using CurveMode = CodecTest;

TEST_F(CurveMode, FallingSegmentsRoundSymmetrically) {
  codec.reg_comp_lut_slope[1] = -4096;  // segment 32..512 falls one output per input
  // 32 - ((2048 - (-4096 * 8)) >> 12) = 32 - 8
  EXPECT_EQ(codec.curveCompress(40), 24);
  codec.reg_comp_lut_slope[0] = -4096;
  EXPECT_EQ(codec.curveCompress(10), 0);  // -((40960 + 2048) >> 12) clamps to 0
}
