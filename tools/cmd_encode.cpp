// fbc encode: a raw 12-bit image into the compressed frame, exactly as the block stores it.
#include <algorithm>
#include <cstdint>
#include <string>

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
    {kOptWidth, kOptHeight, kOptCfa, kOptFrameIndex, kOptRawMode, kOptParams, kOptSet,
     kOptRegisters, kOptThreads},
    2,
    2};

// A plain .raw input (samples 0..4095 as little-endian 16-bit words) goes from its mapped
// file through the codec into the code buffer without a 32-bit frame in between. Fails with the
// picture reader's message at the first sample above 4095, in raster order.
void encodeRawFile(Compression1x8& codec, const std::string& path, const Size& size, int cfa,
                   int frameIndex, Output& out) {
  const std::size_t pixels = static_cast<std::size_t>(size.width) * size.height;
  const InputMap in(
      path, 2 * static_cast<std::uint64_t>(pixels),
      std::to_string(size.width) + "x" + std::to_string(size.height) + " samples of 2 bytes");
  const auto* samples = reinterpret_cast<const std::uint16_t*>(in.data());
  std::string error;
  if (!checkPlainSamples(path, samples, size.width, pixels, error)) inputError(error);
  // The codes go out a slice of about 1 MB at a time through one buffer that stays in the
  // caches. A slice holds an even number of rows, so each row keeps its parity.
  const std::size_t rowBytes = static_cast<std::size_t>(paddedWidth(size.width));
  const int sliceRows = std::max(2, static_cast<int>((std::size_t{1} << 20) / rowBytes) & ~1);
  const UninitBuffer<unsigned char> codes(
      static_cast<std::size_t>(std::min(sliceRows, size.height)) * rowBytes);
  for (int y = 0; y < size.height; y += sliceRows) {
    const int rows = std::min(sliceRows, size.height - y);
    codec.CompressFrame(samples + static_cast<std::size_t>(y) * size.width, codes.data.get(),
                        size.width, rows, cfa, frameIndex);
    out.write(codes.data.get(), static_cast<std::size_t>(rows) * rowBytes);
  }
}

}  // namespace

int runEncode(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int cfa = cfaOption(args);
  const int frameIndex = frameIndexOption(args);
  const std::string& inPath = args.positional()[0];
  refuseOverwritingInputs(inputFiles(args, inPath), {args.positional()[1]});
  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  codec.Threads = threadsOption(args);
  requireEnabled(codec);
  Output out(args.positional()[1]);
  const bool littleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  if (littleEndian && pictureExtension(inPath) == ".raw" && !args.has("raw-mode")) {
    encodeRawFile(codec, inPath, imageSize(args), cfa, frameIndex, out);
    out.commit();
    return kExitOk;
  }
  const Frame image = readInputImage(inPath, args);

  const Frame compressed = compressImage(codec, image, cfa, frameIndex);

  // One byte per sample: the compressed frame holds bytes 0..255 in its int samples.
  const UninitBuffer<unsigned char> bytes(compressed.size());
  for (std::size_t i = 0; i < bytes.size; ++i)
    bytes.data[i] = static_cast<unsigned char>(compressed.data[i]);
  out.write(bytes.data.get(), bytes.size);
  out.commit();
  return kExitOk;
}

}  // namespace fbc::cli
