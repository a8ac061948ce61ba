#include "tools/report.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "codec/Compression1x8.h"
#include "image/Picture.h"
#include "image/Png.h"
#include "tools/cli.h"

namespace fbc::cli {

namespace {

struct ModeColour {
  const char* name;
  unsigned char rgb[3];
};

// Mode map colours, by mode number.
const ModeColour kModeColours[kModeCount] = {
    {"blue", {0, 64, 255}},      // Hadamard
    {"grey", {128, 128, 128}},   // Curve
    {"red", {255, 0, 0}},        // MinMax
    {"green", {0, 176, 0}},      // DPCM
    {"white", {255, 255, 255}},  // Truncate
    {"cyan", {0, 224, 224}},     // Edge2
    {"magenta", {255, 0, 255}},  // Edge3
    {"orange", {255, 144, 0}},   // Edge4
    {"purple", {128, 0, 192}},   // Edge5
    {"brown", {128, 64, 0}},     // Edge6
    {"yellow", {255, 255, 0}},   // Edge7
};

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// One colour per block, from the mode map's legend.
RgbImage modeMap(int width, int height, const std::vector<unsigned char>& blockModes) {
  RgbImage map{width, height, std::vector<int>(3 * static_cast<std::size_t>(width) * height)};
  const std::size_t blocksPerRow = static_cast<std::size_t>(paddedWidth(width) / 8);
  std::size_t i = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x, i += 3) {
      const unsigned char* rgb = kModeColours[blockModes[y * blocksPerRow + x / 8]].rgb;
      std::copy(rgb, rgb + 3, map.rgb.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }
  return map;
}

// Absolute error of each pixel on the heat scale, its top at `maxError` (at least 1).
RgbImage errorMap(const Frame& image, const Frame& decoded, int maxError) {
  RgbImage map{image.width, image.height, std::vector<int>(3 * image.size())};
  for (std::size_t i = 0; i < image.size(); ++i) {
    heatColour(std::abs(image.data[i] - decoded.data[i]), std::max(maxError, 1), &map.rgb[3 * i]);
  }
  return map;
}

RgbImage demosaiced(const Frame& bayer, int cfa) {
  RgbImage picture{bayer.width, bayer.height, {}};
  demosaicToRGB(bayer, cfa, picture.rgb);
  return picture;
}

std::string joinPath(const std::string& dir, const std::string& name) {
  return dir.empty() || dir.back() == '/' ? dir + name : dir + "/" + name;
}

}  // namespace

const unsigned char* modeColour(int mode) {
  return kModeColours[mode].rgb;
}

RoundTrip runRoundTrip(Compression1x8& codec, const Frame& image, int cfa) {
  RoundTrip rt;
  const auto encodeStart = std::chrono::steady_clock::now();
  const Frame compressed = compressImage(codec, image, cfa, 0);
  rt.encodeSeconds = secondsSince(encodeStart);

  // The mode of a block is told by its prefix, except that curve coding has none and is known
  // only from the register.
  const int rowBytes = compressed.width;
  rt.blockModes.resize(static_cast<std::size_t>(rowBytes / 8) * compressed.height);
  for (std::size_t b = 0; b < rt.blockModes.size(); ++b) {
    unsigned char bytes[8];
    for (int k = 0; k < 8; ++k) bytes[k] = static_cast<unsigned char>(compressed.data[8 * b + k]);
    const int mode = codec.reg_curve_mode_en != 0 ? kModeCurve : modeOfCode(loadCode(bytes));
    rt.blockModes[b] = static_cast<unsigned char>(mode);
    ++rt.blocksPerMode[mode];
  }

  rt.decoded = Frame(image.width, image.height, Frame::CS_RAW, 16);
  const auto decodeStart = std::chrono::steady_clock::now();
  codec.DecompressFrame(compressed, rt.decoded, 0);
  rt.decodeSeconds = secondsSince(decodeStart);

  double squares = 0;
  for (std::size_t i = 0; i < image.size(); ++i) {
    rt.decoded.data[i] >>= 4;  // back to the 12-bit value; the low 4 bits are always 0
    const int e = std::abs(image.data[i] - rt.decoded.data[i]);
    squares += static_cast<double>(e) * e;
    if (e > rt.maxError) rt.maxError = e;
  }
  rt.decoded.depth = 12;
  const double mse = squares / static_cast<double>(image.size());
  rt.psnr =
      mse > 0 ? 10 * std::log10(4095.0 * 4095.0 / mse) : std::numeric_limits<double>::infinity();
  return rt;
}

void printReport(std::ostream& os, const std::string& what, const Frame& image,
                 const RoundTrip& rt) {
  const long long pixels = static_cast<long long>(image.width) * image.height;
  long long blocks = 0;
  for (long long n : rt.blocksPerMode) blocks += n;
  char line[160];
  std::snprintf(line, sizeof line, "%s: %dx%d, %lld pixels in %lld blocks of 1x8\n", what.c_str(),
                image.width, image.height, pixels, blocks);
  os << line;
  std::snprintf(line, sizeof line, "size: %lld bytes at 12 bits per pixel, compressed %lld bytes\n",
                pixels * 3 / 2, blocks * 8);
  os << line << "mode            blocks  percent\n";
  for (int m = 0; m < kModeCount; ++m) {
    std::snprintf(
        line, sizeof line, "%2d %-9s %10lld  %6.2f%%\n", m, kModeNames[m], rt.blocksPerMode[m],
        blocks > 0 ? 100.0 * static_cast<double>(rt.blocksPerMode[m]) / static_cast<double>(blocks)
                   : 0.0);
    os << line;
  }
  if (std::isinf(rt.psnr)) {
    std::snprintf(line, sizeof line, "PSNR: infinite (exact), largest absolute error 0\n");
  } else {
    std::snprintf(line, sizeof line, "PSNR: %.2f dB (peak 4095), largest absolute error %d\n",
                  rt.psnr, rt.maxError);
  }
  os << line;
  const double mpix = static_cast<double>(pixels) / 1e6;
  std::snprintf(line, sizeof line, "throughput: encode %.1f Mpixel/s, decode %.1f Mpixel/s\n",
                mpix / std::max(rt.encodeSeconds, 1e-9), mpix / std::max(rt.decodeSeconds, 1e-9));
  os << line;
}

const OptionSpec kOptFormat{"format", "F", "picture files: png (default) or pnm (.pgm and .ppm)"};

PictureFormat pictureFormatOption(const Args& args) {
  if (!args.has("format") || args.value("format") == "png") return PictureFormat::kPng;
  if (args.value("format") == "pnm") return PictureFormat::kPnm;
  usageError("--format: '" + args.value("format") + "' is not png or pnm");
}

std::vector<std::string> picturePaths(const std::string& dir, const std::string& inputStem, int cfa,
                                      PictureFormat format) {
  const std::string grey = format == PictureFormat::kPng ? ".png" : ".pgm";
  const std::string colour = format == PictureFormat::kPng ? ".png" : ".ppm";
  std::vector<std::string> paths;
  for (const std::string& name : {inputStem + grey, "decoded" + grey, "modes" + colour,
                                  "errors" + colour, "compare" + colour}) {
    paths.push_back(joinPath(dir, name));
  }
  if (cfa < 0 || cfa > 3) paths.pop_back();
  return paths;
}

void writePictures(std::ostream& os, const std::string& dir, const std::string& inputStem,
                   const Frame& image, const RoundTrip& rt, int cfa, PictureFormat format) {
  constexpr int kMax12 = 4095;
  constexpr int kComparisonGap = 8;  // black columns between the two pictures
  const bool png = format == PictureFormat::kPng;
  const auto greyBytes = [png](const Frame& f) {
    return png ? pngGreyBytes(f, kMax12) : pgmBytes(f, kMax12);
  };
  const auto colourBytes = [png](const RgbImage& i, int maxval) {
    return png ? pngRgbBytes(i, maxval) : ppmBytes(i, maxval);
  };
  const std::vector<std::string> paths = picturePaths(dir, inputStem, cfa, format);
  const std::string& inputPath = paths[0];
  const std::string& decodedPath = paths[1];
  const std::string& modesPath = paths[2];
  const std::string& errorsPath = paths[3];
  const bool bayer = paths.size() == 5;
  const std::string comparePath = bayer ? paths[4] : std::string();
  writeFileAtomic(inputPath, greyBytes(image));
  writeFileAtomic(decodedPath, greyBytes(rt.decoded));
  writeFileAtomic(modesPath, colourBytes(modeMap(image.width, image.height, rt.blockModes), 255));
  writeFileAtomic(errorsPath, colourBytes(errorMap(image, rt.decoded, rt.maxError), 255));
  if (bayer) {
    const RgbImage both =
        sideBySide(demosaiced(image, cfa), demosaiced(rt.decoded, cfa), kComparisonGap);
    writeFileAtomic(comparePath, colourBytes(both, kMax12));
  }
  os << "wrote: " << inputPath << ", " << decodedPath << ", " << modesPath << ", " << errorsPath
     << (bayer ? ", " + comparePath : std::string()) << "\nmode map:";
  for (int m = 0; m < kModeCount; ++m) {
    os << (m == 0 ? " " : ", ") << kModeNames[m] << ' ' << kModeColours[m].name;
  }
  if (rt.maxError == 0) {
    os << "\nerror map: black, every pixel decoded exactly";
  } else {
    os << "\nerror map: absolute error 0 black, rising through red and yellow to white at "
       << rt.maxError << " (the largest error)";
  }
  if (bayer)
    os << "\ncompare: input (left) and decoded (right), demosaiced with CFA layout " << cfa;
  os << '\n';
}

}  // namespace fbc::cli
