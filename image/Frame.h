#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// One sample per pixel: every channel name of a Frame addresses this one value.
typedef int PIXEL;

// Bayer layout of the sensor: the colour at the top-left 2x2 position.
enum CFA_TYPE_HW { CFA_RGGB = 0, CFA_GRBG = 1, CFA_BGGR = 2, CFA_GBRG = 3 };

// RGB-IR filter layout; carried and copied by every frame operation, interpreted nowhere here.
enum CFA_TYPE_RGBIR {
  RGBIR_LAYOUT0 = 0,
  RGBIR_LAYOUT1 = 1,
  RGBIR_LAYOUT2 = 2,
  RGBIR_LAYOUT3 = 3,
  RGBIR_LAYOUT4 = 4,
  RGBIR_LAYOUT5 = 5,
  RGBIR_LAYOUT6 = 6,
  RGBIR_LAYOUT7 = 7,
  RGBIR_NONE = 8
};

// Two-dimensional pixel container. The buffer is owned through refCount; copies are deep, so the
// count is 1 for every live buffer. Coordinates go through the offsets and are clamped to the
// edges.
template <class T>
class Mat {
 public:
  Mat() = default;
  virtual ~Mat() { dropBuffer(); }

  Mat(const Mat& other) : offsetX(other.offsetX), offsetY(other.offsetY) { copyFrom(other); }
  Mat& operator=(const Mat& other) {
    if (this != &other) {
      copyFrom(other);
      offsetX = other.offsetX;
      offsetY = other.offsetY;
    }
    return *this;
  }
  Mat(Mat&& other) noexcept { steal(other); }
  Mat& operator=(Mat&& other) noexcept {
    if (this != &other) {
      dropBuffer();
      steal(other);
    }
    return *this;
  }

  // Buffers start on a cache line (64 bytes), so whole-line vector stores can address them.
  static constexpr std::size_t kBufferAlignment = 64;

  // Drops the current buffer and allocates a zero-filled one; the offsets are kept.
  void create(int w, int h) {
    static_assert(std::is_trivially_destructible<T>::value, "samples are plain values");
    const long long n = static_cast<long long>(w) * static_cast<long long>(h);
    if (n < 0 || static_cast<unsigned long long>(n) > static_cast<std::size_t>(-1) / sizeof(T)) {
      throw std::bad_array_new_length();
    }
    T* buffer = static_cast<T*>(::operator new (static_cast<std::size_t>(n) * sizeof(T),
                                                std::align_val_t{kBufferAlignment}));
    std::uninitialized_value_construct_n(buffer, static_cast<std::size_t>(n));
    dropBuffer();
    data = buffer;
    refCount = new int(1);
    width = w;
    height = h;
  }

  // Drops the buffer and forgets the size. The data pointer is deliberately left as it was.
  void release() {
    dropBuffer();
    refCount = nullptr;
    width = 0;
    height = 0;
  }

  // The accessor mapping: offsets added, then clamped into the picture, so out-of-range
  // coordinates replicate the nearest edge sample.
  std::ptrdiff_t clampedIndex(int x, int y) const {
    int xx = x + offsetX;
    int yy = y + offsetY;
    xx = xx < 0 ? 0 : (xx > width - 1 ? width - 1 : xx);
    yy = yy < 0 ? 0 : (yy > height - 1 ? height - 1 : yy);
    return static_cast<std::ptrdiff_t>(xx) + static_cast<std::ptrdiff_t>(width) * yy;
  }
  T& at(int x, int y) { return data[clampedIndex(x, y)]; }
  T at(int x, int y) const { return data[clampedIndex(x, y)]; }

  std::size_t size() const {
    return width > 0 && height > 0
               ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height)
               : 0;
  }

  int width = 0;
  int height = 0;
  T* data = nullptr;
  int* refCount = nullptr;
  int offsetX = 0;
  int offsetY = 0;

 protected:
  // A buffer whose count is 1 is freed (together with its counter cell); a shared one is only
  // counted down. The pointers themselves are left for the caller to reset.
  void dropBuffer() {
    if (refCount == nullptr) return;
    if (*refCount == 1) {
      ::operator delete (data, std::align_val_t{kBufferAlignment});
      delete refCount;
      data = nullptr;
      refCount = nullptr;
    } else {
      --*refCount;
    }
  }

 private:
  void copyFrom(const Mat& other) {
    if (other.refCount == nullptr) {
      dropBuffer();
      refCount = nullptr;
      data = nullptr;
      width = other.width;
      height = other.height;
      return;
    }
    create(other.width, other.height);
    if (other.data != nullptr && size() > 0) std::memcpy(data, other.data, size() * sizeof(T));
  }
  void steal(Mat& other) noexcept {
    width = other.width;
    height = other.height;
    data = other.data;
    refCount = other.refCount;
    offsetX = other.offsetX;
    offsetY = other.offsetY;
    other.width = other.height = 0;
    other.data = nullptr;
    other.refCount = nullptr;
  }
};

class Frame : public Mat<PIXEL> {
 public:
  enum CS_TYPE { CS_RAW = 0, CS_RGB = 1, CS_YUV = 2, CS_YUV422 = 3 };

  // An empty frame (no buffer) with its attributes set.
  explicit Frame(CS_TYPE cs_ = CS_RAW, CFA_TYPE_HW cfa_ = CFA_RGGB, int depth_ = 16,
                 CFA_TYPE_RGBIR rgbir_ = RGBIR_NONE)
      : cs(cs_), depth(depth_), cfa(cfa_), rgbir(rgbir_) {}
  // A zero-filled frame of the given size.
  Frame(int w, int h, CS_TYPE cs_, int depth_ = 16, CFA_TYPE_HW cfa_ = CFA_RGGB,
        CFA_TYPE_RGBIR rgbir_ = RGBIR_NONE)
      : cs(cs_) {
    create(w, h);
    depth = depth_;
    cfa = cfa_;
    rgbir = rgbir_;
  }
  ~Frame() override = default;

  Frame(const Frame& other) = default;
  Frame(Frame&& other) noexcept = default;
  Frame& operator=(Frame&& other) noexcept = default;
  // Resizes to the source, copies the attributes and the samples; the offsets stay as they were.
  Frame& operator=(const Frame& src);

  // Every channel name addresses the one sample of the pixel.
  PIXEL& GetPixel(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL GetPixel(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& Y(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL Y(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& Cb(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL Cb(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& Cr(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL Cr(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& U(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL U(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& V(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL V(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& C(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL C(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& R(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL R(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& G(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL G(int x, int y) const { return data[clampedIndex(x, y)]; }
  PIXEL& B(int x, int y) { return data[clampedIndex(x, y)]; }
  PIXEL B(int x, int y) const { return data[clampedIndex(x, y)]; }

  Frame clone() const;
  Frame* cloneFrame() const;
  Frame crop(int x, int y, int w, int h) const;
  void convertDepth(int newDepth);
  void toMat(Mat<short>& m, int channel) const;

  // Colour operations.
  void RGB2YUV();
  void YUV2RGB();
  void toYUV422();

  // Readers: the file is base + "_" + index (at least four digits) + extension.
  void readPPM(const std::string& base, int index, int maxWidth, int maxHeight, int cfa_, int bits);
  void readRAW(const std::string& base, int index, int w, int h, int mode, int fileDepth,
               int ignored, int targetDepth);
  void readRAWYC(const std::string& base, int index, int w, int h);
  void readCRW(const std::string& base, int index, int isCRW);

  // Writers: the name is the full file name.
  void store(const std::string& name) const;
  void storePPM(const std::string& name) const;
  void storePPM_8b(const std::string& name) const;
  void storePPM_12b(const std::string& name) const;
  void storePPMYUV(const std::string& name) const;
  void storeAllTypePPM(const std::string& name, int mode) const;
  void dumpFramePat(const std::string& name) const;
  void dumpFrame(const std::string& dir, const std::string& name, int enable) const;

  CS_TYPE cs;
  int depth = 16;
  CFA_TYPE_HW cfa = CFA_RGGB;
  CFA_TYPE_RGBIR rgbir = RGBIR_NONE;
};

// Colour site of (x, y) in a Bayer layout: 0 R, 1 green on a red row, 2 green on a blue row, 3 B.
int readCFAColor(int cfa, int x, int y);

// Each non-null target receives the low 16 bits of the samples in buffer order.
void splitChannel(Mat<short>* a, Mat<short>* b, Mat<short>* c, const Frame& f);

// Single reflection of an out-of-range coordinate against [0, max].
int mirroredPos(int p, int max);
// Demosaic of a CS_RAW frame into dst (created by the caller with the source's size).
void Bayer2RGB(const Frame* src, Frame* dst, int cfa);
// Chroma up-sampling of a CS_YUV422 frame into dst (created by the caller).
void YUV422To444(const Frame* src, Frame* dst);

namespace fbc {

// Red, green and blue estimates of the demosaic filters at one site of a Bayer frame.
void demosaicSite(const Frame& bayer, int cfa, int x, int y, int rgb[3]);
// A full colour picture: three values per pixel (R, G, B), row-major.
void demosaicToRGB(const Frame& bayer, int cfa, std::vector<int>& rgb);

// Fills the created frame with a Bayer mosaic of an RGB picture (three samples per pixel,
// fileWidth pixels per row): each site takes the component its colour filter passes.
void mosaicFromRgb(const unsigned short* rgb, int fileWidth, int cfa, Frame& f);

}  // namespace fbc
