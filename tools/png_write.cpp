// PNG encoding with libpng into memory, base64 and gzip with zlib.
#include "tools/png_write.h"

#include <png.h>
#include <zlib.h>

#include "tools/cli.h"

namespace fbc::cli {

namespace {

void appendBytes(png_structp png, png_bytep data, png_size_t n) {
  auto* out = static_cast<std::vector<unsigned char>*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + n);
}

void noFlush(png_structp) {}

}  // namespace

std::vector<unsigned char> encodePng(int width, int height, int channels,
                                     const std::vector<unsigned char>& samples) {
  std::vector<unsigned char> out;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    failure("PNG: out of memory");
  }
  std::vector<png_bytep> rows(static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y)
    rows[static_cast<std::size_t>(y)] =
        const_cast<png_bytep>(samples.data() + static_cast<std::size_t>(y) * width * channels);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    failure("PNG: encoding failed");
  }
  png_set_write_fn(png, &out, appendBytes, noFlush);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
               channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_rows(png, info, rows.data());
  png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
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

}  // namespace fbc::cli
