// fbc roundtrip: the demo's report for a user's image.
#include <iostream>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"
#include "tools/report.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "roundtrip",
    "--width W --height H [--cfa N] IN.raw [--out DIR]",
    "Compresses and decompresses IN.raw (W x H little-endian 16-bit samples, each 0..4095)\n"
    "with the registers at their defaults (or as --params and --set give them) and reports the\n"
    "blocks per mode, the PSNR, the largest error and the throughput. With --out, also writes\n"
    "the input (input.pgm), the decoded image (decoded.pgm) and a mode map (modes.ppm) into DIR.",
    {kOptWidth, kOptHeight, kOptCfa, {"out", "DIR", "directory for the pictures"}, kOptParams, kOptSet},
    1,
    1};

}  // namespace

int runRoundtrip(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const Size size = imageSize(args);
  const int cfa = cfaOption(args);
  if (args.has("out") && args.value("out").empty()) usageError("--out: empty directory name");
  const std::string& path = args.positional()[0];
  const Frame image = readInputImage(path, size.width, size.height);

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  const RoundTrip rt = runRoundTrip(codec, image, cfa);
  printReport(std::cout, path, image, rt);
  if (args.has("out")) {
    ensureDirectory(args.value("out"));
    writePictures(std::cout, args.value("out"), "input.pgm", image, rt);
  }
  return kExitOk;
}

}  // namespace fbc::cli
