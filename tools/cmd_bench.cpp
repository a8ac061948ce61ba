// fbc bench: throughput of encode, frame decode and the raw decoder behind the C entry on N
// threads, on the demo chart tiled to the frame size and on a noise frame, against a plain copy of
// the output on as many threads.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <thread>
#include <vector>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/chart.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "bench",
    "[--width W --height H] [--repeat N] [--threads N] [--json]",
    "Times the codec: encode, frame decode, the raw decoder behind FBD_Execute (its console\n"
    "lines excluded) and a plain copy of the same 16-bit output buffer, on the demo chart tiled\n"
    "to W x H (default 3840x2160) and on a noise frame, each with the rows split among --threads\n"
    "threads (default one per processor; the copy is split the same way). Each path runs once to\n"
    "warm up, then N rounds (default 20) run every path once each, in turn; each path's median\n"
    "is reported. --json prints one JSON object\n"
    "instead of the table.",
    {kOptWidth,
     kOptHeight,
     {"repeat", "N", "timed runs per path, default 20"},
     kOptThreads,
     {"json", nullptr, "one JSON object on standard output"}},
    0,
    0};

// The demo chart tiled to w x h: every mode has its share.
Frame chartFrame(int w, int h) {
  const Frame chart = makeDemoChart();
  Frame f(w, h, Frame::CS_RAW, 12);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      f.data[static_cast<std::size_t>(y) * w + x] =
          chart.data[static_cast<std::size_t>(y % chart.height) * chart.width + x % chart.width];
  return f;
}

Frame noiseFrame(int w, int h) {
  Frame f(w, h, Frame::CS_RAW, 12);
  Rng rng(0x0157e5);
  for (std::size_t i = 0; i < static_cast<std::size_t>(w) * h; ++i) f.data[i] = rng.below(4096);
  return f;
}

// Median seconds of each path over `repeat` rounds, after one warm-up run of each. A round runs
// every path once, so all of them see the same share of whatever else the machine is doing and
// their ratios hold even when the absolute figures move with the load.
std::vector<double> medianSeconds(int repeat, const std::vector<std::function<void()>>& paths) {
  for (const auto& fn : paths) fn();
  std::vector<std::vector<double>> t(paths.size());
  for (int r = 0; r < repeat; ++r)
    for (std::size_t i = 0; i < paths.size(); ++i) {
      const auto a = std::chrono::steady_clock::now();
      paths[i]();
      const auto b = std::chrono::steady_clock::now();
      t[i].push_back(std::chrono::duration<double>(b - a).count());
    }
  std::vector<double> median;
  for (auto& v : t) {
    std::sort(v.begin(), v.end());
    median.push_back(v[v.size() / 2]);
  }
  return median;
}

// Copies n values split into one contiguous part per thread, like the frame drivers' rows.
void parallelCopy(unsigned short* to, const unsigned short* from, std::size_t n, int threads) {
  const auto part = [&](int i) {
    const std::size_t a = n * i / threads, b = n * (i + 1) / threads;
    std::memcpy(to + a, from + a, (b - a) * sizeof(unsigned short));
    // Keeps the copy from being optimised away.
    std::atomic_signal_fence(std::memory_order_seq_cst);
  };
  std::vector<std::thread> others;
  for (int i = 1; i < threads; ++i) others.emplace_back(part, i);
  part(0);
  for (std::thread& t : others) t.join();
}

// A codec with the software defaults, the block enabled, the rows split among `threads`.
void setUp(Compression1x8& codec, int threads) {
  codec.setSWinit();
  codec.setEnable(true);
  codec.m_dumpLevel = 0;
  codec.Threads = threads;
}

}  // namespace

int runBench(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int width = static_cast<int>(args.integer("width", 1, kMaxSide, 3840));
  const int height = static_cast<int>(args.integer("height", 1, kMaxSide, 2160));
  if (static_cast<long long>(width) * height > kMaxPixels)
    usageError("--width x --height: too many pixels");
  const int repeat = static_cast<int>(args.integer("repeat", 1, 100000, 20));
  const int threads = threadsOption(args);
  const bool json = args.has("json");
  const double mpix = static_cast<double>(width) * height / 1e6;

  const Frame chart = chartFrame(width, height), noise = noiseFrame(width, height);
  Compression1x8 codec("FBC", false);
  setUp(codec, threads);
  Frame chartCodes(Frame::CS_RAW, CFA_RGGB, 8), noiseCodes(Frame::CS_RAW, CFA_RGGB, 8);
  codec.allocateCompressedFrame(width, height, chartCodes);
  codec.allocateCompressedFrame(width, height, noiseCodes);
  codec.CompressFrame(chart, chartCodes, 0, 0);
  Frame decoded(width, height, Frame::CS_RAW, 16);

  // The host-facing buffer: rows of `width` code bytes (the compressed frame's rows cut to the
  // width) plus the 7 bytes the last block may read past the end.
  const std::size_t pixels = static_cast<std::size_t>(width) * height;
  std::vector<unsigned char> raw(pixels + 7, 0);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      raw[static_cast<std::size_t>(y) * width + x] = static_cast<unsigned char>(
          chartCodes.data[static_cast<std::size_t>(y) * chartCodes.width + x]);
  std::vector<unsigned short> out(pixels), copy(pixels);
  // The C entry's codec: its three console lines are not timed.
  Compression1x8 host("FBC", false);
  setUp(host, threads);

  enum { kEncode, kDecode, kFbd, kCopy, kEncodeNoise, kDecodeNoise };
  const std::vector<double> t = medianSeconds(
      repeat, {[&] { codec.CompressFrame(chart, chartCodes, 0, 0); },
               [&] { codec.DecompressFrame(chartCodes, decoded, 0); },
               [&] { host.DecompressFrame(raw.data(), out.data(), width, height, 0); },
               [&] { parallelCopy(copy.data(), out.data(), pixels, threads); },
               [&] { codec.CompressFrame(noise, noiseCodes, 0, 0); },
               [&] { codec.DecompressFrame(noiseCodes, decoded, 0); }});
  const double cp = t[kCopy];
  const double copyGbS = pixels * sizeof(unsigned short) / cp / 1e9;

  char line[512];
  if (json) {
    std::snprintf(
        line, sizeof line,
        "{\"width\": %d, \"height\": %d, \"encode_mpix_s\": %.1f, \"decode_mpix_s\": %.1f, "
        "\"fbd_mpix_s\": %.1f, \"copy_gb_s\": %.2f, \"encode_noise_mpix_s\": %.1f, "
        "\"decode_noise_mpix_s\": %.1f, \"threads\": %d}\n",
        width, height, mpix / t[kEncode], mpix / t[kDecode], mpix / t[kFbd], copyGbS,
        mpix / t[kEncodeNoise], mpix / t[kDecodeNoise], threads);
    std::cout << line;
    return kExitOk;
  }
  std::cout << "frame " << width << "x" << height << ", " << threads
            << (threads == 1 ? " thread" : " threads") << ", median of " << repeat
            << " runs after a warm-up\n";
  const auto row = [&](const char* name, double s) {
    std::snprintf(line, sizeof line, "  %-22s %9.3f ms %9.1f Mpixel/s %7.1fx copy\n", name, s * 1e3,
                  mpix / s, s / cp);
    std::cout << line;
  };
  row("encode", t[kEncode]);
  row("decode (frame)", t[kDecode]);
  row("decode (raw, FBD)", t[kFbd]);
  row("encode (noise)", t[kEncodeNoise]);
  row("decode (frame, noise)", t[kDecodeNoise]);
  std::snprintf(line, sizeof line, "  %-22s %9.3f ms %9.2f GB/s\n", "copy of the output", cp * 1e3,
                copyGbS);
  std::cout << line;
  return kExitOk;
}

}  // namespace fbc::cli
