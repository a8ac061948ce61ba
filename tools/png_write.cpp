// PNG pictures in memory (the tool's one PNG writer, image/Png.h), base64 and gzip with zlib.
#include "tools/png_write.h"

#if FBC_HAVE_ZLIB
#include <zlib.h>
#endif

#include <cstdint>

#include "image/Png.h"
#include "tools/cli.h"

namespace fbc::cli {

std::vector<unsigned char> encodePng(int width, int height, int channels,
                                     const std::vector<unsigned char>& samples) {
  const PngImage image{width, height, channels, 8,
                       std::vector<std::uint16_t>(samples.begin(), samples.end())};
  const std::string bytes = pngBytes(image, 8);
  return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

std::string base64(const std::vector<unsigned char>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string s;
  s.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned v = (bytes[i] << 16) | (i + 1 < bytes.size() ? bytes[i + 1] << 8 : 0) |
                       (i + 2 < bytes.size() ? bytes[i + 2] : 0);
    s += kDigits[(v >> 18) & 63];
    s += kDigits[(v >> 12) & 63];
    s += i + 1 < bytes.size() ? kDigits[(v >> 6) & 63] : '=';
    s += i + 2 < bytes.size() ? kDigits[v & 63] : '=';
  }
  return s;
}

#if !FBC_HAVE_ZLIB
// A build without zlib (a cross build for a target without it) cannot compress.
std::vector<unsigned char> gzip(const std::string&) {
  failure("gzip needs zlib, which this build of fbc was made without");
}
#else
std::vector<unsigned char> gzip(const std::string& text) {
  z_stream z{};
  // windowBits 15 + 16: a gzip header and trailer around the deflate stream.
  if (deflateInit2(&z, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK)
    failure("gzip: out of memory");
  std::vector<unsigned char> out(deflateBound(&z, text.size()) + 64);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = out.data();
  z.avail_out = static_cast<uInt>(out.size());
  const int rc = deflate(&z, Z_FINISH);
  deflateEnd(&z);
  if (rc != Z_STREAM_END) failure("gzip: compression failed");
  out.resize(z.total_out);
  return out;
}
#endif

}  // namespace fbc::cli
