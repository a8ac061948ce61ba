#include "codec_fixture.h"

using CurveMode = CodecTest;

TEST_F(CurveMode, DefaultCompressionCurve) {
    const int cases[][2] = {
        {0, 0},       {32, 32},     // (4096 * 32 + 2048) >> 12
        {512, 128},   // 32 + ((819 * 480 + 2048) >> 12)
        {4095, 255},  // 220 + ((70 * 2047 + 2048) >> 12)
        {2048, 220},  // 128 + ((245 * 1536 + 2048) >> 12) = 128 + 92
        {4096, 255},  // above every point: slope 15 is 0
    };
    for (const auto& c : cases) EXPECT_EQ(codec.curveCompress(c[0]), c[1]) << c[0];
}

TEST_F(CurveMode, DefaultDecompressionCurve) {
    const int cases[][2] = {
        {0, 0}, {32, 32},  // (256 * 32 + 128) >> 8
        {128, 512},        // 32 + ((1280 * 96 + 128) >> 8)
        {255, 4095},       // 2048 + ((14973 * 35 + 128) >> 8)
        {220, 2048},
    };
    for (const auto& c : cases) EXPECT_EQ(codec.curveUncompress(c[0]), c[1]) << c[0];
}

TEST_F(CurveMode, FallingSegmentsRoundSymmetrically) {
    codec.reg_comp_lut_slope[1] = -4096;  // segment 32..512 falls one output per input
    // 32 - ((2048 - (-4096 * 8)) >> 12) = 32 - 8
    EXPECT_EQ(codec.curveCompress(40), 24);
    codec.reg_comp_lut_slope[0] = -4096;
    EXPECT_EQ(codec.curveCompress(10), 0);  // -((40960 + 2048) >> 12) clamps to 0
}

TEST_F(CurveMode, BytesArePixelsAndNoPrefixIsRead) {
    codec.reg_curve_mode_en = 1;
    cost({0, 32, 512, 4095, 2048, 0, 0, 0});
    codec.Encode_modeselect();
    EXPECT_EQ(codec.SelectedMode, fbc::kModeCurve);
    const fbc::BlockCode code = codec.encodeSelected(block, false);
    EXPECT_EQ(code, 0x000000dcff802000ull);
    // Whatever the top bits, the decoder reads eight curve values.
    EXPECT_EQ(decode(0xFFFFFFFFFFFFFFFFull), std::vector<int>(8, 4095));
    EXPECT_EQ(decode(code), (std::vector<int>{0, 32, 512, 4095, 2048, 0, 0, 0}));
}

TEST_F(CurveMode, LoadedPointsFeedBothCurves) {
    // The decompression curve's inputs are bound to reg_comp_lut_out and its outputs to
    // reg_comp_lut_in: the second binding of each key sits on the uncompress arrays.
    int bound = 0;
    for (const auto& b : codec.bindings()) {
        if (b.second.name.second == "reg_comp_lut_in") {
            EXPECT_TRUE(b.first == codec.reg_comp_lut_in || b.first == codec.reg_uncomp_lut_out);
            ++bound;
        }
        if (b.second.name.second == "reg_comp_lut_out") {
            EXPECT_TRUE(b.first == codec.reg_comp_lut_out || b.first == codec.reg_uncomp_lut_in);
            ++bound;
        }
    }
    EXPECT_EQ(bound, 4);
}
