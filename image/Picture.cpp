#include "image/Picture.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>

#include "image/ParsePPM.h"

namespace fbc {

namespace {

constexpr int kToolDepth = 12;
constexpr int kToolMax = (1 << kToolDepth) - 1;

bool loadPpm(const std::string& path, const PictureOptions& options, Frame& frame,
             std::string& error) {
  int width = 0;
  int height = 0;
  std::vector<std::uint16_t> rgb;
  if (!parsePPM(path, kToolDepth, width, height, rgb, error)) return false;
  Frame f(width, height, Frame::CS_RAW, kToolDepth, static_cast<CFA_TYPE_HW>(options.cfa));
  mosaicFromRgb(rgb.data(), width, options.cfa, f);
  frame = std::move(f);
  return true;
}

bool loadPgm(const std::string& path, Frame& frame, std::string& error) {
  PnmImage image;
  if (!parsePnm(path, true, image, error)) return false;
  if (image.channels != 1) {
    error = path + ": expected a grey picture (P2 or P5), found " + image.magic;
    return false;
  }
  Frame f(image.width, image.height, Frame::CS_RAW, kToolDepth);
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    f.data[i] = scalePnmSample(image.samples[i], image.maxval, kToolDepth);
  }
  frame = std::move(f);
  return true;
}

bool loadRaw(const std::string& path, const PictureOptions& options, Frame& frame,
             std::string& error) {
  if (options.width <= 0 || options.height <= 0) {
    error = path + ": a raw picture needs a width and a height";
    return false;
  }
  if (options.rawMode < kRawPlain16 || options.rawMode > 4) {
    error =
        path + ": raw packing mode " + std::to_string(options.rawMode) + " is out of range (0..4)";
    return false;
  }
  if (!checkPictureSize(path, options.width, options.height, 1, error)) return false;
  std::error_code ec;
  const auto fileSize = std::filesystem::file_size(path, ec);
  if (ec) {
    error = path + ": cannot open file (" + ec.message() + ")";
    return false;
  }
  const unsigned long long expected = 2ULL * static_cast<unsigned long long>(options.width) *
                                      static_cast<unsigned long long>(options.height);
  if (fileSize != expected) {
    error = path + ": size " + std::to_string(fileSize) + " bytes, expected " +
            std::to_string(expected) + " (" + std::to_string(options.width) + "x" +
            std::to_string(options.height) + " samples of 2 bytes)";
    return false;
  }
  std::vector<std::uint16_t> samples;
  const int mode = options.rawMode == kRawPlain16 ? 3 : options.rawMode;
  if (!parseRAW(path, options.width, options.height, mode, samples, error)) return false;
  if (!checkPlainSamples(path, samples.data(), options.width, samples.size(), error)) return false;
  Frame f(options.width, options.height, Frame::CS_RAW, kToolDepth,
          static_cast<CFA_TYPE_HW>(options.cfa));
  for (std::size_t i = 0; i < samples.size(); ++i) f.data[i] = samples[i];
  frame = std::move(f);
  return true;
}

int to8Bits(int v, int depth) {
  if (v <= 0) return 0;
  const int scaled = depth > 8 ? v >> std::min(depth - 8, 31) : v << std::min(8 - depth, 8);
  return std::min(std::max(scaled, 0), 255);
}

std::string pnmHeader(const char* magic, int width, int height, int maxval) {
  return std::string(magic) + "\n" + std::to_string(width) + " " + std::to_string(height) + "\n" +
         std::to_string(maxval) + "\n";
}

// Appends `count` samples limited to 0..maxval, one byte each up to 255, else two (high first).
void appendSamples(std::string& out, const int* values, std::size_t count, int maxval) {
  const bool wide = maxval > 255;
  out.reserve(out.size() + count * (wide ? 2 : 1));
  for (std::size_t i = 0; i < count; ++i) {
    const int c = std::min(std::max(values[i], 0), maxval);
    if (wide) out.push_back(static_cast<char>(c >> 8));
    out.push_back(static_cast<char>(c & 0xFF));
  }
}

bool checkRgb(const std::string& path, const RgbImage& image, std::string& error) {
  if (image.width < 0 || image.height < 0 ||
      image.rgb.size() !=
          3 * static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height)) {
    error = path + ": picture holds " + std::to_string(image.rgb.size()) +
            " values, expected 3 per pixel of " + std::to_string(image.width) + "x" +
            std::to_string(image.height);
    return false;
  }
  return true;
}

}  // namespace

bool checkPlainSamples(const std::string& path, const std::uint16_t* samples, int width,
                       std::size_t count, std::string& error) {
  std::uint16_t high = 0;
  for (std::size_t i = 0; i < count; ++i) high |= samples[i];
  if (high <= kToolMax) return true;
  for (std::size_t i = 0; i < count; ++i) {
    if (samples[i] > kToolMax) {
      const std::size_t x = i % static_cast<std::size_t>(width);
      const std::size_t y = i / static_cast<std::size_t>(width);
      error = path + ": sample " + std::to_string(samples[i]) + " at pixel (" + std::to_string(x) +
              ", " + std::to_string(y) + ") is above " + std::to_string(kToolMax);
      return false;
    }
  }
  return true;
}

bool loadPicture(const std::string& path, const PictureOptions& options, Frame& frame,
                 std::string& error) {
  if (options.cfa < 0 || options.cfa > 3) {
    error = path + ": CFA layout " + std::to_string(options.cfa) + " is out of range (0..3)";
    return false;
  }
  const std::string ext = pictureExtension(path);
  if (ext == ".ppm") return loadPpm(path, options, frame, error);
  if (ext == ".pgm") return loadPgm(path, frame, error);
  if (ext == ".raw") return loadRaw(path, options, frame, error);
  error = path + ": unknown picture type \"" + ext + "\" (expected .ppm, .pgm or .raw)";
  return false;
}

RgbImage greyImage(const Frame& frame) {
  RgbImage image;
  image.width = frame.width;
  image.height = frame.height;
  image.rgb.resize(frame.size() * 3);
  for (std::size_t i = 0; i < frame.size(); ++i) {
    image.rgb[3 * i] = image.rgb[3 * i + 1] = image.rgb[3 * i + 2] = frame.data[i];
  }
  return image;
}

std::string pictureExtension(const std::string& path) {
  std::string ext = std::filesystem::path(path).extension().string();
  for (char& ch : ext) ch = static_cast<char>(ch >= 'A' && ch <= 'Z' ? ch - 'A' + 'a' : ch);
  return ext;
}

std::string pgmBytes(const Frame& frame, int maxval) {
  std::string out = pnmHeader("P5", frame.width, frame.height, maxval);
  appendSamples(out, frame.data, frame.size(), maxval);
  return out;
}

std::string ppmBytes(const RgbImage& image, int maxval) {
  std::string out = pnmHeader("P6", image.width, image.height, maxval);
  appendSamples(out, image.rgb.data(), image.rgb.size(), maxval);
  return out;
}

bool writePgm16(const std::string& path, const Frame& frame, std::string& error) {
  return writeFileAtomically(path, pgmBytes(frame, 65535), error);
}

bool writePpm16(const std::string& path, const RgbImage& image, std::string& error) {
  return checkRgb(path, image, error) && writeFileAtomically(path, ppmBytes(image, 65535), error);
}

bool writePgm8(const std::string& path, const Frame& frame, int depth, std::string& error) {
  std::string out = pnmHeader("P5", frame.width, frame.height, 255);
  out.reserve(out.size() + frame.size());
  for (std::size_t i = 0; i < frame.size(); ++i)
    out.push_back(static_cast<char>(to8Bits(frame.data[i], depth)));
  return writeFileAtomically(path, out, error);
}

bool writePpm8(const std::string& path, const RgbImage& image, int depth, std::string& error) {
  if (!checkRgb(path, image, error)) return false;
  std::string out = pnmHeader("P6", image.width, image.height, 255);
  out.reserve(out.size() + image.rgb.size());
  for (int v : image.rgb) out.push_back(static_cast<char>(to8Bits(v, depth)));
  return writeFileAtomically(path, out, error);
}

// Three ramps of 255 steps each: red, then green, then blue, so the colour brightens
// monotonically from black through red and yellow to white.
void heatColour(int value, int maxValue, int rgb[3]) {
  const long long top = std::max(maxValue, 1);
  const long long v = std::min<long long>(std::max(value, 0), top);
  const long long level = v * 765 / top;  // 0..765
  rgb[0] = static_cast<int>(std::min<long long>(level, 255));
  rgb[1] = static_cast<int>(std::min<long long>(std::max<long long>(level - 255, 0), 255));
  rgb[2] = static_cast<int>(std::max<long long>(level - 510, 0));
}

RgbImage sideBySide(const RgbImage& left, const RgbImage& right, int gap) {
  RgbImage out;
  const int g = std::max(gap, 0);
  out.width = left.width + g + right.width;
  out.height = std::max(left.height, right.height);
  out.rgb.assign(3 * static_cast<std::size_t>(out.width) * static_cast<std::size_t>(out.height), 0);
  auto place = [&out](const RgbImage& part, int x0) {
    for (int y = 0; y < part.height; ++y) {
      const auto src = part.rgb.begin() + 3 * static_cast<std::ptrdiff_t>(y) * part.width;
      const auto dst = out.rgb.begin() + 3 * (static_cast<std::ptrdiff_t>(y) * out.width + x0);
      std::copy(src, src + 3 * static_cast<std::ptrdiff_t>(part.width), dst);
    }
  };
  place(left, 0);
  place(right, left.width + g);
  return out;
}

namespace {

namespace fs = std::filesystem;

// The file a name stands for: the name itself, or the end of its chain of symbolic links (the
// end need not exist yet). A loop of links is left to the open that follows to report.
fs::path followLinks(const fs::path& name) {
  fs::path at = name;
  for (int hops = 0; hops < 40; ++hops) {
    std::error_code ec;
    if (!fs::is_symlink(fs::symlink_status(at, ec))) return at;
    const fs::path next = fs::read_symlink(at, ec);
    if (ec) return at;
    at = next.is_absolute() ? next : at.parent_path() / next;
  }
  return at;
}

// Six letters or digits that no other writer is likely to draw at the same moment; the exclusive
// open below makes a clash a retry, not a collision.
std::string uniqueSuffix() {
  static const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  thread_local std::mt19937_64 gen{(static_cast<std::uint64_t>(std::random_device{}()) << 32) ^
                                   std::random_device{}()};
  std::string s(6, 'x');
  for (char& c : s) c = kAlphabet[gen() % (sizeof kAlphabet - 1)];
  return s;
}

}  // namespace

OutputFile::~OutputFile() {
  discard();
}

void OutputFile::discard() {
  if (fp_ != nullptr) std::fclose(fp_);
  fp_ = nullptr;
  if (!temp_.empty()) std::remove(temp_.c_str());
  temp_.clear();
}

bool OutputFile::open(const std::string& path, std::string& error) {
  discard();
  path_ = path;
  const fs::path target = followLinks(path);
  target_ = target.string();
  std::error_code ec;
  const fs::file_status status = fs::status(target, ec);
  if (fs::is_directory(status)) {
    error = path + ": cannot create file (Is a directory)";
    return false;
  }
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    fp_ = std::fopen(target_.c_str(), "wb");
    if (fp_ == nullptr) {
      error = path + ": cannot open for writing (" + std::strerror(errno) + ")";
      return false;
    }
    return true;
  }
  // "x": created here or not at all (EEXIST), so a name another writer drew is never shared.
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string temp = target_ + "." + uniqueSuffix() + ".part";
    fp_ = std::fopen(temp.c_str(), "wbx");
    if (fp_ != nullptr) {
      temp_ = std::move(temp);
      return true;
    }
    if (errno != EEXIST) break;
  }
  error = path + ": cannot create file (" + std::strerror(errno) + ")";
  return false;
}

bool OutputFile::write(const void* data, std::size_t size, std::string& error) {
  if (fp_ != nullptr && std::fwrite(data, 1, size, fp_) == size) return true;
  error = path_ + ": write failed (" + std::strerror(errno) + ")";
  discard();
  return false;
}

bool OutputFile::commit(std::string& error) {
  const bool closed = fp_ != nullptr && std::fclose(fp_) == 0;
  fp_ = nullptr;
  if (!closed) {
    error = path_ + ": write failed (" + std::strerror(errno) + ")";
    discard();
    return false;
  }
  if (!temp_.empty() && std::rename(temp_.c_str(), target_.c_str()) != 0) {
    error = path_ + ": cannot replace file (" + std::strerror(errno) + ")";
    discard();
    return false;
  }
  temp_.clear();
  return true;
}

bool writeFileAtomically(const std::string& path, const void* data, std::size_t size,
                         std::string& error) {
  OutputFile file;
  return file.open(path, error) && file.write(data, size, error) && file.commit(error);
}

}  // namespace fbc
