// Picture files through the reporting readers. The first byte picks the reader (PNM with or
// without grey, PPM scaled to a bit depth, raw Bayer, 4:2:2, or the tool's picture loader by
// extension), the next bytes its size and mode arguments, and the rest is the file.
//
// A reader either succeeds with exactly the samples its size calls for, or fails with one line
// that names the file.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/FuzzSupport.h"
#include "image/ParsePPM.h"
#include "image/Picture.h"

namespace {

void checkError(bool ok, const std::string& path, const std::string& error) {
  if (ok) return;
  if (error.empty()) fbc::fuzz::fail("%s: failed without a message", path.c_str());
  if (error.compare(0, path.size(), path) != 0 || error.find('\n') != std::string::npos)
    fbc::fuzz::fail("%s: message is not one line naming the file: \"%s\"", path.c_str(),
                    error.c_str());
}

void checkCount(const char* reader, std::size_t got, long long width, long long height,
                long long perPixel) {
  if (width <= 0 || height <= 0 || static_cast<long long>(got) != width * height * perPixel)
    fbc::fuzz::fail("%s: %zu samples for %lldx%lld with %lld per pixel", reader, got, width, height,
                    perPixel);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fbc::fuzz::ByteReader in(data, size);
  const unsigned reader = in.byte() % 7;
  const int bits = in.inRange(0, 16);
  const int mode = static_cast<std::int8_t>(in.byte());
  const int width = static_cast<std::int16_t>(in.u16());
  const int height = static_cast<std::int16_t>(in.u16());
  static const char* const kNames[7] = {"in.pnm", "in.pgm",  "in.ppm", "in.raw",
                                        "in.yuv", "pic.ppm", "pic.pgm"};
  const std::string path = fbc::fuzz::writeScratchFile(kNames[reader], in.rest(), in.restSize());

  std::string error;
  bool ok = false;
  switch (reader) {
    case 0:
    case 1: {
      fbc::PnmImage image;
      ok = fbc::parsePnm(path, reader == 1, image, error);
      if (ok)
        checkCount("parsePnm", image.samples.size(), image.width, image.height, image.channels);
      if (ok)
        for (std::uint16_t s : image.samples)
          if (s > image.maxval)
            fbc::fuzz::fail("parsePnm: sample %u above the maximum %u", s, image.maxval);
      break;
    }
    case 2: {
      int w = 0, h = 0;
      std::vector<std::uint16_t> rgb;
      ok = fbc::parsePPM(path, bits, w, h, rgb, error);
      if (ok) checkCount("parsePPM", rgb.size(), w, h, 3);
      break;
    }
    case 3: {
      std::vector<std::uint16_t> samples;
      ok = fbc::parseRAW(path, width, height, mode, samples, error);
      if (ok) checkCount("parseRAW", samples.size(), width, height, 1);
      break;
    }
    case 4: {
      std::vector<std::uint16_t> samples;
      ok = fbc::parseYUV422(path, width, height, samples, error);
      if (ok) checkCount("parseYUV422", samples.size(), width, height, 2);
      break;
    }
    default: {
      // The tool's loader: .ppm and .pgm by extension; raw files take the size and a
      // packing (-1 plain 16-bit, 0..4 as the raw reader).
      fbc::PictureOptions options;
      options.cfa = mode & 3;
      options.width = width;
      options.height = height;
      options.rawMode = (mode & 7) - 2;
      const std::string picture =
          reader == 5 && (mode & 8) != 0
              ? fbc::fuzz::writeScratchFile("pic.raw", in.rest(), in.restSize())
              : path;
      Frame frame;
      ok = fbc::loadPicture(picture, options, frame, error);
      checkError(ok, picture, error);
      if (ok) {
        checkCount("loadPicture", frame.size(), frame.width, frame.height, 1);
        for (std::size_t i = 0; i < frame.size(); ++i)
          if (frame.data[i] < 0 || frame.data[i] > 4095)
            fbc::fuzz::fail("loadPicture: sample %zu is %d, not 12-bit", i, frame.data[i]);
      }
      return 0;
    }
  }
  checkError(ok, path, error);
  return 0;
}
