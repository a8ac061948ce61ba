// The raw decompressor through the bounds-checked entry. One flag byte (bit 0: null input,
// bit 1: null output, bit 2: one output element short, bit 3: sizes as full 32-bit values instead
// of signed bytes), width, height, then the compressed bytes, whose count is the size passed.
//
// The call must return the error its sizes call for and then leave the output alone; on success
// the output must equal FBD_Execute's on a copy padded to the length that entry assumes. Reads
// past the input or writes past the output are left to the address sanitizer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "codec/FBC_dll.h"
#include "fuzz/FuzzSupport.h"

namespace {

constexpr unsigned long long kMaxPixels = 1u << 20;
constexpr unsigned short kUntouched = 0xA5A5;

int expectedResult(bool nullIn, bool nullOut, int width, int height, std::size_t inSize,
                   std::size_t outCount) {
  if (nullIn || nullOut) return FBD_ERR_NULL;
  if (width <= 0 || height <= 0) return FBD_ERR_SIZE;
  const unsigned long long pixels =
      static_cast<unsigned long long>(width) * static_cast<unsigned>(height);
  if (outCount < pixels) return FBD_ERR_OUT_TOO_SMALL;
  const unsigned long long needed = pixels + (width % 8 == 0 ? 0 : 8 - width % 8);
  return inSize < needed ? FBD_ERR_IN_TOO_SMALL : FBD_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // FBD_Execute announces itself on standard output on every call; keep the run quiet.
  static const bool quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
  (void)quiet;

  fbc::fuzz::ByteReader in(data, size);
  const unsigned flags = in.byte();
  const bool wide = (flags & 8) != 0;
  const int width =
      wide ? static_cast<std::int32_t>(in.u32()) : static_cast<std::int8_t>(in.byte());
  const int height =
      wide ? static_cast<std::int32_t>(in.u32()) : static_cast<std::int8_t>(in.byte());
  const std::uint8_t* compressed = in.rest();
  const std::size_t compressedSize = in.restSize();

  const unsigned long long pixels =
      width > 0 && height > 0
          ? static_cast<unsigned long long>(width) * static_cast<unsigned>(height)
          : 0;
  std::size_t outCount = pixels <= kMaxPixels ? static_cast<std::size_t>(pixels) : 16;
  if ((flags & 4) != 0 && outCount > 0) --outCount;
  // Never empty, so that a zero count still comes with a valid pointer.
  std::vector<unsigned short> out(std::max<std::size_t>(outCount, 1), kUntouched);

  const bool nullIn = (flags & 1) != 0, nullOut = (flags & 2) != 0;
  const int expected = expectedResult(nullIn, nullOut, width, height, compressedSize, outCount);
  const int result = FBD_ExecuteChecked(nullIn ? nullptr : compressed, compressedSize,
                                        nullOut ? nullptr : out.data(), outCount, width, height);
  if (result != expected)
    fbc::fuzz::fail(
        "width %d height %d, %zu input bytes, %zu output elements: returned %d, expected %d", width,
        height, compressedSize, outCount, result, expected);
  if (result != FBD_OK) {
    for (unsigned short v : out)
      if (v != kUntouched) fbc::fuzz::fail("failed call (%d) wrote into the output", result);
    return 0;
  }

  std::vector<unsigned char> padded(static_cast<std::size_t>(pixels) + 7, 0);
  std::memcpy(padded.data(), compressed, std::min(compressedSize, padded.size()));
  std::vector<unsigned short> reference(static_cast<std::size_t>(pixels), kUntouched);
  FBD_Execute(padded.data(), reference.data(), width, height);
  for (std::size_t i = 0; i < reference.size(); ++i) {
    if (out[i] != reference[i])
      fbc::fuzz::fail("width %d height %d: pixel %zu is 0x%04x, FBD_Execute gives 0x%04x", width,
                      height, i, out[i], reference[i]);
    if ((out[i] & 0xF) != 0)
      fbc::fuzz::fail("pixel %zu is 0x%04x, not a 12-bit value shifted by 4", i, out[i]);
  }
  return 0;
}
