// The decision trace and the cover points of the reference path.
#include <set>
#include <string>

#include "codec_fixture.h"
#include "image/Frame.h"

using namespace fbc;

namespace {

// Every bit of a code belongs to exactly one field of its mode's table.
TEST(CodeFields, TileTheSixtyFourBits) {
  std::vector<std::pair<int, BlockCode>> codes;
  for (int m = 0; m < kModeCount; ++m) codes.push_back({m, 0});
  for (BlockCode pos = 0; pos < 8; ++pos) codes.push_back({kModeDpcm, pos << 3});
  for (const auto& [mode, code] : codes) {
    CodeField f[kMaxCodeFields];
    const int n = codeFields(code, mode, f);
    BlockCode seen = 0;
    for (int i = 0; i < n; ++i) {
      const BlockCode bits = putField(-1, f[i].lo, f[i].width);
      EXPECT_EQ(seen & bits, 0u) << kModeNames[mode] << " field " << f[i].name << f[i].index;
      seen |= bits;
    }
    EXPECT_EQ(seen, ~BlockCode{0}) << kModeNames[mode];
  }
}

TEST(CoverPoints, NamesAreUniqueAndDescribed) {
  std::set<std::string> names;
  for (int p = 0; p < kCoverPointCount; ++p) {
    const CoverPointInfo& info = coverPointInfo(p);
    EXPECT_TRUE(names.insert(info.name).second) << info.name;
    EXPECT_GT(std::string(info.description).size(), 10u) << info.name;
    EXPECT_EQ(coverPointByName(info.name), p);
  }
}

class Instrumented : public CodecTest {
 protected:
  Instrumented() {
    codec.trace = &t;
    codec.coverage = &cov;
  }
  BlockCode code(std::initializer_list<int> pixels) {
    std::copy(pixels.begin(), pixels.end(), block);
    const BlockCode c = codec.encodeBlock(block, false);
    int out[8];
    codec.decodeBlock(c, out);
    return c;
  }
  BlockTrace t;
  Coverage cov;
};

// Blocks worked out by hand under the default registers (edge-first policy, thresholds 2000)
// plus one register change; the points each must hit and some it must not.
TEST_F(Instrumented, BlocksHitTheirPoints) {
  struct Case {
    const char* what;
    std::initializer_list<int> pixels;
    void (*regs)(Compression1x8&);
    std::vector<const char*> hit, missed;
  } cases[] = {
      // Flat: DPCM, MinMax and Hadamard all cost 0, DPCM first; every edge group range 0.
      {"flat",
       {100, 100, 100, 100, 100, 100, 100, 100},
       [](Compression1x8&) {},
       {"mode.dpcm", "rule.kept_under_final", "tie.non_edge_winner", "dpcm.shift0",
        "hadamard.shift3", "edge2.eligible", "edge7.eligible", "edge.tail_group"},
       {"rule.edge_taken", "edge.head_group", "dpcm.not_applicable", "edge2.ineligible"}},
      // Two levels 4095 apart: MinMax exact, and Hadamard too (DC 2048, AC 7 = -64 at step 256,
      // 4096 clamped); DPCM and every edge member cannot code it.
      {"two levels",
       {0, 4095, 0, 4095, 0, 4095, 0, 4095},
       [](Compression1x8&) {},
       {"mode.minmax", "rule.kept_under_final", "tie.non_edge_winner", "hadamard.shift0",
        "dpcm.not_applicable", "edge2.ineligible", "edge7.ineligible"},
       {"edge2.eligible", "decode.hadamard_clamp4095"}},
      {"curve",
       {100, 100, 100, 100, 100, 100, 100, 100},
       [](Compression1x8& c) { c.reg_curve_mode_en = 1; },
       {"mode.curve", "curve.forced"},
       {"mode.dpcm", "remap.dpcm"}},
      {"remap",
       {100, 100, 100, 100, 100, 100, 100, 100},
       [](Compression1x8& c) { c.reg_mode_definition[kModeDpcm] = kModeTruncate; },
       {"remap.dpcm", "mode.truncate", "truncate.ext_off_sel0", "round.dec_truncate_mid"},
       {"mode.dpcm", "truncate.ext_off_sel1", "remap.unknown"}},
      {"remap unknown",
       {100, 100, 100, 100, 100, 100, 100, 100},
       [](Compression1x8& c) { c.reg_mode_definition[kModeDpcm] = 13; },
       {"remap.dpcm", "remap.unknown", "mode.truncate"},
       {}},
  };
  for (const Case& k : cases) {
    codec.setSWinit();
    k.regs(codec);
    cov = Coverage{};
    code(k.pixels);
    for (const char* p : k.hit) EXPECT_GT(cov.hits[coverPointByName(p)], 0u) << k.what << ": " << p;
    for (const char* p : k.missed)
      EXPECT_EQ(cov.hits[coverPointByName(p)], 0u) << k.what << ": " << p;
  }
}

// Hadamard DC and AC 1 = +63 at step 256 put +-2016 on the two halves of the block.
TEST_F(Instrumented, HadamardDecoderClamps) {
  int out[8];
  codec.decodeBlock(putField(63, 42, 7), out);  // DC 0: the second half clamps at 0
  EXPECT_EQ(out[0], 2016);
  EXPECT_EQ(out[7], 0);
  EXPECT_EQ(cov.hits[kCoverDecHadamardClamp0], 4u);
  codec.decodeBlock(putField(4095, 49, 12) | putField(63, 42, 7), out);
  EXPECT_EQ(out[0], 4095);
  EXPECT_EQ(cov.hits[kCoverDecHadamardClamp4095], 4u);
}

// The trace of a flat block: costs, rule, code and decoded pixels.
TEST_F(Instrumented, TraceOfAFlatBlock) {
  const BlockCode c = code({100, 100, 100, 100, 100, 100, 100, 100});
  EXPECT_EQ(t.rule, kRuleKeptUnderFinal);
  EXPECT_EQ(t.selected, kModeDpcm);
  EXPECT_EQ(t.mode, kModeDpcm);
  EXPECT_EQ(t.code, c);
  EXPECT_EQ(c, 0x9064000000000000u);       // prefix 1001, base 100, all deltas, pminpos and shift 0
  EXPECT_EQ(t.maxerr[kModeTruncate], 12);  // 100 & 31 = 4: |4 - 16|
  EXPECT_EQ(t.sad[kModeTruncate], 96);
  EXPECT_FALSE(t.hasCost[kModeCurve]);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(t.decoded[i], 100);
}

}  // namespace

namespace {

// Attached coverage sends the frame drivers down the reference path: the same frames, and one
// mode point per block coded.
TEST(InstrumentedFrames, SameFramesAndOneModePerBlock) {
  Compression1x8 plain("FBC", false), counted("FBC", false);
  for (Compression1x8* c : {&plain, &counted}) {
    c->setSWinit();
    c->setEnable(true);
  }
  fbc::Coverage cov;
  counted.coverage = &cov;
  Frame in(37, 5, Frame::CS_RAW, 12);
  for (std::size_t i = 0; i < in.size(); ++i)
    in.data[i] = static_cast<int>((i * 2654435761u) >> 20) & 4095;
  Frame a(37, 5, Frame::CS_RAW, 16), b(37, 5, Frame::CS_RAW, 16);
  plain.compressDecompressFrame(in, a, 1, 0);
  counted.compressDecompressFrame(in, b, 1, 0);
  EXPECT_TRUE(std::equal(a.data, a.data + a.size(), b.data));
  std::uint64_t modes = 0;
  for (int m = 0; m < kModeCount; ++m) modes += cov.hits[kCoverModeHadamard + m];
  EXPECT_EQ(modes, 5u * 5u);  // 5 rows of 5 blocks, the last one short
}

}  // namespace
