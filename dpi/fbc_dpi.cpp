// The C side of fbc_dpi_pkg.sv: the simulator's DPI-C argument types adapted to the C interface.
//
// The types are those the DPI standard fixes for the package's arguments, declared here rather
// than taken from a simulator's svdpi.h so that the library builds without one: a chandle is a
// void*, a `bit` an unsigned byte (svBit), a packed `bit [95:0]` three 32-bit words, least
// significant first (svBitVecVal), `int unsigned` / `shortint unsigned` / `longint unsigned` the
// unsigned C integers of those widths.
//
// Nothing here may end the simulation: failures are return values, and the one printed line.
#include <cstdint>
#include <cstdio>

#include "fbc/fbc.h"

namespace {

using svBitVecVal = std::uint32_t;
using svBit = std::uint8_t;

constexpr int kPixels = 8;
constexpr int kPixelBits = 12;
constexpr int kWords = kPixels * kPixelBits / 32;  // bit [95:0]

//   95 ... 84 | 83 ... 72 | ... | 23 ... 12 | 11 ... 0
//    pixel 7  |  pixel 6  | ... |  pixel 1  |  pixel 0      (words: [31:0], [63:32], [95:64])
std::uint16_t unpackPixel(const svBitVecVal* v, int i) {
  const int lo = kPixelBits * i, word = lo / 32, shift = lo % 32;
  std::uint64_t bits = v[word];
  if (shift + kPixelBits > 32) bits |= static_cast<std::uint64_t>(v[word + 1]) << 32;
  return static_cast<std::uint16_t>((bits >> shift) & 0xFFF);
}

void packPixels(const std::uint16_t* pixels, svBitVecVal* v) {
  for (int w = 0; w < kWords; ++w) v[w] = 0;
  for (int i = 0; i < kPixels; ++i) {
    const int lo = kPixelBits * i, word = lo / 32, shift = lo % 32;
    const std::uint64_t bits = static_cast<std::uint64_t>(pixels[i] & 0xFFF) << shift;
    v[word] |= static_cast<svBitVecVal>(bits);
    if (shift + kPixelBits > 32) v[word + 1] |= static_cast<svBitVecVal>(bits >> 32);
  }
}

fbc_codec* codec(void* h) {
  return static_cast<fbc_codec*>(h);
}

}  // namespace

extern "C" {

FBC_EXPORT void* fbc_dpi_new(const char* params_ini) {
  fbc_codec* c = fbc_new();
  if (c == nullptr) {
    std::printf("fbc_dpi_new: out of memory\n");
    std::fflush(stdout);
    return nullptr;
  }
  if (params_ini != nullptr && params_ini[0] != '\0' && fbc_load_params(c, params_ini) != FBC_OK) {
    // The C interface's message names the file and what is wrong with it.
    std::printf("fbc_dpi_new: %s\n", fbc_error(c));
    std::fflush(stdout);
    fbc_free(c);
    return nullptr;
  }
  return c;
}

FBC_EXPORT void fbc_dpi_free(void* h) {
  fbc_free(codec(h));
}

FBC_EXPORT int fbc_dpi_write_reg(void* h, unsigned int addr, unsigned short data) {
  return fbc_write_register(codec(h), addr, data);
}

FBC_EXPORT int fbc_dpi_read_reg(void* h, unsigned int addr, unsigned short* data) {
  std::uint16_t value = 0;
  const int rc = fbc_read_register(codec(h), addr, &value);
  if (data != nullptr) *data = rc == FBC_OK ? value : 0;
  return rc;
}

FBC_EXPORT unsigned long long fbc_dpi_encode(void* h, const svBitVecVal* pixels, svBit parity) {
  if (pixels == nullptr) return 0;
  std::uint16_t block[kPixels];
  for (int i = 0; i < kPixels; ++i) block[i] = unpackPixel(pixels, i);
  // A null codec returns 0; a 12-bit field cannot hold a pixel the codec refuses.
  return fbc_encode_block(codec(h), block, parity & 1);
}

FBC_EXPORT void fbc_dpi_decode(void* h, unsigned long long code, svBitVecVal* pixels) {
  if (pixels == nullptr) return;
  std::uint16_t block[kPixels] = {};
  if (h != nullptr) fbc_decode_block(codec(h), code, block);
  packPixels(block, pixels);
}

FBC_EXPORT int fbc_dpi_mode(unsigned long long code) {
  return fbc_code_mode(nullptr, code);
}

}  // extern "C"
