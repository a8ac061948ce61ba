// fbc encode: a raw 12-bit image into the compressed frame, exactly as the block stores it.
#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "encode",
    "--width W --height H [--cfa N] [--frame-index N] IN.raw OUT.bin",
    "Compresses IN.raw (W x H little-endian 16-bit samples, row-major, each 0..4095) with the\n"
    "registers at their defaults, or as --params and --set give them. OUT.bin is the\n"
    "compressed frame without header: H rows of ((W + 7) & ~7) bytes, eight bytes per block\n"
    "of eight pixels, each block's 64-bit code stored little-endian.",
    {kOptWidth, kOptHeight, kOptCfa, kOptFrameIndex, kOptParams, kOptSet},
    2,
    2};

}  // namespace

int runEncode(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const Size size = imageSize(args);
  const int cfa = cfaOption(args);
  const int frameIndex = frameIndexOption(args);
  const Frame image = readInputImage(args.positional()[0], size.width, size.height);

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  const Frame compressed = compressImage(codec, image, cfa, frameIndex);

  // One byte per sample: the compressed frame holds bytes 0..255 in its int samples.
  std::vector<unsigned char> bytes(compressed.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(compressed.data[i]);
  writeFileAtomic(args.positional()[1], bytes);
  return kExitOk;
}

}  // namespace fbc::cli
