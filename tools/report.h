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
class Args;
struct OptionSpec;
}  // namespace fbc::cli

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
void printReport(std::ostream& os, const std::string& what, const Frame& image,
                 const RoundTrip& rt);

// The mode map's colour of a mode (RGB).
const unsigned char* modeColour(int mode);

// Bayer layout argument of writePictures for input that is not a colour mosaic.
constexpr int kNotBayer = -1;

// The pictures' file type: PNG (.png, the default) or Netpbm (.pgm grey, .ppm colour).
enum class PictureFormat { kPng, kPnm };
// --format png|pnm of the commands that write pictures.
extern const OptionSpec kOptFormat;
PictureFormat pictureFormatOption(const Args& args);

// The files writePictures writes, in its order: DIR/<inputStem>, DIR/decoded, DIR/modes,
// DIR/errors and, when `cfa` is a Bayer layout 0..3, DIR/compare, each with the extension of
// `format` (.png; or .pgm for grey and .ppm for colour).
std::vector<std::string> picturePaths(const std::string& dir, const std::string& inputStem, int cfa,
                                      PictureFormat format);
// Writes the input, the decoded picture, the mode map (one colour per mode), the error map (the
// absolute error per pixel on a heat scale whose top is the largest error) and, for a Bayer
// layout, the input and decoded pictures demosaiced side by side. The input, decoded and
// comparison pictures hold 12-bit values (PNG: 16-bit samples with the 12 bits repeated below
// them, PNM: maxval 4095), the maps 8-bit colours. Prints the file names and how to read the maps.
void writePictures(std::ostream& os, const std::string& dir, const std::string& inputStem,
                   const Frame& image, const RoundTrip& rt, int cfa, PictureFormat format);

}  // namespace fbc::cli
