// Bit layout of the edge members Edge2..Edge7, shared by the reference coder in Edge.cpp and
// the vector coder in codec/x86. Data only: the table is the one definition of each layout.
#pragma once

namespace fbc {

struct EdgeLayout {
  int n;              // group size
  int indexBits;      // 3 or 4
  int baseDrop;       // low bits cleared from the group minimum: 3 (Edge2) or 2
  int rangeLimit;     // largest group range the index can span: 63 or 127
  int coarseBits[6];  // kept bits of the coarse pixels, next to the group first
  int prefix;         // prefix value, occupying bits prefixLo..63
  int prefixLo;
  int dirBit;  // direction bit; the shift follows at dirBit + 1
};

// Indexed by group size n - 2.
inline constexpr EdgeLayout kEdgeLayouts[6] = {
    {2, 3, 3, 63, {7, 7, 7, 7, 7, 7}, 0xA, 60, 57}, {3, 3, 2, 63, {7, 8, 8, 8, 7}, 0x8, 60, 57},
    {4, 3, 2, 63, {8, 9, 9, 8}, 0x16, 59, 56},      {5, 3, 2, 63, {10, 10, 10}, 0x2E, 58, 55},
    {6, 4, 2, 127, {10, 10}, 0x5E, 57, 54},         {7, 4, 2, 127, {10}, 0xBE, 56, 53},
};

}  // namespace fbc
