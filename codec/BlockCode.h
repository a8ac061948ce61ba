// The 64-bit block container shared by every coding mode.
//
// A block of eight 12-bit pixels is always coded into exactly 64 bits. Bit i of the code is
// element i of the hardware's bit vector; the mode prefix starts at bit 63 and runs downward,
// each mode's payload fills the bits below its prefix. In memory a code is stored as 8 bytes
// in little-endian order: byte k holds bits 8k..8k+7, so the first prefix bit is the most
// significant bit of the block's last byte.
//
//   prefix (bit 63 downward)   mode
//   0                          Hadamard  (0)
//   11                         Truncate  (4)
//   1000                       Edge3     (6)
//   1001                       DPCM      (3)
//   1010                       Edge2     (5)
//   10110                      Edge4     (7)
//   101110                     Edge5     (8)
//   1011110                    Edge6     (9)
//   10111110                   Edge7     (10)
//   10111111                   MinMax    (2)
//   (none)                     Curve     (1), chosen by a register, never by the bits
#pragma once

#include <cstdint>
#include <cstring>

#include "codec/EdgeLayout.h"
#include "codec/ModeLayout.h"

namespace fbc {

using BlockCode = std::uint64_t;

// Short human names, indexed by mode number.
extern const char* const kModeNames[kModeCount];

// An n-bit unsigned field whose least significant bit is bit `lo`.
constexpr std::uint32_t getField(BlockCode code, int lo, int width) {
  return static_cast<std::uint32_t>((code >> lo) & ((BlockCode{1} << width) - 1));
}
// The same field as a two's complement signed value.
constexpr int getSignedField(BlockCode code, int lo, int width) {
  const int v = static_cast<int>(getField(code, lo, width));
  return v - ((v >> (width - 1)) << width);
}
// `value`'s low `width` bits placed at bit `lo` (higher bits of value are dropped).
constexpr BlockCode putField(std::int64_t value, int lo, int width) {
  return (static_cast<BlockCode>(value) & ((BlockCode{1} << width) - 1)) << lo;
}

// The mode that a code's prefix names, from its top byte alone (every prefix is at most 8 bits),
// built from the modes' layouts. The prefixes form a prefix code: every top byte names exactly
// one mode, which `complete` records for the check below.
struct PrefixTable {
  std::int8_t mode[256];
  bool complete;
  constexpr PrefixTable() : mode(), complete(true) {
    int claims[256] = {};
    const auto claim = [&](Prefix p, int m) {
      for (int b = 0; b < 256; ++b) {
        if ((b >> (p.lo - 56)) != p.value) continue;
        mode[b] = static_cast<std::int8_t>(m);
        ++claims[b];
      }
    };
    claim(kHadamardLayout.prefix, kModeHadamard);
    claim(kTruncateLayout.prefix, kModeTruncate);
    claim(kMinMaxLayout.prefix, kModeMinMax);
    claim(kDpcmLayout.prefix, kModeDpcm);
    for (int k = 0; k < 6; ++k)
      claim({kEdgeLayouts[k].prefix, kEdgeLayouts[k].prefixLo}, kModeEdge2 + k);
    for (int c : claims) complete = complete && c == 1;
  }
};
inline constexpr PrefixTable kPrefixTable{};
static_assert(kPrefixTable.complete, "the mode prefixes name every top byte exactly once");

constexpr int modeOfCode(BlockCode code) {
  return kPrefixTable.mode[code >> 56];
}

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "block codes are stored little-endian");
// The edge member (2..7) a mode number names, 0 for every other number.
constexpr int edgeMemberOf(int mode) {
  return mode >= kModeEdge2 && mode <= kModeEdge7 ? mode - kModeEdge2 + 2 : 0;
}

inline BlockCode loadCode(const unsigned char* bytes) {
  BlockCode c;
  std::memcpy(&c, bytes, sizeof c);
  return c;
}
inline void storeCode(BlockCode code, unsigned char* bytes) {
  std::memcpy(bytes, &code, sizeof code);
}

// The 64-boolean form used by the block's bool* entry points: element i is bit i.
BlockCode packCode(const bool* elements);
void unpackCode(BlockCode code, bool* elements);

}  // namespace fbc
