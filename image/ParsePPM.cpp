#include "image/ParsePPM.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

const unsigned char bayer_p[4][2][2] = {
    {{0, 1}, {3, 2}},  // RGGB
    {{1, 0}, {2, 3}},  // GRBG
    {{2, 3}, {1, 0}},  // BGGR
    {{3, 2}, {0, 1}},  // GBRG
};

namespace {

bool isTokenChar(int ch) {
  return (ch >= '0' && ch <= '9') || (ch >= 'A' && ch <= 'Z') || (ch >= 'a' && ch <= 'z');
}

// The one token scanner, over any character source returning -1 at the end.
template <class NextChar>
std::string scanToken(NextChar next) {
  std::string token;
  for (;;) {
    int ch = next();
    if (ch < 0) return token;
    if (isTokenChar(ch)) {
      token.push_back(static_cast<char>(ch));
      continue;
    }
    if (ch == '#') {
      do {
        ch = next();
      } while (ch >= 0 && ch != '\n');
      if (!token.empty() || ch < 0) return token;
      continue;
    }
    if (!token.empty()) return token;
  }
}

// Read position in a file held in memory.
struct Cursor {
  const std::vector<unsigned char>& bytes;
  std::size_t pos = 0;
  bool atEnd() const { return pos >= bytes.size(); }
  int next() { return atEnd() ? -1 : bytes[pos++]; }
  std::string token() {
    return scanToken([this] { return next(); });
  }
};

bool readFile(const std::string& path, std::vector<unsigned char>& bytes, std::string& error) {
  std::FILE* fp = std::fopen(path.c_str(), "rb");
  if (fp == nullptr) {
    error = path + ": cannot open file (" + std::strerror(errno) + ")";
    return false;
  }
  bytes.clear();
  unsigned char chunk[1 << 16];
  std::size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, fp)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
  const bool failed = std::ferror(fp) != 0;
  std::fclose(fp);
  if (failed) {
    error = path + ": read error";
    return false;
  }
  return true;
}

// Exactly `count` bytes from the start of the file, or a report of how many there are.
bool readFileBytes(const std::string& path, std::size_t count, const std::string& expectation,
                   std::vector<unsigned char>& bytes, std::string& error) {
  std::FILE* fp = std::fopen(path.c_str(), "rb");
  if (fp == nullptr) {
    error = path + ": cannot open file (" + std::strerror(errno) + ")";
    return false;
  }
  bytes.resize(count);
  const std::size_t got = count > 0 ? std::fread(bytes.data(), 1, count, fp) : 0;
  std::fclose(fp);
  if (got < count) {
    error = path + ": size " + std::to_string(got) + " bytes, expected at least " +
            std::to_string(count) + " (" + expectation + ")";
    return false;
  }
  return true;
}

// A decimal field of at most nine digits (so it cannot wrap).
bool parseNumber(const std::string& token, unsigned& value) {
  if (token.empty() || token.size() > 9) return false;
  value = 0;
  for (char ch : token) {
    if (ch < '0' || ch > '9') return false;
    value = value * 10 + static_cast<unsigned>(ch - '0');
  }
  return true;
}

bool parsePnmImpl(const std::string& path, bool allowGrey, bool singleByteBinary,
                  fbc::PnmImage& image, std::string& error) {
  std::vector<unsigned char> bytes;
  if (!readFile(path, bytes, error)) return false;
  Cursor cur{bytes};

  const char* fieldNames[4] = {"magic", "width", "height", "maximum value"};
  std::string fields[4];
  for (int i = 0; i < 4; ++i) {
    if (!cur.atEnd()) fields[i] = cur.token();
    if (fields[i].empty()) {
      error = path + (bytes.empty() ? ": empty file" : std::string(": header ends before the ") + fieldNames[i]);
      return false;
    }
    if (i == 0) {
      const std::string& m = fields[0];
      const bool colour = m == "P3" || m == "P6";
      const bool grey = m == "P2" || m == "P5";
      if (!colour && !(allowGrey && grey)) {
        error = path + ": unknown magic \"" + m.substr(0, 16) + "\" (expected " +
                (allowGrey ? "P2, P3, P5 or P6" : "P3 or P6") + ")";
        return false;
      }
    }
  }
  unsigned values[3];
  for (int i = 1; i < 4; ++i) {
    if (!parseNumber(fields[i], values[i - 1])) {
      error = path + ": " + fieldNames[i] + " \"" + fields[i].substr(0, 16) + "\" is not a number";
      return false;
    }
  }
  image.magic = fields[0];
  image.channels = (image.magic == "P3" || image.magic == "P6") ? 3 : 1;
  if (!fbc::checkPictureSize(path, values[0], values[1], image.channels, error)) return false;
  image.width = static_cast<int>(values[0]);
  image.height = static_cast<int>(values[1]);
  image.maxval = values[2];
  if (image.maxval < 1 || image.maxval > 65535) {
    error = path + ": maximum value " + std::to_string(image.maxval) + " is out of range (1..65535)";
    return false;
  }

  const std::size_t n = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) *
                        static_cast<std::size_t>(image.channels);
  const std::string sizeText = std::to_string(image.width) + "x" + std::to_string(image.height);
  image.samples.assign(n, 0);
  const bool ascii = image.magic == "P3" || image.magic == "P2";
  if (ascii) {
    for (std::size_t i = 0; i < n; ++i) {
      const std::string token = cur.atEnd() ? std::string() : cur.token();
      if (token.empty()) {
        error = path + ": header says " + sizeText + " but only " + std::to_string(i) + " of " +
                std::to_string(n) + " samples follow";
        return false;
      }
      unsigned v = 0;
      if (!parseNumber(token, v)) {
        error = path + ": sample " + std::to_string(i) + " \"" + token.substr(0, 16) + "\" is not a number";
        return false;
      }
      if (v > image.maxval) {
        error = path + ": sample " + std::to_string(i) + " is " + std::to_string(v) +
                ", above the maximum value " + std::to_string(image.maxval);
        return false;
      }
      image.samples[i] = static_cast<std::uint16_t>(v);
    }
    return true;
  }

  // Two bytes per sample only above 256: a maximum of exactly 256 still reads single bytes.
  const std::size_t bytesPerSample = (!singleByteBinary && image.maxval > 256) ? 2 : 1;
  const std::size_t need = n * bytesPerSample;
  const std::size_t avail = bytes.size() - cur.pos;
  if (avail < need) {
    error = path + ": header says " + sizeText + " but only " + std::to_string(avail) + " of " +
            std::to_string(need) + " bytes of samples follow";
    return false;
  }
  const unsigned char* p = bytes.data() + cur.pos;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v = bytesPerSample == 2 ? (static_cast<unsigned>(p[2 * i]) << 8) | p[2 * i + 1] : p[i];
    if (!singleByteBinary && v > image.maxval) {
      error = path + ": sample " + std::to_string(i) + " is " + std::to_string(v) +
              ", above the maximum value " + std::to_string(image.maxval);
      return false;
    }
    image.samples[i] = static_cast<std::uint16_t>(v);
  }
  return true;
}

}  // namespace

std::string get_file_token(std::ifstream& in) {
  if (in.peek() == std::ifstream::traits_type::eof()) error_parse_file("");
  return scanToken([&in] {
    const auto ch = in.get();
    return ch == std::ifstream::traits_type::eof() ? -1 : static_cast<int>(ch);
  });
}

unsigned int string2dec(std::string token) {
  unsigned int v = 0;
  for (char ch : token) v = v * 10u + static_cast<unsigned int>(ch - '0');
  return v;
}

void error_parse_file(const char* name) {
  std::fprintf(stderr, "Error : Parsing file %s\n", name);
  std::exit(-1);
}

void ParsePPMFile_all(const char* name, unsigned int& width, unsigned int& height,
                      unsigned short*& data, int bits) {
  int w = 0;
  int h = 0;
  std::vector<std::uint16_t> rgb;
  std::string error;
  if (!fbc::parsePPM(name, bits, w, h, rgb, error)) error_parse_file(name);
  width = static_cast<unsigned>(w);
  height = static_cast<unsigned>(h);
  data = new unsigned short[rgb.size()];
  std::memcpy(data, rgb.data(), rgb.size() * sizeof(unsigned short));
}

// The older reader: ASCII values rescaled to 0..255 by integer division, binary bytes unscaled.
void ParsePPMFile(const char* name, unsigned int* values) {
  fbc::PnmImage image;
  std::string error;
  if (!parsePnmImpl(name, false, true, image, error)) error_parse_file(name);
  const bool ascii = image.magic == "P3";
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    values[i] = ascii ? image.samples[i] * 255u / image.maxval : image.samples[i];
  }
}

void ParseRAWFile(const char* name, int width, int height, unsigned short*& data, int mode) {
  std::vector<std::uint16_t> samples;
  std::string error;
  if (!fbc::parseRAW(name, width, height, mode, samples, error)) error_parse_file(name);
  std::printf("Width %d\nHeight %d\n", width, height);
  data = new unsigned short[samples.size()];
  std::memcpy(data, samples.data(), samples.size() * sizeof(unsigned short));
}

void ParseYUV422File(const char* name, int width, int height, unsigned short*& data) {
  std::vector<std::uint16_t> samples;
  std::string error;
  if (!fbc::parseYUV422(name, width, height, samples, error)) error_parse_file(name);
  std::printf("Width %d\nHeight %d\n", width, height);
  data = new unsigned short[samples.size()];
  std::memcpy(data, samples.data(), samples.size() * sizeof(unsigned short));
}

// Camera raw files are not decoded here: the file is not opened, and the samples come from a
// zero-filled scratch area that lives as long as the process, shifted as the camera path would.
void ParseCRWFile(const char* name, unsigned short*& data, int mode, int& width, int& height) {
  (void)name;
  constexpr std::size_t kScratchSamples = 20000000;
  static const std::vector<std::int16_t> scratch(kScratchSamples, 0);
  if (mode == 0 || mode == 1) std::printf("width = %d; height = %d\n", width, height);
  const std::size_t n = width > 0 && height > 0
                            ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height)
                            : 0;
  data = new unsigned short[n];
  for (std::size_t i = 0; i < n; ++i) {
    const int s = i < kScratchSamples ? scratch[i] : 0;
    unsigned v;
    if (mode == 0) {
      v = (static_cast<unsigned>(s) << 1) & 0xFFFCu;
    } else if (mode == 1) {
      v = static_cast<unsigned>(s) & 0xFFFCu;
    } else {
      v = (static_cast<unsigned>(s) << 2) & 0xFFFFu;
    }
    data[i] = static_cast<unsigned short>(v);
  }
}

namespace fbc {

bool checkPictureSize(const std::string& path, long long width, long long height, int channels,
                      std::string& error) {
  const std::string range = " is out of range (1.." + std::to_string(kMaxPictureSide) + ")";
  if (width < 1 || width > kMaxPictureSide) {
    error = path + ": width " + std::to_string(width) + range;
    return false;
  }
  if (height < 1 || height > kMaxPictureSide) {
    error = path + ": height " + std::to_string(height) + range;
    return false;
  }
  const long long total = width * height * channels;
  if (total > kMaxPictureSamples) {
    error = path + ": " + std::to_string(width) + "x" + std::to_string(height) + " is too large (" +
            std::to_string(total) + " samples, limit " + std::to_string(kMaxPictureSamples) + ")";
    return false;
  }
  return true;
}

bool parsePnm(const std::string& path, bool allowGrey, PnmImage& image, std::string& error) {
  return parsePnmImpl(path, allowGrey, false, image, error);
}

std::uint16_t scalePnmSample(unsigned value, unsigned maxval, int bits) {
  const float scale = static_cast<float>(1u << bits) / static_cast<float>(maxval + 1);
  const float scaled = static_cast<float>(value) * scale;
  const unsigned v = scaled > 0.0f ? static_cast<unsigned>(scaled) : 0u;
  return static_cast<std::uint16_t>(v & 0xFFFFu);
}

bool parsePPM(const std::string& path, int bits, int& width, int& height,
              std::vector<std::uint16_t>& rgb, std::string& error) {
  if (bits < 0 || bits > 16) {
    error = path + ": output depth " + std::to_string(bits) + " is out of range (0..16)";
    return false;
  }
  PnmImage image;
  if (!parsePnm(path, false, image, error)) return false;
  for (std::uint16_t& s : image.samples) s = scalePnmSample(s, image.maxval, bits);
  width = image.width;
  height = image.height;
  rgb.swap(image.samples);
  return true;
}

bool parseRAW(const std::string& path, int width, int height, int mode,
              std::vector<std::uint16_t>& samples, std::string& error) {
  if (!checkPictureSize(path, width, height, 1, error)) return false;
  const std::size_t n = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::vector<unsigned char> bytes;
  const std::string expectation = std::to_string(width) + "x" + std::to_string(height) +
                                  " samples of 2 bytes";
  if (!readFileBytes(path, 2 * n, expectation, bytes, error)) return false;
  auto word = [&bytes](std::size_t k) -> unsigned {
    return static_cast<unsigned>(bytes[2 * k]) | (static_cast<unsigned>(bytes[2 * k + 1]) << 8);
  };
  samples.resize(n);
  if (mode == 4) {
    // Continuous little-endian stream of 10-bit values across words and rows:
    //   word k:   | ... value i+1 low bits | value i (bits b..b+9) | ... |
    //   a value starting at b >= 6 takes 16-b bits here and its top bits from word k+1.
    // Ten bits per sample never outrun the 16 bits per sample the file holds.
    std::size_t k = 0;
    int b = 0;
    for (std::size_t i = 0; i < n; ++i) {
      unsigned v;
      if (b < 6) {
        v = (word(k) >> b) & 0x3FFu;
        b += 10;
      } else {
        const int lowBits = 16 - b;
        const unsigned low = (word(k) >> b) & ((1u << lowBits) - 1u);
        b -= 6;
        const unsigned high = word(k + 1) & ((1u << b) - 1u);
        v = low | (high << lowBits);
        ++k;
      }
      samples[i] = static_cast<std::uint16_t>(v * 4);
    }
    return true;
  }
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v = word(i);
    unsigned s;
    switch (mode) {
      case 1:
        s = (v >> 4) & 0x0FFFu;  // 12 bits in the upper part of the word
        break;
      case 2:
        s = (((v & 0xFFu) << 8) | (v >> 8)) >> 4;  // big-endian word, upper 12 bits
        break;
      case 3:
        s = v;
        break;
      default:
        s = ((v << 4) & 0x0FF0u) | ((v >> 12) & 0x000Fu);  // nibble rotation
        break;
    }
    samples[i] = static_cast<std::uint16_t>(s);
  }
  return true;
}

bool parseYUV422(const std::string& path, int width, int height,
                 std::vector<std::uint16_t>& samples, std::string& error) {
  if (!checkPictureSize(path, width, height, 2, error)) return false;
  const std::size_t n = 2 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::vector<unsigned char> bytes;
  const std::string expectation = std::to_string(width) + "x" + std::to_string(height) +
                                  " pixels of two 2-byte words";
  if (!readFileBytes(path, 2 * n, expectation, bytes, error)) return false;
  samples.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v = static_cast<unsigned>(bytes[2 * i]) | (static_cast<unsigned>(bytes[2 * i + 1]) << 8);
    samples[i] = static_cast<std::uint16_t>(v & 0x3FFu);
  }
  return true;
}

}  // namespace fbc
