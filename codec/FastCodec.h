// The codec's fast path: whole rows of blocks through the vector kernels of codec/x86 (x86-64
// and aarch64), chosen once from the CPU's features, with every register resolved into tables once
// per frame. Results are bit-identical to Compression1x8's scalar reference, which stays the
// definition; FBC_FORCE_SCALAR=1 in the environment makes the frame drivers use the reference
// instead.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/BlockCode.h"
#include "codec/x86/Kernels.h"

class Compression1x8;

namespace fbc {

// One implementation of the row kernels.
struct CodecVariant {
  const char* name;  // "sse2", "avx2", "avx512"; "neon" on aarch64
  x86::EncodeRowFn encodeRow;
  x86::DecodeRowFn decodeRow;
  x86::DecodeRow32Fn decodeRow32;
  x86::DecodeFrameRowFn decodeFrameRow;
  x86::InRangeFn inRange;
  x86::WidenBytesFn widenBytes;
  x86::NarrowBytesFn narrowBytes;
};

// The vector variants this CPU runs, in order of preference (best first); empty on hosts
// without them.
const std::vector<CodecVariant>& supportedVariants();
// The variant the drivers use: the preferred one, or null when FBC_FORCE_SCALAR is set to
// anything but "0" or no variant exists (the drivers then run the reference).
const CodecVariant* activeVariant();

x86::EncodeParams makeEncodeParams(const Compression1x8& codec);
void makeDecodeParams(const Compression1x8& codec, x86::DecodeParams& p);

// Row encoder for one frame under fixed registers.
class FastEncoder {
 public:
  // `variant` null runs the reference for every block.
  FastEncoder(Compression1x8& codec, const CodecVariant* variant);
  // Codes one row of `width` pixels (a short last block padded with zeros) into
  // (width + 7) / 8 codes. Rows holding a value outside 0..4095 take the reference path.
  void encodeRow(const int* row, int width, bool parity, BlockCode* codes);

 private:
  Compression1x8& codec_;
  const CodecVariant* variant_;
  x86::EncodeParams params_;
  bool curve_;
  std::vector<std::uint8_t> curveLut_;  // 12-bit pixel -> curve byte, when the curve is on
};

// Row decoder for one frame or call under fixed registers.
class FastDecoder {
 public:
  FastDecoder(Compression1x8& codec, const CodecVariant* variant);
  // Decodes the (width + 7) / 8 codes at `codes` (reading whole 8-byte codes) into `width`
  // pixels shifted left by 4, writing nothing past them.
  void decodeRow(const unsigned char* codes, int width, std::uint16_t* out);
  // The same into 32-bit samples (a decoded frame's pixels).
  void decodeRow(const unsigned char* codes, int width, std::int32_t* out);
  // The same from a compressed frame's row of `width` samples, the code bytes in their low
  // bytes (reading whole 8-sample codes).
  void decodeRow(const std::int32_t* samples, int width, std::int32_t* out);
  // Whether 32-bit rows are written past the caches (for outputs much larger than them).
  void setStreaming(bool on) { params_.streamOut = on; }

 private:
  template <class Out>
  void decodeRowReference(const unsigned char* codes, int width, Out* out);

  Compression1x8& codec_;
  const CodecVariant* variant_;
  x86::DecodeParams params_{};
  std::vector<unsigned char> bytes_;  // a frame row's code bytes, on the reference path
};

}  // namespace fbc
