#include "codec_fixture.h"

using fbc::BlockCode;

using HadamardMode = CodecTest;

TEST_F(HadamardMode, FlatBlockCodesExactlyWithFinestQuantiser) {
    cost({0x123, 0x123, 0x123, 0x123, 0x123, 0x123, 0x123, 0x123});
    EXPECT_EQ(codec.HadamaShift, 3);
    EXPECT_EQ(codec.HadamaDC, 0x123);  // (8 * 0x123 + 4) >> 3
    EXPECT_EQ(codec.HadamaMaxErr, 0);
    // prefix 0, shift 11 at bits 62..61, DC at 49..60, AC all zero
    EXPECT_EQ(codec.encodeHadama(), 0x6246000000000000ull);
    EXPECT_EQ(decode(0x6246000000000000ull), std::vector<int>(8, 0x123));
}

TEST_F(HadamardMode, PositiveTermClampsTo63NotPlus64) {
    // Column 0 of the matrix is all +1, so every AC term is 2047: s = 3 fits [-2048, 2047],
    // and 2047 + 16 would code as 64; it is held at 2047 >> 5 = 63.
    cost({2047, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(codec.HadamaShift, 3);
    EXPECT_EQ(codec.HadamaDC, 256);  // (2047 + 4) >> 3
    for (int c : codec.HadamaCoef) EXPECT_EQ(c, 63);
    EXPECT_EQ(codec.encodeHadama(), 0x6200fdfbf7efdfbfull);
    // D = 2048, A = 63 << 5 = 2016: pixel 0 (2048 + 7 * 2016) >> 3 = 2020, others (2048 - 2016) >> 3 = 4
    EXPECT_EQ(decode(0x6200fdfbf7efdfbfull), (std::vector<int>{2020, 4, 4, 4, 4, 4, 4, 4}));
    EXPECT_EQ(codec.HadamaMaxErr, 27);
    EXPECT_EQ(codec.HadamaSAD, 27 + 7 * 4);
}

TEST_F(HadamardMode, StepBlockNeedsCoarsestQuantiser) {
    // T[1] = -16380 fits only [-16384, 16383]: s = 0, step 256, (-16380 + 128) >> 8 = -64.
    cost({0, 0, 0, 0, 4095, 4095, 4095, 4095});
    EXPECT_EQ(codec.HadamaShift, 0);
    EXPECT_EQ(codec.HadamaCoef[0], -64);
    EXPECT_EQ(codec.HadamaDC, 2048);
    EXPECT_EQ(codec.encodeHadama(), 0x1001000000000000ull);
    // 16384 -/+ 16384, >> 3, clamped: 0 and 4096 -> 4095.
    EXPECT_EQ(decode(0x1001000000000000ull), (std::vector<int>{0, 0, 0, 0, 4095, 4095, 4095, 4095}));
    EXPECT_EQ(codec.HadamaMaxErr, 0);
}

TEST_F(HadamardMode, ZeroCodeDecodesToZeros) { EXPECT_EQ(decode(0), std::vector<int>(8, 0)); }

TEST_F(HadamardMode, SequencyRowsHaveTheirSignChanges) {
    // A unit coefficient on one row and a mid-grey DC shows that row's sign pattern.
    const int rows[8][8] = {{1, 1, 1, 1, 1, 1, 1, 1},     {1, 1, 1, 1, -1, -1, -1, -1},
                            {1, 1, -1, -1, -1, -1, 1, 1}, {1, 1, -1, -1, 1, 1, -1, -1},
                            {1, -1, -1, 1, 1, -1, -1, 1}, {1, -1, -1, 1, -1, 1, 1, -1},
                            {1, -1, 1, -1, -1, 1, -1, 1}, {1, -1, 1, -1, 1, -1, 1, -1}};
    for (int j = 1; j < 8; ++j) {
        // shift 3: coefficient 8 dequantises to 8 << 5 = 256, i.e. +-32 after >> 3
        const BlockCode code = fbc::putField(3, 61, 2) | fbc::putField(2048, 49, 12) | fbc::putField(8, 7 * (7 - j), 7);
        const std::vector<int> out = decode(code);
        for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], 2048 + 32 * rows[j][i]) << "row " << j << " pixel " << i;
    }
}
