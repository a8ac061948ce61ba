// Block decoder under arbitrary register contents: 8 code bytes (little-endian, as stored in a
// frame), then the register values. Whatever the code and the registers, every decoded pixel is
// a 12-bit value.
#include <cstddef>
#include <cstdint>

#include "codec/Compression1x8.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 8) return 0;
  const fbc::BlockCode code = fbc::loadCode(data);
  fbc::fuzz::ByteReader in(data + 8, size - 8);
  Compression1x8 codec("FBC", false);
  codec.setSWinit();
  codec.setEnable(true);
  fbc::fuzz::drawRegisters(codec, in);

  int px[8];
  codec.decodeBlock(code, px);
  for (int i = 0; i < 8; ++i) {
    if (px[i] < 0 || px[i] > 4095)
      fbc::fuzz::fail("code 0x%016llx (mode %s, curve %d) decodes pixel %d to %d",
                      static_cast<unsigned long long>(code), fbc::kModeNames[fbc::modeOfCode(code)],
                      codec.reg_curve_mode_en, i, px[i]);
  }
  return 0;
}
