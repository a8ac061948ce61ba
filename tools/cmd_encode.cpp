// fbc encode: a raw 12-bit image into the compressed frame, exactly as the block stores it.
#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "encode",
    "[--width W --height H] [--cfa N] [--frame-index N] [--raw-mode N] IN OUT.bin",
    "Compresses the picture IN with the registers at their defaults, or as --params and --set\n"
    "give them. OUT.bin is the compressed frame without header: H rows of ((W + 7) & ~7)\n"
    "bytes, eight bytes per block of eight pixels, each block's 64-bit code stored\n"
    "little-endian; OUT.bin \"-\" is standard output. A disabled block (reg_fbc_en=0) codes\n"
    "nothing and is refused.\n\n" FBC_INPUT_PICTURE_HELP,
    {kOptWidth, kOptHeight, kOptCfa, kOptFrameIndex, kOptRawMode, kOptParams, kOptSet, kOptRegisters},
    2,
    2};

}  // namespace

int runEncode(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int cfa = cfaOption(args);
  const int frameIndex = frameIndexOption(args);
  refuseOverwritingInputs(inputFiles(args, args.positional()[0]), {args.positional()[1]});
  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  requireEnabled(codec);
  Output out(args.positional()[1]);
  const Frame image = readInputImage(args.positional()[0], args);

  const Frame compressed = compressImage(codec, image, cfa, frameIndex);

  // One byte per sample: the compressed frame holds bytes 0..255 in its int samples.
  std::vector<unsigned char> bytes(compressed.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(compressed.data[i]);
  out.write(bytes);
  out.commit();
  return kExitOk;
}

}  // namespace fbc::cli
