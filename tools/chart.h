// The built-in 12-bit test chart of `fbc demo`: 640x480, the same on every machine. `fbc bench`
// tiles it to the frame size it times.
#pragma once

#include <cstdint>

#include "image/Frame.h"

namespace fbc::cli {

// A small fixed generator (splitmix64): the chart and the bench frames are the same on every
// machine and standard library.
class Rng {
 public:
  explicit Rng(std::uint64_t seed) : state_(seed) {}
  std::uint32_t next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return static_cast<std::uint32_t>((z ^ (z >> 31)) >> 32);
  }
  int below(int n) { return static_cast<int>(next() % static_cast<std::uint32_t>(n)); }

 private:
  std::uint64_t state_;
};

// Gradients, flat steps, text-like strokes, hard edges with flat runs at block ends (one column
// per edge member), texture on a gradient and full-range noise, in bands of 120 rows.
Frame makeDemoChart();

}  // namespace fbc::cli
