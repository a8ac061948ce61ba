// The vector decoder: one block per lane. Each lane's code is split into its low and high 32
// bits. Every mode present in a group is decoded in all lanes from fields at fixed bit positions,
// and the lanes keep the result of their own mode; modes absent from the whole group are skipped.
// A row's last blocks are decoded the same way from a group padded with zero codes, and only the
// row's pixels are copied out: there is no per-block decoder here, the reference is the one.
// Field positions come from ModeLayout.h and EdgeLayout.h, the reconstruction offsets from
// DecodeParams.
//
// Part of the kernels compiled once per instruction set (see KernelPrimitives.h).
#pragma once

#include "codec/x86/KernelPrimitives.h"

namespace fbc::x86 {
namespace {

// A kept field t's value after dropping `Drop` low bits: t << Drop plus the offset the
// registers give a zero or a non-zero field.
template <int Drop>
inline V untruncate(const DecodeParams& p, V t) {
  return (t << Drop) + (t == 0 ? splat(p.rebuildOffset[1][Drop]) : splat(p.rebuildOffset[0][Drop]));
}

inline void decodeHadamard(const Codes& c, V* o) {
  constexpr const HadamardLayout& l = kHadamardLayout;
  // coef << (8 - s) is (coef << 5) << (3 - s).
  const VarShift<2> k(3 - vfield<l.shiftLo, l.shiftBits>(c));
  V v[8];
  v[0] = vfield<l.dcLo, l.dcBits>(c) * 8;
  unroll<7>([&](auto jc) {
    constexpr int j = decltype(jc)::value;
    v[l.natural[j + 1]] = k.shl(vsfield<l.acLo[j], l.acBits>(c) * 32);
  });
  butterfly8(v);
  for (int i = 0; i < 8; ++i) o[i] = vmin(vmax(v[i] >> 3, splat(0)), splat(4095));
}

inline void decodeTruncate(const DecodeParams& p, const Codes& c, V* o) {
  constexpr const TruncateLayout& l = kTruncateLayout;
  constexpr int drop = 12 - l.fieldBits;
  const V sel = vfield<l.selBit, 1>(c);
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    const V t = vfield<l.fieldLo[i], l.fieldBits>(c);
    const V coarse = untruncate<drop>(p, t);
    // Whether the pixel keeps one bit more, by the lane's selector.
    const int fine0 = -((p.truncFine[0] >> i) & 1), fine1 = -((p.truncFine[1] >> i) & 1);
    if (fine0 == 0 && fine1 == 0) {
      o[i] = coarse;
      return;
    }
    const V fine = untruncate<drop - 1>(p, t * 2 + vfield<l.extBit[i >> 1], 1>(c));
    o[i] = (sel != 0 ? splat(fine1) : splat(fine0)) ? fine : coarse;
  });
}

inline void decodeMinMax(const Codes& c, V* o) {
  constexpr const MinMaxLayout& l = kMinMaxLayout;
  const V mx = vfield<l.maxLo, l.valueBits>(c), mn = vfield<l.minLo, l.valueBits>(c);
  const V mid = (mx + mn) >> 1;
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    const V sym = vfield<l.symbolLo[i], l.symbolBits>(c);
    o[i] = sym == 0 ? mid : (sym == 1 ? mn : mx);
  });
}

inline void decodeDpcm(const Codes& c, V* o) {
  constexpr const DpcmLayout& l = kDpcmLayout;
  const VarShift<3> sh(vfield<l.shiftLo, l.shiftBits>(c));
  const V pos = vfield<l.posLo, l.posBits>(c);
  const V base = vfield<l.baseLo, l.baseBits>(c);
  // Pixel i's field is the (7 - i)-th from diffLo after the skipped position, the (6 - i)-th
  // before it.
  unroll<8>([&](auto ic) {
    constexpr int i = decltype(ic)::value;
    V d = splat(0);
    if constexpr (i > 0) d = pos < i ? vfield<l.diffLo + l.diffBits*(7 - i), l.diffBits>(c) : d;
    if constexpr (i < 7) d = pos > i ? vfield<l.diffLo + l.diffBits*(6 - i), l.diffBits>(c) : d;
    o[i] = vmin(sh.shl(d) + base, splat(4095));
  });
}

template <int N>
inline void decodeEdge(const DecodeParams& p, const Codes& c, V* o) {
  constexpr EdgeLayout l = kEdgeLayouts[N - 2];
  const V dir = vfield<l.dirBit, 1>(c) != 0;
  const VarShift<2> sh(vfield<l.dirBit + 1, 2>(c));
  const V base = vfield<N * l.indexBits, 12 - l.baseDrop>(c) << l.baseDrop;
  V q[8];
  unroll<N>([&](auto jc) {
    constexpr int j = decltype(jc)::value;
    q[j] = vmin(sh.shl(vfield<j * l.indexBits, l.indexBits>(c)) + base, splat(4095));
  });
  unroll<8 - N>([&](auto kc) {
    constexpr int k = decltype(kc)::value;
    constexpr int bits = l.coarseBits[k];
    q[N + k] = untruncate<12 - bits>(p, vfield<coarseLo(N, k), bits>(c));
  });
  for (int j = 0; j < 8; ++j) o[j] = dir ? q[j] : q[7 - j];
}

// Decodes the group's modes into o (element i = pixel i of every lane).
__attribute__((always_inline)) inline void decodeGroup(const DecodeParams& p, const Codes& c,
                                                       V* o) {
  V m[8];
  const auto blend = [&o, &m](V mask) {
    for (int i = 0; i < 8; ++i) o[i] = mask ? m[i] : o[i];
  };
  // The prefixes form a prefix code (BlockCode.h checks it): each lane matches exactly one.
  const V hadamard = hasPrefix<kHadamardLayout.prefix.value, kHadamardLayout.prefix.lo>(c);
  if (anyLane(hadamard)) decodeHadamard(c, o);  // lanes of other modes are overwritten below
  const V trunc = hasPrefix<kTruncateLayout.prefix.value, kTruncateLayout.prefix.lo>(c);
  if (anyLane(trunc)) {
    decodeTruncate(p, c, m);
    blend(trunc);
  }
  const V dpcm = hasPrefix<kDpcmLayout.prefix.value, kDpcmLayout.prefix.lo>(c);
  if (anyLane(dpcm)) {
    decodeDpcm(c, m);
    blend(dpcm);
  }
  const V minmax = hasPrefix<kMinMaxLayout.prefix.value, kMinMaxLayout.prefix.lo>(c);
  if (anyLane(minmax)) {
    decodeMinMax(c, m);
    blend(minmax);
  }
  unroll<6>([&](auto kc) {
    constexpr int k = decltype(kc)::value;
    const V mask = hasPrefix<kEdgeLayouts[k].prefix, kEdgeLayouts[k].prefixLo>(c);
    if (!anyLane(mask)) return;
    decodeEdge<k + 2>(p, c, m);
    blend(mask);
  });
}

// `In` is unsigned char (packed code bytes) or std::int32_t (a compressed frame's samples).
template <class In, class Out>
inline void decodeRowT(const DecodeParams& p, const In* codes, int width, Out* out) {
  if (p.curve) {
    // Curve coding: byte k of the row is pixel k through the table.
    for (int k = 0; k < width; ++k)
      out[k] = static_cast<Out>(p.curveOut[static_cast<std::uint8_t>(codes[k])] << 4);
    return;
  }
  bool stream = false;
  if constexpr (sizeof(Out) == 4)
    stream = p.streamOut && reinterpret_cast<std::uintptr_t>(out) % (4 * kLanes) == 0;
  int b = 0;
  for (; 8 * (b + kLanes) <= width; b += kLanes) {
    V o[8] = {}, rows[8];
    prefetchAhead(codes + 8 * b, 8 * kLanes * sizeof(In));
    decodeGroup(p, loadCodes(codes + 8 * b), o);
    transpose(o, rows);
    if constexpr (sizeof(Out) == 4) {
      if (stream) {
        streamPixels(rows, out + 8 * b);
        continue;
      }
    }
    storePixels(rows, out + 8 * b);
  }
  if (stream) streamFence();
  if (8 * b >= width) return;
  // The last blocks in a group padded with zero codes; only the row's pixels are copied out.
  In t[8 * kLanes] = {};
  std::memcpy(t, codes + 8 * b, sizeof(In) * 8 * ((width + 7) / 8 - b));
  V o[8] = {}, rows[8];
  decodeGroup(p, loadCodes(t), o);
  transpose(o, rows);
  Out px[8 * kLanes];
  storePixels(rows, px);
  std::memcpy(out + 8 * b, px, sizeof(Out) * (width - 8 * b));
}

}  // namespace

void FBC_KERNEL(decodeRow)(const DecodeParams& p, const unsigned char* codes, int width,
                           std::uint16_t* out) {
  decodeRowT(p, codes, width, out);
}

void FBC_KERNEL(decodeRow32)(const DecodeParams& p, const unsigned char* codes, int width,
                             std::int32_t* out) {
  decodeRowT(p, codes, width, out);
}

void FBC_KERNEL(decodeFrameRow)(const DecodeParams& p, const std::int32_t* codes, int width,
                                std::int32_t* out) {
  decodeRowT(p, codes, width, out);
}

}  // namespace fbc::x86
