// The built-in 12-bit test chart of `fbc demo`: 640x480, the same on every machine. `fbc bench`
// tiles it to the frame size it times.
#pragma once

#include "image/Frame.h"

namespace fbc::cli {

// Gradients, flat steps, text-like strokes, hard edges with flat runs at block ends (one column
// per edge member), texture on a gradient and full-range noise, in bands of 120 rows.
Frame makeDemoChart();

}  // namespace fbc::cli
