// The fast path against the reference: every vector variant this CPU runs must encode the
// input's row of pixels and decode its row of codes exactly as the reference does, into 16-bit
// samples, 32-bit samples and from a compressed frame's samples, writing nothing past the row.
//
// Input: the row's length (1 + byte % 40 blocks), a byte whose bit 0 is the row parity and whose
// bits 1..3 shorten the last block, two bytes per pixel (taken modulo 4096), eight bytes per
// code, then register values within their table ranges (the defaults when the input ends first).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"
#include "fuzz/FuzzSupport.h"

namespace {

constexpr int kGuard = 8;  // elements past the row, poisoned, that no kernel may write

template <class T>
void checkDecoded(const char* variant, const char* output, const std::vector<T>& have,
                  const std::vector<int>& want, const std::vector<unsigned char>& codes, T poison) {
  const int width = static_cast<int>(want.size());
  for (int i = 0; i < width + kGuard; ++i) {
    const long long expected = i < width ? want[i] : static_cast<long long>(poison);
    if (static_cast<long long>(have[i]) == expected) continue;
    const std::uint64_t code = fbc::loadCode(&codes[8 * ((i < width ? i : width - 1) / 8)]);
    fbc::fuzz::fail("decode[%s] %s, %d pixels: element %d is %lld, reference %lld (code 0x%016llx)",
                    variant, output, width, i, static_cast<long long>(have[i]), expected,
                    static_cast<unsigned long long>(code));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  fbc::fuzz::ByteReader in(data, size);
  const int blocks = 1 + in.byte() % 40;
  const int flags = in.byte();
  const bool parity = (flags & 1) != 0;
  const int width = 8 * blocks - (flags >> 1) % 8;
  std::vector<int> px(static_cast<std::size_t>(blocks) * 8, 0);  // a short block padded with zeros
  for (int i = 0; i < width; ++i) px[i] = in.u16() & 0xFFF;
  std::vector<unsigned char> codes(static_cast<std::size_t>(blocks) * 8);
  for (unsigned char& b : codes) b = in.byte();

  Compression1x8 codec("FBC", false);
  codec.setSWinit();
  codec.setEnable(true);
  if (!in.empty()) fbc::fuzz::drawRegisters(codec, in);

  std::vector<fbc::BlockCode> ref(blocks);
  std::vector<int> want(width);
  for (int b = 0; b < blocks; ++b) {
    ref[b] = codec.encodeBlock(&px[8 * b], parity);
    int out[8];
    codec.decodeBlock(fbc::loadCode(&codes[8 * b]), out);
    for (int i = 0; i < 8 && 8 * b + i < width; ++i) want[8 * b + i] = out[i] << 4;
  }
  const std::vector<std::int32_t> samples(codes.begin(), codes.end());

  for (const fbc::CodecVariant& v : fbc::supportedVariants()) {
    const fbc::BlockCode poisonCode = 0xBFFFFFFFFFFFFFFFull;
    std::vector<fbc::BlockCode> got(blocks + kGuard, poisonCode);
    fbc::FastEncoder(codec, &v).encodeRow(px.data(), width, parity, got.data());
    for (int b = 0; b < blocks + kGuard; ++b) {
      const fbc::BlockCode expected = b < blocks ? ref[b] : poisonCode;
      if (got[b] == expected) continue;
      const int* p = &px[8 * (b < blocks ? b : blocks - 1)];
      fbc::fuzz::fail(
          "encode[%s], %d pixels, parity %d: code %d is 0x%016llx, reference 0x%016llx "
          "(pixels %d %d %d %d %d %d %d %d)",
          v.name, width, parity ? 1 : 0, b, static_cast<unsigned long long>(got[b]),
          static_cast<unsigned long long>(expected), p[0], p[1], p[2], p[3], p[4], p[5], p[6],
          p[7]);
    }
    const std::uint16_t poison16 = 0xA5A5;
    const std::int32_t poison32 = static_cast<std::int32_t>(0xA5A5A5A5u);
    std::vector<std::uint16_t> have16(width + kGuard, poison16);
    std::vector<std::int32_t> have32(width + kGuard, poison32), haveFrame(width + kGuard, poison32);
    fbc::FastDecoder(codec, &v).decodeRow(codes.data(), width, have16.data());
    fbc::FastDecoder(codec, &v).decodeRow(codes.data(), width, have32.data());
    fbc::FastDecoder(codec, &v).decodeRow(samples.data(), width, haveFrame.data());
    checkDecoded(v.name, "16-bit", have16, want, codes, poison16);
    checkDecoded(v.name, "32-bit", have32, want, codes, poison32);
    checkDecoded(v.name, "frame samples", haveFrame, want, codes, poison32);
  }
  return 0;
}
