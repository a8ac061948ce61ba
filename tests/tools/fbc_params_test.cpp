// Parameter files in the fbc tool: checked loading, --set overrides, params show/defaults/check/
// random and the register list of regs.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::listTree;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

const std::string kDefaults = fbc::test::kDefaultParams;

// 16x2 little-endian samples 0..4095 with edges, ramps and flat runs.
std::string sampleImage() {
  std::string s;
  for (int i = 0; i < 32; ++i) {
    const int v = (i * 977 + (i / 5) * 1500) % 4096;
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>(v >> 8);
  }
  return s;
}

struct BadFile {
  const char* name;
  const char* args;  // run in a directory holding p.ini (the text below) and in.raw (8x1)
  const char* text;
  const char* err;  // the whole of standard error
};

class BadParams : public ::testing::TestWithParam<BadFile> {};

TEST_P(BadParams, ExitTwoListingEveryProblemAndWriteNothing) {
  const TempDir dir;
  writeBytes(dir.file("p.ini"), GetParam().text);
  writeBytes(dir.file("in.raw"), std::string(16, '\0'));
  fbc::test::expectRejected(dir, {GetParam().name, GetParam().args, GetParam().err});
}

const char kEncode[] = "encode --width 8 --height 1 --params p.ini in.raw out.bin";

const BadFile kBadFiles[] = {
    {"OutOfRange", kEncode, "[FBC]\nreg_tr_ext_en=5\n",
     "fbc encode: p.ini: Parameter \"FBC/reg_tr_ext_en\" is out of range! 5 is not in [0, 1]!\n"},
    {"NegativeOutOfRange", kEncode, "[FBC]\nreg_edge_diffmin_th=-1\n",
     "fbc encode: p.ini: Parameter \"FBC/reg_edge_diffmin_th\" is out of range! -1 is not in [0, "
     "4095]!\n"},
    {"ArrayElementOutOfRange", kEncode, "[FBC]\nreg_mode_definition=0,1,2,3,4,5,6,7,8,9,16\n",
     "fbc encode: p.ini: Parameter \"FBC/reg_mode_definition\" is out of range! 16 is not in [0, "
     "15]!\n"},
    {"ShortArray", kEncode, "[FBC]\nreg_mode_en=1,1,1\n",
     "fbc encode: p.ini: Failed to get parameter \"FBC/reg_mode_en\"! (Array length mismatch ?)\n"
     "fbc encode: p.ini: parameter \"FBC/reg_mode_en\" has 3 values, expected 11\n"},
    // reg_comp_lut_in is bound to both curves; the problem is still listed once.
    {"ShortCurveArray", kEncode, "[FBC]\nreg_comp_lut_in=1,2\n",
     "fbc encode: p.ini: Failed to get parameter \"FBC/reg_comp_lut_in\"! (Array length mismatch "
     "?)\n"
     "fbc encode: p.ini: parameter \"FBC/reg_comp_lut_in\" has 2 values, expected 15\n"},
    {"LongArray", kEncode, "[FBC]\nreg_mode_en=1,1,1,1,1,1,1,1,1,1,1,1\n",
     "fbc encode: p.ini: parameter \"FBC/reg_mode_en\" has 12 values, expected 11\n"},
    {"ScalarGivenTwoValues", kEncode, "[FBC]\nreg_tr_ext_rb=1,0\n",
     "fbc encode: p.ini: parameter \"FBC/reg_tr_ext_rb\" has 2 values, expected 1\n"},
    {"NotAnInteger", kEncode, "[FBC]\nreg_edge_diffmin_th=12abc\n",
     "fbc encode: p.ini: parameter \"FBC/reg_edge_diffmin_th\": '12abc' is not an integer\n"},
    {"UpperCaseHexInArray", kEncode, "[FBC]\nreg_mode_en=1,1,1,1,1,1,1,1,1,1,0X1\n",
     "fbc encode: p.ini: parameter \"FBC/reg_mode_en\": '0X1' is not an integer\n"},
    {"MissingSection", kEncode, "[Enable]\nreg_fbc_en=1\n",
     "fbc encode: p.ini: no section [FBC] for the block\n"},
    {"MisspeltKey", kEncode, "[FBC]\nreg_tr_ext_enn=1\n",
     "fbc encode: p.ini: unknown parameter \"FBC/reg_tr_ext_enn\" (nearest name: reg_tr_ext_en)\n"},
    {"KeyInWrongCase", kEncode, "[FBC]\nREG_TR_EXT_EN=1\n",
     "fbc encode: p.ini: unknown parameter \"FBC/REG_TR_EXT_EN\" (nearest name: reg_tr_ext_en)\n"},
    {"MisspeltEnableKey", kEncode, "[Enable]\nreg_fcb_en=1\n[FBC]\n",
     "fbc encode: p.ini: unknown parameter \"Enable/reg_fcb_en\" (nearest name: reg_fbc_en)\n"},
    {"SeveralProblems", kEncode,
     "[FBC]\nreg_curve_mode_en=2\nreg_mode_en=1\nreg_modedefinition=0\n",
     "fbc encode: p.ini: Failed to get parameter \"FBC/reg_mode_en\"! (Array length mismatch ?)\n"
     "fbc encode: p.ini: parameter \"FBC/reg_mode_en\" has 1 value, expected 11\n"
     "fbc encode: p.ini: Parameter \"FBC/reg_curve_mode_en\" is out of range! 2 is not in [0, 1]!\n"
     "fbc encode: p.ini: unknown parameter \"FBC/reg_modedefinition\" (nearest name: "
     "reg_mode_definition)\n"},
    {"MissingFile", "encode --width 8 --height 1 --params none.ini in.raw out.bin", "",
     "fbc encode: none.ini: cannot open: No such file or directory\n"},
    {"Decode", "decode --width 8 --height 2 --params p.ini in.raw out.raw",
     "[FBC]\nreg_tr_ext_en=2\n",
     "fbc decode: p.ini: Parameter \"FBC/reg_tr_ext_en\" is out of range! 2 is not in [0, 1]!\n"},
    // The overrides run through the same checks, after a file without problems.
    {"SetOutOfRange",
     "encode --width 8 --height 1 --params p.ini --set reg_tr_ext_en=2 in.raw out.bin",
     "[FBC]\nreg_tr_ext_en=1\n",
     "fbc encode: --set reg_tr_ext_en=2: Parameter \"FBC/reg_tr_ext_en\" is out of range! 2 is not "
     "in [0, 1]!\n"},
    {"SetUnknownKey", "encode --width 8 --height 1 --set reg_mod_en=1 in.raw out.bin", "",
     "fbc encode: --set reg_mod_en=1: unknown parameter \"reg_mod_en\" (nearest name: "
     "reg_mode_en)\n"},
    {"SetShortArray", "encode --width 8 --height 1 --set reg_mode_en=1,1 in.raw out.bin", "",
     "fbc encode: --set reg_mode_en=1,1: Failed to get parameter \"FBC/reg_mode_en\"! (Array "
     "length mismatch ?)\n"
     "fbc encode: --set reg_mode_en=1,1: parameter \"FBC/reg_mode_en\" has 2 values, expected "
     "11\n"},
    {"SetLongArray",
     "encode --width 8 --height 1 --set reg_comp_lut_slope=0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0 "
     "in.raw out.bin",
     "",
     "fbc encode: --set reg_comp_lut_slope=0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0: parameter "
     "\"FBC/reg_comp_lut_slope\" "
     "has 17 values, expected 16\n"},
    {"SetEmptyValue", "encode --width 8 --height 1 --set reg_tr_ext_en= in.raw out.bin", "",
     "fbc encode: --set reg_tr_ext_en=: parameter \"FBC/reg_tr_ext_en\": empty value\n"},
    {"SetWithoutEquals", "encode --width 8 --height 1 --set reg_tr_ext_en in.raw out.bin", "",
     "fbc encode: --set reg_tr_ext_en: expected KEY=VALUE\n"},
    // Numbers the reader would wrap, and bytes echoed from the file.
    {"HugeValue", kEncode, "[FBC]\nreg_edge_diffmin_th=99999999999\n",
     "fbc encode: p.ini: parameter \"FBC/reg_edge_diffmin_th\": '99999999999' is too large (at "
     "most 2147483647)\n"},
    {"SetHugeValue",
     "encode --width 8 --height 1 --set reg_tr_ext_en=99999999999999999999 in.raw out.bin", "",
     "fbc encode: --set reg_tr_ext_en=99999999999999999999: parameter \"FBC/reg_tr_ext_en\": "
     "'99999999999999999999' is too large (at most 2147483647)\n"},
    {"EnableKeyUnderFbc", kEncode, "[FBC]\nreg_fbc_en=0\n",
     "fbc encode: p.ini: parameter \"FBC/reg_fbc_en\" belongs in section [Enable]\n"},
    {"NonAsciiKey", kEncode, "[FBC]\nreg_tr_ext_\xe9n=1\n",
     "fbc encode: p.ini: unknown parameter \"FBC/reg_tr_ext_\\xe9n\" (nearest name: "
     "reg_tr_ext_en)\n"},
    {"SetNonAsciiKey",
     "encode --width 8 --height 1 --set \"$(printf 'reg_tr_ext_\\351n=1')\" in.raw out.bin", "",
     "fbc encode: --set reg_tr_ext_\\xe9n=1: unknown parameter \"reg_tr_ext_\\xe9n\" (nearest "
     "name: reg_tr_ext_en)\n"},
    // Lines the INI readers would pass over in silence: the first one, with its line, and nothing
    // else.
    {"ByteOrderMark", kEncode, "\xEF\xBB\xBF[Enable]\nreg_fbc_en=0\n[FBC]\n",
     "fbc encode: p.ini:1: UTF-8 byte order mark at the start (the readers would not see the first "
     "line)\n"},
    {"SectionTwice", "regs p.ini",
     "[FBC]\nreg_tr_ext_en=1\n[Enable]\nreg_fbc_en=1\n[FBC]\nreg_tr_ext_rb=1\n",
     "fbc regs: p.ini:5: section [FBC] appears twice (first at line 1); the readers ignore the "
     "second\n"},
    {"KeyTwice", "params show --params p.ini", "[FBC]\nreg_tr_ext_en=1\n; note\nREG_TR_EXT_EN=0\n",
     "fbc params: p.ini:4: key \"REG_TR_EXT_EN\" appears twice in [FBC] (first at line 2); the "
     "readers take "
     "the first\n"},
    {"StrayLine", "params check p.ini", "[FBC]\nreg_tr_ext_en 1\n",
     "fbc params: p.ini:2: 'reg_tr_ext_en 1' is neither a section, a key nor a comment\n"},
    {"OtherSection", "golden --width 8 --height 1 --frame-index 0 --outdir g --params p.ini in.raw",
     "[FBC]\n[fbc]\nreg_tr_ext_en=1\n",
     "fbc golden: p.ini:2: section [fbc] is not [Enable] or [FBC]\n"},
    {"KeyBeforeSection", "roundtrip --width 8 --height 1 --params p.ini in.raw",
     "reg_fbc_en=0\n[FBC]\n",
     "fbc roundtrip: p.ini:1: key \"reg_fbc_en\" before the first section\n"},
    {"SetCommentCharacter", "encode --width 8 --height 1 --set 'reg_tr_ext_en=1;0' in.raw out.bin",
     "",
     "fbc encode: --set reg_tr_ext_en=1;0: parameter \"FBC/reg_tr_ext_en\": '1;0' is not an "
     "integer\n"},
};
INSTANTIATE_TEST_SUITE_P(Fbc, BadParams, ::testing::ValuesIn(kBadFiles),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Params, DefaultsWritesEveryParameterAndNothingElse) {
  const TempDir dir;
  const Outcome r = runFbc(dir, "params defaults d.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(readBytes(dir.file("d.ini")), kDefaults);
  EXPECT_EQ(listTree(dir.path()), (std::set<std::string>{"d.ini"}));  // no temporary, no "~" file
  EXPECT_EQ(runFbc(dir, "params show").out, kDefaults);
  const Outcome check = runFbc(dir, "params check d.ini");
  EXPECT_EQ(check.status, 0);
  EXPECT_EQ(check.out, "d.ini: no problems\n");
  EXPECT_EQ(check.err, "");
}

TEST(Params, ShowAppliesTheFileThenEachSetInOrder) {
  const TempDir dir;
  writeBytes(dir.file("p.ini"),
             "; a comment\n[FBC]\nreg_tr_ext_en=1\nreg_edge_diffmin_th = 0x20 ; hex\n");
  const Outcome r =
      runFbc(dir,
             "params show --params p.ini --set reg_tr_ext_en=0 --set reg_tr_ext_rb=1 "
             "--set reg_mode_en=1,1,0,1,1,1,1,1,1,1,1 --set reg_tr_ext_en=1 --set reg_fbc_en=0");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");  // absent keys keep their defaults silently
  std::string expected = kDefaults;
  const auto replace = [&](const std::string& from, const std::string& to) {
    expected.replace(expected.find(from), from.size(), to);
  };
  replace("reg_fbc_en=1", "reg_fbc_en=0");
  replace("reg_edge_diffmin_th=200", "reg_edge_diffmin_th=32");
  replace("reg_tr_ext_en=0", "reg_tr_ext_en=1");
  replace("reg_tr_ext_rb=0", "reg_tr_ext_rb=1");
  replace("reg_mode_en=1, 1, 1,", "reg_mode_en=1, 1, 0,");
  EXPECT_EQ(r.out, expected);
}

// What show prints, passed back as --params, gives the same registers and the same coding.
TEST(Params, ShowOutputReproducesTheRun) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"), sampleImage());
  writeBytes(dir.file("p.ini"),
             "[FBC]\nreg_mode_en=1,1,1,1,0,1,1,1,1,1,1\nreg_comp_lut_in=100,200,300,400,4095,4095,"
             "4095,4095,4095,4095,4095,4095,4095,4095,4095\n");
  const std::string settings =
      "--params p.ini --set reg_tr_ext_en=1 --set reg_comp_enc_trun_rnd=1 --set "
      "reg_edge_diffmin_th=50";
  Outcome r = runFbc(dir, "params show " + settings);
  ASSERT_EQ(r.status, 0) << r.err;
  writeBytes(dir.file("shown.ini"), r.out);

  r = runFbc(dir, "params show --params shown.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, readBytes(dir.file("shown.ini")));
  r = runFbc(dir, "params check shown.ini");
  EXPECT_EQ(r.status, 0) << r.err;

  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 " + settings + " in.raw a.bin").status, 0);
  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 --params shown.ini in.raw b.bin").status, 0);
  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 in.raw c.bin").status, 0);
  EXPECT_EQ(readBytes(dir.file("a.bin")), readBytes(dir.file("b.bin")));
  EXPECT_EQ(readBytes(dir.file("a.bin")).size(), 32u);
  ASSERT_EQ(runFbc(dir, "regs " + settings.substr(9)).status, 0);  // "p.ini --set ..."
  EXPECT_EQ(runFbc(dir, "regs " + settings.substr(9)).out, runFbc(dir, "regs shown.ini").out);
}

TEST(Params, ShippedSampleFileLoadsAndPassesTheCheck) {
  const TempDir dir;
  Outcome r = runFbc(dir, "params show --params '" FBC_SOURCE_DIR "/data/sample_params.ini'");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\nreg_mode_en=1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0\n"), std::string::npos);
  r = runFbc(dir, "params check '" FBC_SOURCE_DIR "/data/sample_params.ini'");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
}

// The map's registers for the defaults, worked out from data/fbc_registers.txt:
//   0x0000 reg_fbc_en 1; 0x0001 bits 1:0 edge-first enable 1, other switches 0
//   0x0002/3 2000 = 0x07d0; 0x0004 ratio 1; 0x0005 200 = 0x00c8
//   0x0006 eleven 1-bit mode enables = 0x07ff; 0x0007.. 4-bit definitions 0..10, four per register:
//     0x3210, 0x7654, then 10, 9, 8 = 0x0a98
//   0x0010.. one 12-bit curve input per register: 32 = 0x0020 ... 4095 = 0x0fff
//   0x0020.. two 8-bit outputs per register: 32 | 128 << 8 = 0x8020, 220 | 255 << 8 = 0xffdc,
//     ..., 0x0027 element 14 alone = 0x00ff
//   0x0030.. slopes 4096 = 0x1000, 819 = 0x0333, 245 = 0x00f5, 70 = 0x0046, 0; 0x0040.. 256 =
//   0x0100,
//     1280 = 0x0500, 4274 = 0x10b2, 14973 = 0x3a7d, 0
//   65 registers: 0x0000..0x0009, 15 inputs, 8 output pairs, 16 + 16 slopes
TEST(Regs, DefaultRegisterList) {
  const TempDir dir;
  writeBytes(dir.file("d.ini"), kDefaults);
  const Outcome r = runFbc(dir, "regs d.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, 14 * 10),
            "0x0000 0x0001\n0x0001 0x0001\n0x0002 0x07d0\n0x0003 0x07d0\n0x0004 0x0001\n"
            "0x0005 0x00c8\n0x0006 0x07ff\n0x0007 0x3210\n0x0008 0x7654\n0x0009 0x0a98\n");
  for (const char* line :
       {"\n0x0010 0x0020\n0x0011 0x0200\n0x0012 0x0800\n0x0013 0x0fff\n", "\n0x001e 0x0fff\n",
        "\n0x0020 0x8020\n0x0021 0xffdc\n0x0022 0xffff\n", "\n0x0027 0x00ff\n",
        "\n0x0030 0x1000\n0x0031 0x0333\n0x0032 0x00f5\n0x0033 0x0046\n0x0034 0x0000\n",
        "\n0x0040 0x0100\n0x0041 0x0500\n0x0042 0x10b2\n0x0043 0x3a7d\n0x0044 0x0000\n"}) {
    EXPECT_NE(r.out.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(r.out.size(), 65u * 14);
  EXPECT_EQ(r.out.substr(r.out.size() - 14), "0x004f 0x0000\n");
}

// Overrides land in their fields: reg_tr_ext_en is bit 9 of 0x0001 (0x0201 with the edge-first
// enable 1); a slope of -1 fills its 16-bit register; mode definition 10 of 15 is bits 11:8 of
// 0x0009 (0x0f98); the file's reg_tr_ext_rb=1 is bit 10 and survives the later --set.
TEST(Regs, OverridesComposeIntoTheirFields) {
  const TempDir dir;
  writeBytes(dir.file("p.ini"), "[FBC]\nreg_tr_ext_rb=1\n");
  const Outcome r = runFbc(
      dir,
      "regs p.ini --set reg_tr_ext_en=1 --set reg_comp_lut_slope=-1,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0 "
      "--set reg_mode_definition=0,1,2,3,4,5,6,7,8,9,15");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("0x0001 0x0601\n"), std::string::npos);
  EXPECT_NE(r.out.find("0x0009 0x0f98\n"), std::string::npos);
  EXPECT_NE(r.out.find("0x0030 0xffff\n0x0031 0x0000\n"), std::string::npos);
}

// A map of --registers replaces the built-in one: here reg_tr_ext_en moves from bit 9 of 0x0001
// to bit 0 of a register 0x0100 of its own, and its range narrows to 0..0.
TEST(Regs, RegistersOptionReplacesTheMap) {
  const TempDir dir;
  std::string map = readBytes(FBC_SOURCE_DIR "/data/fbc_registers.txt");
  const std::string from =
      "param FBC reg_tr_ext_en                     0 1        default 0\n  field 0x0001 9:9\n";
  ASSERT_NE(map.find(from), std::string::npos);
  map.replace(map.find(from), from.size(),
              "param FBC reg_tr_ext_en 0 0 default 0\n  field 0x0100 0:0\n");
  writeBytes(dir.file("map.txt"), map);
  writeBytes(dir.file("p.ini"), "[FBC]\nreg_tr_ext_rb=1\n");

  Outcome r = runFbc(dir, "regs --registers map.txt p.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("0x0001 0x0401\n"), std::string::npos);  // edge-first 1, bit 10 set
  EXPECT_NE(r.out.find("0x0100 0x0000\n"), std::string::npos);

  r = runFbc(dir, "regs --registers map.txt --set reg_tr_ext_en=1 p.ini");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "fbc regs: --set reg_tr_ext_en=1: Parameter \"FBC/reg_tr_ext_en\" is out of range! 1 "
            "is not in "
            "[0, 0]!\n");
  r = runFbc(dir, "regs --set reg_tr_ext_en=1 p.ini");
  EXPECT_EQ(r.status, 0) << r.err;
}

// With --complete check reports absent keys too; the out-of-range value that both load and check
// find is listed once, in the load's place. Without it absent keys keep their defaults.
TEST(ParamsCheck, ListsEveryMessage) {
  const TempDir dir;
  std::string text = kDefaults;
  text.replace(text.find("reg_tr_ext_en=0\n"), 16, "reg_tr_ext_en=3\n");
  text.erase(text.find("sw_dpcm_swing_en=0\n"));
  text.replace(text.find("reg_fbc_en=1\n"), 13, "");
  writeBytes(dir.file("p.ini"), text + "reg_tr_ext_enx=1\n");
  Outcome r = runFbc(dir, "params check p.ini");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(
      r.err,
      "fbc params: p.ini: Parameter \"FBC/reg_tr_ext_en\" is out of range! 3 is not in [0, 1]!\n"
      "fbc params: p.ini: unknown parameter \"FBC/reg_tr_ext_enx\" (nearest name: "
      "reg_tr_ext_en)\n");
  r = runFbc(dir, "params check --complete p.ini");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(
      r.err,
      "fbc params: p.ini: Cannot find parameter name \"Enable/reg_fbc_en\" in the INI file!\n"
      "fbc params: p.ini: Parameter \"FBC/reg_tr_ext_en\" is out of range! 3 is not in [0, 1]!\n"
      "fbc params: p.ini: Cannot find parameter name \"FBC/sw_dpcm_swing_en\" in the INI file!\n"
      "fbc params: p.ini: unknown parameter \"FBC/reg_tr_ext_enx\" (nearest name: "
      "reg_tr_ext_en)\n");
}

TEST(ParamsRandom, SameSeedSameFileAndTheFileIsClean) {
  const TempDir dir;
  Outcome r = runFbc(dir, "params random --seed 12345 a.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "seed 12345\n");
  ASSERT_EQ(runFbc(dir, "params random --seed=0x3039 b.ini").status, 0);  // 12345 in hexadecimal
  ASSERT_EQ(runFbc(dir, "params random --seed 12346 c.ini").status, 0);
  ASSERT_EQ(runFbc(dir, "params random --seed 12345 --random-range d.ini").status, 0);
  const std::string a = readBytes(dir.file("a.ini"));
  EXPECT_EQ(a, readBytes(dir.file("b.ini")));
  EXPECT_NE(a, readBytes(dir.file("c.ini")));
  EXPECT_NE(a, readBytes(dir.file("d.ini")));
  EXPECT_NE(a.find("\nsw_dpcm_swing_en=0\n"), std::string::npos);  // the block's own rule
  for (const char* f : {"a.ini", "c.ini", "d.ini"}) {
    r = runFbc(dir, std::string("params check ") + f);
    EXPECT_EQ(r.status, 0) << f << ": " << r.err;
  }
  EXPECT_EQ(listTree(dir.path()), (std::set<std::string>{"a.ini", "b.ini", "c.ini", "d.ini"}));
}

TEST(Params, UsageErrors) {
  const TempDir dir;
  Outcome r = runFbc(dir, "params");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "fbc params: missing verb (try 'fbc params --help')\n");
  r = runFbc(dir, "params list");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "fbc params: unknown verb 'list' (try 'fbc params --help')\n");
  r = runFbc(dir, "params random out.ini");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "fbc params: missing required option --seed\n");
  r = runFbc(dir, "regs export --format vhdl map.vhd");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "fbc regs: --format: 'vhdl' is not one of c, sv, json\n");
  r = runFbc(dir, "regs export map.h");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "fbc regs: missing required option --format\n");
  EXPECT_EQ(listTree(dir.path()), std::set<std::string>{});
  // One reading of --seed for every command.
  for (const char* cmd :
       {"params random --seed 0x1g out.ini", "random --count 1 --outdir t --seed -1",
        "selftest --seed 12x", "fingerprint --seed 0x", "cover --out c --seed 1e3"}) {
    r = runFbc(dir, cmd);
    EXPECT_EQ(r.status, 2) << cmd;
    EXPECT_NE(r.err.find(": --seed: '"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("' is not a decimal or 0x hexadecimal integer\n"), std::string::npos)
        << r.err;
  }
  r = runFbc(dir, "random --count 1 --outdir t --seed 0x100000000");
  EXPECT_EQ(r.err, "fbc random: --seed: 0x100000000 is out of range 0..4294967295\n");
}

}  // namespace
