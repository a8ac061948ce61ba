// fbc demo: a built-in 12-bit test chart through the codec, with the report and pictures.
#include <cmath>
#include <cstdint>
#include <iostream>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/chart.h"
#include "tools/cli.h"
#include "tools/commands.h"
#include "tools/report.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "demo",
    "[--out DIR] [--format png|pnm]",
    "Generates a deterministic 640x480 12-bit test chart (gradients, flat areas, text-like\n"
    "strokes, hard edges with flat runs at block ends, texture and noise), compresses and\n"
    "decompresses it with the registers at their defaults, and reports the blocks per mode,\n"
    "the PSNR, the largest error and the throughput. Writes the chart (chart.png), the decoded\n"
    "image (decoded.png), a mode map (modes.png) and an error map (errors.png: the absolute\n"
    "error of each pixel as heat) into DIR, default fbc-demo/; with --format pnm as .pgm\n"
    "(grey) and .ppm (colour) pictures instead.",
    {{"out", "DIR", "output directory, default fbc-demo"}, kOptFormat},
    0,
    0};

constexpr int kChartWidth = 640;
constexpr int kChartHeight = 480;

int clamp12(int v) {
  return v < 0 ? 0 : (v > 4095 ? 4095 : v);
}

// Widths in bits of the coarse pixels of each edge member (group size n = 2..7), the one next
// to the group first: the pixels outside the group keep only their top bits.
const int kEdgeCoarseBits[6][6] = {
    {7, 7, 7, 7, 7, 7},    {7, 8, 8, 8, 7, 0},   {8, 9, 9, 8, 0, 0},
    {10, 10, 10, 0, 0, 0}, {10, 10, 0, 0, 0, 0}, {10, 0, 0, 0, 0, 0},
};

// One block for edge member n: a run of n close pixels at one end of the block and the other
// pixels spread widely, each far from the run and from its neighbour, so that no larger group
// qualifies and DPCM (range 512 or more), MinMax and Hadamard all do worse than truncation; under
// the edge-first policy only then are the edge members tried. The member codes its block
// exactly: the run starts at a multiple of 8 (an exact edge base) and spans at most what a step
// of 1 covers, and each other pixel sits at the middle of the interval its coarse field keeps.
// The run value is 8 above a multiple of 32 and the coarse pixels near the middle of their
// 32-wide truncation interval, so truncation is off by at most 8. The 4-bit members' runs span
// 0..15: a flat run beside one far pixel is two-level, which MinMax codes exactly.
void edgeBlock(Rng& rng, int n, bool atStart, int* px) {
  const int base = 32 * (8 + rng.below(112)) + 8;  // 264..3848
  int run[7];
  for (int k = 0; k < n; ++k) run[k] = base;
  if (n >= 6) {
    for (int k = 0; k < n; ++k) run[k] += k == 0 ? 0 : (k == 1 ? 15 : 1 + rng.below(14));
  }
  // A lone far pixel less than 2048 away leaves every transform term inside the finest
  // quantiser's range, where Hadamard codes the block well enough to win.
  const int minDistance = n == 7 ? 2048 : 600;
  int far[6] = {};
  int previous = base;
  for (int k = 0; k < 8 - n; ++k) {
    int v;
    do {
      v = rng.below(4096);
    } while (std::abs(v - base) < minDistance || std::abs(v - previous) < 300);
    const int drop = 12 - kEdgeCoarseBits[n - 2][k];
    far[k] = (v & ~31) | (drop == 5 ? 16 : 16 + (1 << (drop - 1)));
    previous = far[k];
  }
  for (int i = 0; i < 8; ++i) {
    // Position counted from the run's end of the block.
    const int j = atStart ? i : 7 - i;
    px[i] = j < n ? run[j] : far[j - n];
  }
}

}  // namespace

// The chart, in bands of 120 rows:
//   0..119    smooth gradients: a gentle ramp (left) and steep ramps and waves (right)
//   120..239  flat grey steps (left) and two-level text-like strokes (right)
//   240..359  hard edges with flat runs at block ends: six columns, Edge2 .. Edge7
//   360..479  fine texture on a gradient (left) and full-range noise (right)
Frame makeDemoChart() {
  Frame chart(kChartWidth, kChartHeight, Frame::CS_RAW, 12);
  Rng rng(0x5eedfbc1);
  auto at = [&chart](int x, int y) -> int& { return chart.data[y * kChartWidth + x]; };
  const double pi = 3.14159265358979323846;

  for (int y = 0; y < 120; ++y) {
    for (int x = 0; x < 320; ++x) at(x, y) = 200 + x * 6 + y * 4;
    for (int x = 320; x < 640; ++x) {
      const int u = x - 320;
      if (y < 60) {
        // Triangle wave of slope 80 per pixel: linear blocks the transform codes exactly.
        const int phase = (u + y) % 100;
        at(x, y) = 40 + 80 * (phase < 50 ? phase : 100 - phase);
      } else {
        const double period = 24.0 + (y - 60);
        at(x, y) =
            clamp12(static_cast<int>(std::lround(2048 + 1800 * std::sin(2 * pi * u / period))));
      }
    }
  }

  for (int y = 120; y < 240; ++y) {
    for (int x = 0; x < 320; ++x) at(x, y) = 256 * ((x / 40 + (y - 120) / 40) % 16) + 128;
    for (int x = 320; x < 640; ++x) {
      // Strokes of a blocky alphabet: vertical and horizontal bars of 2..3 pixels.
      const int cx = (x - 320) % 24, cy = (y - 120) % 30;
      const int glyph = ((x - 320) / 24 * 7 + (y - 120) / 30 * 13) % 5;
      bool ink = false;
      switch (glyph) {
        case 0:
          ink = (cx >= 4 && cx < 7) || (cy >= 4 && cy < 6 && cx < 18);
          break;
        case 1:
          ink = (cx >= 10 && cx < 12) || (cy >= 20 && cy < 23);
          break;
        case 2:
          ink = (cy >= 4 && cy < 6) || (cy >= 14 && cy < 16) || (cx >= 15 && cx < 18);
          break;
        case 3:
          ink = (cx >= 3 && cx < 5) || (cx >= 16 && cx < 18) || (cy >= 12 && cy < 14);
          break;
        default:
          ink = (cx + cy) % 12 < 2 && cy > 3 && cy < 26;
          break;
      }
      at(x, y) = ink ? 320 : 3680;
    }
  }

  for (int y = 240; y < 360; ++y) {
    for (int x = 0; x < 640; x += 8) {
      const int n = 2 + x * 6 / 640;
      edgeBlock(rng, n, ((x / 8 + y) & 1) != 0, &at(x, y));
    }
  }

  for (int y = 360; y < 480; ++y) {
    for (int x = 0; x < 320; ++x) at(x, y) = clamp12(1000 + 5 * x + y - 360 + rng.below(41) - 20);
    for (int x = 320; x < 640; ++x) at(x, y) = rng.below(4096);
  }
  return chart;
}

int runDemo(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const std::string dir = args.has("out") ? args.value("out") : "fbc-demo";
  if (dir.empty()) usageError("--out: empty directory name");
  const PictureFormat format = pictureFormatOption(args);
  checkOutputDirectory(dir);

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  requireEnabled(codec);
  const Frame chart = makeDemoChart();
  const RoundTrip rt = runRoundTrip(codec, chart, 0);
  printReport(std::cout, "test chart", chart, rt);
  ensureDirectory(dir);
  writePictures(std::cout, dir, "chart", chart, rt, kNotBayer, format);
  return kExitOk;
}

}  // namespace fbc::cli
