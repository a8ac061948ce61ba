#include "image/Png.h"

#if FBC_HAVE_LIBPNG
#include <png.h>
#endif

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <new>
#include <stdexcept>

#include "image/ParsePPM.h"

namespace fbc {

namespace {

constexpr int kToolDepth = 12;

#if FBC_HAVE_LIBPNG
// libpng reports through callbacks; an error must not return to it, so the callback keeps the
// message and jumps back to the setjmp of the call that started the work. Everything the jump
// crosses is libpng's C code: no C++ object is skipped.
struct PngStatus {
  char message[200] = "";
};

void onPngError(png_structp png, png_const_charp message) {
  auto* status = static_cast<PngStatus*>(png_get_error_ptr(png));
  std::snprintf(status->message, sizeof status->message, "%s", message);
  png_longjmp(png, 1);
}

void onPngWarning(png_structp, png_const_charp) {}

// What the reader learns and fills, kept outside the frame that calls setjmp.
struct ReadJob {
  std::FILE* file = nullptr;
  png_structp png = nullptr;
  png_infop info = nullptr;
  PngImage* image = nullptr;
  std::vector<unsigned char>* bytes = nullptr;
  std::vector<png_bytep>* rows = nullptr;
};

// Header and transformations: every colour type ends as grey or RGB of 8 or 16 bits.
bool readHeader(ReadJob* job) {
  if (setjmp(png_jmpbuf(job->png))) return false;
  png_init_io(job->png, job->file);
  png_set_sig_bytes(job->png, 8);
  png_read_info(job->png, job->info);
  const png_byte colour = png_get_color_type(job->png, job->info);
  if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(job->png);
  if (colour == PNG_COLOR_TYPE_GRAY && png_get_bit_depth(job->png, job->info) < 8) {
    png_set_expand_gray_1_2_4_to_8(job->png);
  }
  // Expanding a palette or a small grey turns a transparency chunk into alpha; strip it too.
  if ((colour & PNG_COLOR_MASK_ALPHA) != 0 ||
      png_get_valid(job->png, job->info, PNG_INFO_tRNS) != 0) {
    png_set_strip_alpha(job->png);
  }
  png_set_interlace_handling(job->png);
  png_read_update_info(job->png, job->info);
  job->image->width = static_cast<int>(png_get_image_width(job->png, job->info));
  job->image->height = static_cast<int>(png_get_image_height(job->png, job->info));
  job->image->channels = png_get_channels(job->png, job->info);
  job->image->bitDepth = png_get_bit_depth(job->png, job->info);
  return true;
}

bool readBody(ReadJob* job) {
  if (setjmp(png_jmpbuf(job->png))) return false;
  png_read_image(job->png, job->rows->data());
  png_read_end(job->png, nullptr);
  return true;
}

// Appends what libpng writes to a string.
void appendToString(png_structp png, png_bytep data, png_size_t size) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), size);
}
void flushNothing(png_structp) {}

struct WriteJob {
  png_structp png = nullptr;
  png_infop info = nullptr;
  const PngImage* image = nullptr;
  int significantBits = 0;
  std::string* out = nullptr;
  std::vector<png_bytep>* rows = nullptr;
};

bool writeAll(WriteJob* job) {
  if (setjmp(png_jmpbuf(job->png))) return false;
  const PngImage& image = *job->image;
  png_set_write_fn(job->png, job->out, appendToString, flushNothing);
  png_set_IHDR(job->png, job->info, static_cast<png_uint_32>(image.width),
               static_cast<png_uint_32>(image.height), image.bitDepth,
               image.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (job->significantBits < image.bitDepth) {
    png_color_8 bits{};
    bits.red = bits.green = bits.blue = bits.gray = static_cast<png_byte>(job->significantBits);
    png_set_sBIT(job->png, job->info, &bits);
  }
  png_write_info(job->png, job->info);
  png_write_image(job->png, job->rows->data());
  png_write_end(job->png, nullptr);
  return true;
}
#endif

// Bits b of a maxval 2^b - 1, or 0 when maxval is no such number.
int bitsOfMaxval(int maxval) {
  for (int b = 1; b <= 16; ++b) {
    if (maxval == (1 << b) - 1) return b;
  }
  return 0;
}

// Values of b bits limited to 0..2^b - 1 and widened to the file's 8 or 16 bits.
PngImage widened(int width, int height, int channels, const int* values, int maxval) {
  const int bits = std::max(bitsOfMaxval(maxval), 1);
  PngImage image{width, height, channels, bits <= 8 ? 8 : 16, {}};
  const std::size_t count =
      static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * channels;
  image.samples.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned v = static_cast<unsigned>(std::min(std::max(values[i], 0), (1 << bits) - 1));
    unsigned wide = 0;
    for (int shift = image.bitDepth - bits; shift > -bits; shift -= bits) {
      wide |= shift >= 0 ? v << shift : v >> -shift;
    }
    image.samples[i] = static_cast<std::uint16_t>(wide);
  }
  return image;
}

std::string widenedBytes(int width, int height, int channels, const int* values, int maxval) {
  const int bits = std::max(bitsOfMaxval(maxval), 1);
  return pngBytes(widened(width, height, channels, values, maxval), bits);
}

bool loadPng(const std::string& path, int cfa, Frame& frame, std::string& error) {
  PngImage image;
  if (!readPng(path, image, error)) return false;
  const unsigned maxval = image.bitDepth == 16 ? 65535 : 255;
  std::vector<std::uint16_t> scaled(image.samples.size());
  for (std::size_t i = 0; i < scaled.size(); ++i)
    scaled[i] = scalePnmSample(image.samples[i], maxval, kToolDepth);
  if (image.channels == 1) {
    Frame f(image.width, image.height, Frame::CS_RAW, kToolDepth);
    std::copy(scaled.begin(), scaled.end(), f.data);
    frame = std::move(f);
  } else {
    Frame f(image.width, image.height, Frame::CS_RAW, kToolDepth, static_cast<CFA_TYPE_HW>(cfa));
    mosaicFromRgb(scaled.data(), image.width, cfa, f);
    frame = std::move(f);
  }
  return true;
}

}  // namespace

#if !FBC_HAVE_LIBPNG
// A build without libpng (a cross build for a target without it): every PNG read or write is
// refused with one line.
constexpr const char* kNoPng = "PNG pictures need libpng, which this build of fbc was made without";

bool readPng(const std::string& path, PngImage&, std::string& error) {
  error = path + ": " + kNoPng;
  return false;
}

bool isColourPng(const std::string&) {
  return false;
}

std::string pngBytes(const PngImage&, int) {
  throw std::runtime_error(kNoPng);
}
#else
bool readPng(const std::string& path, PngImage& image, std::string& error) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    error = path + ": cannot open file (" + std::strerror(errno) + ")";
    return false;
  }
  unsigned char signature[8] = {};
  if (std::fread(signature, 1, 8, file) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    std::fclose(file);
    error = path + ": not a PNG file";
    return false;
  }
  PngStatus status;
  PngImage result;
  std::vector<unsigned char> bytes;
  std::vector<png_bytep> rows;
  ReadJob job{file, nullptr, nullptr, &result, &bytes, &rows};
  job.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &status, onPngError, onPngWarning);
  if (job.png != nullptr) job.info = png_create_info_struct(job.png);
  bool ok = job.info != nullptr;
  if (!ok) std::snprintf(status.message, sizeof status.message, "out of memory");
  if (ok) ok = readHeader(&job);
  if (ok) {
    ok = checkPictureSize(path, result.width, result.height, result.channels, error);
    if (!ok) status.message[0] = '\0';
  }
  if (ok) {
    const std::size_t rowBytes =
        static_cast<std::size_t>(result.width) * result.channels * (result.bitDepth / 8);
    bytes.resize(rowBytes * static_cast<std::size_t>(result.height));
    rows.resize(static_cast<std::size_t>(result.height));
    for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = bytes.data() + y * rowBytes;
    ok = readBody(&job);
  }
  png_destroy_read_struct(job.png != nullptr ? &job.png : nullptr,
                          job.info != nullptr ? &job.info : nullptr, nullptr);
  const bool ended = std::feof(file) != 0;
  std::fclose(file);
  if (!ok) {
    if (status.message[0] != '\0') {
      error = path + ": damaged PNG file (" +
              (ended ? std::string("it ends early") : status.message) + ")";
    }
    return false;
  }
  // 16-bit samples are stored most significant byte first.
  const std::size_t count =
      static_cast<std::size_t>(result.width) * result.height * result.channels;
  result.samples.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    result.samples[i] = result.bitDepth == 16
                            ? static_cast<std::uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1])
                            : bytes[i];
  }
  image = std::move(result);
  return true;
}

bool isColourPng(const std::string& path) {
  // The signature (8 bytes), then the IHDR chunk: length, type, width, height, bit depth and
  // the colour type at byte 25, whose bit 1 marks colour.
  unsigned char head[26] = {};
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;
  const bool whole = std::fread(head, 1, sizeof head, file) == sizeof head;
  std::fclose(file);
  return whole && png_sig_cmp(head, 0, 8) == 0 && (head[25] & PNG_COLOR_MASK_COLOR) != 0;
}

std::string pngBytes(const PngImage& image, int significantBits) {
  const int bytesPerSample = image.bitDepth / 8;
  const std::size_t rowBytes =
      static_cast<std::size_t>(image.width) * image.channels * bytesPerSample;
  std::vector<unsigned char> bytes(rowBytes * static_cast<std::size_t>(image.height));
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    if (bytesPerSample == 2) {
      bytes[2 * i] = static_cast<unsigned char>(image.samples[i] >> 8);
      bytes[2 * i + 1] = static_cast<unsigned char>(image.samples[i] & 0xFF);
    } else {
      bytes[i] = static_cast<unsigned char>(image.samples[i]);
    }
  }
  std::vector<png_bytep> rows(static_cast<std::size_t>(image.height));
  for (std::size_t y = 0; y < rows.size(); ++y) rows[y] = bytes.data() + y * rowBytes;
  PngStatus status;
  std::string out;
  WriteJob job{nullptr, nullptr, &image, significantBits, &out, &rows};
  job.png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &status, onPngError, onPngWarning);
  if (job.png != nullptr) job.info = png_create_info_struct(job.png);
  const bool ok = job.info != nullptr && writeAll(&job);
  png_destroy_write_struct(job.png != nullptr ? &job.png : nullptr,
                           job.info != nullptr ? &job.info : nullptr);
  // Only an exhausted memory fails here: sizes and depths are the caller's valid ones.
  if (!ok) throw std::bad_alloc();
  return out;
}
#endif

std::string pngGreyBytes(const Frame& frame, int maxval) {
  return widenedBytes(frame.width, frame.height, 1, frame.data, maxval);
}

std::string pngRgbBytes(const RgbImage& image, int maxval) {
  return widenedBytes(image.width, image.height, 3, image.rgb.data(), maxval);
}

bool loadPictureOrPng(const std::string& path, const PictureOptions& options, Frame& frame,
                      std::string& error) {
  const std::string ext = pictureExtension(path);
  if (ext != ".png" && ext != ".ppm" && ext != ".pgm" && ext != ".raw") {
    error = path + ": unknown picture type \"" + ext + "\" (expected .png, .ppm, .pgm or .raw)";
    return false;
  }
  if (ext != ".png") return loadPicture(path, options, frame, error);
  if (options.cfa < 0 || options.cfa > 3) {
    error = path + ": CFA layout " + std::to_string(options.cfa) + " is out of range (0..3)";
    return false;
  }
  return loadPng(path, options.cfa, frame, error);
}

}  // namespace fbc
