// Mode numbers, the bit layouts of the non-edge modes and selection's priority orders, shared by
// the reference coder (Hadamard.cpp, MinMaxDpcm.cpp, Truncate.cpp, ModeSelect.cpp, BlockCode.h)
// and the vector coder in codec/x86. Data only, like EdgeLayout.h for the edge members: each
// table is the one definition of its numbers, and the instruction-set builds of the kernels read
// it without sharing any function with the reference.
#pragma once

namespace fbc {

enum Mode : int {
  kModeHadamard = 0,
  kModeCurve = 1,
  kModeMinMax = 2,
  kModeDpcm = 3,
  kModeTruncate = 4,
  kModeEdge2 = 5,
  kModeEdge3 = 6,
  kModeEdge4 = 7,
  kModeEdge5 = 8,
  kModeEdge6 = 9,
  kModeEdge7 = 10,
};
inline constexpr int kModeCount = 11;

// A mode prefix: `value` occupies bits lo..63 of the code.
struct Prefix {
  int value;
  int lo;
};

// Hadamard: shift, DC and seven AC terms; sequency row j of the transform is row natural[j] of
// the natural-order matrix.
struct HadamardLayout {
  Prefix prefix;
  int shiftLo, shiftBits;
  int dcLo, dcBits;
  int acBits;
  int acLo[7];  // AC term j = 1..7 at acLo[j - 1]
  int natural[8];
};
inline constexpr HadamardLayout kHadamardLayout = {
    {0x0, 63}, 61, 2, 49, 12, 7, {42, 35, 28, 21, 14, 7, 0}, {0, 4, 6, 2, 3, 7, 5, 1}};

// Truncate: the selector, each pixel's top bits and the extension bits of the finer pixels.
struct TruncateLayout {
  Prefix prefix;
  int selBit;
  int fieldBits;   // kept bits of a coarse pixel; a finer one keeps one more
  int fieldLo[8];  // pixel i's kept bits
  int extBit[4];   // extension bit of the k-th finer pixel (pixel 2k + 1 - sel)
};
inline constexpr TruncateLayout kTruncateLayout = {
    {0x3, 62}, 60, 7, {51, 44, 37, 30, 23, 16, 9, 0}, {59, 58, 8, 7}};

// MinMax: the two extremes and a 2-bit level per pixel (0 middle, 1 minimum, 2 maximum).
struct MinMaxLayout {
  Prefix prefix;
  int minLo, maxLo, valueBits;
  int symbolBits;
  int symbolLo[8];  // pixel i's level
};
inline constexpr MinMaxLayout kMinMaxLayout = {{0xBF, 56}, 28, 16,
                                               12,         2,  {14, 12, 10, 8, 6, 4, 2, 0}};

// DPCM: base, the seven transmitted differences from diffLo upward (pixel 7 first, the minimum's
// position skipped), the minimum's position and the step exponent.
struct DpcmLayout {
  Prefix prefix;
  int baseLo, baseBits;
  int diffLo, diffBits;
  int posLo, posBits;
  int shiftLo, shiftBits;
};
inline constexpr DpcmLayout kDpcmLayout = {{0x9, 60}, 48, 12, 6, 6, 3, 3, 0, 3};

// The DPCM rounder by row and step exponent: row 0 rounds to nearest (half the step), row 1
// rounds half down (half the step less one).
inline constexpr int kDpcmRounder[2][7] = {{0, 1, 2, 4, 8, 16, 32}, {0, 0, 1, 3, 7, 15, 31}};

// Priority among equal costs under the plain policy; Truncate is the fallback.
inline constexpr int kPlainOrder[9] = {kModeDpcm,  kModeMinMax, kModeEdge7,
                                       kModeEdge6, kModeEdge5,  kModeEdge4,
                                       kModeEdge3, kModeEdge2,  kModeHadamard};
// The edge-first policy's non-edge winner among equal costs, then its edge members'.
inline constexpr int kNonEdgeOrder[3] = {kModeDpcm, kModeMinMax, kModeHadamard};
inline constexpr int kEdgeOrder[6] = {kModeEdge7, kModeEdge6, kModeEdge5,
                                      kModeEdge4, kModeEdge3, kModeEdge2};

}  // namespace fbc
