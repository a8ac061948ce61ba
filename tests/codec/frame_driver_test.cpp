#include <filesystem>
#include <fstream>
#include <sstream>

#include "codec_fixture.h"
#include "image/Frame.h"

namespace fs = std::filesystem;
using namespace fbc;

namespace {

std::string readFile(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

Frame rampFrame(int w, int h) {
  Frame f(w, h, Frame::CS_RAW, 12);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) f.GetPixel(x, y) = (x * 97 + y * 31) % 4096;
  return f;
}

class FrameDriver : public CodecTest {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() /
          ("fbc_frame_driver_" + std::to_string(::getpid()) + "_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir);
    fs::create_directories(dir);
    codec.m_outputDir = dir.string();
  }
  void TearDown() override { fs::remove_all(dir); }
  fs::path dir;
};

}  // namespace

TEST_F(FrameDriver, ShortLastBlockIsPaddedWithZeros) {
  const Frame in = rampFrame(12, 2);
  Frame comp;
  codec.allocateCompressedFrame(12, 2, comp);
  EXPECT_EQ(comp.width, 16);
  EXPECT_EQ(comp.depth, 8);
  codec.m_dumpLevel = 1;
  codec.CompressFrame(in, comp, 0, 3);
  // Line 2 is row 0's second block: pixels 11, 10, 9, 8 after four zero pads.
  std::istringstream lines(readFile(dir / "fbc_golden_ref_com_input_0003.txt"));
  std::string first, second;
  std::getline(lines, first);
  std::getline(lines, second);
  EXPECT_EQ(first, "2a7_246_1e5_184_123_0c2_061_000");
  EXPECT_EQ(second, "000_000_000_000_42b_3ca_369_308");
  Frame out(12, 2, Frame::CS_RAW, 16);
  codec.DecompressFrame(comp, out, 3);
  EXPECT_EQ(out.width, 12);
  for (int x = 0; x < 12; ++x) EXPECT_NEAR(out.GetPixel(x, 0) / 16, in.GetPixel(x, 0), 64);
}

TEST_F(FrameDriver, RowParityFollowsTheCfaLayout) {
  // Only Truncate enabled: its bit 60 carries the row parity (reg_tr_ext_rb is 0).
  std::fill(std::begin(codec.reg_mode_en), std::end(codec.reg_mode_en), 0);
  const Frame in = rampFrame(8, 4);
  for (int cfa = 0; cfa < 4; ++cfa) {
    Frame comp;
    codec.allocateCompressedFrame(8, 4, comp);
    codec.CompressFrame(in, comp, cfa, 0);
    EXPECT_EQ(comp.cfa, cfa);
    for (int y = 0; y < 4; ++y) {
      const int sel = (comp.GetPixel(7, y) >> 4) & 1;  // bit 60 = bit 4 of byte 7
      const int expected = (cfa == 1 || cfa == 3) ? 1 - (y & 1) : (y & 1);
      EXPECT_EQ(sel, expected) << "cfa " << cfa << " row " << y;
    }
  }
}

TEST_F(FrameDriver, GoldenFilesNamedByFrameIndex) {
  const Frame in = rampFrame(8, 2);
  Frame out(8, 2, Frame::CS_RAW, 16);
  codec.m_dumpLevel = 1;
  codec.compressDecompressFrame(in, out, 0, -1);
  EXPECT_TRUE(fs::is_empty(dir));
  codec.compressDecompressFrame(in, out, 0, 7);
  for (const char* name : {"fbc_golden_ref_com_input_0007.txt", "fbc_com_input_0007.raw",
                           "fbc_golden_ref_com_0007.txt", "fbc_golden_ref_dec_input_0007.txt",
                           "fbc_golden_ref_dec_0007.txt"})
    EXPECT_TRUE(fs::exists(dir / name)) << name;
  // The raw copy: every sample as low byte, high byte.
  const std::string raw = readFile(dir / "fbc_com_input_0007.raw");
  ASSERT_EQ(raw.size(), 32u);
  EXPECT_EQ(static_cast<unsigned char>(raw[2]), 97);  // sample (1, 0) = 97
  EXPECT_EQ(static_cast<unsigned char>(raw[3]), 0);
  EXPECT_EQ(static_cast<unsigned char>(raw[14]), (7 * 97) & 0xFF);
  EXPECT_EQ(static_cast<unsigned char>(raw[15]), (7 * 97) >> 8);
  // One compressed-input line per block, byte 7 first, matching the compressed frame.
  Frame comp;
  codec.allocateCompressedFrame(8, 2, comp);
  codec.CompressFrame(in, comp, 0, -1);
  char expected[32];
  std::snprintf(expected, sizeof expected, "%02x_%02x_%02x_%02x_%02x_%02x_%02x_%02x\n",
                comp.GetPixel(7, 0), comp.GetPixel(6, 0), comp.GetPixel(5, 0), comp.GetPixel(4, 0),
                comp.GetPixel(3, 0), comp.GetPixel(2, 0), comp.GetPixel(1, 0), comp.GetPixel(0, 0));
  EXPECT_EQ(readFile(dir / "fbc_golden_ref_dec_input_0007.txt").substr(0, 24), expected);
}

TEST_F(FrameDriver, DisabledBlockCopiesBothWays) {
  codec.Enable = 0;
  const Frame in = rampFrame(12, 2);
  Frame comp;
  codec.allocateCompressedFrame(12, 2, comp);
  EXPECT_EQ(comp.width, 12);  // padding only when Enable is exactly 1
  Frame out(12, 2, Frame::CS_RAW, 16);
  codec.compressDecompressFrame(in, out, 0, 0);
  for (int x = 0; x < 12; ++x) EXPECT_EQ(out.GetPixel(x, 1), in.GetPixel(x, 1));
}

TEST_F(FrameDriver, EnableOtherThanOneStillCodes) {
  codec.Enable = 2;
  EXPECT_FALSE(codec.isEnabled());
  const Frame in = rampFrame(16, 1);
  Frame out(16, 1, Frame::CS_RAW, 16);
  codec.compressDecompressFrame(in, out, 0, 0);
  EXPECT_EQ(out.GetPixel(3, 0) % 16, 0);  // decoded values come back shifted left by 4
}

TEST_F(FrameDriver, NoExecuteLeavesTheOutputAlone) {
  Compression1x8 idle("FBC", true);
  idle.setSWinit();
  idle.setEnable(true);
  Frame in = rampFrame(8, 1);
  Frame out(8, 1, Frame::CS_RAW, 16);
  std::vector<Frame*> ins{&in}, outs{&out};
  TGlobalParam g;
  EXPECT_TRUE(idle.execute(ins, outs, g));
  EXPECT_EQ(out.GetPixel(5, 0), 0);
}

// Accessor offsets move every sample the drivers read and write, so a frame with offsets never
// takes the direct path. Reference: the same block through frames without offsets.
TEST_F(FrameDriver, OffsetsMoveWhatTheDriversReadAndWrite) {
  const Frame in = rampFrame(8, 1);
  Frame comp, plainOut(8, 1, Frame::CS_RAW, 16);
  codec.allocateCompressedFrame(8, 1, comp);
  codec.CompressFrame(in, comp, 0, -1);
  codec.DecompressFrame(comp, plainOut, -1);

  // Row 0 read through offsetY 1 is the ramp of row 1; row 1 clamps to it too.
  Frame shifted(8, 2, Frame::CS_RAW, 12);
  for (int x = 0; x < 8; ++x) shifted.data[x] = 4095, shifted.data[8 + x] = in.data[x];
  shifted.offsetY = 1;
  Frame comp2(16, 2, Frame::CS_RAW, 8);
  comp2.offsetX = 8;  // codes go to the right half
  codec.CompressFrame(shifted, comp2, 0, -1);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 8; ++x) {
      EXPECT_EQ(comp2.data[16 * y + x], 0) << x << "," << y;
      EXPECT_EQ(comp2.data[16 * y + 8 + x], comp.data[x]) << x << "," << y;
    }

  // Row 1 of the codes read through offsetY 1 into rows 1 and 2 of the output.
  Frame codes(8, 2, Frame::CS_RAW, 8);
  for (int x = 0; x < 8; ++x) codes.data[8 + x] = comp.data[x];
  codes.offsetY = 1;
  Frame out(8, 3, Frame::CS_RAW, 16);
  out.offsetY = 1;
  codec.DecompressFrame(codes, out, -1);
  for (int x = 0; x < 8; ++x) {
    EXPECT_EQ(out.data[x], 0) << x;
    EXPECT_EQ(out.data[8 + x], plainOut.data[x]) << x;
    EXPECT_EQ(out.data[16 + x], plainOut.data[x]) << x;
  }
}
