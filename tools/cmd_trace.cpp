// fbc trace: the model's decision for one block of a picture, or for every block.
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"
#include "tools/trace_out.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "trace",
    "[--params F] [--set K=V ...] [--cfa N] [--frame-index N] (--x X --y Y | --all) [--json] IN",
    "Shows why the model codes a block as it does: the block holding pixel (X, Y), or with --all\n"
    "every block in coding order. For each block: its first pixel, the row parity the frame\n"
    "driver gives it, the pixels, every mode's largest and summed error (Curve has none; a mode\n"
    "that cannot code the block shows 4095 and 32767), the enables, the rule of the selection\n"
    "that decided (policy), the selected mode and the mode after reg_curve_mode_en and\n"
    "reg_mode_definition, the code as the golden files print it, its fields by name and the\n"
    "decoded pixels. --json prints one JSON object per block and line with the keys x, y,\n"
    "parity, pixels, sad, maxerr, enabled, policy, selected, mode, code, decoded and fields.\n"
    "Policies: plain, plain_non_edge, plain_fallback, kept_under_final, edge_taken,\n"
    "edge_balanced, edge_above_min.\n\n" FBC_INPUT_PICTURE_HELP,
    {kOptWidth,
     kOptHeight,
     kOptCfa,
     kOptFrameIndex,
     kOptRawMode,
     kOptParams,
     kOptSet,
     kOptRegisters,
     {"x", "X", "column of a pixel of the block"},
     {"y", "Y", "row of that pixel"},
     {"all", nullptr, "every block"},
     {"json", nullptr, "one JSON object per block and line"}},
    1,
    1};

}  // namespace

int runTrace(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const bool all = args.has("all");
  if (all && (args.has("x") || args.has("y"))) usageError("--all and --x/--y exclude each other");
  if (!all && !(args.has("x") && args.has("y"))) usageError("give --x and --y, or --all");
  const int cfa = cfaOption(args);
  const int frameIndex = frameIndexOption(args);
  const Frame image = readInputImage(args.positional()[0], args);
  int bx = 0, by = 0;
  if (!all) {
    bx = static_cast<int>(args.requiredInteger("x", 0, image.width - 1)) & ~7;
    by = static_cast<int>(args.requiredInteger("y", 0, image.height - 1));
  }

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  requireEnabled(codec);
  codec.startFrame(image.width, frameIndex);
  const bool json = args.has("json");
  const auto show = [&](int x, int y) {
    int block[8] = {0, 0, 0, 0, 0, 0, 0, 0};  // a short last block is padded with zeros
    for (int k = 0; k < 8 && x + k < image.width; ++k) block[k] = image.GetPixel(x + k, y);
    const BlockTrace t = traceBlock(codec, block, Compression1x8::rowParity(y, cfa));
    if (json) {
      std::cout << traceJson(codec, t, x, y) << '\n';
    } else {
      std::cout << traceText(codec, t, x, y) << (all ? "\n" : "");
    }
    // A reader gone mid-way (a pipe into head) ends the run quietly, as at the end.
    if (std::ferror(stdout) || !std::cout) {
      if (errno == EPIPE) throw StandardOutputClosed();
      flushStandardOutput();
    }
  };
  if (!all) {
    show(bx, by);
  } else {
    for (int y = 0; y < image.height; ++y)
      for (int x = 0; x < image.width; x += 8) show(x, y);
  }
  flushStandardOutput();
  return kExitOk;
}

}  // namespace fbc::cli
