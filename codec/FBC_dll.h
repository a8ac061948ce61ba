// The library's C entry: decompresses one buffer of block codes into 16-bit pixels, exactly as
// the hardware block returns them.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define FBC_EXPORT __attribute__((visibility("default")))
#else
#define FBC_EXPORT
#endif

// `compressed` holds `height` rows of `width` bytes: each run of 8 bytes starting at a multiple
// of 8 within a row is the little-endian 64-bit code of those 8 pixels. When `width` is not a
// multiple of 8, the last block of each row is still read as 8 bytes, so the buffer must hold
// width * height + 7 bytes. `out` receives width * height values, each a 12-bit pixel shifted
// left by 4. Prints "FBD start... r4_k9_v1.6", "FBD in process..." and "FBD end!" on standard
// output and returns 1.
FBC_EXPORT int FBD_Execute(unsigned char* compressed, unsigned short* out, int width, int height);

#ifdef __cplusplus
}
#endif
