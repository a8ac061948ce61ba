// The frame drivers' byte moves: the encoder's input range check, and the moves between packed
// code bytes and a compressed frame's 32-bit samples (one code byte per sample).
//
// Part of the kernels compiled once per instruction set (see KernelPrimitives.h).
#pragma once

#include "codec/x86/KernelPrimitives.h"

namespace fbc::x86 {

bool FBC_KERNEL(inRange)(const std::int32_t* px, int n) {
  U any{};
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) any |= asU(load(px + i));
  unsigned bits = 0;
  for (int k = 0; k < kLanes; ++k) bits |= any[k];
  for (; i < n; ++i) bits |= static_cast<unsigned>(px[i]);
  return (bits & ~4095u) == 0;
}

namespace {
typedef std::uint8_t Bytes __attribute__((vector_size(kLanes)));
}  // namespace

void FBC_KERNEL(widenBytes)(const unsigned char* in, int n, std::int32_t* out) {
  int i = 0;
  for (; i + kLanes <= n; i += kLanes) {
#if defined(__AVX512F__)
    const __m512i v =
        _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i)));
    _mm512_storeu_si512(out + i, v);
#elif defined(__AVX2__)
    const __m256i v =
        _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + i)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), v);
#else
    Bytes b;
    std::memcpy(&b, in + i, sizeof b);
    store(out + i, __builtin_convertvector(b, V));
#endif
  }
  for (; i < n; ++i) out[i] = in[i];
}

void FBC_KERNEL(narrowBytes)(const std::int32_t* in, int n, unsigned char* out) {
  int i = 0;
#if defined(__AVX2__) && !defined(__AVX512F__)
  // Four vectors at a time: two saturating packs keep the masked bytes, the permute undoes
  // their 128-bit interleave.
  const __m256i low = _mm256_set1_epi32(0xFF), order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  for (; i + 32 <= n; i += 32) {
    __m256i v[4];
    for (int k = 0; k < 4; ++k)
      v[k] = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i + 8 * k)),
                              low);
    const __m256i b =
        _mm256_packus_epi16(_mm256_packus_epi32(v[0], v[1]), _mm256_packus_epi32(v[2], v[3]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), _mm256_permutevar8x32_epi32(b, order));
  }
#endif
  for (; i + kLanes <= n; i += kLanes) {
    const Bytes b = __builtin_convertvector(asU(load(in + i)) & 0xFFu, Bytes);
    std::memcpy(out + i, &b, sizeof b);
  }
  for (; i < n; ++i) out[i] = static_cast<unsigned char>(in[i]);
}

}  // namespace fbc::x86
