// The codec block: register binding and defaults, the IP-block operations, block dispatch.
#include "codec/Compression1x8.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "image/Frame.h"

using namespace fbc;

namespace fbc {

const char* const kModeNames[kModeCount] = {"Hadamard", "Curve", "MinMax", "DPCM",
                                            "Truncate", "Edge2", "Edge3",  "Edge4",
                                            "Edge5",    "Edge6", "Edge7"};

BlockCode packCode(const bool* elements) {
  BlockCode c = 0;
  for (int i = 63; i >= 0; --i) c = (c << 1) | (elements[i] ? 1u : 0u);
  return c;
}

void unpackCode(BlockCode code, bool* elements) {
  for (int i = 0; i < 64; ++i) elements[i] = ((code >> i) & 1) != 0;
}

}  // namespace fbc

namespace {

constexpr int kCurveIn[15] = {32,   512,  2048, 4095, 4095, 4095, 4095, 4095,
                              4095, 4095, 4095, 4095, 4095, 4095, 4095};
constexpr int kCurveOut[15] = {32,  128, 220, 255, 255, 255, 255, 255,
                               255, 255, 255, 255, 255, 255, 255};
constexpr int kCompSlope[16] = {4096, 819, 245, 70};
constexpr int kUncompSlope[16] = {256, 1280, 4274, 14973};

template <std::size_t N>
void assign(int (&dst)[N], const int (&src)[N]) {
  std::copy(std::begin(src), std::end(src), dst);
}

}  // namespace

Compression1x8::Compression1x8(const std::string& name, bool noExecute_)
    : IPBase(name), noExecute(noExecute_) {
  const auto key = [&](const char* k) { return std::make_pair(m_name, std::string(k)); };
  const auto bindInts = [&](int* var, const char* k, int count) {
    bind(var, key(k), 4, false, count);
  };
  bind(&Enable, {"Enable", getEnableKey()}, 4, false, 1);
  bindInts(&reg_compress_edgefisrt_enable, "reg_compress_edgefisrt_enable", 1);
  bindInts(&reg_compress_edgefisrt_finalth, "reg_compress_edgefisrt_finalth", 1);
  bindInts(&reg_compress_edgemin_th, "reg_compress_edgemin_th", 1);
  bindInts(&reg_compress_edgemin_ratio, "reg_compress_edgemin_ratio", 1);
  bindInts(&reg_edge_diffmin_th, "reg_edge_diffmin_th", 1);
  bindInts(&reg_comp_enc_trun_rnd, "reg_comp_enc_trun_rnd", 1);
  bindInts(&reg_comp_de_tr_round_md, "reg_comp_de_tr_round_md", 1);
  bindInts(&reg_comp_de_tr_round_zero, "reg_comp_de_tr_round_zero", 1);
  bindInts(&reg_dpcm_swing_rounder_en, "reg_dpcm_swing_rounder_en", 1);
  bindInts(&reg_dpcm_pmin_lsb_update_en, "reg_dpcm_pmin_lsb_update_en", 1);
  bindInts(&reg_dpcm_stepsize_expansion_en, "reg_dpcm_stepsize_expansion_en", 1);
  bindInts(&reg_tr_ext_en, "reg_tr_ext_en", 1);
  bindInts(&reg_tr_ext_rb, "reg_tr_ext_rb", 1);
  bindInts(reg_mode_en, "reg_mode_en", kModeCount);
  bindInts(reg_mode_definition, "reg_mode_definition", kModeCount);
  bindInts(&reg_curve_mode_en, "reg_curve_mode_en", 1);
  bindInts(reg_comp_lut_in, "reg_comp_lut_in", 15);
  bindInts(reg_comp_lut_out, "reg_comp_lut_out", 15);
  bindInts(reg_comp_lut_slope, "reg_comp_lut_slope", 16);
  bindInts(reg_uncomp_lut_in, "reg_comp_lut_out", 15);
  bindInts(reg_uncomp_lut_out, "reg_comp_lut_in", 15);
  bindInts(reg_uncomp_lut_slope, "reg_uncomp_lut_slope", 16);
  bindInts(&sw_dpcm_swing_en, "sw_dpcm_swing_en", 1);
}

Compression1x8::Compression1x8(const Compression1x8& other)
    : Compression1x8(other.m_name, other.noExecute) {
  m_instanceName = other.m_instanceName;
  copyRegistersFrom(other);
  SwingRowSelect = other.SwingRowSelect;
  FrameWidth = other.FrameWidth;
  Threads = other.Threads;
}

void Compression1x8::copyRegistersFrom(const Compression1x8& other) {
  // Every bound register sits at the same offset in both objects.
  const char* from = reinterpret_cast<const char*>(&other);
  char* to = reinterpret_cast<char*>(this);
  for (const auto& [var, info] : other.bindings()) {
    const int element = info.size == 1 || info.size == 2 ? info.size : 4;
    std::memcpy(to + (static_cast<const char*>(var) - from), var,
                static_cast<std::size_t>(element) * info.count);
  }
}

int Compression1x8::setSWinit() {
  reg_compress_edgefisrt_enable = 1;
  reg_compress_edgefisrt_finalth = 2000;
  reg_compress_edgemin_th = 2000;
  reg_compress_edgemin_ratio = 1;
  reg_edge_diffmin_th = 200;
  reg_comp_enc_trun_rnd = 0;
  reg_comp_de_tr_round_md = 0;
  reg_comp_de_tr_round_zero = 0;
  reg_dpcm_swing_rounder_en = 0;
  reg_dpcm_pmin_lsb_update_en = 0;
  reg_dpcm_stepsize_expansion_en = 0;
  reg_tr_ext_en = 0;
  reg_tr_ext_rb = 0;
  std::fill(std::begin(reg_mode_en), std::end(reg_mode_en), 1);
  for (int m = 0; m < kModeCount; ++m) reg_mode_definition[m] = m;
  reg_curve_mode_en = 0;
  assign(reg_comp_lut_in, kCurveIn);
  assign(reg_comp_lut_out, kCurveOut);
  assign(reg_comp_lut_slope, kCompSlope);
  assign(reg_uncomp_lut_in, kCurveOut);
  assign(reg_uncomp_lut_out, kCurveIn);
  assign(reg_uncomp_lut_slope, kUncompSlope);
  sw_dpcm_swing_en = 0;
  return 1;
}

bool Compression1x8::init(IniFileIO& ini, RegisterTable& regs, TGlobalParam&,
                          std::vector<std::string>& names) {
  return loadParam(ini, regs, names);
}

bool Compression1x8::execute(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam& g) {
  if (noExecute) return true;
  compressDecompressFrame(*in[0], *out[0], g.cfa, g.frameIndex);
  return true;
}

void Compression1x8::setEnable(bool on) {
  Enable = on ? 1 : 0;
}

bool Compression1x8::isEnabled() {
  return Enable == 1;
}

bool Compression1x8::randomSpecificParam(RegisterTable&, TGlobalParam&, bool,
                                         std::vector<std::string>&) {
  sw_dpcm_swing_en = 0;
  return true;
}

int Compression1x8::log2(int v) {
  for (int b = 0; b < 7; ++b)
    if (v & (1 << b)) return b;
  return 0;
}

namespace {

// The block dispatch of the decoder, told by the prefix (Curve by its register).
inline void dispatchDecode(Compression1x8& c, BlockCode code, int* pixels) {
  if (c.reg_curve_mode_en != 0) {
    c.SelectedMode = kModeCurve;
    return c.decodeCurve(code, pixels);
  }
  switch (modeOfCode(code)) {
    case kModeHadamard:
      return Compression1x8::decodeHadama(code, pixels, c.coverage);
    case kModeTruncate:
      return c.decodeTruncate(code, pixels);
    case kModeMinMax:
      return Compression1x8::decodeMinMax(code, pixels);
    case kModeDpcm:
      return Compression1x8::decodeDPCM(code, pixels, c.coverage);
    default:
      return c.decodeEdge(modeOfCode(code) - 3, code, pixels);
  }
}

// Kept out of line, so that the untraced dispatch stays a chain of tail calls.
__attribute__((noinline)) void decodeTraced(Compression1x8& c, BlockCode code, int* pixels) {
  dispatchDecode(c, code, pixels);
  std::copy(pixels, pixels + 8, c.trace->decoded);
}

}  // namespace

void Compression1x8::decodeBlock(BlockCode code, int* pixels) {
  if (trace) return decodeTraced(*this, code, pixels);
  dispatchDecode(*this, code, pixels);
}

void Compression1x8::startFrame(int width, int frameIndex) {
  FrameWidth = width;
  SwingRowSelect = sw_dpcm_swing_en != 0 ? (frameIndex & 1) : reg_dpcm_swing_rounder_en;
}

void Compression1x8::Decode_bitstream(bool* code, int* pixels) {
  decodeBlock(packCode(code), pixels);
}
