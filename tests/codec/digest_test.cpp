// Regression guard: the compressed bytes and decoded pixels of a fixed mixed-content frame under
// several register sets, reduced to 64-bit digests recorded from the reviewed reference codec.
// Any change to a mode, to selection or to the drivers that alters one output bit shows here.
#include <cstdint>

#include "codec_fixture.h"
#include "image/Frame.h"
#include "tests/TestFiles.h"

namespace {

// 256 x 64 pixels: bands of ramps, flat areas, two-level strokes, end runs and noise.
Frame mixedFrame() {
  const int w = 256, h = 64;
  Frame f(w, h, Frame::CS_RAW, 12);
  std::uint32_t s = 12345;
  const auto next = [&s] { return s = s * 1664525u + 1013904223u; };
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      int v;
      switch ((y / 8 + x / 64) % 6) {
        case 0:
          v = (x * 13 + y * 7) & 4095;
          break;
        case 1:
          v = 2000 + static_cast<int>(next() % 5);
          break;
        case 2:
          v = (next() & 1) ? 300 : 3500;
          break;
        case 3:
          v = (x & 7) >= 5 ? 1000 + static_cast<int>(next() % 9) : static_cast<int>(next() % 4096);
          break;
        case 4:
          v = (x & 7) < 3 ? 64 + static_cast<int>(next() % 40) : static_cast<int>(next() % 4096);
          break;
        default:
          v = static_cast<int>(next() % 4096);
      }
      f.GetPixel(x, y) = v;
    }
  }
  return f;
}

}  // namespace

TEST(CodecDigest, FixedFrameUnderRegisterSets) {
  struct Case {
    const char* name;
    void (*apply)(Compression1x8&);
  } cases[] = {
      {"defaults", [](Compression1x8&) {}},
      {"plain_policy", [](Compression1x8& c) { c.reg_compress_edgefisrt_enable = 0; }},
      {"policy_2", [](Compression1x8& c) { c.reg_compress_edgefisrt_enable = 2; }},
      {"truncate_options",
       [](Compression1x8& c) {
         c.reg_tr_ext_en = 1;
         c.reg_tr_ext_rb = 1;
         c.reg_comp_enc_trun_rnd = 1;
         c.reg_comp_de_tr_round_zero = 1;
       }},
      {"dpcm_options",
       [](Compression1x8& c) {
         c.reg_dpcm_stepsize_expansion_en = 1;
         c.reg_dpcm_pmin_lsb_update_en = 1;
         c.reg_dpcm_swing_rounder_en = 1;
         c.sw_dpcm_swing_en = 1;
         c.reg_comp_de_tr_round_md = 1;
       }},
      {"thresholds",
       [](Compression1x8& c) {
         c.reg_compress_edgefisrt_finalth = 30;
         c.reg_compress_edgemin_th = 100;
         c.reg_compress_edgemin_ratio = 3;
         c.reg_edge_diffmin_th = 40;
         c.reg_mode_en[fbc::kModeHadamard] = 0;
         c.reg_mode_definition[fbc::kModeEdge2] = fbc::kModeTruncate;
       }},
      {"curve", [](Compression1x8& c) { c.reg_curve_mode_en = 1; }},
  };
  const auto digests = fbc::test::readDigests(FBC_SOURCE_DIR "/tests/codec/data/digests.txt");
  const Frame in = mixedFrame();
  for (const Case& c : cases) {
    Compression1x8 codec("FBC", false);
    codec.setSWinit();
    codec.setEnable(true);
    c.apply(codec);
    std::uint64_t h = 0xcbf29ce484222325ull;  // words hashed as their 4 little-endian bytes
    for (int frame = 0; frame < 2; ++frame) {
      Frame comp;
      codec.allocateCompressedFrame(in.width, in.height, comp);
      codec.CompressFrame(in, comp, 1, frame);
      Frame out(in.width, in.height, Frame::CS_RAW, 16);
      codec.DecompressFrame(comp, out, frame);
      h = fbc::test::fnv1a(comp.data, comp.size() * sizeof(PIXEL), h);
      h = fbc::test::fnv1a(out.data, out.size() * sizeof(PIXEL), h);
    }
    EXPECT_EQ(h, digests.at(c.name)) << c.name << ": 0x" << std::hex << h;
  }
}
