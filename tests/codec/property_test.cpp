#include <random>

#include "codec_fixture.h"

using namespace fbc;

namespace {

// Blocks of the shapes the modes are made for, plus plain noise.
void randomBlock(std::mt19937& rng, int* p) {
    std::uniform_int_distribution<int> full(0, 4095), shape(0, 5), small(0, 40);
    const int base = full(rng);
    switch (shape(rng)) {
        case 0:  // noise
            for (int i = 0; i < 8; ++i) p[i] = full(rng);
            break;
        case 1:  // flat with jitter
            for (int i = 0; i < 8; ++i) p[i] = std::clamp(base + small(rng) - 20, 0, 4095);
            break;
        case 2: {  // two levels
            const int other = full(rng);
            for (int i = 0; i < 8; ++i) p[i] = (rng() & 1) ? base : other;
            break;
        }
        case 3: {  // a close run at one end, the rest anywhere
            const int n = 2 + static_cast<int>(rng() % 6);
            const bool head = rng() & 1;
            for (int i = 0; i < 8; ++i) {
                const bool inRun = head ? i < n : i >= 8 - n;
                p[i] = inRun ? std::clamp(base + small(rng), 0, 4095) : full(rng);
            }
            break;
        }
        case 4: {  // ramp
            const int slope = static_cast<int>(rng() % 200) - 100;
            for (int i = 0; i < 8; ++i) p[i] = std::clamp(base + slope * i, 0, 4095);
            break;
        }
        default:  // extremes
            for (int i = 0; i < 8; ++i) p[i] = (rng() & 1) ? 4095 : 0;
    }
}

}  // namespace

using CodecProperties = CodecTest;

// Any 64 bits under any register values decode to eight 12-bit values.
TEST_F(CodecProperties, EveryCodeDecodesInto12Bits) {
    std::mt19937_64 rng(0x5eed1234);
    std::uniform_int_distribution<int> any(-70000, 70000), bit(0, 1), slope(-32768, 32767), point(0, 4095);
    for (int trial = 0; trial < 20000; ++trial) {
        if (trial % 64 == 0) {
            codec.reg_comp_de_tr_round_md = any(rng) % 3;
            codec.reg_comp_de_tr_round_zero = any(rng) % 3;
            codec.reg_tr_ext_en = bit(rng);
            codec.reg_curve_mode_en = bit(rng);
            for (int k = 0; k < 15; ++k) {
                codec.reg_uncomp_lut_in[k] = point(rng) & 255;
                codec.reg_uncomp_lut_out[k] = point(rng);
            }
            for (int& s : codec.reg_uncomp_lut_slope) s = slope(rng);
        }
        int out[8];
        codec.decodeBlock(rng(), out);
        for (int v : out) ASSERT_TRUE(v >= 0 && v <= 4095) << v;
    }
}

// Under the default reconstruction registers the decoder rebuilds exactly what the cost
// function modelled, so no pixel is further off than the cost selection saw.
TEST_F(CodecProperties, RoundTripErrorWithinSelectedCost) {
    struct Setting {
        const char* name;
        void (*apply)(Compression1x8&);
    } settings[] = {
        {"defaults", [](Compression1x8&) {}},
        {"plain policy", [](Compression1x8& c) { c.reg_compress_edgefisrt_enable = 0; }},
        {"truncate extension", [](Compression1x8& c) { c.reg_tr_ext_en = 1; }},
        {"dpcm options", [](Compression1x8& c) {
             c.reg_dpcm_stepsize_expansion_en = 1;
             c.reg_dpcm_pmin_lsb_update_en = 1;
             c.reg_dpcm_swing_rounder_en = 1;
             c.SwingRowSelect = 1;
         }},
    };
    for (const Setting& s : settings) {
        codec.setSWinit();
        s.apply(codec);
        std::mt19937 rng(42);
        for (int trial = 0; trial < 20000; ++trial) {
            randomBlock(rng, block);
            const bool parity = trial & 1;
            const BlockCode code = codec.encodeBlock(block, parity);
            const int mode = codec.SelectedMode;
            ASSERT_EQ(modeOfCode(code), mode) << s.name;
            const int allowed = codec.modeCost(mode);
            int out[8];
            codec.decodeBlock(code, out);
            for (int i = 0; i < 8; ++i)
                ASSERT_LE(std::abs(out[i] - block[i]), allowed) << s.name << " mode " << kModeNames[mode] << " pixel " << i;
        }
    }
}

// The bool* interface is the 64-bit code bit by bit.
TEST_F(CodecProperties, BoolAdaptersAgreeWithTheIntegerCode) {
    std::mt19937 rng(3);
    for (int trial = 0; trial < 2000; ++trial) {
        randomBlock(rng, block);
        bool code[64];
        codec.EncodePixel8(block, code, false);
        const BlockCode expected = codec.encodeBlock(block, false);
        ASSERT_EQ(packCode(code), expected);
        int a[8], b[8];
        codec.Decode_bitstream(code, a);
        codec.decodeBlock(expected, b);
        ASSERT_TRUE(std::equal(a, a + 8, b));
    }
}
