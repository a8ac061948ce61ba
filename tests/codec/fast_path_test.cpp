// The fast path against the scalar reference: hand-worked blocks through every variant the host
// runs, and the seeded checker over random blocks, codes and registers.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCheck.h"
#include "codec/FastCodec.h"

namespace {

struct EncodeCase {
    const char* name;
    int px[8];
    std::uint64_t code;
};

// Flat 2000: DPCM and MinMax both cost 0, DPCM comes first; base 2000 = 0x7d0 at bit 48,
// position 0, shift 0, all differences 0.
// 0 4095 0 4095 ...: MinMax codes it exactly: prefix 0xbf, min 0 at bit 28, max 0xfff at bit 16,
// symbols 1 2 1 2 1 2 1 2 from bit 14 down = 0b0110011001100110 = 0x6666.
const EncodeCase kEncodeCases[] = {
    {"flat", {2000, 2000, 2000, 2000, 2000, 2000, 2000, 2000}, 0x97d0000000000000ull},
    {"alternating", {0, 4095, 0, 4095, 0, 4095, 0, 4095}, 0xbf0000000fff6666ull},
};

class FastPath : public ::testing::TestWithParam<fbc::CodecVariant> {
protected:
    FastPath() : codec("FBC", false) {
        codec.setSWinit();
        codec.setEnable(true);
    }
    Compression1x8 codec;
};

TEST_P(FastPath, EncodesHandWorkedBlocks) {
    for (const EncodeCase& c : kEncodeCases) {
        std::uint64_t code = 0;
        fbc::FastEncoder(codec, &GetParam()).encodeRow(c.px, 8, false, &code);
        EXPECT_EQ(code, c.code) << c.name;
    }
}

TEST_P(FastPath, DecodesTruncateUnderRoundingRegisters) {
    // Prefix 11, sel 0, every field 0: the middle of the first interval, 1 << 4 = 16, shifted
    // out by 4 more = 256; with round-zero a zero field rebuilds as 0.
    const unsigned char bytes[8] = {0, 0, 0, 0, 0, 0, 0, 0xc0};
    std::uint16_t out[8];
    fbc::FastDecoder(codec, &GetParam()).decodeRow(bytes, 8, out);
    for (std::uint16_t v : out) EXPECT_EQ(v, 256);
    codec.reg_comp_de_tr_round_zero = 1;
    fbc::FastDecoder(codec, &GetParam()).decodeRow(bytes, 8, out);
    for (std::uint16_t v : out) EXPECT_EQ(v, 0);
}

TEST_P(FastPath, ShortRowKeepsOnlyItsPixels) {
    // Flat 2000 code; a 5-pixel row writes 5 values of 2000 << 4 = 32000 and nothing after.
    const unsigned char bytes[8] = {0, 0, 0, 0, 0, 0, 0xd0, 0x97};
    std::uint16_t out[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    fbc::FastDecoder(codec, &GetParam()).decodeRow(bytes, 5, out);
    const std::uint16_t want[8] = {32000, 32000, 32000, 32000, 32000, 1, 1, 1};
    for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], want[i]) << i;
}

std::vector<fbc::CodecVariant> variants() { return fbc::supportedVariants(); }

std::string variantName(const ::testing::TestParamInfo<fbc::CodecVariant>& v) { return v.param.name; }

INSTANTIATE_TEST_SUITE_P(Variants, FastPath, ::testing::ValuesIn(variants()), variantName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FastPath);

TEST(FastPathChecker, EveryVariantMatchesTheReference) {
    fbc::SelfTestOptions o;
    o.count = 150;
    const fbc::SelfTestResult r = fbc::runSelfTest(o);
    EXPECT_TRUE(r.ok) << r.report;
    EXPECT_EQ(r.checks.size(), 2 * fbc::supportedVariants().size());
}

}  // namespace
