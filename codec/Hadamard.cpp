// Hadamard mode: an 8-point Walsh-Hadamard transform in sequency order. The DC term keeps 12
// bits; the seven AC terms share one quantiser (step 32, 64, 128 or 256) and keep 7 signed bits.
//
//  63 | 62 61 | 60 ...... 49 | 48 .. 42 | 41 .. 35 | ... | 6 .. 0
//   0 | shift |  DC (12 bit) |  AC 1   |  AC 2    | ... |  AC 7     (AC: 7-bit two's complement)
//
// The sequency-ordered matrix (row j has j sign changes) is symmetric, so one butterfly serves
// both directions. Row j of it is row kNatural[j] of the natural-order Hadamard matrix, whose
// entry (k, i) is (-1)^popcount(k & i) and which the three butterfly stages compute.
#include <algorithm>
#include <cstdlib>

#include "codec/Compression1x8.h"

namespace {

constexpr const fbc::HadamardLayout& kL = fbc::kHadamardLayout;
constexpr const int (&kNatural)[8] = kL.natural;

// In-place natural-order transform: v[k] = sum over i of (-1)^popcount(k & i) v[i].
inline void butterfly8(int* v) {
  for (int h = 1; h < 8; h <<= 1) {
    for (int i = 0; i < 8; i += 2 * h) {
      for (int j = i; j < i + h; ++j) {
        const int a = v[j], b = v[j + h];
        v[j] = a + b;
        v[j + h] = a - b;
      }
    }
  }
}

// The decoder's reconstruction from the coded fields; the cost function runs it too. kCount
// instantiates the decoder's clamp counting.
template <bool kCount>
inline void reconstruct(int shift, int dc, const int* coef, int* out,
                        fbc::Coverage* cov = nullptr) {
  int v[8];
  v[0] = dc * 8;
  for (int j = 1; j < 8; ++j) v[kNatural[j]] = coef[j - 1] * (1 << (8 - shift));
  butterfly8(v);
  for (int i = 0; i < 8; ++i) {
    out[i] = std::clamp(v[i] >> 3, 0, 4095);
    if (kCount && out[i] != v[i] >> 3)
      fbc::cover(cov, out[i] == 0 ? fbc::kCoverDecHadamardClamp0 : fbc::kCoverDecHadamardClamp4095);
  }
}

}  // namespace

void Compression1x8::CalculateHadama(const int* p) {
  int t[8];
  std::copy(p, p + 8, t);
  butterfly8(t);
  int lo = 0, hi = 0;  // extremes of the AC terms, in natural order positions 1..7
  for (int k = 1; k < 8; ++k) {
    lo = std::min(lo, t[k]);
    hi = std::max(hi, t[k]);
  }
  // The coarsest quantiser is tried last: s = 3 fits AC terms in [-2048, 2047], s = 0 in
  // [-16384, 16383], which every 12-bit block satisfies.
  int s = 0;
  for (int c = 3; c > 0; --c) {
    const int limit = 1 << (14 - c);
    if (lo >= -limit && hi <= limit - 1) {
      s = c;
      break;
    }
  }
  HadamaShift = s;
  HadamaDC = std::min(t[0] + 4, 32767) >> 3;
  const int rounding = 1 << (7 - s);
  const int positiveCap = 16383 >> s;  // keeps a positive term from coding as +64
  for (int j = 1; j < 8; ++j) {
    const int term = t[kNatural[j]];
    int v = term + rounding;
    if (term >= 0 && v > positiveCap) {
      v = positiveCap;
      fbc::cover(coverage, fbc::kCoverHadamardAcCapped);
    }
    HadamaCoef[j - 1] = v >> (8 - s);
  }
  int r[8];
  reconstruct<false>(s, HadamaDC, HadamaCoef, r);
  fbc::ErrorTally err;
  for (int i = 0; i < 8; ++i) err.add(std::abs(p[i] - r[i]));
  HadamaSAD = err.sad;
  HadamaMaxErr = err.maxErr;
}

fbc::BlockCode Compression1x8::encodeHadama() const {
  fbc::BlockCode c = fbc::putField(kL.prefix.value, kL.prefix.lo, 64 - kL.prefix.lo) |
                     fbc::putField(HadamaShift, kL.shiftLo, kL.shiftBits) |
                     fbc::putField(HadamaDC, kL.dcLo, kL.dcBits);
  for (int j = 1; j < 8; ++j) c |= fbc::putField(HadamaCoef[j - 1], kL.acLo[j - 1], kL.acBits);
  return c;
}

void Compression1x8::decodeHadama(fbc::BlockCode code, int* out, fbc::Coverage* cov) {
  int coef[7];
  for (int j = 1; j < 8; ++j) coef[j - 1] = fbc::getSignedField(code, kL.acLo[j - 1], kL.acBits);
  const int shift = static_cast<int>(fbc::getField(code, kL.shiftLo, kL.shiftBits));
  const int dc = static_cast<int>(fbc::getField(code, kL.dcLo, kL.dcBits));
  if (cov)
    reconstruct<true>(shift, dc, coef, out, cov);
  else
    reconstruct<false>(shift, dc, coef, out);
}

int fbc::layout::hadamardFields(BlockCode, CodeField* f) {
  int n = 0;
  f[n++] = {"prefix", -1, kL.prefix.lo, 64 - kL.prefix.lo, false};
  f[n++] = {"shift", -1, kL.shiftLo, kL.shiftBits, false};
  f[n++] = {"dc", -1, kL.dcLo, kL.dcBits, false};
  for (int j = 1; j < 8; ++j) f[n++] = {"ac", j, kL.acLo[j - 1], kL.acBits, true};
  return n;
}

void Compression1x8::encodeHadama(int*, bool* code) {
  fbc::unpackCode(encodeHadama(), code);
}
void Compression1x8::decodeHadama(bool* code, int* out) {
  decodeHadama(fbc::packCode(code), out);
}
