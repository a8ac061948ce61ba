#pragma once

#include "image/Frame.h"

// Frames as text files of hexadecimal bus words. Samples of `bits` bits are packed least
// significant bit first into words of nBytes bytes; each word is one line, most significant
// byte first. A word never holds a partial sample and never spans two rows.
class DataDumper {
 public:
  // Packs one word from row y starting at column x; x and y advance past the packed samples.
  static void packLine(const Frame& f, int bits, int nBytes, unsigned char* buf, int& x, int& y);
  // Lower half of the word from row y, upper half from row y + 1 at the same column; the walk
  // moves on by two rows at a time.
  static void packLineTwoRow(const Frame& f, int bits, int nBytes, unsigned char* buf, int& x,
                             int& y);
  static void dumpNByteAlignedData(const char* name, const Frame& f, int bits, int nBytes);
  static void dumpPackedDataTwoRow(const char* name, const Frame& f, int bits, int nBytes);
  // Tiles of tileWidth x tileHeight in raster order; inside a tile the rows are packed as by
  // dumpNByteAlignedData. Tiles at the right and bottom edges are cut to the picture.
  static void dumpPackedDataTileMode(const char* name, const Frame& f, int tileWidth,
                                     int tileHeight, int bits, int nBytes);
  // One value per line, masked to its low `bits` bits, as `digits` hexadecimal digits.
  static void dumpPlainData(const char* name, const int* values, int count, int digits, int bits);
  static void dumpPlainData(const char* name, const Frame& f, int digits, int bits);
};
