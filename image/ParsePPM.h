#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

// Colour of each Bayer site, indexed [cfa][y & 1][x & 1]: 0 red, 1 green on a red row,
// 2 blue, 3 green on a blue row. Used to pick one component of an RGB triple per site.
extern const unsigned char bayer_p[4][2][2];

// Next token of a PPM header or ASCII body: a run of letters and digits. "#" starts a comment up
// to the end of the line; any other character separates. End of file also ends a token, but a
// stream already at its end fails the parse.
std::string get_file_token(std::ifstream& in);
// Decimal digits to an unsigned value, unchecked, wrapping modulo 2^32.
unsigned int string2dec(std::string token);
// Prints "Error : Parsing file <name>" on standard error and ends the process with status -1.
[[noreturn]] void error_parse_file(const char* name);

// Parsers. Each returns an array allocated with new[] that the caller frees with delete[]. A file
// that cannot be opened, an unknown PPM magic or a token read at the end of the file ends the
// process through error_parse_file; nothing else is checked: a short file leaves the samples it
// does not reach at zero, and PPM samples above the maximum are scaled like any other.
void ParsePPMFile_all(const char* name, unsigned int& width, unsigned int& height,
                      unsigned short*& data, int bits);
void ParsePPMFile(const char* name, unsigned int* values);
void ParseRAWFile(const char* name, int width, int height, unsigned short*& data, int mode);
void ParseYUV422File(const char* name, int width, int height, unsigned short*& data);
void ParseCRWFile(const char* name, unsigned short*& data, int mode, int& width, int& height);

// PPM writers over plain arrays.
void StorePPM(const char* name, const unsigned char* rgb, int width, int height);
void StorePPM16B(const char* name, const int* values, int width, int height);
void StorePPMField(const char* base, const unsigned int* values, int width, int height);
void StorePPMFrame(const char* base, const unsigned int* field1, const unsigned int* field2,
                   int width, int height, int mode);

namespace fbc {

// Largest picture the reporting parsers accept.
constexpr int kMaxPictureSide = 1 << 16;
constexpr long long kMaxPictureSamples = 1LL << 28;

// Checks a width and height against the limits above; the error names the file.
bool checkPictureSize(const std::string& path, long long width, long long height, int channels,
                      std::string& error);

// A PNM picture as stored in the file: samples unscaled, `channels` per pixel, row-major.
struct PnmImage {
  std::string magic;
  int width = 0;
  int height = 0;
  unsigned maxval = 0;
  int channels = 0;
  std::vector<std::uint16_t> samples;
};

// Reads P3/P6 (and P2/P5 when allowGrey) without ever exiting or reading past the data. A
// truncated file, a bad magic, a non-numeric field, an absurd size, a maximum outside 1..65535 or
// a sample above the maximum is reported as one line naming the file. Binary samples take two
// bytes (most significant first) when the maximum is 256 or more, as in every Netpbm file; the
// specified ParsePPMFile_all reads a maximum of exactly 256 one byte per sample.
bool parsePnm(const std::string& path, bool allowGrey, PnmImage& image, std::string& error);

// Bytes taken from a file, in double quotes and fit for a one-line message: quotes and
// backslashes escaped, other bytes outside printable ASCII as three-digit octal ("\227M").
std::string quotedBytes(const std::string& bytes);

// The readers' scaling to `bits` bits: value * 2^bits / (maxval + 1) in single precision,
// truncated toward zero and kept to 16 bits. Defined for every input, absurd ones included.
std::uint16_t scalePnmSample(unsigned value, unsigned maxval, int bits);

// P3/P6 scaled to `bits` (0..16) bits, three samples per pixel.
bool parsePPM(const std::string& path, int bits, int& width, int& height,
              std::vector<std::uint16_t>& rgb, std::string& error);

// Headerless raw Bayer file of width x height little-endian 16-bit words, unpacked by mode:
// 0 nibble rotation, 1 upper 12 bits, 2 byte swap then upper 12 bits, 3 as stored,
// 4 continuous 10-bit stream scaled by 4; other modes as 0.
bool parseRAW(const std::string& path, int width, int height, int mode,
              std::vector<std::uint16_t>& samples, std::string& error);

// Headerless 4:2:2 file: two 10-bit words per pixel.
bool parseYUV422(const std::string& path, int width, int height,
                 std::vector<std::uint16_t>& samples, std::string& error);

}  // namespace fbc
