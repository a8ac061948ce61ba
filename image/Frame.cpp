#include "image/Frame.h"

#include <climits>

namespace {

// One step of a depth change. A count of 32 or more empties a left shift and leaves only the
// sign fill of a right shift, as a wide barrel shifter would.
PIXEL shiftLeftStep(PIXEL v, int n) {
  if (n >= 32) return 0;
  return static_cast<PIXEL>(static_cast<unsigned>(v) << n);
}

PIXEL shiftRightStep(PIXEL v, int n) {
  if (n >= 32) return v < 0 ? -1 : 0;
  return v >> n;
}

}  // namespace

Frame& Frame::operator=(const Frame& src) {
  if (this == &src) return *this;
  create(src.width, src.height);
  cs = src.cs;
  depth = src.depth;
  cfa = src.cfa;
  rgbir = src.rgbir;
  if (src.data != nullptr && size() > 0) std::memcpy(data, src.data, size() * sizeof(PIXEL));
  return *this;
}

Frame Frame::clone() const {
  Frame f(cs, CFA_RGGB, 16, RGBIR_NONE);
  f.create(width, height);
  f.cs = cs;
  f.depth = depth;
  f.cfa = cfa;
  f.rgbir = rgbir;
  if (data != nullptr && f.size() > 0) std::memcpy(f.data, data, f.size() * sizeof(PIXEL));
  return f;
}

Frame* Frame::cloneFrame() const {
  Frame* f = new Frame(width, height, cs, depth, CFA_RGGB, RGBIR_NONE);
  if (data != nullptr && f->size() > 0) std::memcpy(f->data, data, f->size() * sizeof(PIXEL));
  f->cs = cs;
  f->depth = depth;
  f->cfa = cfa;
  f->rgbir = rgbir;
  return f;
}

// Only the colour space survives a crop: depth, layout and RGB-IR layout go back to defaults.
// The result has the size asked for, so crop(x, y, 0, 3) is a 0x3 frame without samples; a
// negative side counts as 0, as nothing is rejected.
Frame Frame::crop(int x, int y, int w, int h) const {
  Frame f(cs, CFA_RGGB, 16, RGBIR_NONE);
  f.create(w < 0 ? 0 : w, h < 0 ? 0 : h);
  for (int r = 0; r < f.height; ++r) {
    PIXEL* dst = f.data + static_cast<std::ptrdiff_t>(r) * f.width;
    for (int c = 0; c < f.width; ++c) dst[c] = GetPixel(x + c, y + r);
  }
  return f;
}

// The sample is shifted once through each of C, R, G and B. Without offsets every pixel maps to
// itself, so each sample is shifted four times. With offsets the accessors map (x, y) to the
// clamped (x + offsetX, y + offsetY): samples reached from several pixels shift four times per
// visit, samples no pixel reaches keep their value.
void Frame::convertDepth(int newDepth) {
  const int old = depth;
  if (old != newDepth && height > 0 && width > 0) {
    const bool left = newDepth > old;
    const int d = left ? newDepth - old : old - newDepth;
    const auto step = [left, d](PIXEL& v) {
      v = left ? shiftLeftStep(v, d) : shiftRightStep(v, d);
    };
    if (offsetX == 0 && offsetY == 0) {
      const std::size_t n = size();
      for (std::size_t i = 0; i < n; ++i) {
        PIXEL v = data[i];
        for (int k = 0; k < 4; ++k) step(v);
        data[i] = v;
      }
    } else {
      for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
          step(C(x, y));
          step(R(x, y));
          step(G(x, y));
          step(B(x, y));
        }
      }
    }
  }
  depth = newDepth;
}

void Frame::toMat(Mat<short>& m, int channel) const {
  m.create(width, height);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const PIXEL values[4] = {R(x, y), G(x, y), B(x, y), C(x, y)};
      const PIXEL v = values[channel & 3];
      // Limited from above only; negative samples keep their low 16 bits.
      m.at(x, y) = static_cast<short>(v > SHRT_MAX ? SHRT_MAX : static_cast<short>(v & 0xFFFF));
    }
  }
}

void splitChannel(Mat<short>* a, Mat<short>* b, Mat<short>* c, const Frame& f) {
  Mat<short>* targets[3] = {a, b, c};
  const std::size_t n = f.size();
  for (Mat<short>* t : targets) {
    if (t == nullptr) continue;
    t->create(f.width, f.height);
    for (std::size_t i = 0; i < n; ++i) t->data[i] = static_cast<short>(f.data[i] & 0xFFFF);
  }
}

int readCFAColor(int cfa, int x, int y) {
  const int px = x & 1;
  const int py = y & 1;
  if ((cfa == 1 && py == 1) || (cfa == 2 && py == 0)) return 3 - px;
  if ((cfa == 1 && py == 0) || (cfa == 2 && py == 1)) return 1 - px;
  if (cfa == 0) return py == 0 ? px : px + 2;
  return py == 1 ? px : px + 2;
}
