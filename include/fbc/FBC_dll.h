// The library's C entry: decompresses one buffer of block codes into 16-bit pixels, exactly as
// the hardware block returns them.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef FBC_EXPORT
#if defined(__GNUC__)
#define FBC_EXPORT __attribute__((visibility("default")))
#else
#define FBC_EXPORT
#endif
#endif

// `compressed` holds `height` rows of `width` bytes: each run of 8 bytes starting at a multiple
// of 8 within a row is the little-endian 64-bit code of those 8 pixels. When `width` is not a
// multiple of 8, the last block of each row is still read as 8 bytes, so the buffer must hold
// width * height + 7 bytes. `out` receives width * height values, each a 12-bit pixel shifted
// left by 4. Prints "FBD start... r4_k9_v1.6", "FBD in process..." and "FBD end!" on standard
// output and returns 1.
FBC_EXPORT int FBD_Execute(unsigned char* compressed, unsigned short* out, int width, int height);

/* Error codes of FBD_ExecuteChecked. */
#define FBD_OK 0
#define FBD_ERR_NULL (-1)          /* `compressed` or `out` is null */
#define FBD_ERR_SIZE (-2)          /* width or height not positive, or width * height too large */
#define FBD_ERR_OUT_TOO_SMALL (-3) /* out_count < width * height */
#define FBD_ERR_IN_TOO_SMALL (-4)  /* compressed_size below what decoding reads (see below) */

/* The bounds-checked entry: the same decoding as FBD_Execute, for callers that know their buffer
   sizes. Decoding reads width * height bytes plus, when width is not a multiple of 8, the
   (8 - width % 8) bytes the last block of the last row reaches past them; `compressed_size` must
   cover that. Never reads or writes outside the given sizes, prints nothing, and on success
   fills out[0 .. width * height) exactly as FBD_Execute does and returns FBD_OK (0); otherwise
   returns one of the negative codes above and leaves `out` untouched. */
FBC_EXPORT int FBD_ExecuteChecked(const unsigned char* compressed, size_t compressed_size,
                                  unsigned short* out, size_t out_count, int width, int height);

#ifdef __cplusplus
}
#endif
