#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "image/Frame.h"
#include "image/ParsePPM.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::TempDir;
using fbc::test::writeBytes;

std::vector<std::string> allTokens(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> tokens;
  while (in.peek() != std::ifstream::traits_type::eof()) tokens.push_back(get_file_token(in));
  return tokens;
}

struct TokenCase {
  const char* text;
  std::vector<std::string> tokens;
};

class FileToken : public ::testing::TestWithParam<TokenCase> {};

TEST_P(FileToken, SplitsLettersAndDigits) {
  TempDir dir;
  writeBytes(dir.file("t.ppm"), GetParam().text);
  EXPECT_EQ(allTokens(dir.file("t.ppm")), GetParam().tokens);
}

INSTANTIATE_TEST_SUITE_P(
    Tokens, FileToken,
    ::testing::Values(TokenCase{"P6 # made by x\n4 2 255\n", {"P6", "4", "2", "255"}},
                      TokenCase{"12-34.5\n", {"12", "34", "5"}},
                      TokenCase{"ab#c\nd", {"ab", "d"}},  // a comment ends a begun token
                      TokenCase{"7", {"7"}},              // end of file ends a token
                      TokenCase{"  \n# only\n", {""}}));  // nothing but separators and comments

// The end counts once a read has hit it: the first token of an empty file is still read (empty),
// the second ends the process.
TEST(FileToken, AtEndOfFileEndsTheProcess) {
  TempDir dir;
  writeBytes(dir.file("e.ppm"), "");
  EXPECT_EXIT(
      {
        std::ifstream in(dir.file("e.ppm"), std::ios::binary);
        if (get_file_token(in).empty()) get_file_token(in);
      },
      ::testing::ExitedWithCode(255), "^Error : Parsing file \n$");
}

TEST(String2Dec, WrapsWithoutChecks) {
  EXPECT_EQ(string2dec(""), 0u);
  EXPECT_EQ(string2dec("255"), 255u);
  EXPECT_EQ(string2dec("4294967297"), 1u);  // 2^32 + 1
}

struct ScaleCase {
  std::string file;
  int bits;
  std::vector<unsigned short> samples;
};

class ParsePPMAll : public ::testing::TestWithParam<ScaleCase> {};

TEST_P(ParsePPMAll, ScalesToOutputBits) {
  TempDir dir;
  writeBytes(dir.file("s.ppm"), GetParam().file);
  unsigned w = 0;
  unsigned h = 0;
  unsigned short* data = nullptr;
  ParsePPMFile_all(dir.file("s.ppm").c_str(), w, h, data, GetParam().bits);
  const std::size_t n = 3 * static_cast<std::size_t>(w) * h;
  EXPECT_EQ(std::vector<unsigned short>(data, data + n), GetParam().samples);
  delete[] data;
}

INSTANTIATE_TEST_SUITE_P(
    Readers, ParsePPMAll,
    ::testing::Values(
        ScaleCase{"P3\n1 1\n255\n1 2 3\n", 8, {1, 2, 3}},
        ScaleCase{"P3\n1 1\n255\n1 2 3\n", 12, {16, 32, 48}},
        ScaleCase{"P3\n1 1 1023 1023 512 3\n", 12, {4092, 2048, 12}},
        ScaleCase{"P3\n1 1 1023 1023 512 3\n", 8, {255, 128, 0}},  // 1023/4 = 255.75
        // maximum 256 still reads single bytes: 200 * 256/257 = 199.2
        ScaleCase{std::string("P6\n1 1\n256\n") + std::string("\xC8\x01\x00", 3), 8, {199, 0, 0}},
        // maximum 257 reads two bytes, first more significant: 256 * 256/258 = 254.02
        ScaleCase{std::string("P6\n1 1\n257\n") + std::string("\x01\x00\x00\x01\x00\x00", 6),
                  8,
                  {254, 0, 0}},
        // The reader is lenient where the file is not: short P6 body, 0x10 * 16, the rest zero
        ScaleCase{"P6 2 1 255\n\x10", 12, {256, 0, 0, 0, 0, 0}},
        // short two-byte P6 body: 0x0008 * 256/1024 = 2; the half-read sample keeps its high byte,
        // 0x0100
        ScaleCase{std::string("P6 1 1 1023\n\x00\x08\x01", 15), 8, {2, 64, 0}},
        // P6 above the maximum: 200 * 256/101 = 506.9
        ScaleCase{"P6 1 1 100\n\xC8\x01\x02", 8, {506, 2, 5}},
        // P3 above the maximum: 5 * 256/2 = 640
        ScaleCase{"P3 1 1 1 5 1 0", 8, {640, 128, 0}},
        // trailing separators give an empty token, read as 0
        ScaleCase{"P3 1 1 255 1 2 \n", 8, {1, 2, 0}},
        // so does a final line feed: the stream has not hit its end before the last token
        ScaleCase{"P3 1 1 255\n1 2\n", 8, {1, 2, 0}}));

TEST(ParsePPMFile, OlderReaderRescalesAsciiOnly) {
  TempDir dir;
  writeBytes(dir.file("a.ppm"), "P3 1 1 1023 1023 512 0\n");
  unsigned values[3] = {9, 9, 9};
  ParsePPMFile(dir.file("a.ppm").c_str(), values);
  EXPECT_EQ(values[0], 255u);
  EXPECT_EQ(values[1], 127u);  // 512 * 255 / 1023 = 127.6
  EXPECT_EQ(values[2], 0u);

  writeBytes(dir.file("b.ppm"), std::string("P6 1 1 1023\n\x05\x06\x07", 15));
  ParsePPMFile(dir.file("b.ppm").c_str(), values);
  EXPECT_EQ(values[0], 5u);
  EXPECT_EQ(values[1], 6u);
  EXPECT_EQ(values[2], 7u);
}

struct RawCase {
  const char* name;
  std::string bytes;
  int width;
  int height;
  int mode;  // packing mode; -1 for the YUV 4:2:2 reader
  std::vector<unsigned short> samples;
};

class LenientRaw : public ::testing::TestWithParam<RawCase> {};

// The specified readers print the size and read on where the file ends early.
TEST_P(LenientRaw, UnpacksWords) {
  const RawCase c = GetParam();
  TempDir dir;
  writeBytes(dir.file("w.raw"), c.bytes);
  unsigned short* data = nullptr;
  ::testing::internal::CaptureStdout();
  if (c.mode < 0) {
    ParseYUV422File(dir.file("w.raw").c_str(), c.width, c.height, data);
  } else {
    ParseRAWFile(dir.file("w.raw").c_str(), c.width, c.height, data, c.mode);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Width " + std::to_string(c.width) + "\nHeight " + std::to_string(c.height) + "\n");
  EXPECT_EQ(std::vector<unsigned short>(data, data + c.samples.size()), c.samples);
  delete[] data;
}

// The word 0xABCD stored little-endian, unless said otherwise.
INSTANTIATE_TEST_SUITE_P(
    Readers, LenientRaw,
    ::testing::Values(RawCase{"lowByteUp", "\xCD\xAB", 1, 1, 0, {0xCDA}},  // top nibble down
                      RawCase{"upper12", "\xCD\xAB", 1, 1, 1, {0xABC}},
                      RawCase{"shifted", "\xCD\xAB", 1, 1, 2, {0xCDA}},  // 0xCDAB >> 4
                      RawCase{"asStored", "\xCD\xAB", 1, 1, 3, {0xABCD}},
                      RawCase{"unknownAs0", "\xCD\xAB", 1, 1, 7, {0xCDA}},
                      // 0xFC01, 0x0FFF: 0x001 * 4, then 0x3F | 0xF << 6 = 0x3FF, * 4
                      RawCase{"tenBitCrossesWords", "\x01\xFC\xFF\x0F", 2, 1, 4, {4, 4092}},
                      RawCase{"yuvLow10", "\x01\x04\xFF\xFF", 1, 1, -1, {0x001, 0x3FF}},
                      // word 0x1234, then half a word; the rest stays zero
                      RawCase{"short", "\x34\x12\x56", 2, 2, 3, {0x1234, 0x0056, 0, 0}},
                      RawCase{"shortYuv", "\x34\x12\x56", 1, 2, -1, {0x234, 0x056, 0, 0}}),
    [](const ::testing::TestParamInfo<RawCase>& p) { return std::string(p.param.name); });

TEST(RawPacking, TenBitStreamRunsOnAcrossRows) {
  TempDir dir;
  // Values 1..6 packed continuously: words 0x0801 0x0030 0x0501 0x0018 0 0.
  writeBytes(dir.file("p.raw"),
             std::string("\x01\x08\x30\x00\x01\x05\x18\x00\x00\x00\x00\x00", 12));
  std::vector<std::uint16_t> samples;
  std::string error;
  ASSERT_TRUE(fbc::parseRAW(dir.file("p.raw"), 3, 2, 4, samples, error)) << error;
  EXPECT_EQ(samples, (std::vector<std::uint16_t>{4, 8, 12, 16, 20, 24}));
}

TEST(FrameReaders, ReadPPMTakesTopLeftMosaic) {
  TempDir dir;
  // 4x2 picture, pixel (x, y) = (10x + 100y + 1, +2, +3).
  std::string text = "P3\n4 2\n255\n";
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 4; ++x) {
      const int base = 10 * x + 100 * y;
      text += std::to_string(base + 1) + " " + std::to_string(base + 2) + " " +
              std::to_string(base + 3) + "\n";
    }
  }
  writeBytes(dir.file("pic_0007.ppm"), text);
  Frame f(Frame::CS_RAW, CFA_RGGB, 8, RGBIR_NONE);
  f.readPPM(dir.file("pic"), 7, 2, 100, CFA_RGGB, 8);
  ASSERT_EQ(f.width, 2);
  ASSERT_EQ(f.height, 2);
  EXPECT_EQ(f.C(0, 0), 1);    // R
  EXPECT_EQ(f.C(1, 0), 12);   // G
  EXPECT_EQ(f.C(0, 1), 102);  // G, from the file's second row of 4 pixels
  EXPECT_EQ(f.C(1, 1), 113);  // B
  EXPECT_EQ(f.depth, 8);
}

TEST(FrameReaders, ReadRAWClipsAndShiftsFourTimes) {
  TempDir dir;
  writeBytes(dir.file("r_0000.raw"), "\xFF\x0F\x88\x13");  // 4095, 5000
  Frame f(Frame::CS_RAW);
  ::testing::internal::CaptureStdout();
  f.readRAW(dir.file("r"), 0, 2, 1, 3, 12, 0, 10);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(f.C(0, 0), 15);  // 4095 >> 8
  EXPECT_EQ(f.C(1, 0), 15);  // 5000 clipped to 4095 first

  writeBytes(dir.file("u_0001.raw"), std::string("\x01\x00", 2));
  ::testing::internal::CaptureStdout();
  f.readRAW(dir.file("u"), 1, 1, 1, 3, 8, 0, 12);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(f.C(0, 0), 65535);  // 16, 256, 4096, 65536 clipped
}

TEST(FrameReaders, ReadRAWYCKeepsSecondWord) {
  TempDir dir;
  writeBytes(dir.file("c_0000.raw"), std::string("\x11\x00\x22\x00\x33\x00\x44\x00", 8));
  Frame f(Frame::CS_YUV422);
  ::testing::internal::CaptureStdout();
  f.readRAWYC(dir.file("c"), 0, 2, 1);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(f.C(0, 0), 0x22);
  EXPECT_EQ(f.C(1, 0), 0x44);
}

TEST(FrameReaders, ReadCRWDoesNotTouchTheFile) {
  Frame f(Frame::CS_RAW);
  ::testing::internal::CaptureStdout();
  f.readCRW("/nonexistent/shot", 3, 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "width = 1; height = 1\n");
  EXPECT_EQ(f.width, 1);
  EXPECT_EQ(f.height, 1);
  EXPECT_EQ(f.C(0, 0), 0);
}

struct BadFile {
  std::string content;
  std::string message;  // after "<path>: "
};

class ReportingPPM : public ::testing::TestWithParam<BadFile> {};

TEST_P(ReportingPPM, NamesFileAndProblem) {
  TempDir dir;
  const std::string path = dir.file("in.ppm");
  writeBytes(path, GetParam().content);
  int w = 0;
  int h = 0;
  std::vector<std::uint16_t> rgb;
  std::string error;
  EXPECT_FALSE(fbc::parsePPM(path, 12, w, h, rgb, error));
  EXPECT_EQ(error, path + ": " + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Readers, ReportingPPM,
    ::testing::Values(
        BadFile{"P6\n640 480\n255\n" + std::string(1000, 'x'),
                "header says 640x480 but only 1000 of 921600 bytes of samples follow"},
        BadFile{"P6\n2 1\n1000\n" + std::string(11, 'x'),
                "header says 2x1 but only 11 of 12 bytes of samples follow"},
        BadFile{"P7\n1 1\n255\n", "unknown magic \"P7\" (expected P3 or P6)"},
        BadFile{"P5\n1 1\n255\nx", "unknown magic \"P5\" (expected P3 or P6)"},
        BadFile{"", "empty file"}, BadFile{"P6\n4", "header ends before the height"},
        BadFile{"P3\n0 4 255\n", "width 0 is out of range (1..65536)"},
        BadFile{"P3\n4 70000 255\n", "height 70000 is out of range (1..65536)"},
        BadFile{"P3\n16384 16384 255\n",
                "16384x16384 is too large (805306368 samples, limit 268435456)"},
        BadFile{"P3\nab 1 255\n", "width \"ab\" is not a number"},
        BadFile{"P3\n1 1 0\n", "maximum value 0 is out of range (1..65535)"},
        BadFile{"P3\n1 1 255\n1 2\n", "header says 1x1 but only 2 of 3 samples follow"},
        BadFile{"P3\n1 1 255\n1 2 300\n", "sample 2 is 300, above the maximum value 255"},
        BadFile{"P3\n1 1 255\n1 x2 3\n", "sample 1 \"x2\" is not a number"},
        // A sign is not a separator: a negative size or sample is rejected, not read unsigned.
        BadFile{"P6\n-16 4\n255\n" + std::string(192, 'x'), "width \"-16\" is not a number"},
        BadFile{"P6 16\t+4 255\n" + std::string(192, 'x'), "height \"+4\" is not a number"},
        BadFile{"P3\n1 1 255\n1 -2 3\n", "sample 1 \"-2\" is not a number"}));

// Comments between fields end with their line; the token after one is read as it stands.
TEST(ReportingParsers, CommentBeforeFieldIsNoMark) {
  TempDir dir;
  const std::string path = dir.file("in.ppm");
  writeBytes(path, "P3\n# made by hand, -1 #\n1 # width\n1\n255\n1 2 3\n");
  int w = 0;
  int h = 0;
  std::vector<std::uint16_t> rgb;
  std::string error;
  ASSERT_TRUE(fbc::parsePPM(path, 8, w, h, rgb, error)) << error;
  EXPECT_EQ(w, 1);
  EXPECT_EQ(h, 1);
  EXPECT_EQ(rgb, (std::vector<std::uint16_t>{1, 2, 3}));
}

// The raw reader measures the file before it sizes a buffer, so a short file said to hold
// 16000x16000 samples (512000000 bytes) costs no memory: it fails the same under a 256 MB limit.
bool failsWithinLimit(const std::string& path) {
  const rlimit limit{256 << 20, 256 << 20};
  setrlimit(RLIMIT_AS, &limit);
  std::vector<std::uint16_t> samples;
  std::string error;
  return !fbc::parseRAW(path, 16000, 16000, 3, samples, error) &&
         error ==
             path + ": size 6 bytes, expected at least 512000000 (16000x16000 samples of 2 bytes)";
}

TEST(ReportingParsers, HugeClaimInAShortFileAllocatesNothing) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own mappings do not fit an address-space limit";
#endif
  TempDir dir;
  writeBytes(dir.file("big.raw"), std::string(6, 'x'));
  EXPECT_EXIT(std::exit(failsWithinLimit(dir.file("big.raw")) ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
}

TEST(ReportingParsers, MissingFile) {
  std::vector<std::uint16_t> samples;
  std::string error;
  EXPECT_FALSE(fbc::parseRAW("/nonexistent/in.raw", 8, 8, 3, samples, error));
  EXPECT_EQ(error, "/nonexistent/in.raw: cannot open file (No such file or directory)");
}

TEST(ReportingParsers, ShortRawFile) {
  TempDir dir;
  writeBytes(dir.file("in.raw"), std::string(120, '\0'));
  std::vector<std::uint16_t> samples;
  std::string error;
  EXPECT_FALSE(fbc::parseRAW(dir.file("in.raw"), 8, 8, 0, samples, error));
  EXPECT_EQ(error, dir.file("in.raw") +
                       ": size 120 bytes, expected at least 128 (8x8 samples of 2 bytes)");
  EXPECT_FALSE(fbc::parseYUV422(dir.file("in.raw"), 0, 8, samples, error));
  EXPECT_EQ(error, dir.file("in.raw") + ": width 0 is out of range (1..65536)");
}

TEST(LenientReaders, OlderReaderKeepsCallerValuesPastShortBody) {
  TempDir dir;
  writeBytes(dir.file("o.ppm"), "P6 2 1 255\n\x05\x06");
  unsigned values[6] = {9, 9, 9, 9, 9, 9};
  ParsePPMFile(dir.file("o.ppm").c_str(), values);
  EXPECT_EQ(std::vector<unsigned>(values, values + 6), (std::vector<unsigned>{5, 6, 9, 9, 9, 9}));
}

TEST(LenientReaders, OversizedCountsRaiseBadArrayLength) {
  TempDir dir;
  writeBytes(dir.file("big.ppm"), "P3 4294967295 4294967295 255\n");
  unsigned w = 0;
  unsigned h = 0;
  unsigned short* data = nullptr;
  EXPECT_THROW(ParsePPMFile_all(dir.file("big.ppm").c_str(), w, h, data, 8),
               std::bad_array_new_length);
  writeBytes(dir.file("n.raw"), "");
  ::testing::internal::CaptureStdout();
  EXPECT_THROW(ParseRAWFile(dir.file("n.raw").c_str(), -2, 3, data, 0), std::bad_array_new_length);
  ::testing::internal::GetCapturedStdout();
}

TEST(LenientReaders, TokenAtEndOfFileEndsTheProcess) {
  TempDir dir;
  // The failing read is the token reader's own, which names no file.
  writeBytes(dir.file("t.ppm"), "P3 1 1 255 1 2");
  const std::string name = dir.file("t.ppm");
  EXPECT_EXIT(
      {
        unsigned w = 0;
        unsigned h = 0;
        unsigned short* data = nullptr;
        ParsePPMFile_all(name.c_str(), w, h, data, 8);
      },
      ::testing::ExitedWithCode(255), "^Error : Parsing file \n$");
  writeBytes(dir.file("h.ppm"), "P6\n4");
  const std::string header = dir.file("h.ppm");
  EXPECT_EXIT(
      {
        unsigned values[3];
        ParsePPMFile(header.c_str(), values);
      },
      ::testing::ExitedWithCode(255), "^Error : Parsing file \n$");
}

TEST(ReportingParsers, WrappersEndTheProcess) {
  TempDir dir;
  writeBytes(dir.file("bad.ppm"), "P9\n1 1 255\n");
  const std::string name = dir.file("bad.ppm");
  EXPECT_EXIT(
      {
        unsigned w = 0;
        unsigned h = 0;
        unsigned short* data = nullptr;
        ParsePPMFile_all(name.c_str(), w, h, data, 8);
      },
      ::testing::ExitedWithCode(255), "^Error : Parsing file " + name + "\n$");
  EXPECT_EXIT(
      {
        unsigned short* data = nullptr;
        ParseRAWFile("/nonexistent/x.raw", 1, 1, data, 0);
      },
      ::testing::ExitedWithCode(255), "^Error : Parsing file /nonexistent/x.raw\n$");
}

}  // namespace
