// Block encoder: 8 pixels (two bytes each, taken modulo 4096), a row parity, then register
// values within their table ranges.
//
// Under any register contents the encoder must finish and its code decode to 12-bit pixels. Under
// the default registers the decoded block stays within the maximum error mode selection saw for
// the selected mode. The DPCM cost's invariant (the minimum pixel codes 0) is checked by the
// codec itself and aborts; with the base adjustment of reg_dpcm_pmin_lsb_update_en the base can
// move above the minimum, but never by as much as one step minus the rounder, so the quotient
// still truncates to 0.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "codec/Compression1x8.h"
#include "fuzz/FuzzSupport.h"

namespace {

void checkRange(const Compression1x8& codec, fbc::BlockCode code, const int* px,
                const int* decoded) {
  for (int i = 0; i < 8; ++i) {
    if (decoded[i] < 0 || decoded[i] > 4095)
      fbc::fuzz::fail(
          "pixels %d %d %d %d %d %d %d %d: mode %d code 0x%016llx decodes pixel %d to %d", px[0],
          px[1], px[2], px[3], px[4], px[5], px[6], px[7], codec.SelectedMode,
          static_cast<unsigned long long>(code), i, decoded[i]);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 17) return 0;
  fbc::fuzz::ByteReader in(data, size);
  int px[8];
  for (int& p : px) p = in.u16() & 0xFFF;
  const bool parity = (in.byte() & 1) != 0;

  Compression1x8 reference("FBC", false);
  reference.setSWinit();
  reference.setEnable(true);
  const fbc::BlockCode code = reference.encodeBlock(px, parity);
  const int mode = reference.SelectedMode;
  const int bound = reference.modeCost(mode);
  int decoded[8];
  reference.decodeBlock(code, decoded);
  checkRange(reference, code, px, decoded);
  for (int i = 0; i < 8; ++i) {
    if (std::abs(decoded[i] - px[i]) > bound)
      fbc::fuzz::fail(
          "pixels %d %d %d %d %d %d %d %d parity %d: %s code 0x%016llx decodes pixel %d to %d, "
          "beyond the cost %d",
          px[0], px[1], px[2], px[3], px[4], px[5], px[6], px[7], parity ? 1 : 0,
          fbc::kModeNames[mode], static_cast<unsigned long long>(code), i, decoded[i], bound);
  }

  if (in.empty()) return 0;
  Compression1x8 codec("FBC", false);
  codec.setSWinit();
  codec.setEnable(true);
  fbc::fuzz::drawRegisters(codec, in);
  const fbc::BlockCode drawn = codec.encodeBlock(px, parity);
  codec.decodeBlock(drawn, decoded);
  checkRange(codec, drawn, px, decoded);
  return 0;
}
