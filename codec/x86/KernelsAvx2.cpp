// The vector kernels for AVX2 CPUs; this file alone is compiled with -mavx2 and only runs once
// the CPU has reported AVX2.
#if defined(__x86_64__) && defined(__GNUC__) && defined(__AVX2__)
#define FBC_KERNEL(name) name##Avx2
#include "codec/x86/KernelBytes.h"
#include "codec/x86/KernelDecode.h"
#include "codec/x86/KernelEncode.h"
#endif
