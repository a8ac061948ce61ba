#include "image/ParsePPM.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

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
  // The next token. A mark glued to its front ("-16", "+5", "1.5" read as "1" then ".5") stays
  // with it, so that the strict reader rejects the field instead of taking the mark for a
  // separator and reading a negative size as a positive one.
  std::string token() {
    int before = '\n';  // the file's start counts as a line start
    bool started = false, comment = false;
    std::string t = scanToken([&] {
      const int ch = next();
      if (started || ch < 0) return ch;
      if (comment) {
        comment = ch != '\n';
        before = ch;
      } else if (ch == '#') {
        comment = true;
      } else if (isTokenChar(ch)) {
        started = true;
      } else {
        before = ch;
      }
      return ch;
    });
    if (!t.empty() && !std::isspace(before)) t.insert(t.begin(), static_cast<char>(before));
    return t;
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
  while ((got = std::fread(chunk, 1, sizeof chunk, fp)) > 0)
    bytes.insert(bytes.end(), chunk, chunk + got);
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
  // The file's length is known before the buffer is sized, so a header or argument that claims
  // a huge picture costs no memory when the file is short.
  std::size_t got = 0;
  long length = -1;
  if (std::fseek(fp, 0, SEEK_END) == 0) length = std::ftell(fp);
  std::rewind(fp);
  if (length >= 0 && static_cast<unsigned long>(length) < count) {
    got = static_cast<std::size_t>(length);
  } else {
    bytes.resize(count);
    got = count > 0 ? std::fread(bytes.data(), 1, count, fp) : 0;
  }
  std::fclose(fp);
  if (got < count) {
    error = path + ": size " + std::to_string(got) + " bytes, expected at least " +
            std::to_string(count) + " (" + expectation + ")";
    return false;
  }
  return true;
}

// width x height x channels as an element count; a count no array can hold raises the
// standard bad-array-length error, as array-new does.
std::size_t pixelSamples(unsigned width, unsigned height, unsigned channels) {
  const std::size_t limit = std::numeric_limits<std::size_t>::max() / sizeof(unsigned short);
  const std::size_t perRow = static_cast<std::size_t>(width) * channels;
  if (height != 0 && perRow > limit / height) throw std::bad_array_new_length();
  return perRow * height;
}

// Up to `count` bytes from the open file; bytes past its end stay zero.
void readAvailable(std::FILE* fp, std::size_t count, std::vector<unsigned char>& bytes) {
  bytes.assign(count, 0);
  if (count > 0) (void)std::fread(bytes.data(), 1, count, fp);
}

unsigned littleEndianWord(const unsigned char* bytes, std::size_t k) {
  return static_cast<unsigned>(bytes[2 * k]) | (static_cast<unsigned>(bytes[2 * k + 1]) << 8);
}

// `count` little-endian words unpacked into `count` samples by raw packing mode:
//   0 (and any mode not listed)  nibble rotation   ((v << 4) & 0xFF0) | (v >> 12)
//   1                            upper 12 bits     v >> 4
//   2                            byte swap, then upper 12 bits
//   3                            as stored
//   4                            continuous 10-bit stream, times 4
void unpackRawWords(const unsigned char* bytes, std::size_t count, int mode, unsigned short* out) {
  if (mode == 4) {
    // One little-endian bit stream of 10-bit values across words and rows:
    //   word k:   | ... value i+1 low bits | value i (bits b..b+9) | ... |
    //   a value starting at b >= 6 takes 16-b bits here and its top bits from word k+1.
    // Ten bits per sample never outrun the 16 bits per sample the file holds, so word k+1 exists.
    std::size_t k = 0;
    int b = 0;
    for (std::size_t i = 0; i < count; ++i) {
      unsigned v;
      if (b < 6) {
        v = (littleEndianWord(bytes, k) >> b) & 0x3FFu;
        b += 10;
      } else {
        const int lowBits = 16 - b;
        const unsigned low = (littleEndianWord(bytes, k) >> b) & ((1u << lowBits) - 1u);
        b -= 6;
        const unsigned high = littleEndianWord(bytes, k + 1) & ((1u << b) - 1u);
        v = low | (high << lowBits);
        ++k;
      }
      out[i] = static_cast<unsigned short>(v * 4);
    }
    return;
  }
  for (std::size_t i = 0; i < count; ++i) {
    const unsigned v = littleEndianWord(bytes, i);
    unsigned s;
    switch (mode) {
      case 1:
        s = (v >> 4) & 0x0FFFu;
        break;
      case 2:
        s = (((v & 0xFFu) << 8) | (v >> 8)) >> 4;
        break;
      case 3:
        s = v;
        break;
      default:
        s = ((v << 4) & 0x0FF0u) | ((v >> 12) & 0x000Fu);
        break;
    }
    out[i] = static_cast<unsigned short>(s);
  }
}

// 4:2:2 words keep their low 10 bits, the width of the chroma path.
void unpackYuvWords(const unsigned char* bytes, std::size_t count, unsigned short* out) {
  for (std::size_t i = 0; i < count; ++i)
    out[i] = static_cast<unsigned short>(littleEndianWord(bytes, i) & 0x3FFu);
}

// A decimal field. Digits worth more than 32 bits set `tooLarge` instead of wrapping.
bool parseNumber(const std::string& token, unsigned& value, bool& tooLarge) {
  if (token.empty()) return false;
  unsigned long long v = 0;
  tooLarge = false;
  for (char ch : token) {
    if (ch < '0' || ch > '9') return false;
    v = v * 10 + static_cast<unsigned>(ch - '0');
    if (v > 0xFFFFFFFFull) {
      tooLarge = true;
      v = 0xFFFFFFFFull;
    }
  }
  value = static_cast<unsigned>(v);
  return true;
}

bool parsePnmImpl(const std::string& path, bool allowGrey, fbc::PnmImage& image,
                  std::string& error) {
  std::vector<unsigned char> bytes;
  if (!readFile(path, bytes, error)) return false;
  Cursor cur{bytes};

  const char* fieldNames[4] = {"magic", "width", "height", "maximum value"};
  std::string fields[4];
  for (int i = 0; i < 4; ++i) {
    if (!cur.atEnd()) fields[i] = cur.token();
    if (fields[i].empty()) {
      error = path + (bytes.empty() ? ": empty file"
                                    : std::string(": header ends before the ") + fieldNames[i]);
      return false;
    }
    if (i == 0) {
      const std::string& m = fields[0];
      const bool colour = m == "P3" || m == "P6";
      const bool grey = m == "P2" || m == "P5";
      if (!colour && !(allowGrey && grey)) {
        error = path + ": unknown magic " + fbc::quotedBytes(m.substr(0, 16)) + " (expected " +
                (allowGrey ? "P2, P3, P5 or P6" : "P3 or P6") + ")";
        return false;
      }
    }
  }
  unsigned values[3];
  const unsigned limits[3] = {fbc::kMaxPictureSide, fbc::kMaxPictureSide, 65535};
  for (int i = 1; i < 4; ++i) {
    bool tooLarge = false;
    if (!parseNumber(fields[i], values[i - 1], tooLarge)) {
      error = path + ": " + fieldNames[i] + " " + fbc::quotedBytes(fields[i].substr(0, 16)) +
              " is not a number";
      return false;
    }
    if (tooLarge) {
      error = path + ": " + fieldNames[i] + " " + fields[i].substr(0, 24) +
              " is too large (at most " + std::to_string(limits[i - 1]) + ")";
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
    error =
        path + ": maximum value " + std::to_string(image.maxval) + " is out of range (1..65535)";
    return false;
  }

  const std::size_t n = static_cast<std::size_t>(image.width) *
                        static_cast<std::size_t>(image.height) *
                        static_cast<std::size_t>(image.channels);
  const std::string sizeText = std::to_string(image.width) + "x" + std::to_string(image.height);
  const bool ascii = image.magic == "P3" || image.magic == "P2";
  if (ascii) {
    // Samples are kept as they are read: every one takes at least two bytes of the file, so a
    // short file never makes the array larger than the file.
    image.samples.clear();
    image.samples.reserve(std::min(n, (bytes.size() - cur.pos + 1) / 2));
    for (std::size_t i = 0; i < n; ++i) {
      const std::string token = cur.atEnd() ? std::string() : cur.token();
      if (token.empty()) {
        error = path + ": header says " + sizeText + " but only " + std::to_string(i) + " of " +
                std::to_string(n) + " samples follow";
        return false;
      }
      unsigned v = 0;
      bool tooLarge = false;
      if (!parseNumber(token, v, tooLarge)) {
        error = path + ": sample " + std::to_string(i) + " " +
                fbc::quotedBytes(token.substr(0, 16)) + " is not a number";
        return false;
      }
      if (tooLarge || v > image.maxval) {
        error = path + ": sample " + std::to_string(i) + " is " +
                (tooLarge ? token.substr(0, 24) : std::to_string(v)) +
                ", above the maximum value " + std::to_string(image.maxval);
        return false;
      }
      image.samples.push_back(static_cast<std::uint16_t>(v));
    }
    return true;
  }

  // Two bytes per sample from 256 up, as the Netpbm format has it (ParsePPMFile_all keeps one
  // byte at 256).
  const std::size_t bytesPerSample = image.maxval > 255 ? 2 : 1;
  const std::size_t need = n * bytesPerSample;
  const std::size_t avail = bytes.size() - cur.pos;
  if (avail < need) {
    error = path + ": header says " + sizeText + " but only " + std::to_string(avail) + " of " +
            std::to_string(need) + " bytes of samples follow";
    return false;
  }
  image.samples.assign(n, 0);
  const unsigned char* p = bytes.data() + cur.pos;
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned v =
        bytesPerSample == 2 ? (static_cast<unsigned>(p[2 * i]) << 8) | p[2 * i + 1] : p[i];
    if (v > image.maxval) {
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
  // At the end means a read has already hit it (the stream's end-of-file state), not that the
  // next byte is missing: a file ending in a separator still yields one empty token.
  if (in.eof()) error_parse_file("");
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

// The specified readers are lenient where the strict ones above are not: only a file that cannot
// be opened, an unknown magic or a token read at the end of the file end the process. Sizes are
// taken as written, samples above the maximum are scaled like any other, and a short file leaves
// the samples it does not reach at zero.
void ParsePPMFile_all(const char* name, unsigned int& width, unsigned int& height,
                      unsigned short*& data, int bits) {
  std::ifstream in(name, std::ios::binary);
  if (!in) error_parse_file(name);
  const std::string magic = get_file_token(in);
  width = string2dec(get_file_token(in));
  height = string2dec(get_file_token(in));
  const unsigned maximum = string2dec(get_file_token(in));
  const std::size_t count = pixelSamples(width, height, 3);
  data = new unsigned short[count]();
  if (magic == "P3") {
    for (std::size_t i = 0; i < count; ++i) {
      data[i] = fbc::scalePnmSample(string2dec(get_file_token(in)), maximum, bits);
    }
  } else if (magic == "P6") {
    // Two bytes per sample only above 256: a maximum of exactly 256 still reads single bytes.
    const std::size_t bytesPerSample = maximum > 256 ? 2 : 1;
    // The body as far as the file holds it, zero-padded to a whole sample; the samples past it
    // stay 0, and a header claiming more than the file holds costs no second buffer.
    const std::streamoff start = in.tellg();
    in.seekg(0, std::ios::end);
    const std::streamoff stop = in.tellg();
    in.seekg(start);
    const std::size_t avail =
        start >= 0 && stop > start ? static_cast<std::size_t>(stop - start) : 0;
    const std::size_t present = std::min(count, (avail + bytesPerSample - 1) / bytesPerSample);
    std::vector<unsigned char> bytes(present * bytesPerSample, 0);
    in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    for (std::size_t i = 0; i < present; ++i) {
      const unsigned v = bytesPerSample == 2
                             ? (static_cast<unsigned>(bytes[2 * i]) << 8) | bytes[2 * i + 1]
                             : bytes[i];
      data[i] = fbc::scalePnmSample(v, maximum, bits);
    }
  } else {
    delete[] data;
    data = nullptr;
    error_parse_file(name);
  }
}

// The older reader: ASCII values rescaled to 0..255 by unsigned integer division, binary bytes
// stored unscaled one per sample whatever the maximum. Samples a short P6 body does not reach keep
// the caller's values.
void ParsePPMFile(const char* name, unsigned int* values) {
  std::ifstream in(name, std::ios::binary);
  if (!in) error_parse_file(name);
  const std::string magic = get_file_token(in);
  const unsigned width = string2dec(get_file_token(in));
  const unsigned height = string2dec(get_file_token(in));
  const unsigned maximum = string2dec(get_file_token(in));
  const std::size_t count = pixelSamples(width, height, 3);
  if (magic == "P3") {
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned v = string2dec(get_file_token(in));
      // A zero maximum gives no scale to divide by; such samples read as 0.
      values[i] = maximum != 0 ? v * 255u / maximum : 0u;
    }
  } else if (magic == "P6") {
    for (std::size_t i = 0; i < count; ++i) {
      const auto ch = in.get();
      if (ch == std::ifstream::traits_type::eof()) break;
      values[i] = static_cast<unsigned>(ch);
    }
  } else {
    error_parse_file(name);
  }
}

void ParseRAWFile(const char* name, int width, int height, unsigned short*& data, int mode) {
  std::FILE* fp = std::fopen(name, "rb");
  if (fp == nullptr) error_parse_file(name);
  std::printf("Width %d\nHeight %d\n", width, height);
  const long long count = static_cast<long long>(width) * height;
  data = new unsigned short[count]();
  std::vector<unsigned char> bytes;
  readAvailable(fp, 2 * static_cast<std::size_t>(count), bytes);
  std::fclose(fp);
  unpackRawWords(bytes.data(), static_cast<std::size_t>(count), mode, data);
}

void ParseYUV422File(const char* name, int width, int height, unsigned short*& data) {
  std::FILE* fp = std::fopen(name, "rb");
  if (fp == nullptr) error_parse_file(name);
  std::printf("Width %d\nHeight %d\n", width, height);
  const long long count = 2 * static_cast<long long>(width) * height;
  data = new unsigned short[count]();
  std::vector<unsigned char> bytes;
  readAvailable(fp, 2 * static_cast<std::size_t>(count), bytes);
  std::fclose(fp);
  unpackYuvWords(bytes.data(), static_cast<std::size_t>(count), data);
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
  return parsePnmImpl(path, allowGrey, image, error);
}

std::string quotedBytes(const std::string& bytes) {
  std::string out = "\"";
  for (const char c : bytes) {
    const auto b = static_cast<unsigned char>(c);
    if (b == '"' || b == '\\') {
      out += '\\';
      out += c;
    } else if (b >= 0x20 && b < 0x7F) {
      out += c;
    } else {
      const char octal[] = {'\\', static_cast<char>('0' + (b >> 6)),
                            static_cast<char>('0' + ((b >> 3) & 7)),
                            static_cast<char>('0' + (b & 7)), '\0'};
      out += octal;
    }
  }
  return out + "\"";
}

std::uint16_t scalePnmSample(unsigned value, unsigned maxval, int bits) {
  // maxval + 1 wraps to 0 at the top of the unsigned range: the scale is then infinite.
  const float scale = std::ldexp(1.0f, bits) / static_cast<float>(maxval + 1u);
  const float scaled = static_cast<float>(value) * scale;
  // Truncation toward zero, low 16 bits kept. A float of 2^40 or more is a multiple of 2^17, so
  // its low 16 bits are 0; that also covers an infinite scale (and NaN from 0 times it).
  if (!(scaled > 0.0f) || scaled >= 1099511627776.0f) return 0;
  return static_cast<std::uint16_t>(static_cast<std::uint64_t>(scaled) & 0xFFFFu);
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
  const std::string expectation =
      std::to_string(width) + "x" + std::to_string(height) + " samples of 2 bytes";
  if (!readFileBytes(path, 2 * n, expectation, bytes, error)) return false;
  samples.resize(n);
  unpackRawWords(bytes.data(), n, mode, samples.data());
  return true;
}

bool parseYUV422(const std::string& path, int width, int height,
                 std::vector<std::uint16_t>& samples, std::string& error) {
  if (!checkPictureSize(path, width, height, 2, error)) return false;
  const std::size_t n = 2 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::vector<unsigned char> bytes;
  const std::string expectation =
      std::to_string(width) + "x" + std::to_string(height) + " pixels of two 2-byte words";
  if (!readFileBytes(path, 2 * n, expectation, bytes, error)) return false;
  samples.resize(n);
  unpackYuvWords(bytes.data(), n, samples.data());
  return true;
}

}  // namespace fbc
