// Curve mode: every 12-bit pixel goes through a piecewise-linear tone curve to 8 bits, and the
// eight bytes are the whole block code (byte i = pixel i), with no prefix. A stream is known to
// be curve-coded only from reg_curve_mode_en. Each curve has 15 segment-end points and 16 slopes:
// slope 0 covers 0..point 0, slope k the segment ending at point k, slope 15 everything above
// point 14. Compression slopes carry 12 fractional bits, decompression slopes 8.
#include <algorithm>
#include <cstdint>

#include "codec/Compression1x8.h"

namespace {

// The data path multiplies and subtracts in 32 bits; wrap exactly as it does, without relying
// on signed overflow.
inline std::int32_t wrap32(std::int64_t v) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(v));
}

// The curve above its first point.
std::int64_t lookupCurve(int x, const int* in, const int* out, const int* slope, int shift) {
  int k = 1;
  while (k < 15 && in[k] < x) ++k;
  const int base = k == 15 ? 14 : k - 1;
  const std::int64_t d =
      wrap32(static_cast<std::int64_t>(slope[k]) * wrap32(static_cast<std::int64_t>(x) - in[base]));
  const std::int64_t h = std::int64_t{1} << (shift - 1);
  // A falling or flat segment rounds symmetrically.
  if (slope[k] >= 1) return out[base] + ((d + h) >> shift);
  return out[base] - ((h - d) >> shift);
}

// The curve at or below its first point: a line through the origin.
std::int64_t originSegment(int x, int slope0, int shift) {
  const std::int64_t sx = wrap32(static_cast<std::int64_t>(slope0) * x);
  const std::int64_t h = std::int64_t{1} << (shift - 1);
  if (slope0 > 0) return (sx + h) >> shift;
  return -((-sx + h) >> shift);
}

// `cov` counts the decoder's clamps.
int applyCurve(int x, const int* in, const int* out, const int* slope, int shift, int maxOut,
               fbc::Coverage* cov = nullptr) {
  const std::int64_t v =
      x > in[0] ? lookupCurve(x, in, out, slope, shift) : originSegment(x, slope[0], shift);
  if (cov && (v < 0 || v > maxOut))
    fbc::cover(cov, v < 0 ? fbc::kCoverDecCurveClamp0 : fbc::kCoverDecCurveClamp4095);
  return static_cast<int>(std::clamp<std::int64_t>(v, 0, maxOut));
}

// The decompression curve (the compression curve read backwards).
int uncompress(const Compression1x8& c, int y, fbc::Coverage* cov) {
  return applyCurve(y, c.reg_uncomp_lut_in, c.reg_uncomp_lut_out, c.reg_uncomp_lut_slope, 8, 4095,
                    cov);
}

}  // namespace

int Compression1x8::curveCompress(int x) const {
  return applyCurve(x, reg_comp_lut_in, reg_comp_lut_out, reg_comp_lut_slope, 12, 255);
}

int Compression1x8::curveUncompress(int y) const {
  return uncompress(*this, y, nullptr);
}

fbc::BlockCode Compression1x8::packCurve(const std::uint8_t* values) {
  fbc::BlockCode c = 0;
  for (int i = 0; i < 8; ++i) c |= fbc::putField(values[i], 8 * i, 8);
  return c;
}

fbc::BlockCode Compression1x8::encodeCurve(const int* p) const {
  std::uint8_t v[8];
  for (int i = 0; i < 8; ++i) v[i] = static_cast<std::uint8_t>(curveCompress(p[i]));
  return packCurve(v);
}

void Compression1x8::decodeCurve(fbc::BlockCode code, int* out) const {
  for (int i = 0; i < 8; ++i)
    out[i] = uncompress(*this, static_cast<int>(fbc::getField(code, 8 * i, 8)), coverage);
}

int fbc::layout::curveFields(BlockCode, CodeField* f) {
  for (int i = 0; i < 8; ++i) f[i] = {"byte", 7 - i, 8 * (7 - i), 8, false};
  return 8;
}

void Compression1x8::encodeCurve(int* p, bool* code) {
  fbc::unpackCode(encodeCurve(p), code);
}
void Compression1x8::decodeCurve(bool* code, int* out) {
  decodeCurve(fbc::packCode(code), out);
}
