#include <random>

#include "codec/FBC_dll.h"
#include "codec_fixture.h"

using namespace fbc;

using RawDecode = CodecTest;

TEST_F(RawDecode, DisabledBlockPassesBytesThrough) {
  codec.Enable = 0;
  unsigned char in[4] = {0xAB, 0x00, 0xFF, 0x12};
  unsigned short out[4] = {};
  codec.DecompressFrame(in, out, 2, 2, 0);
  EXPECT_EQ(out[0], 0x00AB);
  EXPECT_EQ(out[2], 0x00FF);
  EXPECT_EQ(out[3], 0x0012);
}

TEST_F(RawDecode, ShortRowsReadIntoTheNextRow) {
  // Width 12: the second block of each row is read from bytes 8..15 counted from the row's
  // start (4 bytes of the next row included) and keeps 4 pixels.
  const int width = 12, height = 3;
  std::vector<unsigned char> in(width * height + 7);
  std::mt19937 rng(1);
  for (auto& b : in) b = static_cast<unsigned char>(rng());
  std::vector<unsigned short> out(width * height, 0xDEAD);
  codec.DecompressFrame(in.data(), out.data(), width, height, 0);
  for (int r = 0; r < height; ++r) {
    for (int x : {0, 8}) {
      int px[8];
      codec.decodeBlock(loadCode(&in[r * width + x]), px);
      for (int i = 0; i < 8 && x + i < width; ++i)
        EXPECT_EQ(out[r * width + x + i], px[i] << 4) << r << "," << x + i;
    }
  }
}

TEST_F(RawDecode, NothingWrittenForEmptySizes) {
  unsigned char in[8] = {};
  unsigned short out[1] = {7};
  codec.DecompressFrame(in, out, 0, 5, 0);
  codec.DecompressFrame(in, out, 5, -1, 0);
  EXPECT_EQ(out[0], 7);
}

TEST(LibraryEntry, PrintsItsLinesAndDecodesWithDefaults) {
  // Two flat Hadamard blocks of 0x123 (shift 3, DC 0x123), then one all-zero block.
  unsigned char in[24 + 7] = {};
  for (int b = 0; b < 2; ++b) storeCode(0x6246000000000000ull, in + 8 * b);
  unsigned short out[24];
  testing::internal::CaptureStdout();
  const int rc = FBD_Execute(in, out, 8, 3);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "FBD start... r4_k9_v1.6\nFBD in process...\nFBD end!\n");
  EXPECT_EQ(rc, 1);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(out[i], 0x1230);
  for (int i = 16; i < 24; ++i) EXPECT_EQ(out[i], 0);
}

TEST(CheckedEntry, RejectsMalformedCalls) {
  std::vector<unsigned char> in(12 * 2 + 4);
  std::vector<unsigned short> out(24, 0xBEEF);
  struct Case {
    const unsigned char* in;
    size_t inSize;
    unsigned short* out;
    size_t outCount;
    int width, height, result;
  } cases[] = {
      {nullptr, 28, out.data(), 24, 12, 2, FBD_ERR_NULL},
      {in.data(), 28, nullptr, 24, 12, 2, FBD_ERR_NULL},
      {in.data(), 28, out.data(), 24, 0, 2, FBD_ERR_SIZE},
      {in.data(), 28, out.data(), 24, 12, -1, FBD_ERR_SIZE},
      {in.data(), 28, out.data(), 23, 12, 2, FBD_ERR_OUT_TOO_SMALL},
      // width 12: the last block reads 4 bytes past 24
      {in.data(), 27, out.data(), 24, 12, 2, FBD_ERR_IN_TOO_SMALL},
      {in.data(), 28, out.data(), 24, 12, 2, FBD_OK},
      {in.data(), 16, out.data(), 24, 8, 2, FBD_OK},
      {in.data(), 15, out.data(), 24, 8, 2, FBD_ERR_IN_TOO_SMALL},
      {in.data(), 28, out.data(), 24, 0x7FFFFFFF, 0x7FFFFFFF, FBD_ERR_OUT_TOO_SMALL},
      {in.data(), 28, out.data(), 24, 0x7FFFFFFF, 1, FBD_ERR_OUT_TOO_SMALL},
  };
  for (const Case& c : cases) {
    std::fill(out.begin(), out.end(), 0xBEEF);
    EXPECT_EQ(FBD_ExecuteChecked(c.in, c.inSize, c.out, c.outCount, c.width, c.height), c.result)
        << c.inSize << " " << c.outCount << " " << c.width << "x" << c.height;
    if (c.result != FBD_OK) {
      EXPECT_EQ(out[0], 0xBEEF);
    }
  }
}

TEST(CheckedEntry, MatchesTheLibraryEntry) {
  std::mt19937 rng(11);
  for (int width : {1, 7, 8, 13, 64}) {
    const int height = 3;
    std::vector<unsigned char> in(width * height + 7);
    for (auto& b : in) b = static_cast<unsigned char>(rng());
    std::vector<unsigned short> a(width * height), b(width * height);
    testing::internal::CaptureStdout();
    FBD_Execute(in.data(), a.data(), width, height);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(FBD_ExecuteChecked(in.data(), width * height + (8 - width % 8) % 8, b.data(),
                                 b.size(), width, height),
              FBD_OK);
    EXPECT_EQ(a, b) << width;
  }
}
