// The vector encoder: one block per lane. Vector P[i] holds pixel i of kLanes blocks, so each
// step of the reference coder (min, max, abs, compare, select, shift) is one vector operation
// over all of them. Costs are only the largest errors: selection reads nothing else. Each lane's
// code is packed as two 32-bit halves by every encoder some lane selected, and kept where the
// lane selected it. Field positions, priority orders and register-derived values come from
// ModeLayout.h, EdgeLayout.h and EncodeParams; the arithmetic is the reference's, lane-wise.
//
// Part of the kernels compiled once per instruction set (see KernelPrimitives.h).
#pragma once

#include "codec/x86/KernelPrimitives.h"

namespace fbc::x86 {
namespace {

constexpr const HadamardLayout& kHL = kHadamardLayout;
constexpr const TruncateLayout& kTL = kTruncateLayout;
constexpr const MinMaxLayout& kML = kMinMaxLayout;
constexpr const DpcmLayout& kDL = kDpcmLayout;
// Low bits a coarse Truncate pixel drops; a finer one drops one fewer.
constexpr int kTruncDrop = 12 - kTL.fieldBits;

// Mode numbers as plain ints, to compare with lane values.
constexpr int kHadamard = kModeHadamard, kCurve = kModeCurve, kMinMax = kModeMinMax,
              kDpcm = kModeDpcm, kTruncate = kModeTruncate, kEdge2 = kModeEdge2,
              kEdge7 = kModeEdge7;

// Lane results of one pass, as the packers read them.
struct Lanes {
  V pmin, pmax, pminpos;
  V hadShift, hadDc, hadCoef[7];
  V minmaxSymbol[8];
  V dpcmBase, dpcmShift, dpcmDiff[8];
  V edgeDir[6], edgeShift[6];  // direction as a mask: all ones when the group is at the start
  V encoder;                   // the encoder each lane runs: its selected mode after remapping
};

// Largest error of the Hadamard mode; fills the coded fields.
inline V hadamardCost(const V* P, Lanes& L) {
  V t[8];
  for (int i = 0; i < 8; ++i) t[i] = P[i];
  butterfly8(t);
  V lo = splat(0), hi = splat(0);
  for (int k = 1; k < 8; ++k) {
    lo = vmin(lo, t[k]);
    hi = vmax(hi, t[k]);
  }
  // The largest quantiser exponent c in 1..3 whose range holds every AC term; the ranges nest.
  V s = splat(0);
  for (int c = 1; c <= 3; ++c) {
    const int limit = 1 << (14 - c);
    s -= (lo >= -limit) & (hi <= limit - 1);
  }
  const V dc = vmin(t[0] + 4, splat(32767)) >> 3;
  // v >> (8 - s) is (v >> 5) >> (3 - s); the reconstruction's << (8 - s) likewise.
  const VarShift<2> k(3 - s);
  const V rounding = k.shl(splat(16));
  const V cap = k.shl(splat(2048)) - 1;  // 16383 >> s: keeps a positive term from coding as +64
  V r[8];
  r[0] = dc * 8;
  L.hadShift = s;
  L.hadDc = dc;
  for (int j = 1; j < 8; ++j) {
    const V term = t[kHL.natural[j]];
    V v = term + rounding;
    v = ((term >= 0) & (v > cap)) ? cap : v;
    const V coef = k.shr(v >> 5);
    L.hadCoef[j - 1] = coef;
    r[kHL.natural[j]] = k.shl(coef * 32);
  }
  butterfly8(r);
  V err = splat(0);
  for (int i = 0; i < 8; ++i)
    err = vmax(err, vabs(P[i] - vmin(vmax(r[i] >> 3, splat(0)), splat(4095))));
  return err;
}

// MinMax: three levels, the middle one within half the distance to an extreme (rounded up).
inline V minmaxCost(const V* P, V pmin, V pmax, Lanes& L) {
  const V mid = (pmax + pmin) >> 1;
  const V t = ((pmax - mid) + 1) >> 1;
  V err = splat(0);
  for (int i = 0; i < 8; ++i) {
    const V d = P[i] - mid;
    const V middle = vabs(d) < t;
    const V low = d < 0;
    L.minmaxSymbol[i] = middle ? splat(0) : (low ? splat(1) : splat(2));
    err = vmax(err, vabs(P[i] - (middle ? mid : (low ? pmin : pmax))));
  }
  return err;
}

// DPCM: 6-bit multiples of a power-of-two step above a base; 4095 when the range is too wide.
inline V dpcmCost(const EncodeParams& p, const V* P, V pmin, V pmax, Lanes& L) {
  const V range = pmax - pmin;
  V s0 = splat(0);
  for (int s = 0; s < 6; ++s) s0 -= range >= (64 << s);
  const V shift = vmin(s0, splat(p.dpcmMaxShift));
  const VarShift<3> sh(shift);
  const V step = sh.shl(splat(1));
  const V m = step - 1;
  const V rounder = lookup7(p.dpcmRounder, shift);
  V base = pmin;
  if (p.dpcmLsbUpdate) {
    V lowSum = splat(0);
    for (int i = 0; i < 8; ++i) lowSum += P[i] & m;
    const V a = (lowSum + 4) >> 3;
    const V low = pmin & m;
    const V adj =
        (rounder + 1 + low <= a) ? a - step : ((low - (step - rounder - 1) > a) ? a + step : a);
    base = vmin(vmax(pmin - low + adj, splat(0)), splat(4095));
  }
  V err = splat(0);
  for (int i = 0; i < 8; ++i) {
    // Division by the step truncates toward zero: a base moved above a pixel gives a
    // negative numerator.
    const V n = P[i] - base + rounder;
    const V d = vmin(sh.shr(n + ((n >> 31) & m)), splat(63));
    L.dpcmDiff[i] = d;
    err = vmax(err, vabs(P[i] - vmin(sh.shl(d) + base, splat(4095))));
  }
  L.dpcmBase = base;
  L.dpcmShift = shift;
  return range < (64 << p.dpcmMaxShift) ? err : splat(4095);
}

// |(v mod 2^d) - 2^(d-1)|: the error of a pixel keeping all but its d low bits, rebuilt at the
// middle of its interval. Indexed [d - 2][pixel] for d = 2..5.
struct CoarseErrors {
  V e[4][8];
};

inline void coarseErrors(const V* P, CoarseErrors& c) {
  for (int d = 2; d <= 5; ++d)
    for (int i = 0; i < 8; ++i) c.e[d - 2][i] = vabs((P[i] & ((1 << d) - 1)) - (1 << (d - 1)));
}

// `fine`: bit i set when pixel i keeps one bit more in this row.
inline V truncateCost(const CoarseErrors& c, int fine) {
  V err = splat(0);
  for (int i = 0; i < 8; ++i)
    err = vmax(err, (fine >> i) & 1 ? c.e[kTruncDrop - 3][i] : c.e[kTruncDrop - 2][i]);
  return err;
}

// Extrema of the first n pixels (head) and the last n (tail). The members' groups nest, so
// trying the members in order of size extends one set of extrema by a pixel at each end.
struct EdgeExtrema {
  V hmn, hmx, tmn, tmx;
};

// Group size n - 1 -> n.
template <int N>
inline void growExtrema(const V* P, EdgeExtrema& x) {
  x.hmn = vmin(x.hmn, P[N - 1]);
  x.hmx = vmax(x.hmx, P[N - 1]);
  x.tmn = vmin(x.tmn, P[8 - N]);
  x.tmx = vmax(x.tmx, P[8 - N]);
}

template <int N>
inline EdgeExtrema edgeExtrema(const V* P) {
  EdgeExtrema x{P[0], P[0], P[7], P[7]};
  if constexpr (N >= 2) growExtrema<2>(P, x);
  if constexpr (N >= 3) growExtrema<3>(P, x);
  if constexpr (N >= 4) growExtrema<4>(P, x);
  if constexpr (N >= 5) growExtrema<5>(P, x);
  if constexpr (N >= 6) growExtrema<6>(P, x);
  if constexpr (N >= 7) growExtrema<7>(P, x);
  return x;
}

// Edge member N: cost, and the group ranges selection compares.
//
// A group pixel v lies at d = v - base >= 0 above the group base; with q = d + half its index
// is q >> shift, capped at the largest index. Uncapped, the error is |(q mod 2^shift) - half|;
// capped, it is d - (cap << shift), which is at least half and largest at the group maximum. So
// the group error is the larger of the uncapped form over the pixels and the capped form of the
// group range. Both assume the rebuilt value stays within 4095, which holds when no pixel of the
// block exceeds 4095 - 4 (half is at most 4); `nearTop` passes take the direct computation.
template <int N>
inline V edgeCost(const EncodeParams& p, const V* P, const CoarseErrors& c, const EdgeExtrema& x,
                  bool nearTop, Lanes& L, V& headRange, V& tailRange) {
  constexpr EdgeLayout l = kEdgeLayouts[N - 2];
  const int keep = ~((1 << l.baseDrop) - 1);
  const V hb = x.hmn & keep, tb = x.tmn & keep;
  const V hr = x.hmx - hb, tr = x.tmx - tb;
  headRange = hr;
  tailRange = tr;
  const V dir = hr < tr;
  // Coded when a group's range is within both the index's reach and the register's limit.
  const int limit = l.rangeLimit < p.diffminTh ? l.rangeLimit : p.diffminTh;
  const V any = (hr <= limit) | (tr <= limit);
  L.edgeDir[N - 2] = dir;
  // Busy content rarely brings a group within reach: when no lane does, every lane's cost is
  // 4095 and its shift 0, without the error computation below.
  if (!anyLane(any)) {
    L.edgeShift[N - 2] = splat(0);
    return splat(4095);
  }
  const V rmin = vmin(hr, tr);
  constexpr int unit = l.indexBits == 3 ? 7 : 15, cap = (1 << l.indexBits) - 1;
  const V shift = -((rmin > unit) + (rmin > 2 * unit + 1) + (rmin > 4 * unit + 3));
  const VarShift<2> sh(shift);
  const V base = dir ? hb : tb;
  const V step = sh.shl(splat(1));
  const V half = step >> 1;
  V err;
  if (!nearTop) {
    const V lowMask = step - 1, offset = half - base;
    err = (dir ? hr : tr) - sh.shl(splat(cap));
    for (int j = 0; j < N; ++j) {
      const V q = (dir ? P[j] : P[7 - j]) + offset;
      err = vmax(err, vabs((q & lowMask) - half));
    }
  } else {
    err = splat(0);
    for (int j = 0; j < N; ++j) {
      const V v = dir ? P[j] : P[7 - j];
      const V idx = vmin(sh.shr(v - base + half), splat(cap));
      err = vmax(err, vabs(v - vmin(base + sh.shl(idx), splat(4095))));
    }
  }
  V headErr = splat(0), tailErr = splat(0);
  for (int j = N; j < 8; ++j) {
    const int d = 12 - l.coarseBits[j - N];
    headErr = vmax(headErr, c.e[d - 2][j]);
    tailErr = vmax(tailErr, c.e[d - 2][7 - j]);
  }
  err = vmax(err, dir ? headErr : tailErr);
  L.edgeShift[N - 2] = any ? shift : splat(0);
  return any ? err : splat(4095);
}

// The best enabled non-edge cost and the non-edge mode holding it (first in kNonEdgeOrder;
// Truncate when none of them does). Costs of disabled modes read 4095.
struct NonEdge {
  V best, winner;
};

inline NonEdge nonEdgeSelect(const EncodeParams& p, const V* cost) {
  NonEdge ne{vmin(vmin(cost[kHadamard], cost[kMinMax]), vmin(cost[kDpcm], cost[kTruncate])),
             splat(kTruncate)};
  // Assigning from the back leaves the first match.
  for (int k = 2; k >= 0; --k) {
    const int m = kNonEdgeOrder[k];
    if (p.modeEnabled[m]) ne.winner = cost[m] == ne.best ? splat(m) : ne.winner;
  }
  return ne;
}

// Where a mode stands in the plain order.
constexpr int plainRank(int mode) {
  for (int k = 0; k < 9; ++k)
    if (kPlainOrder[k] == mode) return k;
  return 9;
}
static_assert(plainRank(kDpcm) < plainRank(kEdge2) && plainRank(kMinMax) < plainRank(kEdge2) &&
                  plainRank(kHadamard) > plainRank(kEdge2),
              "needsEdgeTrial's shortcut assumes DPCM and MinMax rank before the edge members, "
              "Hadamard after");

// Lanes whose selection can depend on the edge members' costs. Edge-first (policy 1): a
// non-Truncate winner within the final threshold shields the block. Plain order: DPCM and MinMax
// come before every edge member, so a lane they win is decided unless an edge member can be
// strictly cheaper, which only the policy 0 target (the minimum over all modes) allows and only
// above a non-edge best of 0; other policy values compare with the non-edge best alone.
inline V needsEdgeTrial(const EncodeParams& p, const NonEdge& ne) {
  if (p.policy == 1) return ~((ne.winner != kTruncate) & (ne.best <= p.finalTh));
  const V open = (ne.winner == kHadamard) | (ne.winner == kTruncate);
  return p.policy == 0 ? open | (ne.best != 0) : open;
}

// Selection in every lane with every cost known (4095 for disabled modes), in the reference's
// priority orders; assigning from the back of an order leaves its first match.
inline V selectMode(const EncodeParams& p, const V* c, const V* headRange, const V* tailRange,
                    const NonEdge& ne) {
  V edgeBest = c[kEdge2];
  for (int m = kEdge2 + 1; m <= kEdge7; ++m) edgeBest = vmin(edgeBest, c[m]);

  if (p.policy != 1) {
    const V target = p.policy == 0 ? vmin(ne.best, edgeBest) : ne.best;
    V mode = splat(kTruncate);
    for (int k = 8; k >= 0; --k) {
      const int m = kPlainOrder[k];
      if (p.modeEnabled[m]) mode = c[m] == target ? splat(m) : mode;
    }
    return mode;
  }
  const V keep = (ne.winner != kTruncate) & (ne.best <= p.finalTh);
  V cand = splat(-1);
  const U ratio = U{} + static_cast<std::uint32_t>(p.ratio);
  for (int k = 5; k >= 0; --k) {
    const int m = kEdgeOrder[k];
    if (!p.modeEnabled[m]) continue;
    const V hr = headRange[m - kEdge2], tr = tailRange[m - kEdge2];
    // 32-bit products, as in the data path.
    const V headLimit = asV(asU(tr) * ratio);
    const V tailLimit = asV(asU(hr) * ratio);
    const V balanced = (hr <= headLimit) & (tr <= tailLimit);
    cand = ((c[m] == edgeBest) & ~balanced) ? splat(m) : cand;
  }
  return (~keep & (edgeBest <= p.edgeMinTh) & (cand >= 0)) ? cand : ne.winner;
}

// --- packers -------------------------------------------------------------------------------

// A pixel keeping all but `Drop` low bits, after the encoder's rounding.
template <int Drop>
inline V rounded(const EncodeParams& p, V v) {
  return p.encHalf[Drop] != 0 ? vmin(v + p.encHalf[Drop], splat(4095)) : v;
}

inline Codes packHadamard(const Lanes& L) {
  Codes c = prefixed<kHL.prefix.value, kHL.prefix.lo>();
  put<kHL.shiftLo, kHL.shiftBits>(c, L.hadShift);
  put<kHL.dcLo, kHL.dcBits>(c, L.hadDc);
  unroll<7>([&](auto jc) {
    constexpr int j = decltype(jc)::value;
    put<kHL.acLo[j], kHL.acBits>(c, L.hadCoef[j]);
  });
  return c;
}

inline Codes packMinMax(const Lanes& L) {
  Codes c = prefixed<kML.prefix.value, kML.prefix.lo>();
  put<kML.minLo, kML.valueBits>(c, L.pmin);
  put<kML.maxLo, kML.valueBits>(c, L.pmax);
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    put<kML.symbolLo[i], kML.symbolBits>(c, L.minmaxSymbol[i]);
  });
  return c;
}

inline Codes packDpcm(const Lanes& L) {
  Codes c = prefixed<kDL.prefix.value, kDL.prefix.lo>();
  put<kDL.baseLo, kDL.baseBits>(c, L.dpcmBase);
  put<kDL.posLo, kDL.posBits>(c, L.pminpos);
  put<kDL.shiftLo, kDL.shiftBits>(c, L.dpcmShift);
  // Pixel i's field is the (7 - i)-th from diffLo when the minimum's position comes before it,
  // the (6 - i)-th when it comes after.
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    const V d = L.dpcmDiff[i];
    if constexpr (i > 0)
      put<kDL.diffLo + kDL.diffBits*(7 - i), kDL.diffBits>(c, d & (L.pminpos < i));
    if constexpr (i < 7)
      put<kDL.diffLo + kDL.diffBits*(6 - i), kDL.diffBits>(c, d & (L.pminpos > i));
  });
  return c;
}

inline Codes packTruncate(const EncodeParams& p, const V* P, int sel, int fine) {
  Codes c = prefixed<kTL.prefix.value, kTL.prefix.lo>();
  put<kTL.selBit, 1>(c, splat(sel));
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    if ((fine >> i) & 1) {
      const V q = rounded<kTruncDrop - 1>(p, P[i]);
      put<kTL.fieldLo[i], kTL.fieldBits>(c, q >> kTruncDrop);
      put<kTL.extBit[i >> 1], 1>(c, q >> (kTruncDrop - 1));
    } else {
      put<kTL.fieldLo[i], kTL.fieldBits>(c, rounded<kTruncDrop>(p, P[i]) >> kTruncDrop);
    }
  });
  return c;
}

template <int N>
inline Codes packEdge(const EncodeParams& p, const V* P, const Lanes& L) {
  constexpr EdgeLayout l = kEdgeLayouts[N - 2];
  constexpr int baseLo = N * l.indexBits;
  constexpr int baseBits = 12 - l.baseDrop;
  const V dir = L.edgeDir[N - 2], shift = L.edgeShift[N - 2];
  V q[8];
  for (int j = 0; j < 8; ++j) q[j] = dir ? P[j] : P[7 - j];
  V mn = q[0];
  for (int j = 1; j < N; ++j) mn = vmin(mn, q[j]);
  const V base = mn & ~((1 << l.baseDrop) - 1);
  Codes c = prefixed<l.prefix, l.prefixLo>();
  put<l.dirBit, 1>(c, dir);
  put<l.dirBit + 1, 2>(c, shift);
  put<baseLo, baseBits>(c, base >> l.baseDrop);
  const VarShift<2> sh(shift);
  const V half = sh.shl(splat(1)) >> 1;
  unroll<N>([&](auto jc) {
    constexpr int j = decltype(jc)::value;
    put<j * l.indexBits, l.indexBits>(
        c, vmin(sh.shr(vabs(q[j] - base) + half), splat((1 << l.indexBits) - 1)));
  });
  unroll<8 - N>([&](auto kc) {
    constexpr int k = decltype(kc)::value;
    constexpr int bits = l.coarseBits[k], drop = 12 - bits;
    put<coarseLo(N, k), bits>(c, rounded<drop>(p, q[N + k]) >> drop);
  });
  return c;
}

// Every lane's code: each encoder some lane runs, kept where that lane runs it.
inline Codes packLanes(const EncodeParams& p, const V* P, const Lanes& L, int sel) {
  const V enc = L.encoder;
  Codes out{};
  const auto keep = [&out](V mask, const Codes& c) {
    out.lo = mask ? c.lo : out.lo;
    out.hi = mask ? c.hi : out.hi;
  };
  V mask = enc == kHadamard;
  if (anyLane(mask)) keep(mask, packHadamard(L));
  mask = enc == kMinMax;
  if (anyLane(mask)) keep(mask, packMinMax(L));
  mask = enc == kDpcm;
  if (anyLane(mask)) keep(mask, packDpcm(L));
  mask = enc == kTruncate;
  if (anyLane(mask)) keep(mask, packTruncate(p, P, sel, p.truncFine[sel]));
  unroll<6>([&](auto kc) {
    constexpr int k = decltype(kc)::value;
    const V m = enc == kEdge2 + k;
    if (anyLane(m)) keep(m, packEdge<k + 2>(p, P, L));
  });
  return out;
}

// What a row's registers let the encoder skip, worked out once per row: a non-edge mode's cost
// is needed when the mode is enabled, its coded fields when some selectable mode (an enabled one,
// or the Truncate fallback) runs its encoder after remapping.
struct Plan {
  bool nonEdge[kTruncate + 1];  // Hadamard, -, MinMax, DPCM, Truncate: cost or fields needed
  bool edgeTrials;              // some edge member enabled: selection may need their costs
  bool edgeTried[6];            // Edge2 .. Edge7 enabled: tried when selection needs edge costs
  unsigned edgeFields;          // bit n - 2: some selectable mode runs Edge n's encoder
};

inline Plan makePlan(const EncodeParams& p) {
  Plan pl{};
  for (int m = 0; m < kModeCount; ++m) {
    if (m == kCurve || !(p.modeEnabled[m] || m == kTruncate)) continue;
    if (m <= kTruncate) pl.nonEdge[m] = true;
    if (p.encoderOf[m] <= kTruncate)
      pl.nonEdge[p.encoderOf[m]] = true;
    else
      pl.edgeFields |= 1u << (p.encoderOf[m] - kEdge2);
    if (m >= kEdge2) pl.edgeTrials = pl.edgeTried[m - kEdge2] = true;
  }
  return pl;
}

// Costs and selection for one block per lane, and the encoder each lane runs. The edge members'
// costs are computed only when some lane's selection can depend on them, and their fields only
// for members some lane encodes with.
inline void encodeLanes(const EncodeParams& p, const Plan& plan, const V* P, int sel, Lanes& L) {
  // The first occurrence of the minimum wins; a block of all 4095 keeps position 0.
  V pmin = splat(4095), pmax = splat(0), pos = splat(0);
  for (int i = 0; i < 8; ++i) {
    const V lt = P[i] < pmin;
    pmin = lt ? P[i] : pmin;
    pos = lt ? splat(i) : pos;
    pmax = vmax(pmax, P[i]);
  }
  L.pmin = pmin;
  L.pmax = pmax;
  L.pminpos = pos;
  CoarseErrors ce;
  coarseErrors(P, ce);
  const bool nearTop = anyLane(pmax > 4095 - 4);
  V cost[kModeCount], head[6] = {}, tail[6] = {};
  for (int m = 0; m < kModeCount; ++m) cost[m] = splat(4095);
  if (plan.nonEdge[kHadamard]) cost[kHadamard] = hadamardCost(P, L);
  if (plan.nonEdge[kMinMax]) cost[kMinMax] = minmaxCost(P, pmin, pmax, L);
  if (plan.nonEdge[kDpcm]) cost[kDpcm] = dpcmCost(p, P, pmin, pmax, L);
  cost[kTruncate] = truncateCost(ce, p.truncFine[sel]);
  // A mode computed only for its fields takes no part in selection.
  for (int m = 0; m <= kTruncate; ++m) cost[m] = p.modeEnabled[m] ? cost[m] : splat(4095);
  const NonEdge ne = nonEdgeSelect(p, cost);
  unsigned haveEdge = 0;
  V mode = ne.winner;
  if (plan.edgeTrials && anyLane(needsEdgeTrial(p, ne))) {
    EdgeExtrema x = edgeExtrema<1>(P);
    unroll<6>([&](auto kc) {
      constexpr int k = decltype(kc)::value;
      growExtrema<k + 2>(P, x);
      if (!plan.edgeTried[k]) return;
      cost[kEdge2 + k] = edgeCost<k + 2>(p, P, ce, x, nearTop, L, head[k], tail[k]);
      haveEdge |= 1u << k;
    });
    mode = selectMode(p, cost, head, tail, ne);
  }
  V enc = splat(kTruncate);
  for (int m = 0; m < kModeCount; ++m) enc = mode == m ? splat(p.encoderOf[m]) : enc;
  L.encoder = enc;
  // Fields of the edge members the lanes encode with but selection did not try.
  const unsigned late = plan.edgeFields & ~haveEdge;
  if (late == 0) return;
  unroll<6>([&](auto kc) {
    constexpr int k = decltype(kc)::value;
    if ((late & (1u << k)) && anyLane(enc == kEdge2 + k)) {
      V h, t;
      edgeCost<k + 2>(p, P, ce, edgeExtrema<k + 2>(P), nearTop, L, h, t);
    }
  });
}

}  // namespace

// Flattened: every step of a pass inlined, so the per-pixel loops unroll into registers.
__attribute__((flatten)) void FBC_KERNEL(encodeRow)(const EncodeParams& p, const int* px, int width,
                                                    int sel, std::uint64_t* codes) {
  const int blocks = (width + 7) / 8;
  Lanes L{};  // fields of modes a pass skips keep earlier values, read by no lane
  const Plan plan = makePlan(p);
  for (int b0 = 0; b0 < blocks; b0 += kLanes) {
    V rows[8], P[8];
    const bool whole = 8 * (b0 + kLanes) <= width;
    if (whole) {
      std::memcpy(rows, px + 8 * b0, sizeof rows);
    } else {
      // The row's last pixels in a zeroed group: the short block is padded with zeros, lanes
      // past the row code a zero block, unused.
      int t[8 * kLanes] = {};
      std::memcpy(t, px + 8 * b0, sizeof(int) * (width - 8 * b0));
      std::memcpy(rows, t, sizeof rows);
    }
    untranspose(rows, P);
    encodeLanes(p, plan, P, sel, L);
    const Codes c = packLanes(p, P, L, sel);
    if (whole) {
      storeCodes(c, codes + b0);
    } else {
      std::uint64_t t[kLanes];
      storeCodes(c, t);
      std::memcpy(codes + b0, t, sizeof(std::uint64_t) * (blocks - b0));
    }
  }
}

}  // namespace fbc::x86
