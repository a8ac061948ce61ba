// MinMax and DPCM: two modes that code a block relative to its extremes (Pmin, Pmax, Pminpos,
// computed by EncodeCalculateSAD before any cost function runs).
//
// MinMax keeps the minimum and maximum at 12 bits and gives each pixel one of three levels.
//
//  63 ...... 56 | 55 .. 40 | 39 .. 28 | 27 .. 16 | 15 14 | ... | 1 0
//   1 0 1 1 1 1 1 1 |    0     |   Pmin   |   Pmax   | pix 0 | ... | pix 7   (0 mid, 1 min, 2 max)
//
// DPCM keeps a 12-bit base and codes each pixel as a 6-bit multiple of a power-of-two step above
// it. The pixel at Pminpos codes 0 by construction and is not transmitted.
//
//  63 .. 60 | 59 .. 48 | 47 ......................... 6 | 5 .. 3  | 2 .. 0
//   1 0 0 1 |   base   | seven 6-bit codes, pixel 7 first | Pminpos | shift
//              (skipping Pminpos; the first written occupies bits 6..11)
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "codec/Compression1x8.h"

namespace {

constexpr const fbc::MinMaxLayout& kMinMax = fbc::kMinMaxLayout;
constexpr const fbc::DpcmLayout& kDpcm = fbc::kDpcmLayout;

constexpr fbc::BlockCode prefixOf(fbc::Prefix p) {
  return fbc::putField(p.value, p.lo, 64 - p.lo);
}

}  // namespace

void Compression1x8::CalculateMinMaxSAD(const int* p) {
  const int mid = (Pmax + Pmin) >> 1;
  const int x = Pmax - mid;
  const int t = x / 2 + x % 2;  // half the distance to an extreme, rounded up
  fbc::ErrorTally err;
  for (int i = 0; i < 8; ++i) {
    const int d = p[i] - mid;
    int symbol, r;
    if (std::abs(d) < t) {
      symbol = 0;
      r = mid;
    } else if (d < 0) {
      symbol = 1;
      r = Pmin;
    } else {
      symbol = 2;
      r = Pmax;
    }
    MinMaxIdx[i] = symbol;
    err.add(std::abs(p[i] - r));
  }
  MinMaxSAD = err.sad;
  MinMaxMaxErr = err.maxErr;
}

fbc::BlockCode Compression1x8::encodeMinMax() const {
  fbc::BlockCode c = prefixOf(kMinMax.prefix) |
                     fbc::putField(Pmin, kMinMax.minLo, kMinMax.valueBits) |
                     fbc::putField(Pmax, kMinMax.maxLo, kMinMax.valueBits);
  for (int i = 0; i < 8; ++i)
    c |= fbc::putField(MinMaxIdx[i], kMinMax.symbolLo[i], kMinMax.symbolBits);
  return c;
}

void Compression1x8::decodeMinMax(fbc::BlockCode code, int* out) {
  const int mx = static_cast<int>(fbc::getField(code, kMinMax.maxLo, kMinMax.valueBits));
  const int mn = static_cast<int>(fbc::getField(code, kMinMax.minLo, kMinMax.valueBits));
  const int level[4] = {(mx + mn) >> 1, mn, mx, mx};
  for (int i = 0; i < 8; ++i)
    out[i] = level[fbc::getField(code, kMinMax.symbolLo[i], kMinMax.symbolBits)];
}

int Compression1x8::dpcmMaxShift() const {
  // The expansion switch is 0 or 1 in hardware; other values are kept within the shift range
  // the data path has, so the model stays defined for any register content.
  return std::clamp(3 + reg_dpcm_stepsize_expansion_en, 0, 6);
}

int Compression1x8::dpcmRounderRow() const {
  // Only rows 0 and 1 exist; any non-zero selector takes row 1.
  return reg_dpcm_swing_rounder_en != 0 && SwingRowSelect != 0 ? 1 : 0;
}

int Compression1x8::dpcmRounder(int shift) const {
  return fbc::kDpcmRounder[dpcmRounderRow()][shift];
}

void Compression1x8::CalculateDPCMSAD(const int* p) {
  DPCMSAD = 32767;
  DPCMMaxErr = 4095;
  DPCMBase = Pmin;
  const int range = Pmax - Pmin;
  const int maxShift = dpcmMaxShift();

  int s0 = 6;
  for (int s = 0; s < 6; ++s) {
    if (range < (64 << s)) {
      s0 = s;
      break;
    }
  }
  DPCMShift = std::min(s0, maxShift);
  DPCMStep = 1 << DPCMShift;
  DPCMRounder = dpcmRounder(DPCMShift);

  if (reg_dpcm_pmin_lsb_update_en != 0) {
    // Move the base's low bits towards the block's average low bits.
    const int m = DPCMStep - 1;
    int lowSum = 0;
    for (int i = 0; i < 8; ++i) lowSum += p[i] & m;
    const int a = (lowSum + 4) >> 3;
    const int low = Pmin & m;
    int adj;
    if (DPCMRounder + 1 + low <= a) {
      adj = a - DPCMStep;
      fbc::cover(coverage, fbc::kCoverDpcmLsbDown);
    } else if (low - (DPCMStep - DPCMRounder - 1) > a) {
      adj = a + DPCMStep;
      fbc::cover(coverage, fbc::kCoverDpcmLsbUp);
    } else {
      adj = a;
      fbc::cover(coverage, fbc::kCoverDpcmLsbKeep);
    }
    const int base = Pmin - low + adj;
    DPCMBase = std::clamp(base, 0, 4095);
    if (base < 0) fbc::cover(coverage, fbc::kCoverDpcmBaseClampLow);
    if (base > 4095) fbc::cover(coverage, fbc::kCoverDpcmBaseClampHigh);
  }

  for (int i = 0; i < 8; ++i) Diffmin[i] = std::min((p[i] - DPCMBase + DPCMRounder) / DPCMStep, 63);

  if ((64 << maxShift) <= range) return;  // range too wide: DPCM cannot code the block

  if (Diffmin[Pminpos] != 0) {
    // The hardware's invariant: the minimum pixel codes 0 and is never transmitted.
    std::fprintf(stderr, "%s:%d: Compression1x8::CalculateDPCMSAD: Assertion `%s' failed.\n",
                 __FILE__, __LINE__, "Diffmin[Pminpos] == 0");
    std::abort();
  }

  fbc::ErrorTally err;
  for (int i = 0; i < 8; ++i)
    err.add(std::abs(p[i] - std::min(Diffmin[i] * DPCMStep + DPCMBase, 4095)));
  DPCMSAD = err.sad;
  DPCMMaxErr = err.maxErr;
}

fbc::BlockCode Compression1x8::encodeDPCM() const {
  fbc::BlockCode c = prefixOf(kDpcm.prefix) |
                     fbc::putField(DPCMBase, kDpcm.baseLo, kDpcm.baseBits) |
                     fbc::putField(Pminpos, kDpcm.posLo, kDpcm.posBits) |
                     fbc::putField(log2(DPCMStep), kDpcm.shiftLo, kDpcm.shiftBits);
  int lo = kDpcm.diffLo;
  for (int i = 7; i >= 0; --i) {
    if (i == Pminpos) continue;
    c |= fbc::putField(Diffmin[i], lo, kDpcm.diffBits);
    lo += kDpcm.diffBits;
  }
  return c;
}

namespace {

// kCount instantiates the decoder's clamp counting.
template <bool kCount>
void decodeDpcm(fbc::BlockCode code, int* out, fbc::Coverage* cov) {
  const int shift = static_cast<int>(fbc::getField(code, kDpcm.shiftLo, kDpcm.shiftBits));
  const int pos = static_cast<int>(fbc::getField(code, kDpcm.posLo, kDpcm.posBits));
  const int base = static_cast<int>(fbc::getField(code, kDpcm.baseLo, kDpcm.baseBits));
  int lo = kDpcm.diffLo;
  for (int i = 7; i >= 0; --i) {
    int d = 0;
    if (i != pos) {
      d = static_cast<int>(fbc::getField(code, lo, kDpcm.diffBits));
      lo += kDpcm.diffBits;
    }
    out[i] = std::min((d << shift) + base, 4095);
    if (kCount && (d << shift) + base > 4095) fbc::cover(cov, fbc::kCoverDecDpcmClamp4095);
  }
}

}  // namespace

void Compression1x8::decodeDPCM(fbc::BlockCode code, int* out, fbc::Coverage* cov) {
  if (cov)
    decodeDpcm<true>(code, out, cov);
  else
    decodeDpcm<false>(code, out, nullptr);
}

int fbc::layout::minMaxFields(BlockCode, CodeField* f) {
  int n = 0;
  f[n++] = {"prefix", -1, kMinMax.prefix.lo, 64 - kMinMax.prefix.lo, false};
  f[n++] = {"pad", -1, kMinMax.minLo + kMinMax.valueBits,
            kMinMax.prefix.lo - kMinMax.minLo - kMinMax.valueBits, false};
  f[n++] = {"min", -1, kMinMax.minLo, kMinMax.valueBits, false};
  f[n++] = {"max", -1, kMinMax.maxLo, kMinMax.valueBits, false};
  for (int i = 0; i < 8; ++i)
    f[n++] = {"symbol", i, kMinMax.symbolLo[i], kMinMax.symbolBits, false};
  return n;
}

// The pixels' codes sit below the base in the order pixel 7 .. 0, the one at Pminpos left out.
int fbc::layout::dpcmFields(BlockCode code, CodeField* f) {
  const int pos = static_cast<int>(getField(code, kDpcm.posLo, kDpcm.posBits));
  int n = 0;
  f[n++] = {"prefix", -1, kDpcm.prefix.lo, 64 - kDpcm.prefix.lo, false};
  f[n++] = {"base", -1, kDpcm.baseLo, kDpcm.baseBits, false};
  int lo = kDpcm.diffLo + 6 * kDpcm.diffBits;
  for (int i = 0; i < 8; ++i) {
    if (i == pos) continue;
    f[n++] = {"delta", i, lo, kDpcm.diffBits, false};
    lo -= kDpcm.diffBits;
  }
  f[n++] = {"pminpos", -1, kDpcm.posLo, kDpcm.posBits, false};
  f[n++] = {"shift", -1, kDpcm.shiftLo, kDpcm.shiftBits, false};
  return n;
}

void Compression1x8::encodeMinMax(int*, bool* code) {
  fbc::unpackCode(encodeMinMax(), code);
}
void Compression1x8::decodeMinMax(bool* code, int* out) {
  decodeMinMax(fbc::packCode(code), out);
}
void Compression1x8::encodeDPCM(int*, bool* code) {
  fbc::unpackCode(encodeDPCM(), code);
}
void Compression1x8::decodeDPCM(bool* code, int* out) {
  decodeDPCM(fbc::packCode(code), out);
}
