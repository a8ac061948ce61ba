/* The frame-buffer compression block as a C library: 1x8 blocks of 12-bit pixels, each coded
   into 64 bits, with the block's registers.

   Reentrant: there is no global state. Any number of codec objects may exist; each is used by
   one thread at a time, and separate objects may be used from separate threads at once.

   Conventions
   - Pixels are the 12-bit values 0..4095 (not shifted), one uint16_t each.
   - A block code is a uint64_t whose bit i is element i of the block's bit vector; the mode
     prefix starts at bit 63. In a buffer of codes each block takes 8 bytes, byte k holding
     bits 8k..8k+7 (little-endian).
   - Strides are in elements (uint16_t for pixels, bytes for codes), from one row's first
     element to the next row's; they may be negative. An input stride may be anything (0 repeats
     one row); an output stride's magnitude must be at least the row's length.
   - Functions returning int return FBC_OK (0) on success and one of the negative FBC_ERR_*
     codes on failure; fbc_error then says what, in one line. A failed call changes nothing:
     neither the codec's registers nor any output buffer.

   Frame index. The DPCM mode's rounder row can follow the parity of the frame index (parameter
   sw_dpcm_swing_en). Frame calls take the index as an argument; block calls code as the frame
   driver codes a frame of the codec's block frame index, 0 until fbc_set_frame_index changes
   it. */
#ifndef FBC_FBC_H
#define FBC_FBC_H

#include <stddef.h>
#include <stdint.h>

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

#define FBC_OK 0
#define FBC_ERR_NULL (-1)    /* a required pointer is null */
#define FBC_ERR_SIZE (-2)    /* a negative or overflowing size, a too small stride or capacity */
#define FBC_ERR_PIXEL (-3)   /* an input pixel above 4095 */
#define FBC_ERR_KEY (-4)     /* a key that names no parameter */
#define FBC_ERR_VALUE (-5)   /* a malformed value, a wrong element count, a value out of range */
#define FBC_ERR_ADDRESS (-6) /* an address the register map does not map */
#define FBC_ERR_FILE (-7)    /* a parameter file that cannot be read or has no [FBC] section */
/* A frame call on a disabled block (reg_fbc_en = 0), whose frames would pass through uncoded;
   block calls code regardless. */
#define FBC_ERR_STATE (-8)
#define FBC_ERR_NOMEM (-9) /* out of memory */

typedef struct fbc_codec fbc_codec;

/* The library's version, "MAJOR.MINOR.PATCH". */
FBC_EXPORT const char* fbc_version(void);

/* A codec with every register at its default and the block enabled; NULL when out of memory. */
FBC_EXPORT fbc_codec* fbc_new(void);
/* An independent copy of `c` (registers and block frame index); NULL when out of memory. */
FBC_EXPORT fbc_codec* fbc_clone(const fbc_codec* c);
/* Frees `c`; NULL is allowed. */
FBC_EXPORT void fbc_free(fbc_codec* c);
/* The last failure on `c` as one line, "" when none; valid until the next call on `c`. */
FBC_EXPORT const char* fbc_error(const fbc_codec* c);

/* Every register back to its default, the block enabled, block frame index 0. */
FBC_EXPORT int fbc_reset(fbc_codec* c);
/* Loads an INI parameter file over the current registers (sections [FBC] and [Enable]); keys
   absent from the file keep their values. Every key must be one of fbc_param_key's, with
   exactly its number of integers, each in its range. */
FBC_EXPORT int fbc_load_params(fbc_codec* c, const char* ini_path);
/* Sets one parameter: `value` is a comma-separated list of exactly the parameter's number of
   integers ("1" or "1,2,3"), decimal or 0x hexadecimal, each in the parameter's range. */
FBC_EXPORT int fbc_set(fbc_codec* c, const char* key, const char* value);
/* A parameter's elements. On success *count is the parameter's element count and, when
   `values` is not NULL, values[0 .. *count) its elements; `values` NULL with capacity 0 asks
   for the count alone. A capacity below the count fails with FBC_ERR_SIZE. */
FBC_EXPORT int fbc_get(const fbc_codec* c, const char* key, int32_t* values, size_t capacity,
                       size_t* count);
/* The parameter keys fbc_set and fbc_get take, for index 0, 1, ...; NULL past the last. */
FBC_EXPORT const char* fbc_param_key(size_t index);

/* A bus write of one 16-bit register: every parameter field in the register takes its bits
   (signed fields sign-extended); bits no field occupies are ignored. The exact inverse of the
   composition fbc_read_register gives. */
FBC_EXPORT int fbc_write_register(fbc_codec* c, uint32_t address, uint16_t value);
/* The register as the register map composes it from the parameters. */
FBC_EXPORT int fbc_read_register(const fbc_codec* c, uint32_t address, uint16_t* value);
/* The mapped register addresses in ascending order, for index 0, 1, ...; -1 past the last. */
FBC_EXPORT int64_t fbc_register_address(size_t index);

/* The threads frame calls split a frame's rows among, 1..1024 (default 1: the calling thread
   alone, no thread started). Every count gives the same bytes; the call returns when all rows
   are done. Copied by fbc_clone. */
FBC_EXPORT int fbc_set_threads(fbc_codec* c, int threads);

/* The frame index block calls code as (see above); any value. */
FBC_EXPORT int fbc_set_frame_index(fbc_codec* c, int32_t frame_index);

/* Codes one block of eight pixels. `parity` nonzero: an odd row parity as the frame driver
   derives it from the row and the CFA layout. On failure (a null pointer, a pixel above 4095)
   returns 0 and sets fbc_error; fbc_encode_block_checked tells failures apart. */
FBC_EXPORT uint64_t fbc_encode_block(fbc_codec* c, const uint16_t pixels[8], int parity);
FBC_EXPORT int fbc_encode_block_checked(fbc_codec* c, const uint16_t pixels[8], int parity,
                                        uint64_t* code);
/* Decodes one block code into eight 12-bit pixels. Every 64-bit value decodes. */
FBC_EXPORT void fbc_decode_block(const fbc_codec* c, uint64_t code, uint16_t pixels[8]);
/* The mode number of a code: 0 Hadamard, 1 Curve, 2 MinMax, 3 DPCM, 4 Truncate, 5..10 Edge2 to
   Edge7. With a codec whose reg_curve_mode_en is set every code is a Curve code (1); `c` NULL
   reads the prefix alone. */
FBC_EXPORT int fbc_code_mode(const fbc_codec* c, uint64_t code);

/* Frame calls: width and height 0 do nothing; negative ones fail with FBC_ERR_SIZE. */
/* Codes a frame of width x height pixels (CFA layout `cfa` 0..3: RGGB, GRBG, BGGR, GBRG) into
   height rows of (width + 7) & ~7 code bytes, as the frame driver codes frame `frame_index`;
   a short last block of a row is padded with zeros. */
FBC_EXPORT int fbc_encode_frame(fbc_codec* c, const uint16_t* pixels, ptrdiff_t pixel_stride,
                                int width, int height, int cfa, int frame_index, uint8_t* codes,
                                ptrdiff_t code_stride);
/* Decodes height rows of (width + 7) & ~7 code bytes into width x height 12-bit pixels. */
FBC_EXPORT int fbc_decode_frame(const fbc_codec* c, const uint8_t* codes, ptrdiff_t code_stride,
                                int width, int height, uint16_t* pixels, ptrdiff_t pixel_stride);

#ifdef __cplusplus
}
#endif

#endif
