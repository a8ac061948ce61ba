// Frame-level drivers: compress a 12-bit frame into a frame of block-code bytes (one byte per
// pixel, each block's 8 bytes at its own 8 columns), decompress it back into 16-bit pixels
// (12-bit value in the top bits), and write the golden reference files a hardware
// implementation is checked against.
#include <algorithm>
#include <cstdio>
#include <new>
#include <string>
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
bool plain(const Frame& f) { return f.offsetX == 0 && f.offsetY == 0 && f.data != nullptr; }

// Without golden files and on plain frames, whole rows go through the fast path.
void compressRowsFast(Compression1x8& codec, const Frame& in, Frame& out, int cfa) {
    const CodecVariant* variant = activeVariant();
    FastEncoder encoder(codec, variant);
    std::vector<BlockCode> codes(static_cast<std::size_t>((in.width + 7) / 8));
    const int bytes = static_cast<int>(8 * codes.size());
    for (int y = 0; y < in.height; ++y) {
        const bool parity = Compression1x8::rowParity(y, cfa);
        encoder.encodeRow(in.data + static_cast<std::size_t>(y) * in.width, in.width, parity, codes.data());
        PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width;
        if (variant) {
            // Codes are stored little-endian: their bytes in memory are the frame's bytes.
            variant->widenBytes(reinterpret_cast<const unsigned char*>(codes.data()), bytes, dst);
        } else {
            for (std::size_t b = 0; b < codes.size(); ++b)
                for (int k = 0; k < 8; ++k) dst[8 * b + k] = static_cast<int>((codes[b] >> (8 * k)) & 0xFF);
        }
    }
}

constexpr std::size_t kStreamBytes = std::size_t{8} << 20;

void decompressRowsFast(Compression1x8& codec, const Frame& in, Frame& out) {
    const CodecVariant* variant = activeVariant();
    FastDecoder decoder(codec, variant);
    // A decoded frame much larger than the caches is written past them: its lines are not read
    // before being overwritten, nor soon after.
    decoder.setStreaming(out.size() * sizeof(PIXEL) > kStreamBytes);
    // A narrower output keeps the left part of each decoded row. The input's width is a
    // multiple of 8: every code is whole.
    const bool direct = out.width >= in.width;
    std::vector<PIXEL> px(direct ? 0 : static_cast<std::size_t>(in.width));
    const int n = direct ? in.width : out.width;
    for (int y = 0; y < in.height; ++y) {
        const PIXEL* src = in.data + static_cast<std::size_t>(y) * in.width;
        PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width;
        if (direct) {
            decoder.decodeRow(src, in.width, dst);
        } else {
            decoder.decodeRow(src, in.width, px.data());
            std::copy(px.begin(), px.begin() + n, dst);
        }
    }
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
    // Instrumented blocks (trace, coverage) are coded on the reference path.
    if (!dump && !instrumented() && plain(in) && width > 0 && height > 0 && plain(out) && out.width >= ((width + 7) & ~7) &&
        out.height >= height) {
        compressRowsFast(*this, in, out, cfa);
        return;
    }
    const std::string stem = getNameLower();
    File inputLines(dump ? goldenPath(m_outputDir, stem, "golden_ref_com_input", frameIndex, "txt") : "", "w");
    File raw(dump ? goldenPath(m_outputDir, stem, "com_input", frameIndex, "raw") : "", "wb");

    // Working copy of the input, row-major, as the hardware's line buffer sees it.
    std::vector<int> work(static_cast<std::size_t>(width > 0 && height > 0 ? width : 0) * (height > 0 ? height : 0));
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

    const bool direct = plain(out) && out.width >= ((width + 7) & ~7) && out.height >= height;
    for (int y = 0; y < height; ++y) {
        const bool parity = rowParity(y, cfa);
        const int* row = work.data() + static_cast<std::size_t>(y) * width;
        for (int x = 0; x < width; x += 8) {
            int block[8] = {0, 0, 0, 0, 0, 0, 0, 0};  // a short last block is padded with zeros
            const int n = width - x < 8 ? width - x : 8;
            for (int k = 0; k < n; ++k) block[k] = row[x + k];
            const BlockCode code = encodeBlock(block, parity);
            if (inputLines.f) {
                std::fprintf(inputLines.f, "%03x_%03x_%03x_%03x_%03x_%03x_%03x_%03x\n", block[7], block[6],
                             block[5], block[4], block[3], block[2], block[1], block[0]);
            }
            if (direct) {
                PIXEL* dst = out.data + static_cast<std::size_t>(y) * out.width + x;
                for (int k = 0; k < 8; ++k) dst[k] = static_cast<int>((code >> (8 * k)) & 0xFF);
            } else {
                for (int k = 0; k < 8; ++k) out.GetPixel(x + k, y) = static_cast<int>((code >> (8 * k)) & 0xFF);
            }
        }
    }
    if (dump) {
        DataDumper::dumpNByteAlignedData(goldenPath(m_outputDir, stem, "golden_ref_com", frameIndex, "txt").c_str(),
                                         out, 8, 8);
    }
}

void Compression1x8::DecompressFrame(const Frame& in, Frame& out, int frameIndex) {
    if (Enable == 0) {
        out = in;
        return;
    }
    const bool dump = m_dumpLevel >= 1 && frameIndex >= 0;
    const std::string stem = getNameLower();
    File inputLines(dump ? goldenPath(m_outputDir, stem, "golden_ref_dec_input", frameIndex, "txt") : "", "w");

    const bool directIn = plain(in) && (in.width & 7) == 0;
    const bool directOut = plain(out) && out.height >= in.height;
    if (!dump && !instrumented() && directIn && directOut) {
        decompressRowsFast(*this, in, out);
        return;
    }
    for (int y = 0; y < in.height; ++y) {
        for (int x = 0; x < in.width; x += 8) {
            unsigned char bytes[8];
            if (directIn) {
                const PIXEL* src = in.data + static_cast<std::size_t>(y) * in.width + x;
                for (int k = 0; k < 8; ++k) bytes[k] = static_cast<unsigned char>(src[k]);
            } else {
                for (int k = 0; k < 8; ++k) bytes[k] = static_cast<unsigned char>(in.GetPixel(x + k, y));
            }
            if (inputLines.f) {
                std::fprintf(inputLines.f, "%02x_%02x_%02x_%02x_%02x_%02x_%02x_%02x\n", bytes[7], bytes[6],
                             bytes[5], bytes[4], bytes[3], bytes[2], bytes[1], bytes[0]);
            }
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
    if (dump) {
        DataDumper::dumpNByteAlignedData(goldenPath(m_outputDir, stem, "golden_ref_dec", frameIndex, "txt").c_str(),
                                         out, 12, 12);
    }
}

void Compression1x8::DecompressFrame(unsigned char* in, unsigned short* out, int width, int height, int) {
    if (height <= 0 || width <= 0) return;
    if (Enable == 0) {
        const std::size_t n = static_cast<std::size_t>(width) * height;
        for (std::size_t i = 0; i < n; ++i) out[i] = in[i];
        return;
    }
    decompressRows(in, out, width, 0, height);
}

void Compression1x8::decompressRows(const unsigned char* in, unsigned short* out, int width, int rowBegin,
                                    int rowEnd) {
    // The compressed row stride is the width, not the width rounded up to 8: the last block of a
    // short row reads its missing bytes from the start of the next row (on the last row, up to 7
    // bytes past the buffer's nominal end) and keeps only the pixels inside the row.
    FastDecoder decoder(*this, instrumented() ? nullptr : activeVariant());
    for (int r = rowBegin; r < rowEnd; ++r)
        decoder.decodeRow(in + static_cast<std::size_t>(r) * width, width, out + static_cast<std::size_t>(r) * width);
}
