// The fast path against the scalar reference: hand-worked blocks through every variant the host
// runs, and the seeded checker over random blocks, codes and registers.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCheck.h"
#include "codec/FastCodec.h"
#include "image/Frame.h"

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

// Seventeen blocks: a full vector group on every variant plus a tail, the modes taking turns.
// DPCM flat 2000 -> 2000 << 4 = 32000; Truncate with every field 0 -> the middle of the first
// interval, 16 << 4 = 256 (0 with round-zero); MinMax min 0 max 4095 symbols 1 2 1 2 ... ->
// 0, 4095 << 4 = 65520 alternating; Hadamard all zero -> 0.
constexpr int kMixedBlocks = 17;
const std::uint64_t kMixedCodes[4] = {0x97d0000000000000ull, 0xc000000000000000ull,
                                      0xbf0000000fff6666ull, 0};

std::vector<unsigned char> mixedRow() {
  std::vector<unsigned char> bytes(8 * kMixedBlocks);
  for (int b = 0; b < kMixedBlocks; ++b) fbc::storeCode(kMixedCodes[b % 4], &bytes[8 * b]);
  return bytes;
}

std::int32_t mixedPixel(int i, bool roundZero) {
  switch (i / 8 % 4) {
    case 0:
      return 32000;
    case 1:
      return roundZero ? 0 : 256;
    case 2:
      return (i & 1) ? 65520 : 0;
    default:
      return 0;
  }
}

TEST_P(FastPath, DecodesMixedGroupsIntoBothSampleWidths) {
  const std::vector<unsigned char> bytes = mixedRow();
  for (const bool roundZero : {false, true}) {
    codec.reg_comp_de_tr_round_zero = roundZero;
    std::vector<std::uint16_t> out16(8 * kMixedBlocks);
    std::vector<std::int32_t> out32(8 * kMixedBlocks);
    fbc::FastDecoder(codec, &GetParam()).decodeRow(bytes.data(), 8 * kMixedBlocks, out16.data());
    fbc::FastDecoder(codec, &GetParam()).decodeRow(bytes.data(), 8 * kMixedBlocks, out32.data());
    for (int i = 0; i < 8 * kMixedBlocks; ++i) {
      EXPECT_EQ(out16[i], mixedPixel(i, roundZero)) << "pixel " << i << " round-zero " << roundZero;
      EXPECT_EQ(out32[i], mixedPixel(i, roundZero)) << "pixel " << i << " round-zero " << roundZero;
    }
  }
}

TEST(FastPathFrame, LargeFrameDecodesFromItsSamplesPastTheCaches) {
  // 2048 x 1100 32-bit pixels (9 MB, above the streaming threshold): the mixed row's codes
  // repeated, one code byte per sample with noise above it, decode to the mixed pixels.
  const int width = 2048, height = 1100;
  const std::vector<unsigned char> row = mixedRow();
  Compression1x8 codec("FBC", false);
  codec.setSWinit();
  codec.setEnable(true);
  Frame in;
  in.create(width, height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      in.data[y * width + x] = row[x % row.size()] | (x * 0x3100 + y * 0x700);
  Frame out;
  out.create(width, height);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(out.data) % 64, 0u);
  codec.DecompressFrame(in, out, -1);
  int wrong = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      wrong += out.data[y * width + x] != mixedPixel(static_cast<int>(x % row.size()), false);
  EXPECT_EQ(wrong, 0);
}

TEST_P(FastPath, EncodesGroupsAndTail) {
  // Seventeen flat-2000 blocks and one 0 4095 ... block: the codes of the hand-worked cases.
  std::vector<int> px(8 * 18, 2000);
  for (int i = 0; i < 8; ++i) px[8 * 17 + i] = (i & 1) ? 4095 : 0;
  std::vector<std::uint64_t> codes(18);
  fbc::FastEncoder(codec, &GetParam()).encodeRow(px.data(), 8 * 18, false, codes.data());
  for (int b = 0; b < 17; ++b) EXPECT_EQ(codes[b], kEncodeCases[0].code) << b;
  EXPECT_EQ(codes[17], kEncodeCases[1].code);
}

// 2000 2010 2000 2000 2000 2000 2000 2030 coded by an edge member after remapping DPCM to it.
// DPCM codes the block exactly (range 30, step 1) and wins at cost 0, so no lane needs the edge
// members' trial; the member's fields still come from its own statistics. Head range 10 is below
// the tail's 30: direction 1 (the head), and 10 > 7 gives shift 1 (half 1). Base 2000; index of
// 2010 is (10 + 1) >> 1 = 5, of 2000 is 0; the coarse pixels keep 2000 or 2030 without their
// dropped bits.
// Edge2: prefix 0xa at 60, shift 1 at 58, direction at 57, base 250 (2000 >> 3) at 6, indices
// 0 5 at 0 and 3, six 7-bit fields from bit 15: 62 x5, 2030 >> 5 = 63.
// Edge4: prefix 0x16 at 59, shift 1 at 57, direction at 56, base 500 (2000 >> 2) at 12, indices
// 0 5 0 0, fields 125 (8 bits) at 22, 250 (9) at 30, 250 (9) at 39, 2030 >> 4 = 126 (8) at 48.
struct RemapCase {
  const char* name;
  int member;
  bool edgesEnabled;
  std::uint64_t code;
};
const RemapCase kRemapCases[] = {
    {"edge2", fbc::kModeEdge2, true, 0xa6fdf3e7cf9f3ea8ull},
    {"edge4 with every edge member disabled", fbc::kModeEdge4, false, 0xb37e7d3e9f5f4028ull},
};

TEST_P(FastPath, CalmGroupRemappedToAnEdgeMemberHasItsFields) {
  const int block[8] = {2000, 2010, 2000, 2000, 2000, 2000, 2000, 2030};
  std::vector<int> px;
  for (int b = 0; b < 17; ++b) px.insert(px.end(), block, block + 8);
  for (const RemapCase& c : kRemapCases) {
    codec.setSWinit();
    codec.setEnable(true);
    codec.reg_mode_definition[fbc::kModeDpcm] = c.member;
    for (int m = fbc::kModeEdge2; m <= fbc::kModeEdge7; ++m) codec.reg_mode_en[m] = c.edgesEnabled;
    std::vector<std::uint64_t> codes(17);
    fbc::FastEncoder(codec, &GetParam()).encodeRow(px.data(), 8 * 17, false, codes.data());
    for (int b = 0; b < 17; ++b) EXPECT_EQ(codes[b], c.code) << c.name << ", block " << b;
    EXPECT_EQ(codec.encodeBlock(block, false), c.code) << c.name << ", reference";
  }
}

TEST_P(FastPath, MovesCodeBytesAndChecksRange) {
  // 21 values: a full vector and a tail on every variant.
  const unsigned char bytes[21] = {0,  1,  2,  127, 128, 254, 255, 7,  8,  9,  10,
                                   11, 12, 13, 14,  15,  16,  17,  18, 19, 200};
  std::int32_t wide[21];
  GetParam().widenBytes(bytes, 21, wide);
  for (int i = 0; i < 21; ++i) EXPECT_EQ(wide[i], bytes[i]) << i;
  // The low byte of each sample: 263 = 0x107 -> 7, -1 -> 255, 4095 = 0xfff -> 255.
  std::int32_t samples[21] = {263, -1, 4095};
  for (int i = 3; i < 21; ++i) samples[i] = i;
  unsigned char narrow[21];
  GetParam().narrowBytes(samples, 21, narrow);
  EXPECT_EQ(narrow[0], 7);
  EXPECT_EQ(narrow[1], 255);
  EXPECT_EQ(narrow[2], 255);
  for (int i = 3; i < 21; ++i) EXPECT_EQ(narrow[i], i) << i;
  std::int32_t range[21] = {};
  range[20] = 4095;
  EXPECT_TRUE(GetParam().inRange(range, 21));
  range[20] = 4096;
  EXPECT_FALSE(GetParam().inRange(range, 21));
  range[20] = 0;
  range[3] = -1;
  EXPECT_FALSE(GetParam().inRange(range, 21));
  EXPECT_TRUE(GetParam().inRange(range, 3));
}

std::vector<fbc::CodecVariant> variants() {
  return fbc::supportedVariants();
}

std::string variantName(const ::testing::TestParamInfo<fbc::CodecVariant>& v) {
  return v.param.name;
}

INSTANTIATE_TEST_SUITE_P(Variants, FastPath, ::testing::ValuesIn(variants()), variantName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FastPath);

TEST(FastPathChecker, EveryVariantMatchesTheReference) {
  fbc::SelfTestOptions o;
  o.count = 150;
  const fbc::SelfTestResult r = fbc::runSelfTest(o);
  EXPECT_TRUE(r.ok) << r.report;
  // encode, decode, bytes per variant, and the threaded frame drivers on the active path
  EXPECT_EQ(r.checks.size(), 3 * fbc::supportedVariants().size() + 1);
  EXPECT_EQ(r.checks.back().rfind("threads[", 0), 0u) << r.checks.back();
}

// Variants with one planted fault each, built around the host's first variant: the checker's
// poisoned rows and guard elements must catch every one of them.
fbc::CodecVariant gReal;

void decodeRowPastEnd(const fbc::x86::DecodeParams& p, const unsigned char* codes, int width,
                      std::uint16_t* out) {
  gReal.decodeRow(p, codes, width, out);
  out[width] = out[width - 1];
}
void decodeRow32SkipsLast(const fbc::x86::DecodeParams& p, const unsigned char* codes, int width,
                          std::int32_t* out) {
  std::vector<std::int32_t> row(width);
  gReal.decodeRow32(p, codes, width, row.data());
  std::copy(row.begin(), row.end() - 1, out);
}
void decodeFrameRowBeforeStart(const fbc::x86::DecodeParams& p, const std::int32_t* codes,
                               int width, std::int32_t* out) {
  gReal.decodeFrameRow(p, codes, width, out);
  out[-1] = out[0];
}
void encodeRowSkipsLast(const fbc::x86::EncodeParams& p, const int* px, int width, int sel,
                        std::uint64_t* codes) {
  std::vector<std::uint64_t> row((width + 7) / 8);
  gReal.encodeRow(p, px, width, sel, row.data());
  std::copy(row.begin(), row.end() - 1, codes);
}
void narrowBytesPastEnd(const std::int32_t* in, int n, unsigned char* out) {
  gReal.narrowBytes(in, n, out);
  out[n] = 0;
}

struct PlantedFault {
  const char* filter;
  void (*plant)(fbc::CodecVariant&);
  const char* report;  // what the checker's report must say
};
const PlantedFault kPlantedFaults[] = {
    {"decode", [](fbc::CodecVariant& v) { v.decodeRow = decodeRowPastEnd; },
     "16-bit output writes element"},
    {"decode", [](fbc::CodecVariant& v) { v.decodeRow32 = decodeRow32SkipsLast; }, "(32-bit)"},
    {"decode", [](fbc::CodecVariant& v) { v.decodeFrameRow = decodeFrameRowBeforeStart; },
     "output from frame samples writes element -1"},
    {"encode", [](fbc::CodecVariant& v) { v.encodeRow = encodeRowSkipsLast; },
     "0xbfffffffffffffff"},
    {"bytes", [](fbc::CodecVariant& v) { v.narrowBytes = narrowBytesPastEnd; },
     "narrowing writes element"},
};

TEST(FastPathChecker, CatchesSkippedPixelsAndWritesOutsideTheRow) {
  if (fbc::supportedVariants().empty()) GTEST_SKIP() << "no vector variant on this host";
  gReal = fbc::supportedVariants().front();
  for (const PlantedFault& f : kPlantedFaults) {
    fbc::CodecVariant faulty = gReal;
    f.plant(faulty);
    fbc::SelfTestOptions o;
    o.count = 50;
    o.filter = f.filter;
    const fbc::SelfTestResult r = fbc::runSelfTest(o, {faulty});
    EXPECT_FALSE(r.ok) << f.report;
    EXPECT_NE(r.report.find(f.report), std::string::npos) << r.report;
    std::ostringstream out, err;
    EXPECT_FALSE(fbc::printSelfTest(r, out, err));
    EXPECT_EQ(err.str(), r.report);  // the mismatch on the error stream, nothing on the output
    EXPECT_EQ(out.str(), "");
  }
}

}  // namespace
