#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "image/Frame.h"
#include "image/ParsePPM.h"

namespace {

std::string frameFileName(const std::string& base, int index, const char* extension) {
  char number[16];
  std::snprintf(number, sizeof number, "%04d", index);
  return base + "_" + number + extension;
}

// One step of the raw reader's depth change on a sample in 0..65535, clipped to that range.
int rawDepthStep(int v, int d, bool down) {
  if (down) return d >= 31 ? 0 : v >> d;
  if (v == 0) return 0;
  return d >= 16 ? 65535 : std::min(v << d, 65535);
}

// Opens a PPM target as the frame writers do; reports the outcome on the console.
std::FILE* openPpm(const std::string& name) {
  std::FILE* fp = std::fopen(name.c_str(), "wb");
  if (fp == nullptr) {
    std::fputs("Error : StorePPM Failed\n", stderr);
    return nullptr;
  }
  std::printf("store PPM : %s\n", name.c_str());
  return fp;
}

void writePpmHeader(std::FILE* fp, int width, int height) {
  std::fprintf(fp, "P6\n%d %d\n255\n", width, height);
}

// Every sample becomes a grey pixel of three identical bytes.
template <class ToByte>
void writeGreyPixels(std::FILE* fp, const Frame& f, ToByte toByte) {
  const std::size_t n = f.size();
  std::vector<unsigned char> bytes(n * 3);
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char b = static_cast<unsigned char>(toByte(f.data[i]) & 0xFF);
    bytes[3 * i] = bytes[3 * i + 1] = bytes[3 * i + 2] = b;
  }
  std::fwrite(bytes.data(), 1, bytes.size(), fp);
}

int shiftLeftBits(int v, int n) {
  return static_cast<int>(static_cast<unsigned>(v) << n);
}

// YUV frames reach 8 bits in three passes, one per aliased component; the second and third
// passes round, with half an output step above mid-range and a quarter below.
int yuvTo8Bits(int v, int depth) {
  const int s = depth - 8;
  if (s <= 0) {
    const int up = 8 - depth;
    if (up >= 32) return 0;
    for (int i = 0; i < 3; ++i) v = shiftLeftBits(v, up);
    return v;
  }
  if (s >= 32) return v < 0 ? -1 : 0;
  const int threshold = depth - 1 < 31 ? 1 << (depth - 1) : INT32_MAX;
  const int upperOffset = depth - 9 < 31 ? 1 << (depth - 9) : 0;
  const int lowerOffset = depth >= 10 && depth - 10 < 31 ? 1 << (depth - 10) : 0;
  v >>= s;
  for (int i = 0; i < 2; ++i) {
    const int offset = v >= threshold ? upperOffset : lowerOffset;
    v = static_cast<int>((static_cast<long long>(v) + offset) >> s);
  }
  return v;
}

}  // namespace

namespace fbc {

void mosaicFromRgb(const unsigned short* rgb, int fileWidth, int cfa, Frame& f) {
  const int layout = cfa & 3;
  for (int y = 0; y < f.height; ++y) {
    for (int x = 0; x < f.width; ++x) {
      const int site = bayer_p[layout][y & 1][x & 1];
      const int component = site == 0 ? 0 : (site == 2 ? 2 : 1);
      const std::size_t at = (static_cast<std::size_t>(fileWidth) * y + x) * 3 + component;
      f.data[static_cast<std::size_t>(f.width) * y + x] = rgb[at];
    }
  }
}

}  // namespace fbc

void Frame::readPPM(const std::string& base, int index, int maxWidth, int maxHeight, int cfa_,
                    int bits) {
  const std::string name = frameFileName(base, index, ".ppm");
  unsigned int fileWidth = 0;
  unsigned int fileHeight = 0;
  unsigned short* rgb = nullptr;
  ParsePPMFile_all(name.c_str(), fileWidth, fileHeight, rgb, bits);
  // Unsigned comparisons: a negative limit keeps the whole picture.
  const unsigned w = std::min(static_cast<unsigned>(maxWidth), fileWidth);
  const unsigned h = std::min(static_cast<unsigned>(maxHeight), fileHeight);
  create(static_cast<int>(w), static_cast<int>(h));
  fbc::mosaicFromRgb(rgb, static_cast<int>(fileWidth), cfa_, *this);
  delete[] rgb;
  if (cs == CS_YUV) RGB2YUV();
}

void Frame::readRAW(const std::string& base, int index, int w, int h, int mode, int fileDepth,
                    int ignored, int targetDepth) {
  (void)ignored;
  const std::string name = frameFileName(base, index, ".raw");
  unsigned short* samples = nullptr;
  ParseRAWFile(name.c_str(), w, h, samples, mode);
  create(w, h);
  const int limit = fileDepth == 8 ? 255 : fileDepth == 10 ? 1023 : fileDepth == 12 ? 4095 : 65535;
  const std::size_t n = size();
  for (std::size_t i = 0; i < n; ++i) data[i] = std::min<int>(samples[i], limit);
  if (targetDepth != fileDepth && targetDepth > 0) {
    // Four steps of d, each clipped: the depth change is applied once per aliased channel.
    const bool down = fileDepth > targetDepth;
    const int d = down ? fileDepth - targetDepth : targetDepth - fileDepth;
    for (std::size_t i = 0; i < n; ++i) {
      int v = data[i];
      for (int step = 0; step < 4; ++step) v = rawDepthStep(v, d, down);
      data[i] = v;
    }
  }
  delete[] samples;
}

void Frame::readRAWYC(const std::string& base, int index, int w, int h) {
  const std::string name = frameFileName(base, index, ".raw");
  unsigned short* words = nullptr;
  ParseYUV422File(name.c_str(), w, h, words);
  create(w, h);
  // Each pixel owns two words; the second is the one kept.
  const std::size_t n = size();
  for (std::size_t i = 0; i < n; ++i) data[i] = words[2 * i + 1];
  delete[] words;
}

void Frame::readCRW(const std::string& base, int index, int isCRW) {
  const std::string name = frameFileName(base, index, isCRW != 0 ? ".CRW" : ".CR2");
  int w = 1;
  int h = 1;
  unsigned short* samples = nullptr;
  ParseCRWFile(name.c_str(), samples, isCRW, w, h);
  create(w, h);
  const std::size_t n = size();
  for (std::size_t i = 0; i < n; ++i) data[i] = samples[i] >> 2;
  delete[] samples;
}

void Frame::store(const std::string& name) const {
  storePPM(name);
}

void Frame::storePPM(const std::string& name) const {
  std::FILE* fp = openPpm(name);
  if (fp == nullptr) return;
  writePpmHeader(fp, width, height);
  if (cs == CS_RGB) {
    const int d = depth;
    writeGreyPixels(fp, *this,
                    [d](int v) { return d > 8 ? v >> (d - 8) : shiftLeftBits(v, 8 - d); });
  } else if (cs == CS_YUV) {
    const int d = depth;
    writeGreyPixels(fp, *this, [d](int v) { return yuvTo8Bits(v, d); });
  }
  std::fclose(fp);
}

void Frame::storePPM_8b(const std::string& name) const {
  std::FILE* fp = openPpm(name);
  if (fp == nullptr) return;
  writePpmHeader(fp, width, height);
  writeGreyPixels(fp, *this, [](int v) { return v; });
  std::fclose(fp);
}

void Frame::storePPM_12b(const std::string& name) const {
  std::FILE* fp = openPpm(name);
  if (fp == nullptr) return;
  writePpmHeader(fp, width, height);
  if (cs == CS_RGB) {
    writeGreyPixels(fp, *this, [](int v) { return v >> 4; });
  } else {
    writeGreyPixels(fp, *this, [](int v) { return std::min(std::max(v, 0), 4095) >> 4; });
  }
  std::fclose(fp);
}

void Frame::storePPMYUV(const std::string& name) const {
  std::FILE* fp = openPpm(name);
  if (fp == nullptr) return;
  writeGreyPixels(fp, *this, [](int v) { return v; });
  std::fclose(fp);
}

// Bit 0 of mode writes name.ppm (storePPM), bit 1 name_8b.ppm, bit 2 name_12b.ppm; a mode
// without any of these bits writes all three.
void Frame::storeAllTypePPM(const std::string& name, int mode) const {
  const int selected = (mode & 7) != 0 ? mode & 7 : 7;
  if (selected & 1) storePPM(name + ".ppm");
  if (selected & 2) storePPM_8b(name + "_8b.ppm");
  if (selected & 4) storePPM_12b(name + "_12b.ppm");
}

void Frame::dumpFramePat(const std::string& name) const {
  std::FILE* fp = std::fopen(name.c_str(), "w");
  if (fp == nullptr) {
    std::fprintf(stderr, "ERROR : cannot open file %s\n", name.c_str());
    return;
  }
  std::fputs("//format : x y Y U V\n", fp);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const unsigned v = static_cast<unsigned>(C(x, y));
      std::fprintf(fp, "%04d %04d %03x %03x %03x\n", x, y, v, v, v);
    }
  }
  std::fclose(fp);
}

void Frame::dumpFrame(const std::string& dir, const std::string& name, int enable) const {
  if (enable != 1) return;
  const std::string path = dir + "/" + name + ".bin";
  std::FILE* fp = std::fopen(path.c_str(), "wb");
  if (fp == nullptr) {
    std::printf("Failed to open file %s\n", path.c_str());
    return;
  }
  // 16-bit little-endian words, repeated once per component the colour space carries.
  int words = 0;
  switch (cs) {
    case CS_RAW:
      words = 1;
      break;
    case CS_RGB:
      words = 3;
      break;
    case CS_YUV:
      words = 3;
      break;
    case CS_YUV422:
      words = 2;
      break;
  }
  if (words > 0) {
    std::vector<unsigned char> bytes;
    bytes.reserve(size() * static_cast<std::size_t>(words) * 2);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const unsigned v = static_cast<unsigned>(data[static_cast<std::size_t>(width) * y + x]);
        for (int w = 0; w < words; ++w) {
          bytes.push_back(static_cast<unsigned char>(v & 0xFF));
          bytes.push_back(static_cast<unsigned char>((v >> 8) & 0xFF));
        }
      }
    }
    std::fwrite(bytes.data(), 1, bytes.size(), fp);
  }
  std::fclose(fp);
}
