#include "framework/IPBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "image/Frame.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;

TEST(IPBaseNames, InstanceNameOnlyForGetName) {
  IPBase block("FbC");
  EXPECT_EQ("FbC", block.getName());
  EXPECT_EQ("fbc", block.getNameLower());
  EXPECT_EQ("FBC", block.getNameUpper());
  block.setInstanceName("Cmp2");
  EXPECT_EQ("Cmp2", block.getName());
  EXPECT_EQ("cmp2", block.getNameLower());
  EXPECT_EQ("fbc", block.getSectionNameLower());
  EXPECT_EQ("reg_fbc_en", block.getEnableKey());
}

TEST(IPBaseDefaults, BaseSlots) {
  IPBase block("FBC");
  EXPECT_FALSE(block.isEnabled());
  EXPECT_EQ(0, block.m_dumpLevel);
  EXPECT_TRUE(block.m_outputDir.empty());

  Frame in(2, 1, Frame::CS_YUV422, 10, CFA_BGGR, RGBIR_LAYOUT3);
  in.GetPixel(0, 0) = 5;
  in.GetPixel(1, 0) = 6;
  std::vector<Frame*> ins{&in};
  std::vector<Frame*> outs;
  block.allocateOutputFrame(ins, outs);
  ASSERT_EQ(1u, outs.size());
  std::unique_ptr<Frame> owned(outs[0]);
  EXPECT_EQ(2, owned->width);
  EXPECT_EQ(CFA_BGGR, owned->cfa);

  Frame out(1, 1, Frame::CS_RAW);
  std::vector<Frame*> target{&out};
  TGlobalParam g;
  EXPECT_TRUE(block.execute(ins, target, g));
  EXPECT_EQ(2, out.width);
  EXPECT_EQ(6, out.GetPixel(1, 0));
  EXPECT_EQ(Frame::CS_YUV422, out.cs);
  EXPECT_EQ(10, out.depth);
}

struct BitsCase {
  int value, srcHi, srcLo, reg, dstHi, dstLo, expected;
};

class SetBits : public ::testing::TestWithParam<BitsCase> {};

TEST_P(SetBits, ReplacesOnlyTheDestinationBits) {
  const BitsCase& c = GetParam();
  int reg = c.reg;
  setBits(c.value, c.srcHi, c.srcLo, reg, c.dstHi, c.dstLo);
  EXPECT_EQ(c.expected, reg);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SetBits,
    ::testing::Values(
        BitsCase{0xABCD, 7, 4, 0xFFFF, 11, 8, 0xFCFF},  // (0xABCD >> 4) & 0xF = 0xC into 11:8
        BitsCase{5, 31, 0, 0x1230, 3, 0, 0x1235},       // 32-bit source width: no source mask
        BitsCase{-1, 31, 0, 0, 31, 0, -1},              // full 32-bit destination
        BitsCase{0x7, 1, 0, 0, 7, 4, 0x30},             // source masked to 2 bits: 0x3 << 4
        BitsCase{0x1F, 4, 0, 0x0F0F, 3, 0, 0x0F0F},     // 0x1F into 4 bits: 0xF, already there
        BitsCase{1, 0, 0, 0x1234, 15, 32, 0x1234},      // destination at bit 32: unchanged
        BitsCase{INT_MIN, 40, 32, 0, 7, 0, 0xFF},  // source at 32 or more shifts by 31: all ones
        BitsCase{-2, 15, 0, 0x7FFF0000, 15, 0, 0x7FFFFFFE}));

// A block whose execute writes the output and scribbles over its format fields.
class Scribbler : public IPBase {
 public:
  Scribbler() : IPBase("FBC") {}
  bool result = true;
  bool execute(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam&) override {
    *out[0] = *in[0];
    out[0]->GetPixel(0, 0) = 0x1234;
    for (Frame* f : out) {
      f->cs = Frame::CS_RGB;
      f->cfa = CFA_GBRG;
      f->depth = 3;
      f->rgbir = RGBIR_LAYOUT1;
    }
    return result;
  }
};

std::vector<std::string> dumpFiles(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir.path()))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(IPBaseRun, EmptyInputDoesNothing) {
  TempDir dir;
  Scribbler block;
  Frame out(1, 1, Frame::CS_RAW);
  std::vector<Frame*> in;
  std::vector<Frame*> outs{&out};
  TGlobalParam g;
  EXPECT_FALSE(block.run(in, outs, g, dir.path(), 1));
  EXPECT_TRUE(dumpFiles(dir).empty());
  EXPECT_EQ(0, out.GetPixel(0, 0));
}

TEST(IPBaseRun, OneInputDumpsInAndOutAndRestoresFormat) {
  TempDir dir;
  Scribbler block;
  Frame in(1, 1, Frame::CS_RAW, 12);
  in.GetPixel(0, 0) = 0x0ABC;
  Frame out(1, 1, Frame::CS_YUV, 10, CFA_GRBG, RGBIR_LAYOUT5);
  std::vector<Frame*> ins{&in};
  std::vector<Frame*> outs{&out};
  TGlobalParam g;
  EXPECT_TRUE(block.run(ins, outs, g, dir.path(), 1));
  EXPECT_EQ((std::vector<std::string>{"fbc_in.bin", "fbc_out.bin"}), dumpFiles(dir));
  EXPECT_EQ(0x1234, out.GetPixel(0, 0));
  EXPECT_EQ(Frame::CS_YUV, out.cs);
  EXPECT_EQ(CFA_GRBG, out.cfa);
  EXPECT_EQ(10, out.depth);
  EXPECT_EQ(RGBIR_LAYOUT5, out.rgbir);
  EXPECT_EQ(std::string("\xBC\x0A", 2), readBytes(dir.file("fbc_in.bin")));
  // Dumped with the restored colour space: CS_YUV writes each sample three times.
  EXPECT_EQ(std::string("\x34\x12\x34\x12\x34\x12", 6), readBytes(dir.file("fbc_out.bin")));
}

TEST(IPBaseRun, SeveralInputsAreNumberedAndResultPassesThrough) {
  TempDir dir;
  Scribbler block;
  block.result = false;
  block.setInstanceName("Cmp");
  Frame a(1, 1, Frame::CS_RAW), b(1, 1, Frame::CS_RAW), c(1, 1, Frame::CS_RAW);
  Frame out(1, 1, Frame::CS_RAW);
  std::vector<Frame*> ins{&a, &b, &c};
  std::vector<Frame*> outs{&out};
  TGlobalParam g;
  EXPECT_FALSE(block.run(ins, outs, g, dir.path(), 1));
  EXPECT_EQ(
      (std::vector<std::string>{"cmp_out.bin", "cmp_p0_in.bin", "cmp_p1_in.bin", "cmp_p2_in.bin"}),
      dumpFiles(dir));
}

TEST(IPBaseRun, IndexOtherThanOneWritesNoDump) {
  TempDir dir;
  Scribbler block;
  Frame in(1, 1, Frame::CS_RAW);
  Frame out(1, 1, Frame::CS_RAW);
  std::vector<Frame*> ins{&in};
  std::vector<Frame*> outs{&out};
  TGlobalParam g;
  EXPECT_TRUE(block.run(ins, outs, g, dir.path(), 2));
  EXPECT_TRUE(dumpFiles(dir).empty());
  EXPECT_EQ(0x1234, out.GetPixel(0, 0));
}

}  // namespace
