// Variant table, register resolution and the row drivers of the fast path.
#include "codec/FastCodec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "codec/Compression1x8.h"

namespace fbc {

namespace {

#define FBC_VARIANT(name, isa)                                                                   \
  CodecVariant {                                                                                 \
    name, x86::encodeRow##isa, x86::decodeRow##isa, x86::decodeRow32##isa,                       \
        x86::decodeFrameRow##isa, x86::inRange##isa, x86::widenBytes##isa, x86::narrowBytes##isa \
  }

std::vector<CodecVariant> detectVariants() {
  std::vector<CodecVariant> v;
#if defined(FBC_HAVE_X86_KERNELS)
  __builtin_cpu_init();
#if defined(FBC_HAVE_AVX512_TU)
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq"))
    v.push_back(FBC_VARIANT("avx512", Avx512));
#endif
#if defined(FBC_HAVE_AVX2_TU)
  if (__builtin_cpu_supports("avx2")) v.push_back(FBC_VARIANT("avx2", Avx2));
#endif
  v.push_back(FBC_VARIANT("sse2", Sse2));
#elif defined(FBC_HAVE_NEON_KERNELS)
  v.push_back(FBC_VARIANT("neon", Neon));
#endif
  return v;
}

bool forceScalar() {
  const char* e = std::getenv("FBC_FORCE_SCALAR");
  return e != nullptr && *e != '\0' && std::strcmp(e, "0") != 0;
}

// Bit i set when pixel i keeps one bit more under Truncate selector `sel`.
int fineMask(const Compression1x8& c, int sel) {
  int mask = 0;
  for (int i = 0; i < 8; ++i) mask |= c.truncationFine(i, sel) ? 1 << i : 0;
  return mask;
}

// Block b of a row of `width` pixels; a short last block is copied into `pad`, zeros after it.
const int* blockOf(const int* row, int width, int b, int (&pad)[8]) {
  if (8 * b + 8 <= width) return row + 8 * b;
  std::fill(std::begin(pad), std::end(pad), 0);
  std::copy(row + 8 * b, row + width, pad);
  return pad;
}

}  // namespace

const std::vector<CodecVariant>& supportedVariants() {
  static const std::vector<CodecVariant> variants = detectVariants();
  return variants;
}

const CodecVariant* activeVariant() {
  static const CodecVariant* const active =
      forceScalar() || supportedVariants().empty() ? nullptr : &supportedVariants().front();
  return active;
}

x86::EncodeParams makeEncodeParams(const Compression1x8& c) {
  x86::EncodeParams p{};
  for (int m = 0; m < kModeCount; ++m) p.modeEnabled[m] = c.reg_mode_en[m] != 0;
  p.policy = c.reg_compress_edgefisrt_enable;
  p.finalTh = c.reg_compress_edgefisrt_finalth;
  p.edgeMinTh = c.reg_compress_edgemin_th;
  p.ratio = static_cast<std::int32_t>(static_cast<std::uint32_t>(c.reg_compress_edgemin_ratio));
  p.diffminTh = c.reg_edge_diffmin_th;
  for (int sel = 0; sel < 2; ++sel) p.truncFine[sel] = fineMask(c, sel);
  // The encoder's rounding of a zero pixel is what it adds to every pixel below the clamp.
  for (int d = 1; d < 6; ++d) p.encHalf[d] = c.truncationRounded(0, d);
  p.dpcmMaxShift = c.dpcmMaxShift();
  for (int s = 0; s < 7; ++s) p.dpcmRounder[s] = c.dpcmRounder(s);
  p.dpcmLsbUpdate = c.reg_dpcm_pmin_lsb_update_en != 0;
  for (int m = 0; m < kModeCount; ++m)
    p.encoderOf[m] = static_cast<std::int8_t>(Compression1x8::encoderOf(c.remapMode(m)));
  return p;
}

void makeDecodeParams(const Compression1x8& c, x86::DecodeParams& p) {
  p.curve = c.reg_curve_mode_en != 0;
  p.streamOut = 0;
  for (int sel = 0; sel < 2; ++sel) p.truncFine[sel] = fineMask(c, sel);
  for (int d = 1; d < 6; ++d) {
    p.rebuildOffset[0][d] = c.truncationOffset(1, d);
    p.rebuildOffset[1][d] = c.truncationOffset(0, d);
  }
  if (p.curve) {
    for (int y = 0; y < 256; ++y) p.curveOut[y] = static_cast<std::uint16_t>(c.curveUncompress(y));
  }
}

FastEncoder::FastEncoder(Compression1x8& codec, const CodecVariant* variant)
    : codec_(codec),
      variant_(variant),
      params_(makeEncodeParams(codec)),
      curve_(codec.reg_curve_mode_en != 0) {
  if (curve_ && variant_) {
    curveLut_.resize(4096);
    for (int x = 0; x < 4096; ++x) curveLut_[x] = static_cast<std::uint8_t>(codec.curveCompress(x));
  }
}

void FastEncoder::encodeRow(const int* row, int width, bool parity, BlockCode* codes) {
  const int blocks = (width + 7) / 8;
  int pad[8];
  if (variant_ == nullptr || !variant_->inRange(row, width)) {
    for (int b = 0; b < blocks; ++b)
      codes[b] = codec_.encodeBlock(blockOf(row, width, b, pad), parity);
    return;
  }
  if (curve_) {
    // Curve coding ignores every cost: each pixel goes through the curve, here a table.
    for (int b = 0; b < blocks; ++b) {
      const int* px = blockOf(row, width, b, pad);
      std::uint8_t v[8];
      for (int i = 0; i < 8; ++i) v[i] = curveLut_[px[i]];
      codes[b] = Compression1x8::packCurve(v);
    }
    return;
  }
  variant_->encodeRow(params_, row, width, codec_.truncationSelect(parity), codes);
}

FastDecoder::FastDecoder(Compression1x8& codec, const CodecVariant* variant)
    : codec_(codec), variant_(variant) {
  if (variant_) makeDecodeParams(codec, params_);
}

template <class Out>
void FastDecoder::decodeRowReference(const unsigned char* codes, int width, Out* out) {
  for (int x = 0; x < width; x += 8) {
    int px[8];
    codec_.decodeBlock(loadCode(codes + x), px);
    const int n = std::min(width - x, 8);
    for (int i = 0; i < n; ++i) out[x + i] = static_cast<Out>(px[i] << 4);
  }
}

void FastDecoder::decodeRow(const unsigned char* codes, int width, std::uint16_t* out) {
  if (variant_ == nullptr) return decodeRowReference(codes, width, out);
  variant_->decodeRow(params_, codes, width, out);
}

void FastDecoder::decodeRow(const unsigned char* codes, int width, std::int32_t* out) {
  if (variant_ == nullptr) return decodeRowReference(codes, width, out);
  variant_->decodeRow32(params_, codes, width, out);
}

void FastDecoder::decodeRow(const std::int32_t* samples, int width, std::int32_t* out) {
  if (variant_ == nullptr) {
    bytes_.resize(static_cast<std::size_t>((width + 7) & ~7));
    for (std::size_t i = 0; i < bytes_.size(); ++i)
      bytes_[i] = static_cast<unsigned char>(samples[i]);
    return decodeRowReference(bytes_.data(), width, out);
  }
  variant_->decodeFrameRow(params_, samples, width, out);
}

}  // namespace fbc
