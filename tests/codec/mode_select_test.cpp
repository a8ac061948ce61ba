#include "codec_fixture.h"

using namespace fbc;

// Mode selection reads only the costs, the edge ranges and the registers, so each case sets
// those directly.
class ModeSelection : public CodecTest {
protected:
    void setCosts(std::initializer_list<std::pair<int, int>> costs) {
        codec.HadamaMaxErr = codec.MinMaxMaxErr = codec.DPCMMaxErr = codec.TruncateMaxErr = 4095;
        for (auto& e : codec.Edge) e = Compression1x8::EdgeResult{};
        for (const auto& [mode, c] : costs) {
            switch (mode) {
                case kModeHadamard: codec.HadamaMaxErr = c; break;
                case kModeMinMax: codec.MinMaxMaxErr = c; break;
                case kModeDpcm: codec.DPCMMaxErr = c; break;
                case kModeTruncate: codec.TruncateMaxErr = c; break;
                default: codec.edge(mode - 3).MaxErr = c;
            }
        }
    }
    // Head and tail ranges of an edge member; unbalanced ones by default.
    void setRanges(int mode, int head, int tail) {
        codec.edge(mode - 3).HeadRange = head;
        codec.edge(mode - 3).TailRange = tail;
    }
    int select() {
        codec.Encode_modeselect();
        return codec.SelectedMode;
    }
};

TEST_F(ModeSelection, PlainPolicyPriorityAmongEqualCosts) {
    codec.reg_compress_edgefisrt_enable = 0;
    struct Case {
        std::initializer_list<std::pair<int, int>> costs;
        int mode;
    } cases[] = {
        {{{kModeDpcm, 5}, {kModeEdge4, 5}, {kModeHadamard, 5}}, kModeDpcm},
        {{{kModeMinMax, 5}, {kModeEdge7, 5}}, kModeMinMax},
        {{{kModeEdge3, 5}, {kModeEdge6, 5}, {kModeHadamard, 5}}, kModeEdge6},
        {{{kModeHadamard, 5}, {kModeTruncate, 5}}, kModeHadamard},
        {{{kModeTruncate, 4}, {kModeHadamard, 5}}, kModeTruncate},
        {{{kModeEdge2, 3}, {kModeDpcm, 40}}, kModeEdge2},
    };
    for (const Case& c : cases) {
        setCosts(c.costs);
        EXPECT_EQ(select(), c.mode);
    }
}

TEST_F(ModeSelection, OtherPolicyValuesLeaveTheEdgeMinimumOut) {
    setCosts({{kModeDpcm, 40}, {kModeEdge3, 10}, {kModeTruncate, 60}, {kModeHadamard, 50}});
    codec.reg_compress_edgefisrt_enable = 2;
    EXPECT_EQ(select(), kModeDpcm);
    codec.reg_compress_edgefisrt_enable = 0;
    EXPECT_EQ(select(), kModeEdge3);
    // With every non-edge mode disabled the target is 4095: Edge7 (ineligible, 4095) matches.
    codec.reg_compress_edgefisrt_enable = -1;
    for (int m : {kModeHadamard, kModeMinMax, kModeDpcm, kModeTruncate}) codec.reg_mode_en[m] = 0;
    EXPECT_EQ(select(), kModeEdge7);
}

TEST_F(ModeSelection, DisabledModesNeverMatch) {
    codec.reg_compress_edgefisrt_enable = 0;
    std::fill(std::begin(codec.reg_mode_en), std::end(codec.reg_mode_en), 0);
    setCosts({{kModeDpcm, 0}, {kModeHadamard, 4095}});
    EXPECT_EQ(select(), kModeTruncate);
    codec.reg_mode_definition[kModeTruncate] = kModeEdge4;  // the remap still applies
    EXPECT_EQ(select(), kModeEdge4);
    // Only edge members enabled, all ineligible: M = 4095 and Edge7 wins.
    std::fill(std::begin(codec.reg_mode_en), std::end(codec.reg_mode_en), 0);
    for (int m = kModeEdge2; m <= kModeEdge7; ++m) codec.reg_mode_en[m] = 1;
    codec.reg_mode_definition[kModeTruncate] = kModeTruncate;
    setCosts({{kModeDpcm, 0}});
    EXPECT_EQ(select(), kModeEdge7);
}

TEST_F(ModeSelection, EdgeFirstThresholds) {
    codec.reg_compress_edgefisrt_finalth = 40;
    codec.reg_compress_edgemin_th = 20;
    struct Case {
        int dpcm, edge3, mode;
    } cases[] = {
        {40, 5, kModeDpcm},    // N equal to the final threshold: kept without an edge trial
        {41, 5, kModeEdge3},   // above it: the edge member is tried and taken
        {41, 20, kModeEdge3},  // E equal to the edge threshold
        {41, 21, kModeDpcm},   // E one above it: no edge member, W
        {41, 100, kModeDpcm},
        {3000, 100, kModeDpcm},
    };
    for (const Case& c : cases) {
        setCosts({{kModeDpcm, c.dpcm}, {kModeEdge3, c.edge3}});
        setRanges(kModeEdge3, 0, 50);
        EXPECT_EQ(select(), c.mode) << c.dpcm << " " << c.edge3;
    }
    // An edge member may win with a cost above N.
    codec.reg_compress_edgefisrt_finalth = 0;
    setCosts({{kModeHadamard, 3}, {kModeEdge5, 9}});
    setRanges(kModeEdge5, 40, 2);
    EXPECT_EQ(select(), kModeEdge5);
}

TEST_F(ModeSelection, TruncateWinnerNeverShieldsFromEdges) {
    setCosts({{kModeTruncate, 1}, {kModeEdge2, 1000}});
    setRanges(kModeEdge2, 0, 9);
    EXPECT_EQ(select(), kModeEdge2);
    setRanges(kModeEdge2, 0, 0);  // two flat groups are balanced: never taken
    EXPECT_EQ(select(), kModeTruncate);
}

TEST_F(ModeSelection, BalanceRatio) {
    codec.reg_compress_edgemin_ratio = 2;
    codec.reg_compress_edgefisrt_finalth = 0;
    const int cases[][3] = {{20, 10, kModeDpcm}, {21, 10, kModeEdge4}, {10, 20, kModeDpcm}, {10, 21, kModeEdge4}};
    for (const auto& c : cases) {
        setCosts({{kModeDpcm, 30}, {kModeEdge4, 5}});
        setRanges(kModeEdge4, c[0], c[1]);
        EXPECT_EQ(select(), c[2]) << c[0] << "/" << c[1];
    }
}

TEST_F(ModeSelection, EqualEdgeCostsPreferTheLongerGroup) {
    codec.reg_compress_edgefisrt_finalth = 0;
    setCosts({{kModeEdge3, 7}, {kModeEdge5, 7}, {kModeHadamard, 20}});
    setRanges(kModeEdge3, 0, 30);
    setRanges(kModeEdge5, 0, 30);
    EXPECT_EQ(select(), kModeEdge5);
    codec.reg_compress_edgefisrt_enable = 0;
    EXPECT_EQ(select(), kModeEdge5);
    // Edge-first skips a balanced member and takes the next one with the same cost.
    codec.reg_compress_edgefisrt_enable = 1;
    setRanges(kModeEdge5, 30, 30);
    EXPECT_EQ(select(), kModeEdge3);
}

TEST_F(ModeSelection, CurveOverridesEverything) {
    codec.reg_curve_mode_en = 1;
    codec.reg_mode_definition[kModeDpcm] = kModeHadamard;
    setCosts({{kModeDpcm, 0}});
    EXPECT_EQ(select(), kModeCurve);
}

TEST_F(ModeSelection, RemapEntryOneMeansKeep) {
    codec.reg_compress_edgefisrt_enable = 0;
    setCosts({{kModeMinMax, 0}});
    codec.reg_mode_definition[kModeMinMax] = 1;
    EXPECT_EQ(select(), kModeMinMax);
    codec.reg_mode_definition[kModeMinMax] = 13;  // unknown numbers code as Truncate later
    EXPECT_EQ(select(), 13);
}
