#include "image/DataDumper.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// Appends one word as 2*nBytes lowercase hexadecimal digits, byte nBytes-1 first, and a line feed.
void appendWord(std::string& out, const unsigned char* buf, int nBytes) {
  for (int i = nBytes - 1; i >= 0; --i) {
    out.push_back(kHexDigits[buf[i] >> 4]);
    out.push_back(kHexDigits[buf[i] & 0xF]);
  }
  out.push_back('\n');
}

// Walks the whole frame word by word, as the hardware's bus writer does.
void appendFrameWords(std::string& out, const Frame& f, int bits, int nBytes, bool twoRow) {
  if (f.width <= 0 || f.height <= 0) return;
  const int wordBytes = std::max(nBytes, 0);
  const int perWord = bits > 0 ? std::max(1, 8 * wordBytes / bits) : f.width;
  const std::size_t words = static_cast<std::size_t>(f.height) *
                            static_cast<std::size_t>((f.width + perWord - 1) / perWord);
  out.reserve(out.size() + words * (2 * static_cast<std::size_t>(wordBytes) + 1));
  std::vector<unsigned char> word(static_cast<std::size_t>(wordBytes) + 1);
  int x = 0;
  int y = 0;
  while (y < f.height) {
    if (twoRow) {
      DataDumper::packLineTwoRow(f, bits, wordBytes, word.data(), x, y);
    } else {
      DataDumper::packLine(f, bits, wordBytes, word.data(), x, y);
    }
    appendWord(out, word.data(), wordBytes);
  }
}

void writeText(const char* name, const std::string& text) {
  std::FILE* fp = std::fopen(name, "wb");
  if (fp == nullptr) return;
  std::fwrite(text.data(), 1, text.size(), fp);
  std::fclose(fp);
}

}  // namespace

// Bit packing of one bus word, least significant bit first:
//
//   byte k:   | next sample ... | sample n bits b-1..0 of byte |
//   a sample that does not fit in the free 8-b bits of byte k carries its upper bits into
//   bytes k+1, k+2, ...; the bytes are added to, not ORed, exactly as the reference packer does.
void DataDumper::packLine(const Frame& f, int bits, int nBytes, unsigned char* buf, int& x,
                          int& y) {
  if (nBytes > 0) std::memset(buf, 0, static_cast<std::size_t>(nBytes));
  if (x >= f.width || y >= f.height) return;
  if (bits < 1) {
    x = 0;
    ++y;
    return;
  }
  // Bits beyond the word are dropped rather than written past it.
  auto addByte = [buf, nBytes](int k, unsigned v) {
    if (k < nBytes) buf[k] = static_cast<unsigned char>(buf[k] + (v & 0xFFu));
  };
  int k = 0;
  int b = 0;
  for (;;) {
    const PIXEL v = f.C(x, y);
    const int freeBits = 8 - b;
    addByte(k, static_cast<unsigned>(v) << b);
    if (bits < freeBits) {
      b += bits;
    } else {
      PIXEL carry = v >> freeBits;
      int remaining = bits - freeBits;
      ++k;
      b = 0;
      while (remaining >= 1) {
        addByte(k, static_cast<unsigned>(carry));
        carry >>= 8;
        if (remaining < 8) {
          b = remaining;
          break;
        }
        remaining -= 8;
        ++k;
      }
    }
    const bool wordFull = b + 8 * k + bits > 8 * nBytes;
    ++x;
    const bool rowEnd = x >= f.width;
    if (rowEnd) {
      x = 0;
      ++y;
    }
    if (wordFull || rowEnd) return;
  }
}

void DataDumper::packLineTwoRow(const Frame& f, int bits, int nBytes, unsigned char* buf, int& x,
                                int& y) {
  if (nBytes > 0) std::memset(buf, 0, static_cast<std::size_t>(nBytes));
  const int half = nBytes / 2;
  int secondX = x;
  int secondY = y + 1;
  const int firstY = y;
  packLine(f, bits, half, buf, x, y);
  packLine(f, bits, half, buf + std::max(half, 0), secondX, secondY);
  if (x == 0 && y != firstY) ++y;
}

void DataDumper::dumpNByteAlignedData(const char* name, const Frame& f, int bits, int nBytes) {
  std::string text;
  appendFrameWords(text, f, bits, nBytes, false);
  writeText(name, text);
}

void DataDumper::dumpPackedDataTwoRow(const char* name, const Frame& f, int bits, int nBytes) {
  std::string text;
  appendFrameWords(text, f, bits, nBytes, true);
  writeText(name, text);
}

void DataDumper::dumpPackedDataTileMode(const char* name, const Frame& f, int tileWidth,
                                        int tileHeight, int bits, int nBytes) {
  std::string text;
  const int tw = tileWidth > 0 ? tileWidth : f.width;
  const int th = tileHeight > 0 ? tileHeight : f.height;
  for (int ty = 0; ty < f.height; ty += th) {
    for (int tx = 0; tx < f.width; tx += tw) {
      const Frame tile = f.crop(tx, ty, std::min(tw, f.width - tx), std::min(th, f.height - ty));
      appendFrameWords(text, tile, bits, nBytes, false);
    }
  }
  writeText(name, text);
}

void DataDumper::dumpPlainData(const char* name, const int* values, int count, int digits,
                               int bits) {
  std::FILE* fp = std::fopen(name, "wb");
  if (fp == nullptr) return;
  const unsigned mask = bits >= 32 ? 0xFFFFFFFFu : (bits <= 0 ? 0u : (1u << bits) - 1u);
  std::string text;
  text.reserve(static_cast<std::size_t>(std::max(count, 0)) *
               static_cast<std::size_t>(std::max(digits, 1) + 1));
  char line[64];
  for (int i = 0; i < count; ++i) {
    const int n =
        std::snprintf(line, sizeof line, "%0*x\n", digits, static_cast<unsigned>(values[i]) & mask);
    text.append(line, static_cast<std::size_t>(std::min<int>(n, sizeof line - 1)));
  }
  std::fwrite(text.data(), 1, text.size(), fp);
  std::fclose(fp);
}

void DataDumper::dumpPlainData(const char* name, const Frame& f, int digits, int bits) {
  std::vector<int> values(f.size());
  for (int y = 0; y < f.height; ++y) {
    for (int x = 0; x < f.width; ++x) values[static_cast<std::size_t>(y) * f.width + x] = f.C(x, y);
  }
  dumpPlainData(name, values.data(), static_cast<int>(values.size()), digits, bits);
}
