// Vector variants of the block coder's hot loops and the register-derived tables they read.
//
// The kernels are compiled once per instruction set from one source in four parts
// (KernelPrimitives.h, KernelEncode.h, KernelDecode.h, KernelBytes.h): baseline x86-64 (SSE2),
// AVX2 and AVX-512 (F, BW, VL, DQ), and aarch64's NEON (Advanced SIMD, present on every aarch64
// CPU). Other processors run the reference only. Each encodes or decodes whole rows of blocks
// exactly as the scalar reference in Compression1x8 does; the reference stays the definition and
// the checker (fbc selftest, fast_path_test) compares them bit for bit. Every value below that a
// register decides is resolved by the reference's own functions (FastCodec.cpp). Pixels must be
// 0..4095: the caller keeps other values on the reference path.
#pragma once

#include <cstdint>

#include "codec/ModeLayout.h"

namespace fbc::x86 {

// Register values as the encoder's data path uses them, resolved once per frame.
struct EncodeParams {
  std::int32_t modeEnabled[kModeCount];  // reg_mode_en[m] != 0
  std::int32_t policy;                   // reg_compress_edgefisrt_enable, any value
  std::int32_t finalTh;                  // reg_compress_edgefisrt_finalth
  std::int32_t edgeMinTh;                // reg_compress_edgemin_th
  std::int32_t ratio;                    // low 32 bits of reg_compress_edgemin_ratio
  std::int32_t diffminTh;                // reg_edge_diffmin_th
  std::int32_t truncFine[2];    // by Truncate selector: bit i set when pixel i keeps a bit more
  std::int32_t encHalf[6];      // by dropped bits: what the encoder adds before truncating
  std::int32_t dpcmMaxShift;    // largest DPCM step exponent
  std::int32_t dpcmRounder[8];  // DPCM rounder by step exponent 0..6 (one table lookup)
  std::int32_t dpcmLsbUpdate;   // reg_dpcm_pmin_lsb_update_en != 0
  // The encoder run for each winning mode after reg_mode_definition's remapping.
  std::int8_t encoderOf[kModeCount];
};

// Register values as the decoder uses them, resolved once per frame or call.
struct DecodeParams {
  std::int32_t curve;         // reg_curve_mode_en != 0: every code is eight curve bytes
  std::int32_t streamOut;     // 32-bit output rows aligned to a vector bypass the caches
  std::int32_t truncFine[2];  // by Truncate selector: bit i set when pixel i keeps a bit more
  // What reconstruction adds to a kept field that dropped d low bits: [0][d] for a non-zero
  // field, [1][d] for a zero one.
  std::int32_t rebuildOffset[2][6];
  std::uint16_t curveOut[256];  // curve byte -> 12-bit pixel
};

// Encodes the `width` pixels at px (a short last block padded with zeros) into (width + 7) / 8
// codes; `sel` is the row's Truncate selector.
using EncodeRowFn = void (*)(const EncodeParams& p, const int* px, int width, int sel,
                             std::uint64_t* codes);
// Decodes the (width + 7) / 8 little-endian 8-byte codes at `codes` (whole codes are read) into
// `width` pixels shifted left by 4: 16-bit samples (the raw decoder's buffer) or 32-bit ones (a
// decoded frame). Nothing past the width is written.
using DecodeRowFn = void (*)(const DecodeParams& p, const unsigned char* codes, int width,
                             std::uint16_t* out);
using DecodeRow32Fn = void (*)(const DecodeParams& p, const unsigned char* codes, int width,
                               std::int32_t* out);
// The same from a compressed frame's row: code byte k in the low byte of sample k.
using DecodeFrameRowFn = void (*)(const DecodeParams& p, const std::int32_t* codes, int width,
                                  std::int32_t* out);

// Whether all of n samples are 0..4095 (the encoder kernels' input range).
using InRangeFn = bool (*)(const std::int32_t* px, int n);
// Between packed code bytes and a compressed frame's samples, one code byte per 32-bit sample.
using WidenBytesFn = void (*)(const unsigned char* in, int n, std::int32_t* out);
using NarrowBytesFn = void (*)(const std::int32_t* in, int n, unsigned char* out);

#define FBC_X86_DECLARE_KERNELS(isa)                                                    \
  void encodeRow##isa(const EncodeParams& p, const int* px, int width, int sel,         \
                      std::uint64_t* codes);                                            \
  void decodeRow##isa(const DecodeParams& p, const unsigned char* codes, int width,     \
                      std::uint16_t* out);                                              \
  void decodeRow32##isa(const DecodeParams& p, const unsigned char* codes, int width,   \
                        std::int32_t* out);                                             \
  void decodeFrameRow##isa(const DecodeParams& p, const std::int32_t* codes, int width, \
                           std::int32_t* out);                                          \
  bool inRange##isa(const std::int32_t* px, int n);                                     \
  void widenBytes##isa(const unsigned char* in, int n, std::int32_t* out);              \
  void narrowBytes##isa(const std::int32_t* in, int n, unsigned char* out);

#if defined(__x86_64__) && defined(__GNUC__)
#define FBC_HAVE_X86_KERNELS 1
FBC_X86_DECLARE_KERNELS(Sse2)
#if defined(FBC_HAVE_AVX2_TU)
FBC_X86_DECLARE_KERNELS(Avx2)
#endif
#if defined(FBC_HAVE_AVX512_TU)
FBC_X86_DECLARE_KERNELS(Avx512)
#endif
#elif defined(__aarch64__) && defined(__GNUC__) && defined(__ARM_NEON)
#define FBC_HAVE_NEON_KERNELS 1
FBC_X86_DECLARE_KERNELS(Neon)
#endif

}  // namespace fbc::x86
