#include "codec_fixture.h"

using fbc::BlockCode;

using TruncateMode = CodecTest;

namespace {
const std::initializer_list<int> kPixels = {4095, 0, 100, 31, 32, 1000, 2000, 3000};
}

TEST_F(TruncateMode, BitLayoutWithAndWithoutExtension) {
    struct Case {
        int ext;
        bool parity;
        int rb;
        BlockCode code;
    } cases[] = {
        // t = p >> 5 at 51, 44, 37, 30, 23, 16, 9, 0; sel at bit 60
        {0, false, 0, 0xc3f80060009f7c5dull},
        {0, true, 1, 0xc3f80060009f7c5dull},  // parity and rb together give sel 0
        // sel 0: bit 4 of pixels 1, 3, 5, 7 (0, 1, 0, 1) at bits 59, 58, 8, 7
        {1, false, 0, 0xc7f80060009f7cddull},
        // sel 1: bit 4 of pixels 0, 2, 4, 6 (1, 0, 0, 1) at bits 59, 58, 8, 7
        {1, true, 0, 0xdbf80060009f7cddull},
        {1, false, 1, 0xdbf80060009f7cddull},
    };
    for (const Case& c : cases) {
        codec.reg_tr_ext_en = c.ext;
        codec.reg_tr_ext_rb = c.rb;
        std::copy(kPixels.begin(), kPixels.end(), block);
        EXPECT_EQ(codec.encodeTruncate(block, c.parity), c.code) << c.ext << c.parity << c.rb;
    }
}

TEST_F(TruncateMode, ExtensionSwapsFinerPixel) {
    codec.reg_tr_ext_en = 1;
    // Fine pixels 1, 3, 5, 7 rebuild (2t + 1) << 3 from 8 bits; the others (2t + 1) << 4.
    EXPECT_EQ(decode(0xc7f80060009f7cddull), (std::vector<int>{4080, 8, 112, 24, 48, 1000, 2000, 3000}));
    // The decoder takes the extension from its register: without it every pixel is coarse.
    codec.reg_tr_ext_en = 0;
    EXPECT_EQ(decode(0xc7f80060009f7cddull), (std::vector<int>{4080, 16, 112, 16, 48, 1008, 2000, 2992}));
}

TEST_F(TruncateMode, ReconstructionRegisters) {
    struct Case {
        int roundMd, roundZero, pixel, decoded;
    } cases[] = {
        {0, 0, 10, 16},  {0, 1, 10, 0},    {0, 1, 40, 48},  {1, 0, 40, 32},
        {1, 1, 10, 0},   {0, 0, 4095, 4080}, {1, 0, 4095, 4064},
    };
    for (const Case& c : cases) {
        codec.reg_comp_de_tr_round_md = c.roundMd;
        codec.reg_comp_de_tr_round_zero = c.roundZero;
        int px[8];
        std::fill(px, px + 8, c.pixel);
        EXPECT_EQ(decode(codec.encodeTruncate(px, false))[3], c.decoded) << c.roundMd << c.roundZero << c.pixel;
    }
}

TEST_F(TruncateMode, EncoderRoundingSaturates) {
    codec.reg_comp_enc_trun_rnd = 1;
    int px[8] = {4095, 15, 16, 47, 48, 0, 4080, 4079};
    // q = min(p + 16, 4095) >> 5: 127, 0, 1, 1, 2, 0, 127, 127
    EXPECT_EQ(decode(codec.encodeTruncate(px, false)), (std::vector<int>{4080, 16, 48, 48, 80, 16, 4080, 4080}));
}

TEST_F(TruncateMode, CostAssumesMidIntervalWhateverTheRounding) {
    cost({0, 16, 31, 32, 48, 4095, 15, 17});
    // |(p & 31) - 16|: 16, 0, 15, 16, 0, 15, 1, 1
    EXPECT_EQ(codec.TruncateMaxErr, 16);
    EXPECT_EQ(codec.TruncateSAD, 64);
    codec.reg_tr_ext_en = 1;
    cost({0, 16, 31, 32, 48, 4095, 15, 17});
    // sel 0: odd pixels fine, |(p & 15) - 8|: pixel 1 -> 8, 3 -> 8, 5 -> 7, 7 -> 7
    EXPECT_EQ(codec.TruncateMaxErr, 16);
    EXPECT_EQ(codec.TruncateSAD, 16 + 8 + 15 + 8 + 0 + 7 + 1 + 7);
}

TEST_F(TruncateMode, UnknownModeNumbersWriteTruncate) {
    std::copy(kPixels.begin(), kPixels.end(), block);
    for (int mode : {11, -1, 99}) {
        codec.SelectedMode = mode;
        EXPECT_EQ(codec.encodeSelected(block, false), 0xc3f80060009f7c5dull) << mode;
    }
}
