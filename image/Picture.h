#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "image/Frame.h"

// Pictures in and out of the command-line tool. Every function reports failure as one line of
// text naming the file; none prints or exits.
namespace fbc {

// Raw packing of the tool's own files: little-endian 16-bit words, each a sample 0..4095.
constexpr int kRawPlain16 = -1;

struct PictureOptions {
  int cfa = CFA_RGGB;  // Bayer layout a colour picture is sampled with
  int width = 0;       // size of headerless raw files
  int height = 0;
  int rawMode = kRawPlain16;  // or a packing 0..4 as ParseRAWFile reads it
};

// Loads a picture as a 12-bit CS_RAW frame, chosen by extension:
//   .ppm  P3/P6 colour, scaled to 12 bits and sampled into a Bayer mosaic of options.cfa
//   .pgm  P2/P5 grey, scaled to 12 bits
//   .raw  options.width x options.height words in options.rawMode
bool loadPicture(const std::string& path, const PictureOptions& options, Frame& frame,
                 std::string& error);

// Plain raw samples of a picture `width` wide: true when all are 0..4095, else false with the
// message naming the first sample above, in raster order, and its pixel.
bool checkPlainSamples(const std::string& path, const std::uint16_t* samples, int width,
                       std::size_t count, std::string& error);

// Three values per pixel (R, G, B), row-major.
struct RgbImage {
  int width = 0;
  int height = 0;
  std::vector<int> rgb;
};

// Grey picture of one frame's samples, one channel per pixel.
RgbImage greyImage(const Frame& frame);

// Lower-case extension of a file name, with its dot (".ppm"); empty when there is none.
std::string pictureExtension(const std::string& path);

// A whole binary PNM file in memory: P5 for a frame's samples, P6 for three values per pixel.
// Samples are limited to 0..maxval and take two bytes, most significant first, when maxval is
// above 255.
std::string pgmBytes(const Frame& frame, int maxval);
std::string ppmBytes(const RgbImage& image, int maxval);

// 16-bit pictures (maxval 65535, samples limited to 0..65535, most significant byte first).
bool writePgm16(const std::string& path, const Frame& frame, std::string& error);
bool writePpm16(const std::string& path, const RgbImage& image, std::string& error);
// 8-bit pictures for viewing: samples of `depth` bits brought to 8 bits and limited to 0..255.
bool writePgm8(const std::string& path, const Frame& frame, int depth, std::string& error);
bool writePpm8(const std::string& path, const RgbImage& image, int depth, std::string& error);

// Heat scale for error maps, 8 bits per channel: 0 black, rising through red and yellow to
// white at maxValue and above.
void heatColour(int value, int maxValue, int rgb[3]);

// Two pictures next to each other, `gap` black columns between; the shorter one is padded
// with black rows at the bottom.
RgbImage sideBySide(const RgbImage& left, const RgbImage& right, int gap);

// An output file that appears under its name only once it is complete. A name that is free or
// holds a regular file is written through a temporary file of a unique name in the same folder
// ("NAME.XXXXXX.part"), renamed over the name on commit, so concurrent writers never collide and
// the last complete file wins. A symbolic link is followed: the file it points at is replaced and
// the link stays. A device or FIFO cannot be replaced and is written directly. An output neither
// committed nor written directly leaves nothing behind when the object goes.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool open(const std::string& path, std::string& error);
  bool write(const void* data, std::size_t size, std::string& error);
  bool commit(std::string& error);
  // The temporary file while open, empty when the output is written directly.
  const std::string& temporaryPath() const { return temp_; }

 private:
  void discard();
  std::string path_;    // the name given, for messages
  std::string target_;  // the file written: the name, or the end of its chain of links
  std::string temp_;
  std::FILE* fp_ = nullptr;
};

// The whole of `data` through an OutputFile: a failed write never leaves a truncated file under
// the final name.
bool writeFileAtomically(const std::string& path, const void* data, std::size_t size,
                         std::string& error);
inline bool writeFileAtomically(const std::string& path, const std::string& bytes,
                                std::string& error) {
  return writeFileAtomically(path, bytes.data(), bytes.size(), error);
}

}  // namespace fbc
