// Truncate: the fallback mode. Every pixel keeps its top 7 bits; with the extension
// (reg_tr_ext_en) four alternate pixels keep 8 bits, bit 4 travelling in an extension bit.
// Which four depends on sel = row parity XOR reg_tr_ext_rb, so that in a Bayer mosaic one colour
// of each row pair gets the finer truncation. sel is written even without the extension.
//
//  63 62 | 61 | 60  | 59 | 58 | 57..51 | 50..44 | ... | 15..9 | 8  | 7  | 6..0
//   1  1 |  0 | sel | e0 | e1 |  t[0]  |  t[1]  | ... |  t[6] | e2 | e3 | t[7]
//
// e0..e3 are the extension bits of pixels 1, 3, 5, 7 (sel 0) or 0, 2, 4, 6 (sel 1).
//
// The truncation itself (encoder rounding, cost, reconstruction) also serves the edge members'
// coarse pixels, with their own numbers of dropped bits.
#include <algorithm>
#include <cstdlib>

#include "codec/Compression1x8.h"

namespace {

constexpr const fbc::TruncateLayout& kL = fbc::kTruncateLayout;
constexpr int kCoarseDrop = 12 - kL.fieldBits;

}  // namespace

int Compression1x8::truncationSelect(bool parity) const {
  return (parity ? 1 : 0) ^ (reg_tr_ext_rb != 0 ? 1 : 0);
}

bool Compression1x8::truncationFine(int pixel, int sel) const {
  return reg_tr_ext_en != 0 && (pixel & 1) != sel;
}

int Compression1x8::truncationRounded(int v, int drop) const {
  if (reg_comp_enc_trun_rnd == 0) return v;
  if (v + (1 << (drop - 1)) > 4095) fbc::cover(coverage, fbc::kCoverEncRoundClamp);
  return std::clamp(v + (1 << (drop - 1)), 0, 4095);
}

int Compression1x8::truncationError(int v, int drop) {
  return std::abs((v & ((1 << drop) - 1)) - (1 << (drop - 1)));
}

int Compression1x8::truncationOffset(int t, int drop) const {
  if (reg_comp_de_tr_round_md != 0 || (reg_comp_de_tr_round_zero != 0 && t == 0)) return 0;
  return 1 << (drop - 1);
}

int Compression1x8::untruncate(int t, int drop) const {
  return (t << drop) + truncationOffset(t, drop);
}

void Compression1x8::CalculateTruncateSAD(const int* p, bool parity) {
  // The cost models reconstruction at the middle of each interval whatever the rounding
  // registers say, so every rounding option sees the same cost.
  const int sel = truncationSelect(parity);
  fbc::ErrorTally err;
  for (int i = 0; i < 8; ++i)
    err.add(truncationError(p[i], truncationFine(i, sel) ? kCoarseDrop - 1 : kCoarseDrop));
  TruncateSAD = err.sad;
  TruncateMaxErr = err.maxErr;
}

fbc::BlockCode Compression1x8::encodeTruncate(const int* p, bool parity) const {
  const int sel = truncationSelect(parity);
  if (coverage) {
    fbc::cover(coverage,
               (reg_tr_ext_en != 0 ? fbc::kCoverTruncExtOnSel0 : fbc::kCoverTruncExtOffSel0) + sel);
    if (reg_tr_ext_rb != 0) fbc::cover(coverage, fbc::kCoverTruncSelFlipped);
    if (reg_comp_enc_trun_rnd != 0) fbc::cover(coverage, fbc::kCoverEncRoundTruncate);
  }
  fbc::BlockCode c = fbc::putField(kL.prefix.value, kL.prefix.lo, 64 - kL.prefix.lo) |
                     fbc::putField(sel, kL.selBit, 1);
  for (int i = 0; i < 8; ++i) {
    const bool fine = truncationFine(i, sel);
    const int q = truncationRounded(p[i], fine ? kCoarseDrop - 1 : kCoarseDrop);
    c |= fbc::putField(q >> kCoarseDrop, kL.fieldLo[i], kL.fieldBits);
    if (fine) c |= fbc::putField(q >> (kCoarseDrop - 1), kL.extBit[i >> 1], 1);
  }
  return c;
}

namespace {

// kCount instantiates the decoder's counting of cover points.
template <bool kCount>
void decodeTruncateWith(const Compression1x8& c, fbc::BlockCode code, int* out) {
  // The decoder takes the extension from its own register, not from the bits.
  const int sel = static_cast<int>(fbc::getField(code, kL.selBit, 1));
  for (int i = 0; i < 8; ++i) {
    int t = static_cast<int>(fbc::getField(code, kL.fieldLo[i], kL.fieldBits));
    int drop = kCoarseDrop;
    if (c.truncationFine(i, sel)) {
      t = 2 * t + static_cast<int>(fbc::getField(code, kL.extBit[i >> 1], 1));
      --drop;
    }
    out[i] = c.untruncate(t, drop);
    if (kCount) {
      fbc::cover(c.coverage, c.truncationOffset(t, drop) != 0 ? fbc::kCoverDecTruncMid
                             : c.reg_comp_de_tr_round_md != 0 ? fbc::kCoverDecTruncBottom
                                                              : fbc::kCoverDecTruncZero);
    }
  }
}

}  // namespace

void Compression1x8::decodeTruncate(fbc::BlockCode code, int* out) const {
  if (coverage)
    decodeTruncateWith<true>(*this, code, out);
  else
    decodeTruncateWith<false>(*this, code, out);
}

int fbc::layout::truncateFields(BlockCode, CodeField* f) {
  int n = 0;
  f[n++] = {"prefix", -1, kL.prefix.lo, 64 - kL.prefix.lo, false};
  f[n++] = {"zero", -1, kL.selBit + 1, kL.prefix.lo - kL.selBit - 1, false};
  f[n++] = {"sel", -1, kL.selBit, 1, false};
  f[n++] = {"ext", 0, kL.extBit[0], 1, false};
  f[n++] = {"ext", 1, kL.extBit[1], 1, false};
  for (int i = 0; i < 7; ++i) f[n++] = {"t", i, kL.fieldLo[i], kL.fieldBits, false};
  f[n++] = {"ext", 2, kL.extBit[2], 1, false};
  f[n++] = {"ext", 3, kL.extBit[3], 1, false};
  f[n++] = {"t", 7, kL.fieldLo[7], kL.fieldBits, false};
  return n;
}

void Compression1x8::encodeTruncate(int* p, bool* code, bool parity) {
  fbc::unpackCode(encodeTruncate(p, parity), code);
}
void Compression1x8::decodeTruncate(bool* code, int* out) {
  decodeTruncate(fbc::packCode(code), out);
}
