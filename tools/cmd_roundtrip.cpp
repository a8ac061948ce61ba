// fbc roundtrip: the demo's report for a user's image.
#include <iostream>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "image/Png.h"
#include "tools/cli.h"
#include "tools/commands.h"
#include "tools/report.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "roundtrip",
    "[--width W --height H] [--cfa N] [--raw-mode N] IN [--out DIR] [--format png|pnm]",
    "Compresses and decompresses the picture IN with the registers at their defaults (or as\n"
    "--params and --set give them) and reports the blocks per mode, the PSNR, the largest\n"
    "error and the throughput. With --out, also writes into DIR the input (input.png), the\n"
    "decoded image (decoded.png), a mode map (modes.png), an error map (errors.png: the\n"
    "absolute error of each pixel as heat) and, for Bayer input (a colour .png or .ppm, or\n"
    "any input with --cfa), the demosaiced input and decoded pictures side by side\n"
    "(compare.png); with --format pnm as .pgm (grey) and .ppm (colour) pictures instead. A\n"
    "disabled block (reg_fbc_en=0) codes nothing and is refused.\n\n" FBC_INPUT_PICTURE_HELP,
    {kOptWidth,
     kOptHeight,
     kOptCfa,
     kOptRawMode,
     {"out", "DIR", "directory for the pictures"},
     kOptFormat,
     kOptParams,
     kOptSet,
     kOptRegisters,
     kOptThreads},
    1,
    1};

}  // namespace

int runRoundtrip(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int cfa = cfaOption(args);
  if (args.has("out") && args.value("out").empty()) usageError("--out: empty directory name");
  const PictureFormat format = pictureFormatOption(args);
  const std::string& path = args.positional()[0];
  const bool bayer = pictureExtension(path) == ".ppm" || isColourPng(path) || args.has("cfa");
  if (args.has("out")) {
    refuseOverwritingInputs(inputFiles(args, path), picturePaths(args.value("out"), "input",
                                                                 bayer ? cfa : kNotBayer, format));
    checkOutputDirectory(args.value("out"));
  }
  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  codec.Threads = threadsOption(args);
  requireEnabled(codec);
  const Frame image = readInputImage(path, args);

  const RoundTrip rt = runRoundTrip(codec, image, cfa);
  printReport(std::cout, path, image, rt);
  if (args.has("out")) {
    ensureDirectory(args.value("out"));
    writePictures(std::cout, args.value("out"), "input", image, rt, bayer ? cfa : kNotBayer,
                  format);
  }
  return kExitOk;
}

}  // namespace fbc::cli
