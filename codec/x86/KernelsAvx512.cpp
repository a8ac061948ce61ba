// The vector kernels for AVX-512 CPUs (F, BW, VL, DQ): sixteen blocks per pass. This file alone is
// compiled with those instruction sets and only runs once the CPU has reported all four.
#if defined(__x86_64__) && defined(__GNUC__) && defined(__AVX512F__) && defined(__AVX512BW__)
#define FBC_KERNEL(name) name##Avx512
// GCC 12's 256-bit extract and insert intrinsics start from a deliberately undefined vector and
// draw false uninitialized warnings when inlined.
#if !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#include "codec/x86/KernelBytes.h"
#include "codec/x86/KernelDecode.h"
#include "codec/x86/KernelEncode.h"
#endif
