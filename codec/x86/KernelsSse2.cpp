// The vector kernels for any x86-64 (SSE2): each 256-bit vector is a pair of 128-bit registers.
#if defined(__x86_64__) && defined(__GNUC__)
#define FBC_KERNEL(name) name##Sse2
#include "codec/x86/KernelBytes.h"
#include "codec/x86/KernelDecode.h"
#include "codec/x86/KernelEncode.h"
#endif
