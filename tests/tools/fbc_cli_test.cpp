// The fbc tool as a user meets it: exit statuses, the one-line errors, the files it leaves.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::ErrorCase;
using fbc::test::expectRejected;
using fbc::test::listDir;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

// Little-endian 16-bit samples, as the tool reads .raw files.
std::string raw16(const std::vector<int>& samples) {
  std::string s;
  for (int v : samples) {
    s += static_cast<char>(v & 0xFF);
    s += static_cast<char>((v >> 8) & 0xFF);
  }
  return s;
}

// 12x3 image, samples 5 except 4096 at index 14 = pixel (2, 1) in bad.raw; a 4x2 PPM.
void writeInputs(const TempDir& dir) {
  writeBytes(dir.file("in.raw"), raw16(std::vector<int>(36, 5)));
  std::vector<int> bad(36, 5);
  bad[14] = 4096;
  writeBytes(dir.file("bad.raw"), raw16(bad));
  writeBytes(dir.file("short.raw"), std::string(70, '\0'));
  writeBytes(dir.file("in.bin"), std::string(40, '\0'));
  writeBytes(dir.file("in.ppm"), "P6\n4 2\n255\n" + std::string(24, '\x10'));
  writeBytes(dir.file("in.bmp"), "BM");
}

class CliError : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(CliError, ExitsTwoWithOneLineAndNoOutput) {
  const TempDir dir;
  writeInputs(dir);
  expectRejected(dir, GetParam());
}

const ErrorCase kErrorCases[] = {
    {"MissingFile", "encode --width 12 --height 3 nothere.raw out.bin",
     "fbc encode: nothere.raw: cannot open: No such file or directory\n"},
    {"NotARegularFile", "encode --width 12 --height 3 . out.bin",
     "fbc encode: .: not a regular file\n"},
    {"WrongSize", "encode --width 12 --height 3 short.raw out.bin",
     "fbc encode: short.raw: size 70 bytes, expected 72 (12x3 samples of 2 bytes)\n"},
    {"SampleAbove4095", "encode --width 12 --height 3 bad.raw out.bin",
     "fbc encode: bad.raw: sample 4096 at pixel (2, 1) is above 4095\n"},
    {"RoundtripSampleAbove4095", "roundtrip --width 12 --height 3 bad.raw --out pics",
     "fbc roundtrip: bad.raw: sample 4096 at pixel (2, 1) is above 4095\n"},
    {"GoldenWrongSize", "golden --width 12 --height 2 --frame-index 7 --outdir g in.raw",
     "fbc golden: in.raw: size 72 bytes, expected 48 (12x2 samples of 2 bytes)\n"},
    {"DecodeWrongSize", "decode --width 12 --height 3 in.bin out.raw",
     "fbc decode: in.bin: size 40 bytes, expected 48 (3 rows of 16 bytes)\n"},
    {"ZeroWidth", "encode --width 0 --height 3 in.raw out.bin",
     "fbc encode: --width: 0 is out of range 1..65536\n"},
    {"NegativeHeight", "encode --width 12 --height=-3 in.raw out.bin",
     "fbc encode: --height: -3 is out of range 1..65536\n"},
    {"WidthNotInteger", "encode --width 12x --height 3 in.raw out.bin",
     "fbc encode: --width: '12x' is not an integer\n"},
    {"WidthHuge", "encode --width 99999999999999999999 --height 3 in.raw out.bin",
     "fbc encode: --width: 99999999999999999999 is out of range 1..65536\n"},
    {"TooManyPixels", "encode --width 65536 --height 4097 in.raw out.bin",
     "fbc encode: image of 65536x4097 pixels is too large (at most 268435456 pixels)\n"},
    {"CfaOutOfRange", "encode --width 12 --height 3 --cfa 4 in.raw out.bin",
     "fbc encode: --cfa: 4 is out of range 0..3\n"},
    {"UnknownOption", "encode --width 12 --height 3 --fast in.raw out.bin",
     "fbc encode: unknown option '--fast' (try 'fbc encode --help')\n"},
    {"UnknownShortOption", "decode -w 12 --height 3 in.bin out.raw",
     "fbc decode: unknown option '-w' (try 'fbc decode --help')\n"},
    {"OptionWithoutValue", "encode --width 12 --height 3 in.raw out.bin --cfa",
     "fbc encode: option --cfa needs a value\n"},
    {"MissingOption", "encode --width 12 in.raw out.bin",
     "fbc encode: missing required option --height\n"},
    {"MissingArgument", "encode --width 12 --height 3 in.raw",
     "fbc encode: expected 2 arguments, got 1 (usage: fbc encode [--width W --height H] [--cfa N] "
     "[--frame-index N] [--raw-mode N] IN OUT.bin)\n"},
    {"RepeatedOption", "encode --width 12 --width 12 --height 3 in.raw out.bin",
     "fbc encode: option --width given twice\n"},
    {"GoldenWithoutFrameIndex", "golden --width 12 --height 3 --outdir g in.raw",
     "fbc golden: missing required option --frame-index\n"},
    {"DemoArgument", "demo extra",
     "fbc demo: expected 0 arguments, got 1 (usage: fbc demo [--out DIR] [--format png|pnm])\n"},
    {"UnknownCommand", "compress in.raw", "fbc: unknown command 'compress' (try 'fbc --help')\n"},
    {"NoCommand", "", "fbc: missing command (try 'fbc --help')\n"},
    {"RawNeedsSize", "encode --raw-mode 1 short.raw out.bin",
     "fbc encode: missing required option --width\n"},
    {"SizeDisagreesWithHeader", "encode --width 8 in.ppm out.bin",
     "fbc encode: in.ppm: picture is 4x2, but --width/--height give 8x2\n"},
    {"RawModeOutOfRange", "roundtrip --width 4 --height 2 --raw-mode 5 short.raw",
     "fbc roundtrip: --raw-mode: 5 is out of range 0..4\n"},
    {"RawModeOnPicture", "encode --raw-mode 1 in.ppm out.bin",
     "fbc encode: --raw-mode applies to .raw input only, not in.ppm\n"},
    {"UnknownOutputType", "decode --width 12 --height 3 in.bin out.tif",
     "fbc decode: out.tif: unknown output type \".tif\" (expected .raw, .png, .pgm or .ppm)\n"},
    {"OutputWithoutType", "decode --width 12 --height 3 in.bin out",
     "fbc decode: out: unknown output type \"\" (expected .raw, .png, .pgm or .ppm)\n"},
    {"UnknownInputType", "encode in.bmp out.bin",
     "fbc encode: in.bmp: unknown picture type \".bmp\" (expected .png, .ppm, .pgm or .raw)\n"},
    {"UnknownPictureFormat", "demo --format tiff",
     "fbc demo: --format: 'tiff' is not png or pnm\n"},
};
INSTANTIATE_TEST_SUITE_P(Fbc, CliError, ::testing::ValuesIn(kErrorCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Cli, FailedRunLeavesExistingOutputUntouched) {
  const TempDir dir;
  writeInputs(dir);
  writeBytes(dir.file("out.bin"), "previous");
  EXPECT_EQ(runFbc(dir, "encode --width 12 --height 3 bad.raw out.bin").status, 2);
  EXPECT_EQ(readBytes(dir.file("out.bin")), "previous");
}

TEST(Cli, UnwritableOutputIsAFailureNotUsage) {
  const TempDir dir;
  writeInputs(dir);
  const Outcome r = runFbc(dir, "encode --width 12 --height 3 in.raw nodir/out.bin");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "fbc encode: nodir/out.bin: cannot create file (No such file or directory)\n");
}

// A register map may name an element past the end of a bound array (reg_mode_en has 11): the
// field is skipped, not read from whatever follows the array (reg_mode_definition[2] = 2 would
// set bits 15:14 to 10).
TEST(Cli, RegisterMapElementPastTheArrayIsSkipped) {
  const TempDir dir;
  std::string map = readBytes(FBC_SOURCE_DIR "/data/fbc_registers.txt");
  const std::string pack = "  pack 0x0006 11 1\n";
  map.insert(map.find(pack) + pack.size(), "  field 0x0006 15:14 elem 13\n");
  writeBytes(dir.file("map.txt"), map);
  writeBytes(dir.file("in.ini"), "[FBC]\n");
  const Outcome r = runFbc(dir, "regs --registers map.txt in.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\n0x0006 0x07ff\n"), std::string::npos) << r.out;
}

// Row 0 of a 12x2 image: a flat block of 0x123, then 0x123 x4 padded with four zeros.
// Row 1: 100 x4, 3000 x4, then 3000 x4 padded with zeros.
//   flat 0x123: DPCM (first in priority at cost 0): 1001 | base 0x123 | codes 0 | pos 0 | shift 0
//     = 0x9123000000000000 -> bytes 00 00 00 00 00 00 23 91
//   123 x4, 0 x4: DPCM step 8 costs 3, MinMax is exact: 10111111 | 0 | min 0 at 28 | max 0x123 at
//   16
//     | symbols 2,2,2,2,1,1,1,1 (pixel 0 at bits 14..15) = 0xBF0000000123AA55
//   100 x4, 3000 x4: range 2900, MinMax exact: mid 1550, t 725: symbols 1,1,1,1,2,2,2,2
//     = 0xBF000006_4BB855AA (min 0x064 << 28, max 0xBB8 << 16)
//   3000 x4, 0 x4: MinMax exact: symbols 2,2,2,2,1,1,1,1, min 0, max 0xBB8 = 0xBF0000000BB8AA55
TEST(Cli, EncodeDecodeRoundTripBytes) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"), raw16({0x123, 0x123, 0x123, 0x123, 0x123, 0x123, 0x123, 0x123,
                                        0x123, 0x123, 0x123, 0x123, 100,   100,   100,   100,
                                        3000,  3000,  3000,  3000,  3000,  3000,  3000,  3000}));
  Outcome r = runFbc(dir, "encode --width 12 --height 2 in.raw out.bin");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "");
  const std::string expected(
      "\x00\x00\x00\x00\x00\x00\x23\x91"
      "\x55\xAA\x23\x01\x00\x00\x00\xBF"
      "\xAA\x55\xB8\x4B\x06\x00\x00\xBF"
      "\x55\xAA\xB8\x0B\x00\x00\x00\xBF",
      32);
  EXPECT_EQ(readBytes(dir.file("out.bin")), expected);

  r = runFbc(dir, "decode --width=12 --height=2 out.bin dec.raw");
  ASSERT_EQ(r.status, 0) << r.err;
  // Every value comes back exactly, times 16: 0x1230, 1600, 48000.
  EXPECT_EQ(readBytes(dir.file("dec.raw")),
            raw16({0x1230, 0x1230, 0x1230, 0x1230, 0x1230, 0x1230, 0x1230, 0x1230,
                   0x1230, 0x1230, 0x1230, 0x1230, 1600,   1600,   1600,   1600,
                   48000,  48000,  48000,  48000,  48000,  48000,  48000,  48000}));
  EXPECT_EQ(listDir(dir.path()), (std::set<std::string>{"in.raw", "out.bin", "dec.raw"}));
}

TEST(Cli, GoldenWritesTheFiveFilesIntoANewDirectory) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"), raw16(std::vector<int>(8, 0x123)));
  const Outcome r =
      runFbc(dir, "golden --width 8 --height 1 --frame-index 7 --outdir gold/en in.raw");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(
      listDir(dir.file("gold/en")),
      (std::set<std::string>{"fbc_golden_ref_com_input_0007.txt", "fbc_com_input_0007.raw",
                             "fbc_golden_ref_com_0007.txt", "fbc_golden_ref_dec_input_0007.txt",
                             "fbc_golden_ref_dec_0007.txt"}));
  // Pixels 7..0, then the block's bytes 7..0 (the DPCM code 0x9123000000000000).
  EXPECT_EQ(readBytes(dir.file("gold/en/fbc_golden_ref_com_input_0007.txt")),
            "123_123_123_123_123_123_123_123\n");
  EXPECT_EQ(readBytes(dir.file("gold/en/fbc_golden_ref_dec_input_0007.txt")),
            "91_23_00_00_00_00_00_00\n");
  EXPECT_EQ(readBytes(dir.file("gold/en/fbc_com_input_0007.raw")),
            raw16(std::vector<int>(8, 0x123)));
}

TEST(Cli, HelpOnEveryLevelGoesToStandardOutput) {
  const TempDir dir;
  for (const std::string cmd :
       {"", "encode ", "decode ", "golden ", "demo ", "roundtrip ", "params ", "params show ",
        "params check ", "regs ", "regs export "}) {
    SCOPED_TRACE(cmd);
    const Outcome r = runFbc(dir, cmd + "--help");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind("usage: fbc " + cmd, 0), 0u) << r.out;
  }
  const Outcome v = runFbc(dir, "--version");
  EXPECT_EQ(v.status, 0);
  EXPECT_EQ(v.out.rfind("fbc ", 0), 0u);
}

// 8x2 image: a flat block (DPCM) and a two-level block (MinMax), both coded exactly.
TEST(Cli, RoundtripReport) {
  const TempDir dir;
  writeBytes(dir.file("in.raw"),
             raw16({7, 7, 7, 7, 7, 7, 7, 7, 100, 100, 100, 100, 3000, 3000, 3000, 3000}));
  const Outcome r = runFbc(dir, "roundtrip --width 8 --height 2 in.raw --out pics --format pnm");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string report = r.out.substr(0, r.out.find("throughput:"));
  EXPECT_EQ(report,
            "in.raw: 8x2, 16 pixels in 2 blocks of 1x8\n"
            "size: 24 bytes at 12 bits per pixel, compressed 16 bytes\n"
            "mode            blocks  percent\n"
            " 0 Hadamard           0    0.00%\n"
            " 1 Curve              0    0.00%\n"
            " 2 MinMax             1   50.00%\n"
            " 3 DPCM               1   50.00%\n"
            " 4 Truncate           0    0.00%\n"
            " 5 Edge2              0    0.00%\n"
            " 6 Edge3              0    0.00%\n"
            " 7 Edge4              0    0.00%\n"
            " 8 Edge5              0    0.00%\n"
            " 9 Edge6              0    0.00%\n"
            "10 Edge7              0    0.00%\n"
            "PSNR: infinite (exact), largest absolute error 0\n");
  // The input as a 16-bit PGM: 7 is 00 07, 3000 is 0B B8.
  const std::string pgm = readBytes(dir.file("pics/input.pgm"));
  EXPECT_EQ(pgm.substr(0, 14), std::string("P5\n8 2\n4095\n\x00\x07", 14));
  EXPECT_EQ(pgm.substr(pgm.size() - 2), "\x0B\xB8");
  // Mode map: row 0 DPCM green, row 1 MinMax red.
  const std::string ppm = readBytes(dir.file("pics/modes.ppm"));
  EXPECT_EQ(ppm.substr(0, 14), std::string("P6\n8 2\n255\n\x00\xB0\x00", 14));
  EXPECT_EQ(ppm.substr(ppm.size() - 3), std::string("\xFF\x00\x00", 3));
}

// make clean, run in a scratch folder through the project's Makefile, removes every folder the
// Makefile's targets create there and nothing else.
TEST(Make, CleanRemovesEveryBuildFolder) {
  const TempDir dir;
  for (const char* d : {"build", "build-bench", "build-fuzz/fuzz-work", "keep"}) {
    std::filesystem::create_directories(dir.file(d));
  }
  const std::string cmd = "env -u MAKEFLAGS -u MFLAGS -u MAKELEVEL -u FUZZ_BUILD make -s -C '" +
                          dir.path() + "' -f '" FBC_SOURCE_DIR "/Makefile' clean >/dev/null";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  EXPECT_EQ(listDir(dir.path()), (std::set<std::string>{"keep"}));
}

}  // namespace
