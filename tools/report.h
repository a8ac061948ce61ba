// The round trip behind 'fbc demo' and 'fbc roundtrip': compress, count the modes, decompress,
// measure the error and the speed, print the report and write pictures a person can open.
#pragma once

#include <array>
#include <ostream>
#include <string>
#include <vector>

#include "codec/BlockCode.h"
#include "image/Frame.h"

class Compression1x8;

namespace fbc::cli {

struct RoundTrip {
  std::array<long long, kModeCount> blocksPerMode{};
  std::vector<unsigned char> blockModes;  // mode of each block, row-major, (W+7)/8 per row
  Frame decoded;                          // 12-bit values (the hardware's 16-bit output / 16)
  double psnr = 0;                        // dB against the 12-bit peak 4095; infinite when exact
  int maxError = 0;
  double encodeSeconds = 0;
  double decodeSeconds = 0;
};

RoundTrip runRoundTrip(Compression1x8& codec, const Frame& image, int cfa);

// The report: size, blocks per mode (all eleven, in mode-number order), PSNR, largest error,
// encode and decode throughput.
void printReport(std::ostream& os, const std::string& what, const Frame& image, const RoundTrip& rt);

// The mode map's colour of a mode (RGB).
const unsigned char* modeColour(int mode);

// Bayer layout argument of writePictures for input that is not a colour mosaic.
constexpr int kNotBayer = -1;

// Writes DIR/<inputName> (the input, 16-bit PGM), DIR/decoded.pgm, DIR/modes.ppm (one colour
// per mode), DIR/errors.ppm (the absolute error per pixel on a heat scale whose top is the
// largest error) and, when `cfa` is a Bayer layout 0..3, DIR/compare.ppm (input and decoded
// picture demosaiced, side by side). Prints the file names and how to read the maps.
// The files writePictures writes, in its order.
std::vector<std::string> picturePaths(const std::string& dir, const std::string& inputName, int cfa);
void writePictures(std::ostream& os, const std::string& dir, const std::string& inputName,
                   const Frame& image, const RoundTrip& rt, int cfa);

}  // namespace fbc::cli
