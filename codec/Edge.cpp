// Edge modes Edge2..Edge7: a block whose pixels fall into a short run of close values at one end
// (the edge group, n = 2..7 pixels) and the rest. The group is coded finely, as a common base
// plus a 3-bit (4-bit for n = 6, 7) index on a power-of-two step; the other pixels keep only
// their high bits. The group is the block's head (pixels 0..n-1, direction 1) or its tail
// (pixels 8-n..7, direction 0), whichever has the smaller range; ties take the tail.
//
// Payload from bit 0 upward, in the block's own order when direction is 1 and in mirrored order
// (pixel 7 first) when 0: the group's indices, outermost pixel first; the base (base >> 3 in
// 9 bits for Edge2, base >> 2 in 10 bits otherwise); the coarse pixels from the one next to the
// group outward; spare zero bits (Edge7 only); direction; 2-bit shift; prefix.
//
//  member  prefix    n  index  coarse widths   layout (index / base / coarse / dir / shift)
//  Edge2   1010      2  3      7 7 7 7 7 7     0..5  / 6..14  / 15..56 / 57 / 58..59
//  Edge3   1000      3  3      7 8 8 8 7       0..8  / 9..18  / 19..56 / 57 / 58..59
//  Edge4   10110     4  3      8 9 9 8         0..11 / 12..21 / 22..55 / 56 / 57..58
//  Edge5   101110    5  3      10 10 10        0..14 / 15..24 / 25..54 / 55 / 56..57
//  Edge6   1011110   6  4      10 10           0..23 / 24..33 / 34..53 / 54 / 55..56
//  Edge7   10111110  7  4      10              0..27 / 28..37 / 38..47 / 53 / 54..55 (48..52 = 0)
#include <algorithm>
#include <cstdlib>

#include "codec/Compression1x8.h"
#include "codec/EdgeLayout.h"

namespace {

using fbc::EdgeLayout;

constexpr const EdgeLayout& layoutOf(int member) {
  return fbc::kEdgeLayouts[member - 2];
}

constexpr int baseLo(const EdgeLayout& l) {
  return l.n * l.indexBits;
}
constexpr int baseBits(const EdgeLayout& l) {
  return 12 - l.baseDrop;
}

// Step exponent for the chosen group's range r: 3-bit indices cover 8 steps, 4-bit 16.
inline int stepShift(const EdgeLayout& l, int r) {
  const int unit = l.indexBits == 3 ? 7 : 15;
  if (r <= unit) return 0;
  if (r <= 2 * unit + 1) return 1;
  if (r <= 4 * unit + 3) return 2;
  return 3;
}

// Pixel at position j of the block as the payload orders it (j = 0 is the outermost group pixel).
constexpr int pixelAt(int dir, int j) {
  return dir ? j : 7 - j;
}

struct Group {
  int base;
  int range;
};

inline Group groupOf(const int* p, int first, int n, int baseDrop) {
  int mn = p[first], mx = p[first];
  for (int i = first + 1; i < first + n; ++i) {
    mn = std::min(mn, p[i]);
    mx = std::max(mx, p[i]);
  }
  const int base = mn & ~((1 << baseDrop) - 1);
  return {base, mx - base};
}

inline int groupIndex(const EdgeLayout& l, int p, int base, int shift) {
  const int step = 1 << shift;
  return std::min((std::abs(p - base) + step / 2) / step, (1 << l.indexBits) - 1);
}

}  // namespace

void Compression1x8::CalculateEdgeSAD(int member, const int* p) {
  const EdgeLayout& l = layoutOf(member);
  EdgeResult& r = edge(member);
  r.SAD = 32767;
  r.MaxErr = 4095;
  r.Step = 1;
  const Group head = groupOf(p, 0, l.n, l.baseDrop);
  const Group tail = groupOf(p, 8 - l.n, l.n, l.baseDrop);
  r.TailRange = tail.range;
  r.HeadRange = head.range;
  r.Dir = head.range < tail.range ? 1 : 0;

  const auto qualifies = [&](int range) {
    return range <= l.rangeLimit && range <= reg_edge_diffmin_th;
  };
  if (!qualifies(head.range) && !qualifies(tail.range)) return;

  const Group& g = r.Dir ? head : tail;
  const int shift = stepShift(l, std::min(head.range, tail.range));
  r.Step = 1 << shift;

  fbc::ErrorTally err;
  for (int j = 0; j < 8; ++j) {
    const int v = p[pixelAt(r.Dir, j)];
    int e;
    if (j < l.n) {
      const int rec = std::min(g.base + (groupIndex(l, v, g.base, shift) << shift), 4095);
      e = std::abs(v - rec);
    } else {
      // A coarse pixel is charged the error of a mid-interval reconstruction.
      e = truncationError(v, 12 - l.coarseBits[j - l.n]);
    }
    err.add(e);
  }
  r.SAD = err.sad;
  r.MaxErr = err.maxErr;
}

fbc::BlockCode Compression1x8::encodeEdge(int member, const int* p) const {
  const EdgeLayout& l = layoutOf(member);
  const EdgeResult& r = edge(member);
  const int dir = r.Dir;
  const int shift = log2(r.Step);
  const Group g = groupOf(p, dir ? 0 : 8 - l.n, l.n, l.baseDrop);

  fbc::BlockCode c = fbc::putField(l.prefix, l.prefixLo, 64 - l.prefixLo) |
                     fbc::putField(dir, l.dirBit, 1) | fbc::putField(shift, l.dirBit + 1, 2) |
                     fbc::putField(g.base >> l.baseDrop, baseLo(l), baseBits(l));
  for (int j = 0; j < l.n; ++j)
    c |= fbc::putField(groupIndex(l, p[pixelAt(dir, j)], g.base, shift), j * l.indexBits,
                       l.indexBits);
  int lo = baseLo(l) + baseBits(l);
  for (int j = l.n; j < 8; ++j) {
    const int bits = l.coarseBits[j - l.n];
    const int drop = 12 - bits;
    if (reg_comp_enc_trun_rnd != 0) fbc::cover(coverage, fbc::kCoverEncRoundEdge);
    c |= fbc::putField(truncationRounded(p[pixelAt(dir, j)], drop) >> drop, lo, bits);
    lo += bits;
  }
  return c;
}

namespace {

// kCount instantiates the decoder's counting of cover points.
template <bool kCount>
void decodeEdgeWith(const Compression1x8& c, int member, fbc::BlockCode code, int* out) {
  const EdgeLayout& l = layoutOf(member);
  fbc::Coverage* const cov = c.coverage;
  const int dir = static_cast<int>(fbc::getField(code, l.dirBit, 1));
  const int shift = static_cast<int>(fbc::getField(code, l.dirBit + 1, 2));
  const int base = static_cast<int>(fbc::getField(code, baseLo(l), baseBits(l))) << l.baseDrop;
  for (int j = 0; j < l.n; ++j) {
    const int q = static_cast<int>(fbc::getField(code, j * l.indexBits, l.indexBits));
    out[pixelAt(dir, j)] = std::min((q << shift) + base, 4095);
    if (kCount && (q << shift) + base > 4095) fbc::cover(cov, fbc::kCoverDecEdgeClamp4095);
  }
  int lo = baseLo(l) + baseBits(l);
  for (int j = l.n; j < 8; ++j) {
    const int bits = l.coarseBits[j - l.n];
    const int drop = 12 - bits;
    const int t = static_cast<int>(fbc::getField(code, lo, bits));
    lo += bits;
    out[pixelAt(dir, j)] = c.untruncate(t, drop);
    if (kCount) {
      fbc::cover(cov, c.truncationOffset(t, drop) != 0 ? fbc::kCoverDecEdgeMid
                      : c.reg_comp_de_tr_round_md != 0 ? fbc::kCoverDecEdgeBottom
                                                       : fbc::kCoverDecEdgeZero);
    }
  }
}

}  // namespace

void Compression1x8::decodeEdge(int member, fbc::BlockCode code, int* out) const {
  if (coverage)
    decodeEdgeWith<true>(*this, member, code, out);
  else
    decodeEdgeWith<false>(*this, member, code, out);
}

int fbc::layout::edgeFields(int member, BlockCode, CodeField* f) {
  const EdgeLayout& l = layoutOf(member);
  int n = 0;
  f[n++] = {"prefix", -1, l.prefixLo, 64 - l.prefixLo, false};
  f[n++] = {"shift", -1, l.dirBit + 1, 2, false};
  f[n++] = {"dir", -1, l.dirBit, 1, false};
  int lo = baseLo(l) + baseBits(l);
  for (int j = l.n; j < 8; ++j) lo += l.coarseBits[j - l.n];
  if (lo < l.dirBit) f[n++] = {"pad", -1, lo, l.dirBit - lo, false};
  for (int j = 7; j >= l.n; --j) {
    lo -= l.coarseBits[j - l.n];
    f[n++] = {"coarse", j - l.n, lo, l.coarseBits[j - l.n], false};
  }
  f[n++] = {"base", -1, baseLo(l), baseBits(l), false};
  for (int j = l.n - 1; j >= 0; --j) f[n++] = {"index", j, j * l.indexBits, l.indexBits, false};
  return n;
}
