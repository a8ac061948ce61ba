#include "codec/FBC_dll.h"

#include <cstdint>
#include <cstdio>

#include "codec/Compression1x8.h"

namespace {

// The register defaults and enable of the library entry.
void prepare(Compression1x8& codec) {
  codec.Enable = 1;
  codec.m_dumpLevel = 0;
  codec.setSWinit();
}

}  // namespace

extern "C" FBC_EXPORT int FBD_Execute(unsigned char* compressed, unsigned short* out, int width,
                                      int height) {
  Compression1x8 codec("FBC", false);
  std::puts("FBD start... r4_k9_v1.6");
  std::puts("FBD in process...");
  prepare(codec);
  codec.DecompressFrame(compressed, out, width, height, 0);
  std::puts("FBD end!");
  return 1;
}

extern "C" FBC_EXPORT int FBD_ExecuteChecked(const unsigned char* compressed,
                                             size_t compressed_size, unsigned short* out,
                                             size_t out_count, int width, int height) {
  if (compressed == nullptr || out == nullptr) return FBD_ERR_NULL;
  if (width <= 0 || height <= 0) return FBD_ERR_SIZE;
  const unsigned long long pixels =
      static_cast<unsigned long long>(width) * static_cast<unsigned long long>(height);
  if (pixels > static_cast<unsigned long long>(PTRDIFF_MAX) / sizeof(unsigned short))
    return FBD_ERR_SIZE;
  if (out_count < pixels) return FBD_ERR_OUT_TOO_SMALL;
  const unsigned long long overRead = static_cast<unsigned long long>((8 - width % 8) % 8);
  if (compressed_size < pixels + overRead) return FBD_ERR_IN_TOO_SMALL;
  Compression1x8 codec("FBC", false);
  prepare(codec);
  codec.decompressRows(compressed, out, width, 0, height);
  return FBD_OK;
}
