#pragma once

#include <fstream>

// Incremental PPM writer: a header, then one pixel per call. Values are limited to the maximum
// from above only.
class CPPM2 : public std::ofstream {
 public:
  // Binary "P6" file with maximum levels - 1. An open failure is reported and later writes fail.
  void newppm(const char* name, int w, int h, int levels);
  // Text "P3" file with maximum levels - 1.
  void newppm16b(const char* name, int w, int h, int levels);
  // Three bytes, each min(value, maximum) reduced to its low 8 bits.
  void appendpixel(int r, int g, int b);
  // One text line "r g b " per pixel.
  void appendpixel16b(int r, int g, int b);
  void closeppm();

  int width = 0;
  int height = 0;
  int maximum = 0;
  int column = 0;

 private:
  void begin(const char* name, const char* magic, std::ios_base::openmode mode, int w, int h,
             int levels);
};
