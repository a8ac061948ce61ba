// Primitives of the vector kernels: the lane vectors, lane tests, transposes between blocks and
// lanes, per-lane shifts, the Walsh-Hadamard butterfly, code fields as lane values, and the
// loads and stores of codes and pixels. Every instruction-set-specific step of the encoder and
// decoder lives here; KernelEncode.h and KernelDecode.h are written with the compiler's generic
// vectors only.
//
// Included once per instruction set by KernelsSse2.cpp, KernelsAvx2.cpp and KernelsAvx512.cpp
// on x86-64, and by KernelsNeon.cpp on aarch64 (through the kernel parts). Everything lives in an
// anonymous namespace and calls no inline function of another header: no instantiation compiled for
// AVX2 can be picked by the linker for baseline code. Shared numbers come from constexpr tables
// (ModeLayout.h, EdgeLayout.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#if defined(__AVX2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "codec/EdgeLayout.h"
#include "codec/ModeLayout.h"
#include "codec/x86/Kernels.h"

#pragma GCC diagnostic ignored "-Wpsabi"

namespace fbc::x86 {
namespace {

// Sixteen lanes with 512-bit vectors, eight where the CPU has 256-bit integer vectors, four on
// the x86 baseline and on NEON (128-bit registers): wider vectors than the registers would be
// split element by element there.
#if defined(__AVX512F__)
constexpr int kLanes = 16;
#elif defined(__AVX2__)
constexpr int kLanes = 8;
#else
constexpr int kLanes = 4;
#endif
typedef std::int32_t V __attribute__((vector_size(4 * kLanes)));
typedef std::uint32_t U __attribute__((vector_size(4 * kLanes)));

inline V splat(int x) {
  return V{} + x;
}
inline V vmin(V a, V b) {
  return a < b ? a : b;
}
inline V vmax(V a, V b) {
  return a > b ? a : b;
}
inline V vabs(V a) {
  return a < 0 ? -a : a;
}
inline V load(const int* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
inline void store(int* p, V v) {
  std::memcpy(p, &v, sizeof v);
}
inline V asV(U u) {
  return reinterpret_cast<V>(u);
}
inline U asU(V v) {
  return reinterpret_cast<U>(v);
}

// Calls f(std::integral_constant<int, I>) for I = 0 .. N-1: bit positions that depend on the
// pixel index stay compile-time constants.
template <class F, int... I>
inline void unrollSeq(F&& f, std::integer_sequence<int, I...>) {
  (f(std::integral_constant<int, I>{}), ...);
}
template <int N, class F>
inline void unroll(F&& f) {
  unrollSeq(f, std::make_integer_sequence<int, N>{});
}

// Whether any lane of a compare mask is set.
inline bool anyLane(V m) {
#if defined(__AVX512F__)
  return _mm512_test_epi32_mask(reinterpret_cast<__m512i>(m), reinterpret_cast<__m512i>(m)) != 0;
#elif defined(__AVX2__)
  return !_mm256_testz_si256(reinterpret_cast<__m256i>(m), reinterpret_cast<__m256i>(m));
#elif defined(__ARM_NEON)
  return vmaxvq_u32(reinterpret_cast<uint32x4_t>(m)) != 0;
#else
  typedef long long W __attribute__((vector_size(4 * kLanes)));
  const W w = reinterpret_cast<W>(m);
  long long r = 0;
  for (int k = 0; k < kLanes / 2; ++k) r |= w[k];
  return r != 0;
#endif
}

// Per-lane choice among the first seven values of an eight-entry table, by a lane value 0..6.
inline V lookup7(const std::int32_t (&table)[8], V index) {
#if defined(__AVX2__)
  const __m256i t = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(table));
#if defined(__AVX512F__)
  return reinterpret_cast<V>(
      _mm512_permutexvar_epi32(reinterpret_cast<__m512i>(index), _mm512_castsi256_si512(t)));
#else
  return reinterpret_cast<V>(_mm256_permutevar8x32_epi32(t, reinterpret_cast<__m256i>(index)));
#endif
#elif defined(__ARM_NEON)
  // A byte table lookup: lane value k picks bytes 4k .. 4k+3 of the 32-byte table.
  uint8x16x2_t t;
  t.val[0] = vld1q_u8(reinterpret_cast<const std::uint8_t*>(table));
  t.val[1] = vld1q_u8(reinterpret_cast<const std::uint8_t*>(table) + 16);
  const U bytes = asU(index) * 0x04040404u + 0x03020100u;
  return reinterpret_cast<V>(vqtbl2q_u8(t, reinterpret_cast<uint8x16_t>(bytes)));
#else
  V r = splat(table[0]);
  for (int k = 1; k < 7; ++k) r = index == k ? splat(table[k]) : r;
  return r;
#endif
}

#if defined(__AVX2__)
// 8x8 transpose of 32-bit elements: r[i] element b -> out[b] element i.
inline void transpose8x8(const __m256i* r, __m256i* out) {
  __m256i t[8], u[8];
  for (int i = 0; i < 8; i += 2) {
    t[i] = _mm256_unpacklo_epi32(r[i], r[i + 1]);
    t[i + 1] = _mm256_unpackhi_epi32(r[i], r[i + 1]);
  }
  for (int i = 0; i < 8; i += 4) {
    u[i] = _mm256_unpacklo_epi64(t[i], t[i + 2]);          // elements 0 | 4
    u[i + 1] = _mm256_unpackhi_epi64(t[i], t[i + 2]);      // 1 | 5
    u[i + 2] = _mm256_unpacklo_epi64(t[i + 1], t[i + 3]);  // 2 | 6
    u[i + 3] = _mm256_unpackhi_epi64(t[i + 1], t[i + 3]);  // 3 | 7
  }
  for (int b = 0; b < 4; ++b) {
    out[b] = _mm256_permute2x128_si256(u[b], u[b + 4], 0x20);
    out[b + 4] = _mm256_permute2x128_si256(u[b], u[b + 4], 0x31);
  }
}
#endif

// Lanes <-> pixels: in[i] holds element i of every lane; out holds the lanes one after the other
// (lane b's eight elements at out[8b..8b+7] when read as memory).
inline void transpose(const V* in, V* out) {
#if defined(__AVX512F__)
  // Two 8x8 transposes, lanes 0..7 and 8..15; each output vector holds two lanes.
  __m256i r[2][8], t[2][8];
  for (int i = 0; i < 8; ++i) {
    const __m512i v = reinterpret_cast<__m512i>(in[i]);
    r[0][i] = _mm512_castsi512_si256(v);
    r[1][i] = _mm512_extracti64x4_epi64(v, 1);
  }
  transpose8x8(r[0], t[0]);
  transpose8x8(r[1], t[1]);
  for (int k = 0; k < 8; ++k) {
    const __m256i a = t[k >> 2][(2 * k) & 7], b = t[k >> 2][(2 * k + 1) & 7];
    out[k] = reinterpret_cast<V>(_mm512_inserti64x4(_mm512_castsi256_si512(a), b, 1));
  }
#elif defined(__AVX2__)
  transpose8x8(reinterpret_cast<const __m256i*>(in), reinterpret_cast<__m256i*>(out));
#else
  for (int h = 0; h < 2; ++h) {
    const V* r = in + 4 * h;
    const V t0 = __builtin_shufflevector(r[0], r[1], 0, 4, 1, 5);
    const V t1 = __builtin_shufflevector(r[0], r[1], 2, 6, 3, 7);
    const V t2 = __builtin_shufflevector(r[2], r[3], 0, 4, 1, 5);
    const V t3 = __builtin_shufflevector(r[2], r[3], 2, 6, 3, 7);
    out[0 + h] = __builtin_shufflevector(t0, t2, 0, 1, 4, 5);
    out[2 + h] = __builtin_shufflevector(t0, t2, 2, 3, 6, 7);
    out[4 + h] = __builtin_shufflevector(t1, t3, 0, 1, 4, 5);
    out[6 + h] = __builtin_shufflevector(t1, t3, 2, 3, 6, 7);
  }
#endif
}

// The inverse of transpose(): lanes one after the other in memory -> element i of every lane.
inline void untranspose(const V* in, V* out) {
#if defined(__AVX512F__)
  __m256i r[2][8], t[2][8];
  for (int k = 0; k < 8; ++k) {
    const __m512i v = reinterpret_cast<__m512i>(in[k]);
    r[k >> 2][(2 * k) & 7] = _mm512_castsi512_si256(v);
    r[k >> 2][(2 * k + 1) & 7] = _mm512_extracti64x4_epi64(v, 1);
  }
  transpose8x8(r[0], t[0]);
  transpose8x8(r[1], t[1]);
  for (int i = 0; i < 8; ++i)
    out[i] = reinterpret_cast<V>(_mm512_inserti64x4(_mm512_castsi256_si512(t[0][i]), t[1][i], 1));
#elif defined(__AVX2__)
  transpose(in, out);
#else
  V r[8];
  for (int h = 0; h < 2; ++h)
    for (int b = 0; b < 4; ++b) r[4 * h + b] = in[2 * b + h];
  transpose(r, out);
  V s[8];
  for (int k = 0; k < 8; ++k) s[k] = out[k];
  for (int h = 0; h < 2; ++h)
    for (int b = 0; b < 4; ++b) out[4 * h + b] = s[2 * b + h];
#endif
}

// Per-lane shift amounts 0 .. 2^Bits - 1. AVX2 and NEON shift each lane by its own amount; the
// x86 baseline composes the shift from one conditional shift per bit of the amount.
template <int Bits>
struct VarShift {
  explicit VarShift(V amount) : k(amount) {
    for (int b = 0; b < Bits; ++b) bit[b] = (amount & (1 << b)) != 0;
  }
  V shr(V v) const {
#if defined(__AVX2__) || defined(__ARM_NEON)
    return v >> k;
#else
    for (int b = 0; b < Bits; ++b) v = bit[b] ? v >> (1 << b) : v;
    return v;
#endif
  }
  V shl(V v) const {
#if defined(__AVX2__) || defined(__ARM_NEON)
    return v << k;
#else
    for (int b = 0; b < Bits; ++b) v = bit[b] ? v << (1 << b) : v;
    return v;
#endif
  }
  V k;
  V bit[Bits];
};

// Natural-order Walsh-Hadamard butterfly on eight vectors: three stages of four pairs (j, j + H),
// every index a compile-time constant so the vectors stay in registers.
template <int H>
inline void butterflyStage(V* v) {
  unroll<4>([&](auto kc) {
    constexpr int k = decltype(kc)::value, j = k / H * 2 * H + k % H;
    const V a = v[j], b = v[j + H];
    v[j] = a + b;
    v[j + H] = a - b;
  });
}

inline void butterfly8(V* v) {
  butterflyStage<1>(v);
  butterflyStage<2>(v);
  butterflyStage<4>(v);
}

// Start bit of edge member N's k-th coarse pixel (k = 0 next to the group), for template
// arguments: the edge layout packs index, base and coarse pixels from bit 0 upward.
constexpr int coarseLo(int n, int k) {
  const EdgeLayout& l = kEdgeLayouts[n - 2];
  int lo = n * l.indexBits + 12 - l.baseDrop;
  for (int m = 0; m < k; ++m) lo += l.coarseBits[m];
  return lo;
}

// --- codes: every lane's code as two 32-bit halves ---------------------------------------

struct Codes {
  U lo, hi;
};

// Puts the low W bits of each lane's value at bits Lo .. Lo+W-1 of its code.
template <int Lo, int W>
inline void put(Codes& c, V v) {
  static_assert(W >= 1 && W <= 31 && Lo >= 0 && Lo + W <= 64, "field inside the code");
  const U u = asU(v) & ((1u << W) - 1);
  if constexpr (Lo >= 32) {
    c.hi |= u << (Lo - 32);
  } else if constexpr (Lo + W <= 32) {
    c.lo |= u << Lo;
  } else {
    c.lo |= u << Lo;
    c.hi |= u >> (32 - Lo);
  }
}

// Codes whose prefix `Value` occupies bits Lo..63, with every other bit 0.
template <int Value, int Lo>
inline Codes prefixed() {
  static_assert(Lo >= 32, "prefixes lie in the high half");
  return {U{}, U{} + (static_cast<std::uint32_t>(Value) << (Lo - 32))};
}

// Bits Lo .. Lo+W-1 of each lane's code, as an unsigned value.
template <int Lo, int W>
inline V vfield(const Codes& c) {
  static_assert(W >= 1 && W <= 31 && Lo >= 0 && Lo + W <= 64, "field inside the code");
  U w;
  if constexpr (Lo >= 32)
    w = c.hi >> (Lo - 32);
  else if constexpr (Lo + W <= 32)
    w = c.lo >> Lo;
  else
    w = (c.lo >> Lo) | (c.hi << (32 - Lo));
  return asV(w & ((1u << W) - 1));
}
// The same field as a two's complement value.
template <int Lo, int W>
inline V vsfield(const Codes& c) {
  return (vfield<Lo, W>(c) << (32 - W)) >> (32 - W);
}
// Lanes whose code carries the prefix `Value` at bits Lo..63.
template <int Value, int Lo>
inline V hasPrefix(const Codes& c) {
  static_assert(Lo >= 32, "prefixes lie in the high half");
  return asV(c.hi >> (Lo - 32)) == Value;
}

// Interleaves the halves into 64-bit codes, lane order.
inline void storeCodes(const Codes& c, std::uint64_t* codes) {
#if defined(__AVX512F__)
  const __m512i lo = reinterpret_cast<__m512i>(c.lo), hi = reinterpret_cast<__m512i>(c.hi);
  const __m512i first = _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
  _mm512_storeu_si512(codes, _mm512_permutex2var_epi32(lo, first, hi));
  _mm512_storeu_si512(
      codes + 8, _mm512_permutex2var_epi32(lo, _mm512_add_epi32(first, _mm512_set1_epi32(8)), hi));
#elif defined(__AVX2__)
  const __m256i lo = reinterpret_cast<__m256i>(c.lo), hi = reinterpret_cast<__m256i>(c.hi);
  const __m256i a = _mm256_unpacklo_epi32(lo, hi),
                b = _mm256_unpackhi_epi32(lo, hi);  // 0 1 4 5, 2 3 6 7
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes), _mm256_permute2x128_si256(a, b, 0x20));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(codes + 4), _mm256_permute2x128_si256(a, b, 0x31));
#else
  const U a = __builtin_shufflevector(c.lo, c.hi, 0, 4, 1, 5);
  const U b = __builtin_shufflevector(c.lo, c.hi, 2, 6, 3, 7);
  std::memcpy(codes, &a, sizeof a);
  std::memcpy(codes + 2, &b, sizeof b);
#endif
}

// kLanes little-endian 8-byte codes, split into halves.
inline Codes loadCodes(const unsigned char* bytes) {
  U a, b;
  std::memcpy(&a, bytes, sizeof a);
  std::memcpy(&b, bytes + sizeof a, sizeof b);
#if defined(__AVX512F__)
  const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const __m512i x = reinterpret_cast<__m512i>(a), y = reinterpret_cast<__m512i>(b);
  return {reinterpret_cast<U>(_mm512_permutex2var_epi32(x, even, y)),
          reinterpret_cast<U>(
              _mm512_permutex2var_epi32(x, _mm512_add_epi32(even, _mm512_set1_epi32(1)), y))};
#elif defined(__AVX2__)
  const __m256 x = reinterpret_cast<__m256>(a), y = reinterpret_cast<__m256>(b);
  const __m256i lo = _mm256_castps_si256(_mm256_shuffle_ps(x, y, 0x88));  // codes 0 1 4 5 | 2 3 6 7
  const __m256i hi = _mm256_castps_si256(_mm256_shuffle_ps(x, y, 0xDD));
  return {reinterpret_cast<U>(_mm256_permute4x64_epi64(lo, 0xD8)),
          reinterpret_cast<U>(_mm256_permute4x64_epi64(hi, 0xD8))};
#else
  return {__builtin_shufflevector(a, b, 0, 2, 4, 6), __builtin_shufflevector(a, b, 1, 3, 5, 7)};
#endif
}

// The codes of a compressed frame's row: one code byte in the low byte of each 32-bit sample
// (higher bits ignored), narrowed in registers.
inline Codes loadCodes(const std::int32_t* samples) {
#if defined(__AVX512F__)
  __m128i q[8];
  for (int k = 0; k < 8; ++k)
    q[k] = _mm512_cvtepi32_epi8(_mm512_loadu_si512(samples + 16 * k));  // two codes each
  const auto join = [&q](int k) {
    const __m512i v = _mm512_inserti32x4(_mm512_castsi128_si512(q[k]), q[k + 1], 1);
    return _mm512_inserti32x4(_mm512_inserti32x4(v, q[k + 2], 2), q[k + 3], 3);
  };
  const __m512i x = join(0), y = join(4);
  const __m512i even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  return {reinterpret_cast<U>(_mm512_permutex2var_epi32(x, even, y)),
          reinterpret_cast<U>(
              _mm512_permutex2var_epi32(x, _mm512_add_epi32(even, _mm512_set1_epi32(1)), y))};
#elif defined(__AVX2__)
  // Code k is samples 8k .. 8k+7. Two saturating packs of the masked samples leave the low
  // halves of codes 0..3 in the first 128 bits and their high halves in the second.
  const __m256i low = _mm256_set1_epi32(0xFF);
  __m256i v[8];
  for (int k = 0; k < 8; ++k)
    v[k] = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(samples + 8 * k)),
                            low);
  const __m256i a =
      _mm256_packus_epi16(_mm256_packus_epi32(v[0], v[1]), _mm256_packus_epi32(v[2], v[3]));
  const __m256i b =
      _mm256_packus_epi16(_mm256_packus_epi32(v[4], v[5]), _mm256_packus_epi32(v[6], v[7]));
  return {reinterpret_cast<U>(_mm256_permute2x128_si256(a, b, 0x20)),
          reinterpret_cast<U>(_mm256_permute2x128_si256(a, b, 0x31))};
#elif defined(__ARM_NEON)
  // Two unzips keep the even 16-bit halves, then the even bytes: the low byte of each sample.
  unsigned char bytes[8 * kLanes];
  for (int h = 0; h < 2; ++h) {
    const std::int32_t* s = samples + 16 * h;
    const uint16x8_t a =
        vuzp1q_u16(vreinterpretq_u16_s32(vld1q_s32(s)), vreinterpretq_u16_s32(vld1q_s32(s + 4)));
    const uint16x8_t b = vuzp1q_u16(vreinterpretq_u16_s32(vld1q_s32(s + 8)),
                                    vreinterpretq_u16_s32(vld1q_s32(s + 12)));
    vst1q_u8(bytes + 16 * h, vuzp1q_u8(vreinterpretq_u8_u16(a), vreinterpretq_u8_u16(b)));
  }
  return loadCodes(bytes);
#else
  unsigned char bytes[8 * kLanes];
  for (int i = 0; i < 8 * kLanes; ++i) bytes[i] = static_cast<unsigned char>(samples[i]);
  return loadCodes(bytes);
#endif
}

// --- pixels: eight vectors of pixels, lane order, shifted left by 4 on the way out -------

inline void storePixels(const V* rows, std::int32_t* out) {
  for (int k = 0; k < 8; ++k) {
    const V v = rows[k] << 4;
    std::memcpy(out + k * kLanes, &v, sizeof v);
  }
}

// The same past the caches, `out` aligned to a vector: a large decoded frame is written once and
// not read back soon, so its lines need not be fetched before being overwritten.
inline void streamPixels(const V* rows, std::int32_t* out) {
  for (int k = 0; k < 8; ++k) {
    const V v = rows[k] << 4;
#if defined(__AVX512F__)
    _mm512_stream_si512(reinterpret_cast<__m512i*>(out + k * kLanes), reinterpret_cast<__m512i>(v));
#elif defined(__AVX2__)
    _mm256_stream_si256(reinterpret_cast<__m256i*>(out + k * kLanes), reinterpret_cast<__m256i>(v));
#elif defined(__ARM_NEON) && defined(__clang__)
    __builtin_nontemporal_store(v, reinterpret_cast<V*>(out + k * kLanes));
#else
    std::memcpy(out + k * kLanes, &v, sizeof v);
#endif
  }
}

// The streamed lines reach memory before anyone reads the frame.
inline void streamFence() {
#if defined(__AVX2__)
  _mm_sfence();
#endif
}

inline void storePixels(const V* rows, std::uint16_t* out) {
#if defined(__AVX512F__)
  for (int k = 0; k < 8; ++k) {
    const __m256i v =
        _mm256_slli_epi16(_mm512_cvtepi32_epi16(reinterpret_cast<__m512i>(rows[k])), 4);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 16 * k), v);
  }
#elif defined(__AVX2__)
  for (int k = 0; k < 8; k += 2) {
    // Two blocks: packing interleaves their 128-bit halves, the permute restores the order.
    const __m256i s = _mm256_packus_epi32(reinterpret_cast<__m256i>(rows[k]),
                                          reinterpret_cast<__m256i>(rows[k + 1]));
    const __m256i v = _mm256_slli_epi16(_mm256_permute4x64_epi64(s, 0xD8), 4);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 8 * k), v);
  }
#else
  typedef std::uint16_t H __attribute__((vector_size(2 * kLanes)));
  for (int k = 0; k < 8; ++k) {
    const H v = __builtin_convertvector(rows[k], H) << 4;
    std::memcpy(out + k * kLanes, &v, sizeof v);
  }
#endif
}

// Codes are requested this many bytes before they are decoded: the decoder reads them faster
// than the hardware prefetcher alone brings them in (measured on 4K frames; 2 to 8 KB do alike).
constexpr std::uintptr_t kPrefetchAhead = 4096;

// Requests the cache lines `bytes` long at `at` + kPrefetchAhead; addresses past the buffer are
// harmless (a prefetch never faults).
inline void prefetchAhead(const void* at, std::size_t bytes) {
  const std::uintptr_t from = reinterpret_cast<std::uintptr_t>(at) + kPrefetchAhead;
  for (std::uintptr_t a = from; a < from + bytes; a += 64)
    __builtin_prefetch(reinterpret_cast<const void*>(a));
}

}  // namespace
}  // namespace fbc::x86
