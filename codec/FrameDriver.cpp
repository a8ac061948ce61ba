// Frame-level drivers: compress a 12-bit frame into a frame of block-code bytes (one byte per
// pixel, each block's 8 bytes at its own 8 columns), decompress it back into 16-bit pixels
// (12-bit value in the top bits), and write the golden reference files a hardware
// implementation is checked against.
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"
#include "image/DataDumper.h"
#include "image/Frame.h"

using namespace fbc;

namespace {

std::string goldenPath(const std::string& dir, const std::string& stem, const char* kind, int index,
                       const char* ext) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "_%s_%0*d.%s", kind, 4, index, ext);
  return dir + "/" + stem + buf;
}

// Text and raw golden files stay open for one frame; closing is automatic.
struct File {
  std::FILE* f = nullptr;
  File(const std::string& path, const char* mode) : f(std::fopen(path.c_str(), mode)) {}
  ~File() {
    if (f) std::fclose(f);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
};

// Whether a frame's samples can be addressed directly: no accessor offsets to apply.
bool plain(const Frame& f) {
  return f.offsetX == 0 && f.offsetY == 0 && f.data != nullptr;
}

// Without golden files and on plain frames, whole rows go through the fast path.
void compressRowsFast(Compression1x8& codec, const Frame& in, Frame& out, int cfa) {
  const CodecVariant* variant = activeVariant();
  codec.splitRows(in.height, [&](Compression1x8& c, int begin, int end) {
    FastEncoder encoder(c, variant);
    std::vector<BlockCode> codes(static_cast<std::size_t>((in.width + 7) / 8));
    const int bytes = static_cast<int>(8 * codes.size());
    for (int y = begin; y < end; ++y) {
      const bool parity = Compression1x8::rowParity(y, cfa);
      encoder.encodeRow(in.data + static_cast<std::size_t>(y) * in.width, in.width, parity,
                        codes.data());
      PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width;
      if (variant) {
        // Codes are stored little-endian: their bytes in memory are the frame's bytes.
        variant->widenBytes(reinterpret_cast<const unsigned char*>(codes.data()), bytes, dst);
      } else {
        for (std::size_t b = 0; b < codes.size(); ++b)
          for (int k = 0; k < 8; ++k)
            dst[8 * b + k] = static_cast<int>((codes[b] >> (8 * k)) & 0xFF);
      }
    }
  });
}

constexpr std::size_t kStreamBytes = std::size_t{8} << 20;

void decompressRowsFast(Compression1x8& codec, const Frame& in, Frame& out) {
  const CodecVariant* variant = activeVariant();
  // A decoded frame much larger than the caches is written past them: its lines are not read
  // before being overwritten, nor soon after.
  const bool streaming = out.size() * sizeof(PIXEL) > kStreamBytes;
  // A narrower output keeps the left part of each decoded row. The input's width is a
  // multiple of 8: every code is whole.
  const bool direct = out.width >= in.width;
  const int n = direct ? in.width : out.width;
  codec.splitRows(in.height, [&](Compression1x8& c, int begin, int end) {
    FastDecoder decoder(c, variant);
    decoder.setStreaming(streaming);
    std::vector<PIXEL> px(direct ? 0 : static_cast<std::size_t>(in.width));
    for (int y = begin; y < end; ++y) {
      const PIXEL* src = in.data + static_cast<std::size_t>(y) * in.width;
      PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width;
      if (direct) {
        decoder.decodeRow(src, in.width, dst);
      } else {
        decoder.decodeRow(src, in.width, px.data());
        std::copy(px.begin(), px.begin() + n, dst);
      }
    }
  });
}

// Rows of code bytes `inStride` apart into rows of `width` 16-bit pixels.
void decompressBytes(Compression1x8& codec, const unsigned char* in, std::size_t inStride,
                     unsigned short* out, int width, int rowBegin, int rowEnd) {
  const CodecVariant* variant = codec.instrumented() ? nullptr : activeVariant();
  codec.splitRows(rowEnd - rowBegin, [&](Compression1x8& c, int begin, int end) {
    FastDecoder decoder(c, variant);
    for (int r = rowBegin + begin; r < rowBegin + end; ++r)
      decoder.decodeRow(in + r * inStride, width, out + static_cast<std::size_t>(r) * width);
  });
}

}  // namespace

void Compression1x8::allocateCompressedFrame(int width, int height, Frame& f) {
  f.create(Enable == 1 ? (width + 7) & ~7 : width, height);
  f.cs = Frame::CS_RAW;
  f.depth = 8;
}

void Compression1x8::compressDecompressFrame(const Frame& in, Frame& out, int cfa, int frameIndex) {
  Frame tmp(Frame::CS_RAW, CFA_RGGB, 16, RGBIR_NONE);
  allocateCompressedFrame(in.width, in.height, tmp);
  CompressFrame(in, tmp, cfa, frameIndex);
  DecompressFrame(tmp, out, frameIndex);
}

void Compression1x8::CompressFrame(const Frame& in, Frame& out, int cfa, int frameIndex) {
  out.cfa = static_cast<CFA_TYPE_HW>(cfa);
  startFrame(in.width, frameIndex);
  if (Enable == 0) {
    out = in;
    return;
  }
  const int width = in.width, height = in.height;
  if (static_cast<long long>(width) * height >= 0x1FFFFFFF) throw std::bad_array_new_length();

  const bool dump = m_dumpLevel >= 1 && frameIndex >= 0;
  // Instrumented blocks (trace, coverage) are coded on the reference path, block by block.
  const bool fast = !instrumented() && plain(in) && width > 0 && height > 0 && plain(out) &&
                    out.width >= ((width + 7) & ~7) && out.height >= height;
  if (fast && !dump) {
    compressRowsFast(*this, in, out, cfa);
    return;
  }
  const std::string stem = getNameLower();
  File inputLines(
      dump ? goldenPath(m_outputDir, stem, "golden_ref_com_input", frameIndex, "txt") : "", "w");
  File raw(dump ? goldenPath(m_outputDir, stem, "com_input", frameIndex, "raw") : "", "wb");

  // Working copy of the input, row-major, as the hardware's line buffer sees it.
  std::vector<int> work(static_cast<std::size_t>(width > 0 && height > 0 ? width : 0) *
                        (height > 0 ? height : 0));
  for (int y = 0; y < height; ++y) {
    int* row = work.data() + static_cast<std::size_t>(y) * width;
    for (int x = 0; x < width; ++x) row[x] = in.GetPixel(x, y);
    if (raw.f) {
      for (int x = 0; x < width; ++x) {
        std::fputc(row[x] & 0xFF, raw.f);
        std::fputc((row[x] >> 8) & 0xFF, raw.f);
      }
    }
  }
  // Each block as the coder sees it: a short last block padded with zeros.
  const auto blockAt = [&](int x, int y, int* block) {
    const int* row = work.data() + static_cast<std::size_t>(y) * width;
    const int n = width - x < 8 ? width - x : 8;
    for (int k = 0; k < 8; ++k) block[k] = k < n ? row[x + k] : 0;
  };
  if (inputLines.f) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; x += 8) {
        int b[8];
        blockAt(x, y, b);
        std::fprintf(inputLines.f, "%03x_%03x_%03x_%03x_%03x_%03x_%03x_%03x\n", b[7], b[6], b[5],
                     b[4], b[3], b[2], b[1], b[0]);
      }
    }
  }

  if (fast) {
    compressRowsFast(*this, in, out, cfa);
  } else {
    const bool direct = plain(out) && out.width >= ((width + 7) & ~7) && out.height >= height;
    for (int y = 0; y < height; ++y) {
      const bool parity = rowParity(y, cfa);
      for (int x = 0; x < width; x += 8) {
        int block[8];
        blockAt(x, y, block);
        const BlockCode code = encodeBlock(block, parity);
        if (direct) {
          PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width + x;
          for (int k = 0; k < 8; ++k) dst[k] = static_cast<int>((code >> (8 * k)) & 0xFF);
        } else {
          for (int k = 0; k < 8; ++k)
            out.GetPixel(x + k, y) = static_cast<int>((code >> (8 * k)) & 0xFF);
        }
      }
    }
  }
  if (dump) {
    DataDumper::dumpNByteAlignedData(
        goldenPath(m_outputDir, stem, "golden_ref_com", frameIndex, "txt").c_str(), out, 8, 8);
  }
}

void Compression1x8::CompressFrame(const unsigned short* in, unsigned char* out, int width,
                                   int height, int cfa, int frameIndex) {
  startFrame(width, frameIndex);
  if (width <= 0 || height <= 0) return;
  const CodecVariant* variant = instrumented() ? nullptr : activeVariant();
  const std::size_t blocks = static_cast<std::size_t>(width + 7) / 8;
  splitRows(height, [&](Compression1x8& c, int begin, int end) {
    FastEncoder encoder(c, variant);
    std::vector<int> row(static_cast<std::size_t>(width));
    std::vector<BlockCode> codes(blocks);
    for (int y = begin; y < end; ++y) {
      const unsigned short* src = in + static_cast<std::size_t>(y) * width;
      for (int x = 0; x < width; ++x) row[static_cast<std::size_t>(x)] = src[x];
      encoder.encodeRow(row.data(), width, rowParity(y, cfa), codes.data());
      unsigned char* dst = out + static_cast<std::size_t>(y) * 8 * blocks;
      for (std::size_t b = 0; b < blocks; ++b) storeCode(codes[b], dst + 8 * b);
    }
  });
}

void Compression1x8::DecompressFrame(const Frame& in, Frame& out, int frameIndex) {
  if (Enable == 0) {
    out = in;
    return;
  }
  const bool dump = m_dumpLevel >= 1 && frameIndex >= 0;
  const std::string stem = getNameLower();
  File inputLines(
      dump ? goldenPath(m_outputDir, stem, "golden_ref_dec_input", frameIndex, "txt") : "", "w");

  const bool directIn = plain(in) && (in.width & 7) == 0;
  const bool directOut = plain(out) && out.height >= in.height;
  const bool fast = !instrumented() && directIn && directOut;
  if (fast && !dump) {
    decompressRowsFast(*this, in, out);
    return;
  }
  const auto blockAt = [&](int x, int y, unsigned char* bytes) {
    if (directIn) {
      const PIXEL* src = in.data + static_cast<std::size_t>(y) * in.width + x;
      for (int k = 0; k < 8; ++k) bytes[k] = static_cast<unsigned char>(src[k]);
    } else {
      for (int k = 0; k < 8; ++k) bytes[k] = static_cast<unsigned char>(in.GetPixel(x + k, y));
    }
  };
  if (inputLines.f) {
    for (int y = 0; y < in.height; ++y) {
      for (int x = 0; x < in.width; x += 8) {
        unsigned char b[8];
        blockAt(x, y, b);
        std::fprintf(inputLines.f, "%02x_%02x_%02x_%02x_%02x_%02x_%02x_%02x\n", b[7], b[6], b[5],
                     b[4], b[3], b[2], b[1], b[0]);
      }
    }
  }
  if (fast) {
    decompressRowsFast(*this, in, out);
  } else {
    for (int y = 0; y < in.height; ++y) {
      for (int x = 0; x < in.width; x += 8) {
        unsigned char bytes[8];
        blockAt(x, y, bytes);
        int px[8];
        decodeBlock(loadCode(bytes), px);
        const int n = out.width - x < 8 ? out.width - x : 8;
        if (directOut) {
          PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width + x;
          for (int k = 0; k < n; ++k) dst[k] = px[k] * 16;
        } else {
          for (int k = 0; k < n; ++k) out.GetPixel(x + k, y) = px[k] * 16;
        }
      }
    }
  }
  if (dump) {
    DataDumper::dumpNByteAlignedData(
        goldenPath(m_outputDir, stem, "golden_ref_dec", frameIndex, "txt").c_str(), out, 12, 12);
  }
}

void Compression1x8::DecompressFrame(unsigned char* in, unsigned short* out, int width, int height,
                                     int) {
  if (height <= 0 || width <= 0) return;
  if (Enable == 0) {
    const std::size_t n = static_cast<std::size_t>(width) * height;
    for (std::size_t i = 0; i < n; ++i) out[i] = in[i];
    return;
  }
  decompressRows(in, out, width, 0, height);
}

void Compression1x8::decompressRows(const unsigned char* in, unsigned short* out, int width,
                                    int rowBegin, int rowEnd) {
  // The compressed row stride is the width, not the width rounded up to 8: the last block of a
  // short row reads its missing bytes from the start of the next row (on the last row, up to 7
  // bytes past the buffer's nominal end) and keeps only the pixels inside the row.
  decompressBytes(*this, in, static_cast<std::size_t>(width), out, width, rowBegin, rowEnd);
}

void Compression1x8::DecompressFrame(const unsigned char* in, int inStride, unsigned short* out,
                                     int width, int height) {
  if (height <= 0 || width <= 0) return;
  if (Enable == 0) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        out[static_cast<std::size_t>(y) * width + x] =
            in[static_cast<std::size_t>(y) * inStride + x];
    return;
  }
  decompressBytes(*this, in, static_cast<std::size_t>(inStride), out, width, 0, height);
}

void Compression1x8::splitRows(int rows,
                               const std::function<void(Compression1x8&, int, int)>& work) {
  // Rows are independent once the registers are fixed; the copies keep the per-block working
  // state apart. An instrumented codec records into one trace and one coverage table.
  const int n = instrumented() ? 1 : std::max(1, std::min(Threads, rows));
  if (n == 1) return work(*this, 0, rows);
  // The rows go in runs of about an eighth of a thread's share, each taken by whichever thread
  // is free next: a thread the system holds back leaves its runs to the others.
  const int run = std::max(1, rows / (8 * n));
  std::atomic<int> next{0};
  std::vector<std::unique_ptr<Compression1x8>> copies;
  for (int i = 1; i < n; ++i) copies.push_back(std::make_unique<Compression1x8>(*this));
  std::vector<std::exception_ptr> errors(static_cast<std::size_t>(n));
  const auto drain = [&](int i) {
    Compression1x8& codec = i == 0 ? *this : *copies[static_cast<std::size_t>(i - 1)];
    try {
      for (int begin = next.fetch_add(run); begin < rows; begin = next.fetch_add(run))
        work(codec, begin, std::min(rows, begin + run));
    } catch (...) {
      errors[static_cast<std::size_t>(i)] = std::current_exception();
      next.store(rows);  // the others stop at their next run
    }
  };
  std::vector<std::thread> threads;
  try {
    for (int i = 1; i < n; ++i) threads.emplace_back(drain, i);
  } catch (const std::system_error&) {
    // No more threads to be had: those started and the caller's share the rows.
  }
  drain(0);
  for (std::thread& t : threads) t.join();
  for (const std::exception_ptr& e : errors)
    if (e) std::rethrow_exception(e);
}
