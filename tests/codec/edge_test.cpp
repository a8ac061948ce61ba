#include <random>

#include "codec_fixture.h"

using fbc::BlockCode;

using EdgeModes = CodecTest;

TEST_F(EdgeModes, Edge2TailGroupLayout) {
    // Tail pair 1203, 1200: base 1200, range 3, step 1. Head pair 100, 1000 spans 904.
    cost({100, 1000, 2000, 3000, 4000, 500, 1203, 1200});
    const auto& e = codec.edge(2);
    EXPECT_EQ(e.Dir, 0);
    EXPECT_EQ(e.TailRange, 3);
    EXPECT_EQ(e.HeadRange, 1000 - 96);
    EXPECT_EQ(e.Step, 1);
    // coarse |(p & 31) - 16| of pixels 0..5: 12, 8, 0, 8, 16, 4
    EXPECT_EQ(e.MaxErr, 16);
    EXPECT_EQ(e.SAD, 48);
    // q of pixel 7 at 0..2, pixel 6 at 3..5, 1200 >> 3 at 6..14, pixels 5..0 >> 5 from bit 15,
    // direction 0, shift 0, prefix 1010
    EXPECT_EQ(codec.encodeEdge(2, block), 0xa00cfbebbf47a598ull);
    EXPECT_EQ(decode(0xa00cfbebbf47a598ull), (std::vector<int>{112, 1008, 2000, 2992, 4016, 496, 1203, 1200}));
}

TEST_F(EdgeModes, Edge6HeadGroupWithFourBitIndices) {
    // Head range 50 (base 2000): 4-bit step 4; indices (d + 2) / 4 = 0, 3, 5, 8, 10, 13.
    cost({2000, 2010, 2020, 2030, 2040, 2050, 0, 4095});
    const auto& e = codec.edge(6);
    EXPECT_EQ(e.Dir, 1);
    EXPECT_EQ(e.Step, 4);
    EXPECT_EQ(e.MaxErr, 2);
    EXPECT_EQ(e.SAD, 6 + 2 + 1);
    EXPECT_EQ(codec.encodeEdge(6, block), 0xbd7ff001f4da8530ull);
    EXPECT_EQ(decode(0xbd7ff001f4da8530ull), (std::vector<int>{2000, 2012, 2020, 2032, 2040, 2052, 2, 4094}));
}

TEST_F(EdgeModes, EqualRangesTakeTheTail) {
    cost({800, 803, 0, 4000, 0, 4000, 1603, 1600});
    EXPECT_EQ(codec.edge(2).HeadRange, 3);
    EXPECT_EQ(codec.edge(2).TailRange, 3);
    EXPECT_EQ(codec.edge(2).Dir, 0);
}

TEST_F(EdgeModes, WideGroupsAreIneligibleWhateverTheThreshold) {
    codec.reg_edge_diffmin_th = 4095;
    cost({0, 64, 0, 4095, 0, 4095, 0, 64});  // Edge2 groups span 64 at both ends
    EXPECT_EQ(codec.edge(2).MaxErr, 4095);
    EXPECT_EQ(codec.edge(2).SAD, 32767);
    EXPECT_EQ(codec.edge(2).Step, 1);
    cost({0, 128, 128, 128, 128, 128, 128, 0});  // Edge6/7 groups span 128 at both ends
    EXPECT_EQ(codec.edge(6).MaxErr, 4095);
    EXPECT_EQ(codec.edge(7).MaxErr, 4095);
    cost({0, 127, 127, 127, 127, 127, 127, 0});
    EXPECT_LT(codec.edge(6).MaxErr, 4095);
    // The register narrows further: range 3 is refused under a threshold of 2.
    codec.reg_edge_diffmin_th = 2;
    cost({100, 1000, 2000, 3000, 4000, 500, 1203, 1200});
    EXPECT_EQ(codec.edge(2).MaxErr, 4095);
}

TEST_F(EdgeModes, StepBoundaries) {
    struct Case {
        int member, range, step;
    } cases[] = {
        {2, 7, 1}, {2, 8, 2}, {2, 15, 2}, {2, 16, 4}, {2, 31, 4}, {2, 32, 8}, {2, 63, 8},
        {6, 15, 1}, {6, 16, 2}, {6, 31, 2}, {6, 32, 4}, {6, 63, 4}, {6, 64, 8}, {6, 127, 8},
    };
    for (const Case& c : cases) {
        // Tail group 800 .. 800 + range (800 is a multiple of 8), head spread wide.
        int px[8] = {0, 4095, 0, 4095, 0, 4095, 800, 800};
        for (int i = 8 - c.member; i < 8; ++i) px[i] = 800;
        px[7] = 800 + c.range;
        px[0] = 0;
        px[1] = 4095;
        codec.CalculateEdgeSAD(c.member, px);
        EXPECT_EQ(codec.edge(c.member).Step, c.step) << c.member << " range " << c.range;
    }
}

TEST_F(EdgeModes, IndexClampsAndReconstructionSaturates) {
    // Range 63, step 8: (63 + 4) / 8 = 8 clamps to 7, rebuilding 800 + 56.
    cost({0, 4095, 0, 4095, 0, 4095, 800, 863});
    EXPECT_EQ(decode(codec.encodeEdge(2, block))[7], 856);
    // A base of 4088 with index 7 on step 8 would be 4144: saturated.
    const BlockCode code = (BlockCode{0xA} << 60) | fbc::putField(3, 58, 2) | fbc::putField(511, 6, 9) | 0x3F;
    const std::vector<int> out = decode(code);
    EXPECT_EQ(out[7], 4095);
    EXPECT_EQ(out[6], 4095);
}

TEST_F(EdgeModes, CoarseReconstructionRegisters) {
    // Edge2, direction 0: pixel 5's 7-bit field at 15..21, pixel 4's at 22..28.
    const BlockCode code = (BlockCode{0xA} << 60) | fbc::putField(0, 15, 7) | fbc::putField(5, 22, 7);
    struct Case {
        int roundMd, roundZero, p5, p4;
    } cases[] = {{0, 0, 16, 176}, {0, 1, 0, 176}, {1, 0, 0, 160}, {1, 1, 0, 160}};
    for (const Case& c : cases) {
        codec.reg_comp_de_tr_round_md = c.roundMd;
        codec.reg_comp_de_tr_round_zero = c.roundZero;
        const std::vector<int> out = decode(code);
        EXPECT_EQ(out[5], c.p5);
        EXPECT_EQ(out[4], c.p4);
    }
}

TEST_F(EdgeModes, Edge7SpareBitsStayZero) {
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> px(0, 4095);
    for (int trial = 0; trial < 2000; ++trial) {
        for (int& p : block) p = px(rng);
        const int base = px(rng) & ~127;
        for (int i = 1; i < 8; ++i) block[i] = base + (block[i] & 63);  // a close run at the tail
        codec.EncodeCalculateSAD(block, false);
        const BlockCode code = codec.encodeEdge(7, block);
        ASSERT_EQ((code >> 48) & 0x1F, 0u);
        ASSERT_EQ(fbc::modeOfCode(code), fbc::kModeEdge7);
    }
}
