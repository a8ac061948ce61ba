// PNG pictures for the tool, through libpng. Kept apart from the core library, which needs
// nothing beyond the C++ standard library: only the tool and its tests link this part.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/Frame.h"
#include "image/Picture.h"

namespace fbc {

// A PNG as stored: `channels` samples per pixel (1 grey, 3 RGB) of `bitDepth` bits (8 or 16),
// row-major.
struct PngImage {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bitDepth = 0;
  std::vector<std::uint16_t> samples;
};

// Reads any PNG as grey or RGB of 8 or 16 bits: palettes become RGB, grey below 8 bits is
// widened to 8, alpha and transparency are dropped (the codec has no use for coverage).
// A file that is not a PNG, is damaged or truncated, or is too large is one line naming it.
bool readPng(const std::string& path, PngImage& image, std::string& error);

// Whether the PNG at `path` is a colour picture (RGB or palette, with or without alpha), from
// its header alone; false for grey ones and for anything unreadable.
bool isColourPng(const std::string& path);

// The file's bytes for `image` (bitDepth 8 or 16). `significantBits` below bitDepth is recorded
// in an sBIT chunk, so viewers and readers know the samples came from fewer bits.
std::string pngBytes(const PngImage& image, int significantBits);

// PNG twins of pgmBytes/ppmBytes: values limited to 0..maxval, where maxval is 2^b - 1 for
// b = 1..16. Up to 8 bits the samples take one byte, above two; values of fewer bits are widened
// by repeating their top bits below them (v << 4 | v >> 8 for 12 bits), so the file spans the
// full range, its top b bits are the values, and reading it back at b bits gives them again.
std::string pngGreyBytes(const Frame& frame, int maxval);
std::string pngRgbBytes(const RgbImage& image, int maxval);

// A picture as a 12-bit CS_RAW frame, as loadPicture reads .ppm/.pgm/.raw and, besides, .png:
// grey PNGs as .pgm, colour ones (RGB, palette) as .ppm, with the same scaling to 12 bits.
bool loadPictureOrPng(const std::string& path, const PictureOptions& options, Frame& frame,
                      std::string& error);

}  // namespace fbc
