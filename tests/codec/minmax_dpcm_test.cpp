#include "codec_fixture.h"

using fbc::BlockCode;

using MinMaxMode = CodecTest;
using DpcmMode = CodecTest;

TEST_F(MinMaxMode, ThreeLevelsAroundTheMidpoint) {
    // mid 500, t = 200: 500 takes the midpoint, 100 the minimum, 900 the maximum.
    cost({100, 100, 900, 900, 500, 500, 100, 900});
    EXPECT_EQ((std::vector<int>(codec.MinMaxIdx, codec.MinMaxIdx + 8)), (std::vector<int>{1, 1, 2, 2, 0, 0, 1, 2}));
    EXPECT_EQ(codec.MinMaxMaxErr, 0);
    // prefix 10111111, zeros 40..55, Pmin 28..39, Pmax 16..27, pixel 0's symbol at 14..15
    EXPECT_EQ(codec.encodeMinMax(), 0xbf00000643845a06ull);
    EXPECT_EQ(decode(0xbf00000643845a06ull), (std::vector<int>{100, 100, 900, 900, 500, 500, 100, 900}));
}

TEST_F(MinMaxMode, FlatBlockTakesTheMaximumSymbol) {
    cost({7, 7, 7, 7, 7, 7, 7, 7});
    for (int s : codec.MinMaxIdx) EXPECT_EQ(s, 2);  // d = 0 is not below t = 0
    EXPECT_EQ(codec.MinMaxMaxErr, 0);
}

TEST_F(MinMaxMode, SymbolThreeDecodesAsMaximum) {
    const BlockCode code = (BlockCode{0xBF} << 56) | fbc::putField(10, 28, 12) | fbc::putField(30, 16, 12) | 0xFFFF;
    EXPECT_EQ(decode(code), std::vector<int>(8, 30));
}

TEST_F(DpcmMode, BitLayoutSkipsTheMinimumPixel) {
    cost({10, 12, 14, 16, 18, 20, 22, 24});
    EXPECT_EQ(codec.DPCMShift, 0);
    EXPECT_EQ(codec.DPCMMaxErr, 0);
    // base 10 at 48..59, codes of pixels 7..1 from bit 6 upward, Pminpos 0, shift 0
    EXPECT_EQ(codec.encodeDPCM(), 0x900a08418828c380ull);
    EXPECT_EQ(decode(0x900a08418828c380ull), (std::vector<int>{10, 12, 14, 16, 18, 20, 22, 24}));
}

TEST_F(DpcmMode, ApplicabilityFollowsRangeAndExpansion) {
    struct Case {
        int range, expansion, shift;
        bool applicable;
    } cases[] = {
        {0, 0, 0, true},   {63, 0, 0, true},     {64, 0, 1, true},   {511, 0, 3, true},
        {512, 0, 3, false}, {600, 1, 4, true},   {1023, 1, 4, true}, {1024, 1, 4, false},
        {1500, 0, 3, false}, {4095, 1, 4, false},
    };
    for (const Case& c : cases) {
        codec.reg_dpcm_stepsize_expansion_en = c.expansion;
        cost({0, c.range / 2, c.range, 0, 0, 0, 0, 0});
        EXPECT_EQ(codec.DPCMShift, c.shift) << c.range;
        EXPECT_EQ(codec.DPCMMaxErr != 4095, c.applicable) << c.range;
        if (!c.applicable) {
            EXPECT_EQ(codec.DPCMSAD, 32767);
        }
    }
}

TEST_F(DpcmMode, SwingRowRoundsHalfDown) {
    // Range 100: shift 1, step 2. Row 0 rounds 101 up to code 1 (base 100), row 1 keeps 0.
    codec.reg_dpcm_swing_rounder_en = 1;
    codec.SwingRowSelect = 1;
    cost({100, 101, 200, 100, 100, 100, 100, 100});
    EXPECT_EQ(codec.DPCMRounder, 0);
    EXPECT_EQ(codec.Diffmin[1], 0);
    codec.SwingRowSelect = 0;
    cost({100, 101, 200, 100, 100, 100, 100, 100});
    EXPECT_EQ(codec.DPCMRounder, 1);
    EXPECT_EQ(codec.Diffmin[1], 1);
}

TEST_F(DpcmMode, LsbUpdateMovesTheBaseTowardsTheAverageLowBits) {
    // Range 199: shift 2, step 4, m = 3. Low bits 0,3,3,3,3,3,3,3 sum 21, a = (21 + 4) >> 3 = 3;
    // low = 100 & 3 = 0; rounder 2: 2 + 1 + 0 <= 3, so adj = 3 - 4 = -1 and base = 99.
    codec.reg_dpcm_pmin_lsb_update_en = 1;
    cost({100, 103, 107, 111, 115, 119, 123, 299});
    EXPECT_EQ(codec.DPCMStep, 4);
    EXPECT_EQ(codec.DPCMBase, 99);
    EXPECT_EQ(codec.Diffmin[0], 0);  // (100 - 99 + 2) / 4
    EXPECT_EQ(codec.Diffmin[7], 50);  // (299 - 99 + 2) / 4
}
