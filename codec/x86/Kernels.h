// Vector variants of the block coder's hot loops and the register-derived tables they read.
//
// The kernels are compiled once per instruction set from one source (Kernels.inc): baseline
// x86-64 (SSE2), AVX2 and AVX-512 (F, BW, VL, DQ). Each encodes or decodes whole rows of blocks exactly as the scalar
// reference in Compression1x8 does; the reference stays the definition and the checker
// (fbc selftest, fast_path_test) compares them bit for bit. Pixels must be 0..4095: the caller
// keeps other values on the reference path.
#pragma once

#include <cstdint>

namespace fbc::x86 {

// Register values as the encoder's data path uses them, resolved once per frame.
struct EncodeParams {
    std::int32_t modeEnabled[11];  // reg_mode_en[m] != 0
    std::int32_t policy;           // reg_compress_edgefisrt_enable, any value
    std::int32_t finalTh;          // reg_compress_edgefisrt_finalth
    std::int32_t edgeMinTh;        // reg_compress_edgemin_th
    std::int32_t ratio;            // low 32 bits of reg_compress_edgemin_ratio
    std::int32_t diffminTh;        // reg_edge_diffmin_th
    std::int32_t truncExt;         // reg_tr_ext_en != 0
    std::int32_t truncSelFlip;     // reg_tr_ext_rb != 0
    std::int32_t encRound;         // reg_comp_enc_trun_rnd != 0
    std::int32_t dpcmMaxShift;     // 3 + reg_dpcm_stepsize_expansion_en, kept in 0..6
    std::int32_t dpcmHalfDownRow;  // rounder row 1 (half down) selected
    std::int32_t dpcmLsbUpdate;    // reg_dpcm_pmin_lsb_update_en != 0
    // The encoder run for each selected mode after reg_mode_definition's remapping; numbers the
    // coder has no encoder for run Truncate's.
    std::int8_t encoderOf[11];
};

// Register values as the decoder uses them, resolved once per frame or call.
struct DecodeParams {
    const std::int8_t* prefixMode;  // 256 entries: mode named by a code's top byte
    std::int32_t curve;             // reg_curve_mode_en != 0: every code is eight curve bytes
    std::int32_t truncExt;          // reg_tr_ext_en != 0
    std::int32_t roundMd;           // reg_comp_de_tr_round_md != 0: truncations rebuild at the interval start
    std::int32_t roundZero;         // reg_comp_de_tr_round_zero != 0: a zero field rebuilds as 0
    std::int32_t streamOut;         // 32-bit output rows aligned to a vector bypass the caches
    std::uint16_t curveOut[256];    // curve byte -> 12-bit pixel
    std::uint16_t truncCoarse[128]; // 7-bit Truncate field -> 12-bit pixel
    std::uint16_t truncFine[256];   // 7-bit field and extension bit -> 12-bit pixel
    // Mid-interval offset of an edge member's coarse pixel dropping d low bits, for a non-zero
    // field ([0][d]) and a zero field ([1][d]).
    std::int32_t coarseHalf[2][6];
};

// Encodes `blocks` blocks of eight pixels (block b is px[8b .. 8b+7]) of one row.
using EncodeRowFn = void (*)(const EncodeParams& p, const int* px, int blocks, bool parity,
                             std::uint64_t* codes);
// Decodes `blocks` little-endian 8-byte codes into pixels shifted left by 4: 16-bit samples
// (the raw decoder's buffer) or 32-bit ones (a decoded frame).
using DecodeRowFn = void (*)(const DecodeParams& p, const unsigned char* codes, int blocks,
                             std::uint16_t* out);
using DecodeRow32Fn = void (*)(const DecodeParams& p, const unsigned char* codes, int blocks,
                               std::int32_t* out);
// The same from a compressed frame's row: code byte k in the low byte of sample k.
using DecodeFrameRowFn = void (*)(const DecodeParams& p, const std::int32_t* codes, int blocks,
                                  std::int32_t* out);

// Whether all of n samples are 0..4095 (the encoder kernels' input range).
using InRangeFn = bool (*)(const std::int32_t* px, int n);
// Between packed code bytes and a compressed frame's samples, one code byte per 32-bit sample.
using WidenBytesFn = void (*)(const unsigned char* in, int n, std::int32_t* out);
using NarrowBytesFn = void (*)(const std::int32_t* in, int n, unsigned char* out);

#define FBC_X86_DECLARE_KERNELS(isa)                                                                  \
    void encodeRow##isa(const EncodeParams& p, const int* px, int blocks, bool parity, std::uint64_t* codes); \
    void decodeRow##isa(const DecodeParams& p, const unsigned char* codes, int blocks, std::uint16_t* out);   \
    void decodeRow32##isa(const DecodeParams& p, const unsigned char* codes, int blocks, std::int32_t* out);  \
    void decodeFrameRow##isa(const DecodeParams& p, const std::int32_t* codes, int blocks, std::int32_t* out); \
    bool inRange##isa(const std::int32_t* px, int n);                                                 \
    void widenBytes##isa(const unsigned char* in, int n, std::int32_t* out);                         \
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
#endif

}  // namespace fbc::x86
