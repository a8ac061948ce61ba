// The vector kernels for aarch64: NEON's 128-bit registers, four blocks per pass. Every aarch64
// CPU has NEON, so the variant needs no feature test.
#if defined(__aarch64__) && defined(__GNUC__) && defined(__ARM_NEON)
#define FBC_KERNEL(name) name##Neon
#include "codec/x86/KernelBytes.h"
#include "codec/x86/KernelDecode.h"
#include "codec/x86/KernelEncode.h"
#endif
