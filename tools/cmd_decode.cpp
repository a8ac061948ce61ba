// fbc decode: a compressed frame back into 16-bit samples as the hardware returns them.
#include <algorithm>

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
    "  .ppm  a 16-bit colour picture: the values as a Bayer mosaic of --cfa, demosaiced\n"
    "  -     standard output, as .raw\n"
    "A disabled block (reg_fbc_en=0) decodes nothing and is refused.",
    {kOptWidth, kOptHeight, kOptCfa, kOptParams, kOptSet, kOptRegisters, kOptThreads},
    2,
    2};

}  // namespace

int runDecode(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const Size size = imageSize(args);
  const int cfa = cfaOption(args);
  const std::string& outPath = args.positional()[1];
  const std::string type = outPath == "-" ? ".raw" : pictureExtension(outPath);
  if (type != ".raw" && type != ".png" && type != ".pgm" && type != ".ppm") {
    usageError(outPath + ": unknown output type \"" + type +
               "\" (expected .raw, .png, .pgm or .ppm)");
  }
  refuseOverwritingInputs(inputFiles(args, args.positional()[0]), {outPath});
  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  codec.Threads = threadsOption(args);
  requireEnabled(codec);
  Output out(outPath);
  const int rowBytes = paddedWidth(size.width);
  const InputMap bytes(
      args.positional()[0], static_cast<std::uint64_t>(rowBytes) * size.height,
      std::to_string(size.height) + " rows of " + std::to_string(rowBytes) + " bytes");
  const std::size_t pixels = static_cast<std::size_t>(size.width) * size.height;
  if (type == ".raw" && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__) {
    // The decoder's 16-bit rows are the file's bytes. They go out a slice of about 1 MB at a
    // time through one buffer that stays in the caches: no frame-sized buffer to fault in and
    // write from.
    const int sliceRows = std::max(1, std::min(size.height, (1 << 19) / size.width));
    const UninitBuffer<unsigned short> slice(static_cast<std::size_t>(sliceRows) * size.width);
    for (int y = 0; y < size.height; y += sliceRows) {
      const int rows = std::min(sliceRows, size.height - y);
      codec.DecompressFrame(bytes.data() + static_cast<std::size_t>(y) * rowBytes, rowBytes,
                            slice.data.get(), size.width, rows);
      out.write(slice.data.get(), 2 * static_cast<std::size_t>(rows) * size.width);
    }
    out.commit();
    return kExitOk;
  }

  Frame compressed(rowBytes, size.height, Frame::CS_RAW, 8);
  for (std::size_t i = 0; i < bytes.size(); ++i) compressed.data[i] = bytes.data()[i];
  Frame decoded(size.width, size.height, Frame::CS_RAW, 16);
  codec.DecompressFrame(compressed, decoded, 0);

  if (type == ".png") {
    out.write(pngGreyBytes(decoded, 65535));
  } else if (type == ".pgm") {
    out.write(pgmBytes(decoded, 65535));
  } else if (type == ".ppm") {
    // The filters run on the 16-bit values, so the picture keeps their full precision.
    RgbImage picture{decoded.width, decoded.height, {}};
    demosaicToRGB(decoded, cfa, picture.rgb);
    out.write(ppmBytes(picture, 65535));
  } else {
    const UninitBuffer<unsigned char> bytes16(pixels * 2);
    for (std::size_t i = 0; i < pixels; ++i) {
      bytes16.data[2 * i] = static_cast<unsigned char>(decoded.data[i] & 0xFF);
      bytes16.data[2 * i + 1] = static_cast<unsigned char>(decoded.data[i] >> 8);
    }
    out.write(bytes16.data.get(), bytes16.size);
  }
  out.commit();
  return kExitOk;
}

}  // namespace fbc::cli
