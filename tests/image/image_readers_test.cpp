// Picture readers: the lenient ones of the model, the reporting ones of the tool, loadPicture.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "image/Frame.h"
#include "image/ParsePPM.h"
#include "image/Picture.h"
#include "tests/TestFiles.h"

namespace {

using Samples = std::vector<std::uint16_t>;
using Pixels = std::vector<PIXEL>;

Pixels pixels(const Frame& f) {
  return Pixels(f.data, f.data + f.size());
}

// A scratch directory per test, and files written into it.
class Readers : public ::testing::Test {
 protected:
  std::string put(const std::string& name, const std::string& bytes) {
    fbc::test::writeBytes(dir_.file(name), bytes);
    return dir_.file(name);
  }
  fbc::test::TempDir dir_;
};

TEST_F(Readers, FileTokensSplitLettersAndDigits) {
  const struct {
    const char* text;
    std::vector<std::string> tokens;
  } cases[] = {{"P6 # made by x\n4 2 255\n", {"P6", "4", "2", "255"}},
               {"12-34.5\n", {"12", "34", "5"}},
               {"ab#c\nd", {"ab", "d"}},  // a comment ends a begun token
               {"7", {"7"}},              // end of file ends a token
               {"  \n# only\n", {""}}};   // nothing but separators and comments
  for (const auto& c : cases) {
    std::ifstream in(put("t.ppm", c.text), std::ios::binary);
    std::vector<std::string> tokens;
    while (in.peek() != std::ifstream::traits_type::eof()) tokens.push_back(get_file_token(in));
    EXPECT_EQ(tokens, c.tokens) << c.text;
  }
  EXPECT_EQ(string2dec(""), 0u);
  EXPECT_EQ(string2dec("255"), 255u);
  EXPECT_EQ(string2dec("4294967297"), 1u);  // 2^32 + 1
}

// The end counts once a read has hit it: the first token of an empty file is still read (empty),
// the second ends the process. That failing read is the token reader's own, which names no file.
TEST_F(Readers, LenientReadersEndTheProcess) {
  const std::string empty = put("e.ppm", ""), body = put("t.ppm", "P3 1 1 255 1 2"),
                    header = put("h.ppm", "P6\n4"), magic = put("bad.ppm", "P9\n1 1 255\n");
  const auto status = ::testing::ExitedWithCode(255);
  const std::string noName = "^Error : Parsing file \n$";
  unsigned w = 0, h = 0, values[3];
  unsigned short* data = nullptr;
  EXPECT_EXIT(
      {
        std::ifstream in(empty, std::ios::binary);
        if (get_file_token(in).empty()) get_file_token(in);
      },
      status, noName);
  EXPECT_EXIT(ParsePPMFile_all(body.c_str(), w, h, data, 8), status, noName);
  EXPECT_EXIT(ParsePPMFile(header.c_str(), values), status, noName);
  EXPECT_EXIT(ParsePPMFile_all(magic.c_str(), w, h, data, 8), status,
              "^Error : Parsing file " + magic + "\n$");
  EXPECT_EXIT(ParseRAWFile("/nonexistent/x.raw", 1, 1, data, 0), status,
              "^Error : Parsing file /nonexistent/x.raw\n$");
}

TEST_F(Readers, ParsePPMAllScalesToOutputBits) {
  const struct {
    std::string file;
    int bits;
    Samples samples;
  } cases[] = {
      {"P3\n1 1\n255\n1 2 3\n", 8, {1, 2, 3}},
      {"P3\n1 1\n255\n1 2 3\n", 12, {16, 32, 48}},
      {"P3\n1 1 1023 1023 512 3\n", 12, {4092, 2048, 12}},
      {"P3\n1 1 1023 1023 512 3\n", 8, {255, 128, 0}},  // 1023/4 = 255.75
      // maximum 256 still reads single bytes: 200 * 256/257 = 199.2
      {std::string("P6\n1 1\n256\n\xC8\x01\x00", 14), 8, {199, 0, 0}},
      // maximum 257 reads two bytes, first more significant: 256 * 256/258 = 254.02
      {std::string("P6\n1 1\n257\n\x01\x00\x00\x01\x00\x00", 17), 8, {254, 0, 0}},
      // The reader is lenient where the file is not: short P6 body, 0x10 * 16, the rest zero
      {"P6 2 1 255\n\x10", 12, {256, 0, 0, 0, 0, 0}},
      // short two-byte P6 body: 0x0008 * 256/1024 = 2; the half-read sample keeps its high byte
      {std::string("P6 1 1 1023\n\x00\x08\x01", 15), 8, {2, 64, 0}},
      {"P6 1 1 100\n\xC8\x01\x02", 8, {506, 2, 5}},  // above the maximum: 200 * 256/101 = 506.9
      {"P3 1 1 1 5 1 0", 8, {640, 128, 0}},          // above the maximum: 5 * 256/2 = 640
      // trailing separators give an empty token, read as 0; so does a final line feed
      {"P3 1 1 255 1 2 \n", 8, {1, 2, 0}},
      {"P3 1 1 255\n1 2\n", 8, {1, 2, 0}}};
  for (const auto& c : cases) {
    unsigned w = 0, h = 0;
    unsigned short* data = nullptr;
    ParsePPMFile_all(put("s.ppm", c.file).c_str(), w, h, data, c.bits);
    EXPECT_EQ(Samples(data, data + 3 * w * h), c.samples) << c.file << " at " << c.bits;
    delete[] data;
  }
}

// The older reader rescales only ASCII samples to 8 bits, and leaves values past a short body.
TEST_F(Readers, ParsePPMFileRescalesAsciiOnly) {
  const struct {
    std::string file;
    std::vector<unsigned> values;
  } cases[] = {{"P3 1 1 1023 1023 512 0\n", {255, 127, 0, 9, 9, 9}},  // 512 * 255/1023 = 127.6
               {std::string("P6 1 1 1023\n\x05\x06\x07", 15), {5, 6, 7, 9, 9, 9}},
               {"P6 2 1 255\n\x05\x06", {5, 6, 9, 9, 9, 9}}};
  for (const auto& c : cases) {
    unsigned values[6] = {9, 9, 9, 9, 9, 9};
    ParsePPMFile(put("o.ppm", c.file).c_str(), values);
    EXPECT_EQ(std::vector<unsigned>(values, values + 6), c.values) << c.file;
  }
}

// The lenient readers print the size and read on where the file ends early. The word 0xABCD
// is stored little-endian, unless said otherwise.
TEST_F(Readers, LenientRawUnpacksWords) {
  const struct {
    std::string bytes;
    int width, height, mode;  // packing mode; -1 for the YUV 4:2:2 reader
    Samples samples;
  } cases[] = {{"\xCD\xAB", 1, 1, 0, {0xCDA}},  // top nibble down
               {"\xCD\xAB", 1, 1, 1, {0xABC}},
               {"\xCD\xAB", 1, 1, 2, {0xCDA}},  // 0xCDAB >> 4
               {"\xCD\xAB", 1, 1, 3, {0xABCD}},
               {"\xCD\xAB", 1, 1, 7, {0xCDA}},  // unknown modes as 0
               // 0xFC01, 0x0FFF: 0x001 * 4, then 0x3F | 0xF << 6 = 0x3FF, * 4
               {"\x01\xFC\xFF\x0F", 2, 1, 4, {4, 4092}},
               {"\x01\x04\xFF\xFF", 1, 1, -1, {0x001, 0x3FF}},
               // word 0x1234, then half a word; the rest stays zero
               {"\x34\x12\x56", 2, 2, 3, {0x1234, 0x0056, 0, 0}},
               {"\x34\x12\x56", 1, 2, -1, {0x234, 0x056, 0, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    const std::string path = put("w.raw", c.bytes);
    unsigned short* data = nullptr;
    ::testing::internal::CaptureStdout();
    if (c.mode < 0) {
      ParseYUV422File(path.c_str(), c.width, c.height, data);
    } else {
      ParseRAWFile(path.c_str(), c.width, c.height, data, c.mode);
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Width " + std::to_string(c.width) + "\nHeight " + std::to_string(c.height) + "\n");
    EXPECT_EQ(Samples(data, data + c.samples.size()), c.samples);
    delete[] data;
  }
}

TEST_F(Readers, TenBitStreamRunsOnAcrossRows) {
  // Values 1..6 packed continuously: words 0x0801 0x0030 0x0501 0x0018 0 0.
  const std::string path =
      put("p.raw", std::string("\x01\x08\x30\x00\x01\x05\x18\x00\x00\x00\x00\x00", 12));
  Samples samples;
  std::string error;
  ASSERT_TRUE(fbc::parseRAW(path, 3, 2, 4, samples, error)) << error;
  EXPECT_EQ(samples, (Samples{4, 8, 12, 16, 20, 24}));
}

TEST_F(Readers, FrameReadPPMTakesTopLeftMosaic) {
  // 4x2 picture, pixel (x, y) = (10x + 100y + 1, +2, +3).
  std::string text = "P3\n4 2\n255\n";
  for (int i = 0; i < 8; ++i) {
    for (int c = 1; c <= 3; ++c) text += std::to_string(10 * (i % 4) + 100 * (i / 4) + c) + " ";
  }
  put("pic_0007.ppm", text);
  Frame f(Frame::CS_RAW, CFA_RGGB, 8, RGBIR_NONE);
  f.readPPM(dir_.file("pic"), 7, 2, 100, CFA_RGGB, 8);
  ASSERT_EQ(f.width, 2);
  ASSERT_EQ(f.height, 2);
  EXPECT_EQ(f.depth, 8);
  // R, G / G from the file's second row of 4 pixels, B
  EXPECT_EQ(pixels(f), (Pixels{1, 12, 102, 113}));
}

TEST_F(Readers, FrameRawReaders) {
  put("r_0000.raw", "\xFF\x0F\x88\x13");  // 4095, 5000
  put("u_0001.raw", std::string("\x01\x00", 2));
  put("c_0000.raw", std::string("\x11\x00\x22\x00\x33\x00\x44\x00", 8));
  Frame f(Frame::CS_RAW);
  ::testing::internal::CaptureStdout();
  f.readRAW(dir_.file("r"), 0, 2, 1, 3, 12, 0, 10);
  EXPECT_EQ(pixels(f), (Pixels{15, 15}));  // 4095 >> 8; 5000 clipped to 4095 first
  f.readRAW(dir_.file("u"), 1, 1, 1, 3, 8, 0, 12);
  EXPECT_EQ(pixels(f), (Pixels{65535}));  // shifted four times: 16, 256, 4096, 65536 clipped
  Frame yc(Frame::CS_YUV422);
  yc.readRAWYC(dir_.file("c"), 0, 2, 1);  // keeps the second word of each pixel
  EXPECT_EQ(pixels(yc), (Pixels{0x22, 0x44}));
  ::testing::internal::GetCapturedStdout();

  ::testing::internal::CaptureStdout();
  f.readCRW("/nonexistent/shot", 3, 1);  // does not touch the file
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "width = 1; height = 1\n");
  EXPECT_EQ(f.width, 1);
  EXPECT_EQ(pixels(f), (Pixels{0}));
}

TEST_F(Readers, ReportingParsersNameFileAndProblem) {
  const struct {
    std::string content;
    std::string message;  // after "<path>: "
  } cases[] = {
      {"P6\n640 480\n255\n" + std::string(1000, 'x'),
       "header says 640x480 but only 1000 of 921600 bytes of samples follow"},
      {"P6\n2 1\n1000\n" + std::string(11, 'x'),
       "header says 2x1 but only 11 of 12 bytes of samples follow"},
      {"P7\n1 1\n255\n", "unknown magic \"P7\" (expected P3 or P6)"},
      {"P5\n1 1\n255\nx", "unknown magic \"P5\" (expected P3 or P6)"},
      {"", "empty file"},
      {"P6\n4", "header ends before the height"},
      {"P3\n0 4 255\n", "width 0 is out of range (1..65536)"},
      {"P3\n4 70000 255\n", "height 70000 is out of range (1..65536)"},
      {"P3\n16384 16384 255\n", "16384x16384 is too large (805306368 samples, limit 268435456)"},
      {"P3\nab 1 255\n", "width \"ab\" is not a number"},
      {"P3\n1 1 0\n", "maximum value 0 is out of range (1..65535)"},
      {"P3\n1 1 255\n1 2\n", "header says 1x1 but only 2 of 3 samples follow"},
      {"P3\n1 1 255\n1 2 300\n", "sample 2 is 300, above the maximum value 255"},
      {"P3\n1 1 255\n1 x2 3\n", "sample 1 \"x2\" is not a number"},
      // A sign is not a separator: a negative size or sample is rejected, not read unsigned.
      {"P6\n-16 4\n255\n" + std::string(192, 'x'), "width \"-16\" is not a number"},
      {"P6 16\t+4 255\n" + std::string(192, 'x'), "height \"+4\" is not a number"},
      {"P3\n1 1 255\n1 -2 3\n", "sample 1 \"-2\" is not a number"}};
  for (const auto& c : cases) {
    const std::string path = put("in.ppm", c.content);
    int w = 0, h = 0;
    Samples rgb;
    std::string error;
    EXPECT_FALSE(fbc::parsePPM(path, 12, w, h, rgb, error));
    EXPECT_EQ(error, path + ": " + c.message);
  }
  Samples samples;
  std::string error;
  EXPECT_FALSE(fbc::parseRAW("/nonexistent/in.raw", 8, 8, 3, samples, error));
  EXPECT_EQ(error, "/nonexistent/in.raw: cannot open file (No such file or directory)");
  const std::string raw = put("in.raw", std::string(120, '\0'));
  EXPECT_FALSE(fbc::parseRAW(raw, 8, 8, 0, samples, error));
  EXPECT_EQ(error, raw + ": size 120 bytes, expected at least 128 (8x8 samples of 2 bytes)");
  EXPECT_FALSE(fbc::parseYUV422(raw, 0, 8, samples, error));
  EXPECT_EQ(error, raw + ": width 0 is out of range (1..65536)");
}

// Comments between fields end with their line; the token after one is read as it stands.
TEST_F(Readers, CommentBeforeFieldIsNoMark) {
  const std::string path = put("in.ppm", "P3\n# made by hand, -1 #\n1 # width\n1\n255\n1 2 3\n");
  int w = 0, h = 0;
  Samples rgb;
  std::string error;
  ASSERT_TRUE(fbc::parsePPM(path, 8, w, h, rgb, error)) << error;
  EXPECT_EQ(w, 1);
  EXPECT_EQ(h, 1);
  EXPECT_EQ(rgb, (Samples{1, 2, 3}));
}

// The raw reader measures the file before it sizes a buffer, so a short file said to hold
// 16000x16000 samples (512000000 bytes) costs no memory: it fails the same under a 256 MB limit.
bool failsWithinLimit(const std::string& path) {
  const rlimit limit{256 << 20, 256 << 20};
  setrlimit(RLIMIT_AS, &limit);
  Samples samples;
  std::string error;
  return !fbc::parseRAW(path, 16000, 16000, 3, samples, error) &&
         error ==
             path + ": size 6 bytes, expected at least 512000000 (16000x16000 samples of 2 bytes)";
}

TEST_F(Readers, HugeClaimInAShortFileAllocatesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own mappings do not fit an address-space limit";
#endif
  const std::string path = put("big.raw", std::string(6, 'x'));
  EXPECT_EXIT(std::exit(failsWithinLimit(path) ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

TEST_F(Readers, LenientReadersRaiseBadArrayLengthOnOversizedCounts) {
  unsigned w = 0, h = 0;
  unsigned short* data = nullptr;
  EXPECT_THROW(
      ParsePPMFile_all(put("big.ppm", "P3 4294967295 4294967295 255\n").c_str(), w, h, data, 8),
      std::bad_array_new_length);
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(ParseRAWFile(put("n.raw", "").c_str(), -2, 3, data, 0), std::bad_array_new_length);
  ::testing::internal::GetCapturedStdout();
}

// Pixels (1,2,3) (4,5,6) / (7,8,9) (10,11,12) at maximum 255, scaled by 16 to 12 bits, sampled
// R G / G B (0), G R / B G (1), B G / G R (2), G B / R G (3).
TEST_F(Readers, LoadPpmSamplesTheMosaicAt12Bits) {
  const Pixels expected[4] = {
      {16, 80, 128, 192}, {32, 64, 144, 176}, {48, 80, 128, 160}, {32, 96, 112, 176}};
  const std::string path = put("in.ppm", "P6\n2 2\n255\n\1\2\3\4\5\6\7\x08\x09\x0A\x0B\x0C");
  for (int cfa = 0; cfa < 4; ++cfa) {
    fbc::PictureOptions options;
    options.cfa = cfa;
    Frame f(Frame::CS_RGB);
    std::string error;
    ASSERT_TRUE(fbc::loadPicture(path, options, f, error)) << error;
    EXPECT_EQ(f.cs, Frame::CS_RAW);
    EXPECT_EQ(f.depth, 12);
    EXPECT_EQ(f.cfa, cfa);
    EXPECT_EQ(pixels(f), expected[cfa]) << cfa;
  }
}

TEST_F(Readers, LoadPgmAndRaw) {
  Frame f(Frame::CS_RAW);
  std::string error;
  fbc::PictureOptions options;
  ASSERT_TRUE(fbc::loadPicture(put("a.pgm", std::string("P5\n2 1\n1023\n\x03\xFF\x00\x01", 16)),
                               options, f, error))
      << error;
  EXPECT_EQ(pixels(f), (Pixels{4092, 4}));  // 1023 * 4
  ASSERT_TRUE(fbc::loadPicture(put("b.PGM", "P2 1 1 15 15\n"), options, f, error)) << error;
  EXPECT_EQ(pixels(f), (Pixels{3840}));  // 15 * 4096 / 16

  options.width = 2;
  options.height = 1;
  options.cfa = 2;
  ASSERT_TRUE(
      fbc::loadPicture(put("in.raw", std::string("\xFF\x0F\x01\x00", 4)), options, f, error))
      << error;
  EXPECT_EQ(pixels(f), (Pixels{4095, 1}));
  EXPECT_EQ(f.cfa, CFA_BGGR);
  options.rawMode = 4;
  ASSERT_TRUE(fbc::loadPicture(put("p.raw", "\x01\xFC\xFF\x0F"), options, f, error)) << error;
  EXPECT_EQ(pixels(f), (Pixels{4, 4092}));
}

TEST_F(Readers, LoadPictureReportsOneLine) {
  const struct {
    const char* name;
    std::string content;
    int width, height, rawMode, cfa;
    std::string message;  // after "<path>: "
  } cases[] = {
      {"a.raw", std::string("\xFF\x0F\x00\x10", 4), 2, 1, fbc::kRawPlain16, 0,
       "sample 4096 at pixel (1, 0) is above 4095"},
      {"b.raw", std::string(6, '\0'), 2, 1, fbc::kRawPlain16, 0,
       "size 6 bytes, expected 4 (2x1 samples of 2 bytes)"},
      {"c.raw", std::string(4, '\0'), 0, 0, fbc::kRawPlain16, 0,
       "a raw picture needs a width and a height"},
      {"d.raw", std::string(4, '\0'), 2, 1, 5, 0, "raw packing mode 5 is out of range (0..4)"},
      {"e.pgm", "P3 1 1 255 1 2 3\n", 0, 0, 0, 0, "expected a grey picture (P2 or P5), found P3"},
      {"f.bmp", "BM", 0, 0, 0, 0, "unknown picture type \".bmp\" (expected .ppm, .pgm or .raw)"},
      {"g.ppm", "P5 1 1 255 \x01", 0, 0, 0, 0, "unknown magic \"P5\" (expected P3 or P6)"},
      {"h.ppm", "P3 1 1 255 1 2 3\n", 0, 0, 0, 4, "CFA layout 4 is out of range (0..3)"}};
  for (const auto& c : cases) {
    fbc::PictureOptions options;
    options.width = c.width;
    options.height = c.height;
    options.rawMode = c.rawMode;
    options.cfa = c.cfa;
    Frame f(Frame::CS_RAW);
    std::string error;
    EXPECT_FALSE(fbc::loadPicture(put(c.name, c.content), options, f, error));
    EXPECT_EQ(error, dir_.file(c.name) + ": " + c.message);
  }
}

}  // namespace
