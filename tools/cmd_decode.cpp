// fbc decode: a compressed frame back into 16-bit samples as the hardware returns them.
#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "image/Png.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "decode",
    "--width W --height H [--cfa N] IN.bin OUT",
    "Decompresses IN.bin (H rows of ((W + 7) & ~7) bytes of block codes, as written by\n"
    "'fbc encode') with the registers at their defaults, or as --params and --set give them.\n"
    "The decoded values, each the 12-bit value times 16, go to OUT by its extension:\n"
    "  .raw  W x H little-endian 16-bit values\n"
    "  .png  a 16-bit grey PNG of the values\n"
    "  .pgm  a 16-bit grey picture of the values\n"
    "  .ppm  a 16-bit colour picture: the values as a Bayer mosaic of --cfa, demosaiced",
    {kOptWidth, kOptHeight, kOptCfa, kOptParams, kOptSet, kOptRegisters},
    2,
    2};

}  // namespace

int runDecode(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const Size size = imageSize(args);
  const int cfa = cfaOption(args);
  const std::string& outPath = args.positional()[1];
  const std::string type = pictureExtension(outPath);
  if (type != ".raw" && type != ".png" && type != ".pgm" && type != ".ppm") {
    usageError(outPath + ": unknown output type \"" + type + "\" (expected .raw, .png, .pgm or .ppm)");
  }
  const int rowBytes = paddedWidth(size.width);
  const std::vector<unsigned char> bytes =
      readFile(args.positional()[0], static_cast<std::uint64_t>(rowBytes) * size.height,
               std::to_string(size.height) + " rows of " + std::to_string(rowBytes) + " bytes");

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  Frame compressed(rowBytes, size.height, Frame::CS_RAW, 8);
  for (std::size_t i = 0; i < bytes.size(); ++i) compressed.data[i] = bytes[i];
  Frame decoded(size.width, size.height, Frame::CS_RAW, 16);
  codec.DecompressFrame(compressed, decoded, 0);

  if (type == ".png") {
    writeFileAtomic(outPath, pngGreyBytes(decoded, 65535));
  } else if (type == ".pgm") {
    writeFileAtomic(outPath, pgmBytes(decoded, 65535));
  } else if (type == ".ppm") {
    // The filters run on the 16-bit values, so the picture keeps their full precision.
    RgbImage picture{decoded.width, decoded.height, {}};
    demosaicToRGB(decoded, cfa, picture.rgb);
    writeFileAtomic(outPath, ppmBytes(picture, 65535));
  } else {
    std::vector<unsigned char> out(decoded.size() * 2);
    for (std::size_t i = 0; i < decoded.size(); ++i) {
      out[2 * i] = static_cast<unsigned char>(decoded.data[i] & 0xFF);
      out[2 * i + 1] = static_cast<unsigned char>(decoded.data[i] >> 8);
    }
    writeFileAtomic(outPath, out);
  }
  return kExitOk;
}

}  // namespace fbc::cli
