// What the fbc tool writes, and what it must never write: outputs under concurrent runs and
// signals, links, devices and standard output, inputs named as outputs, disabled blocks, the
// random generator's output directory, and the tool's own picture reader and help.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/RunFbc.h"

namespace {

namespace fs = std::filesystem;
using fbc::test::ErrorCase;
using fbc::test::expectRejected;
using fbc::test::listDir;
using fbc::test::listTree;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

// A 16x2 picture of plain samples (any 12-bit values) and a 32-byte frame of block codes.
void writeInputs(const TempDir& dir) {
  std::string raw;
  for (int i = 0; i < 32; ++i) raw += {static_cast<char>(i * 37 & 0xFF), static_cast<char>(i % 16)};
  writeBytes(dir.file("in.raw"), raw);
  writeBytes(dir.file("in.bin"), std::string(32, '\x11'));
}

// Runs a bash script (no single quotes) in `dir`, with $FBC naming the tool; returns its status.
int bash(const TempDir& dir, const std::string& script) {
  const std::string cmd = "cd '" + dir.path() + "' && FBC='" FBC_TOOL "' bash -c '" + script + "'";
  const int raw = std::system(cmd.c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

bool anyNameContains(const std::string& dir, const std::string& part) {
  for (const std::string& name : listDir(dir)) {
    if (name.find(part) != std::string::npos) return true;
  }
  return false;
}

TEST(Outputs, ConcurrentRunsOfOneOutputAllSucceed) {
  const TempDir dir;
  writeInputs(dir);
  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 in.raw expected.bin").status, 0);
  // Eight writers of one name, three times over; each records its exit status.
  bash(dir,
       "for round in 1 2 3; do for i in 1 2 3 4 5 6 7 8; do "
       "(\"$FBC\" encode --width 16 --height 2 in.raw out.bin 2>>err; echo $? >>status) & done; "
       "wait; done");
  std::string zeros;
  for (int i = 0; i < 24; ++i) zeros += "0\n";
  EXPECT_EQ(readBytes(dir.file("status")), zeros);
  EXPECT_EQ(readBytes(dir.file("err")), "");
  EXPECT_EQ(readBytes(dir.file("out.bin")), readBytes(dir.file("expected.bin")));
  EXPECT_FALSE(anyNameContains(dir.path(), ".part"));
}

// A run ended by a signal while its output or test is in the making leaves nothing of it.
struct SignalCase {
  const char* name;
  int signal;
  std::vector<std::string> args;  // relative to the test's directory
  std::string watched;            // name part of the temporary that shows the work has begun
};

class SignalCleanup : public ::testing::TestWithParam<SignalCase> {};

TEST_P(SignalCleanup, LeavesNoTemporary) {
  const TempDir dir;
  writeBytes(dir.file("big.raw"), std::string(8192 * 4096 * 2, '\0'));
  writeBytes(dir.file("big.ini"),
             "[GlobalControl]\nwidth_min=2048\nwidth_max=2048\nheight_min=2048\nheight_max="
             "2048\nenable_percent=100\n");
  fs::create_directory(dir.file("out"));
  const pid_t pid = ::fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, 1);
    ::dup2(null, 2);
    if (::chdir(dir.path().c_str()) != 0) ::_exit(127);
    std::vector<char*> argv{const_cast<char*>(FBC_TOOL)};
    for (const std::string& a : GetParam().args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  // Generous bound: the temporary appears as soon as the run has checked its arguments, and
  // stays for the whole of the work.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  int status = 0;
  pid_t ended = 0;
  while (!anyNameContains(dir.file("out"), GetParam().watched) &&
         std::chrono::steady_clock::now() < deadline &&
         (ended = ::waitpid(pid, &status, WNOHANG)) == 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (ended == 0) {
    ::kill(pid, GetParam().signal);
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
  }
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == GetParam().signal) << "status " << status;
  EXPECT_EQ(listDir(dir.file("out")), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Tool, SignalCleanup,
                         ::testing::Values(SignalCase{"EncodeTerm",
                                                      SIGTERM,
                                                      {"encode", "--width", "8192", "--height",
                                                       "4096", "big.raw", "out/big.bin"},
                                                      ".part"},
                                           SignalCase{"RandomInterrupt",
                                                      SIGINT,
                                                      {"random", "--count", "1", "--seed", "1",
                                                       "--settings", "big.ini", "--outdir", "out"},
                                                      ".fbc-"}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Outputs, LinksAreFollowedDevicesAndStandardOutputWrittenDirectly) {
  const TempDir dir;
  writeInputs(dir);
  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 in.raw expected.bin").status, 0);
  const std::string expected = readBytes(dir.file("expected.bin"));

  fs::create_directory(dir.file("real"));
  fs::create_symlink("real/target.bin", dir.file("link.bin"));
  ASSERT_EQ(runFbc(dir, "encode --width 16 --height 2 in.raw link.bin").status, 0);
  EXPECT_TRUE(fs::is_symlink(dir.file("link.bin")));
  EXPECT_EQ(readBytes(dir.file("real/target.bin")), expected);

  // Not replaced, not refused: a device takes the bytes as they come.
  const Outcome null = runFbc(dir, "encode --width 16 --height 2 in.raw /dev/null");
  EXPECT_EQ(null.status, 0) << null.err;
  EXPECT_TRUE(fs::is_character_file("/dev/null"));

  ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
  EXPECT_EQ(
      bash(dir,
           "timeout 60 cat fifo >copy.bin & \"$FBC\" encode --width 16 --height 2 in.raw fifo; "
           "s=$?; wait; exit $s"),
      0);
  EXPECT_EQ(readBytes(dir.file("copy.bin")), expected);
  EXPECT_TRUE(fs::is_fifo(dir.file("fifo")));

  EXPECT_EQ(runFbc(dir, "encode --width 16 --height 2 in.raw -").out, expected);
  // decode to "-" writes the .raw layout: 0x1111 codes decode to something; compare with the file.
  ASSERT_EQ(runFbc(dir, "decode --width 16 --height 2 in.bin dec.raw").status, 0);
  EXPECT_EQ(runFbc(dir, "decode --width 16 --height 2 in.bin -").out,
            readBytes(dir.file("dec.raw")));
}

// Refused before anything is read: exit 2, one line, and the input as it was.
const ErrorCase kRefused[] = {
    {"EncodeOverItsInput", "encode --width 16 --height 2 in.raw in.raw",
     "fbc encode: in.raw: is the input in.raw; refusing to overwrite it\n"},
    {"EncodeThroughALink", "encode --width 16 --height 2 in.raw ln.raw",
     "fbc encode: ln.raw: is the input in.raw; refusing to overwrite it\n"},
    {"EncodeOverAHardLink", "encode --width 16 --height 2 hard.raw in.raw",
     "fbc encode: in.raw: is the input hard.raw; refusing to overwrite it\n"},
    {"EncodeOverItsParams", "encode --params p.ini --width 16 --height 2 in.raw ./p.ini",
     "fbc encode: ./p.ini: is the input p.ini; refusing to overwrite it\n"},
    {"DecodeOverItsInput", "decode --width 16 --height 2 in.raw sub/../in.raw",
     "fbc decode: sub/../in.raw: is the input in.raw; refusing to overwrite it\n"},
    {"RoundtripIntoItsFolder", "roundtrip decoded.pgm --out . --format pnm",
     "fbc roundtrip: ./decoded.pgm: is the input decoded.pgm; refusing to overwrite it\n"},
    {"GoldenOverItsInput",
     "golden --width 16 --height 2 --raw-mode 3 --frame-index 0 --outdir . fbc_com_input_0000.raw",
     "fbc golden: ./fbc_com_input_0000.raw: is the input fbc_com_input_0000.raw; refusing to "
     "overwrite it\n"},
    {"EncodeDisabled", "encode --set reg_fbc_en=0 --width 16 --height 2 in.raw out.bin",
     "fbc encode: the block is disabled (reg_fbc_en=0): it passes frames through and codes "
     "nothing\n"},
    {"DecodeDisabled", "decode --set reg_fbc_en=0 --width 16 --height 2 in.bin out.raw",
     "fbc decode: the block is disabled (reg_fbc_en=0): it passes frames through and codes "
     "nothing\n"},
    {"RoundtripDisabled", "roundtrip --set reg_fbc_en=0 --width 16 --height 2 in.raw --out o",
     "fbc roundtrip: the block is disabled (reg_fbc_en=0): it passes frames through and codes "
     "nothing\n"},
    {"DemoIntoAFile", "demo --out p.ini", "fbc demo: p.ini: not a directory\n"},
    {"DemoBelowAFile", "demo --out p.ini/d",
     "fbc demo: p.ini: not a directory (in the way of p.ini/d)\n"},
    {"RandomOverOldTests", "random --count 3 --seed 2 --outdir old",
     "fbc random: old/test_0001: already exists; a run writes only new tests (remove it or choose "
     "another "
     "--outdir)\n"},
    {"WidthTooLarge", "encode huge.pgm out.bin",
     "fbc encode: huge.pgm: width 4294967296 is too large (at most 65536)\n"},
    {"MagicEscaped", "encode magic.pgm out.bin",
     "fbc encode: magic.pgm: unknown magic \"\\227M\" (expected P2, P3, P5 or P6)\n"},
};

class Refused : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(Refused, BeforeAnythingIsWritten) {
  const TempDir dir;
  writeInputs(dir);
  writeBytes(dir.file("p.ini"), "[FBC]\n");
  writeBytes(dir.file("decoded.pgm"), "P5 1 1 255 \x07");
  writeBytes(dir.file("fbc_com_input_0000.raw"), readBytes(dir.file("in.raw")));
  writeBytes(dir.file("huge.pgm"), "P5 4294967296 1 255 \x07");
  writeBytes(dir.file("magic.pgm"), "\227M 1 1 255 \x07");
  fs::create_symlink("in.raw", dir.file("ln.raw"));
  fs::create_hard_link(dir.file("in.raw"), dir.file("hard.raw"));
  fs::create_directories(dir.file("sub"));
  fs::create_directories(dir.file("old/test_0001"));
  const std::string before = readBytes(dir.file("in.raw")) + readBytes(dir.file("in.bin")) +
                             readBytes(dir.file("p.ini")) + readBytes(dir.file("decoded.pgm"));
  expectRejected(dir, GetParam());
  EXPECT_EQ(readBytes(dir.file("in.raw")) + readBytes(dir.file("in.bin")) +
                readBytes(dir.file("p.ini")) + readBytes(dir.file("decoded.pgm")),
            before);
  EXPECT_EQ(listTree(dir.file("old")), std::set<std::string>{});
}

INSTANTIATE_TEST_SUITE_P(Tool, Refused, ::testing::ValuesIn(kRefused),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Outputs, GoldenOfADisabledBlockSaysSoOnStandardError) {
  const TempDir dir;
  writeInputs(dir);
  const Outcome r = runFbc(
      dir, "golden --set reg_fbc_en=0 --width 16 --height 2 --frame-index 0 --outdir g in.raw");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "fbc golden: block disabled (reg_fbc_en=0): no golden files written\n");
  EXPECT_FALSE(fs::exists(dir.file("g")));
}

// A reader that closes the pipe ends the run quietly: status 0, the tests written complete, no
// test in the making left behind. A second run into the same folder writes other tests only.
TEST(Outputs, RandomEndsQuietlyWhenItsReaderGoes) {
  const TempDir dir;
  EXPECT_EQ(bash(dir,
                 "\"$FBC\" random --count 500 --seed 4 --outdir t 2>err | head -c 1 >/dev/null; "
                 "exit ${PIPESTATUS[0]}"),
            0);
  EXPECT_EQ(readBytes(dir.file("err")), "");
  EXPECT_LT(listDir(dir.file("t")).size(), 500u);
  for (const std::string& name : listDir(dir.file("t"))) {
    EXPECT_EQ(name.rfind("test_", 0), 0u) << name;
    EXPECT_TRUE(fs::exists(dir.file("t/" + name + "/run.sh"))) << name;
  }
}

// The Netpbm rule: two bytes per sample from maximum 256 up. 256 of 256 is 256 * 4096 / 257 =
// 4080.06, 128 of 256 is 2040.03; the tool's input picture keeps 12 bits, two bytes per sample.
TEST(Outputs, ToolReadsMaximum256AsTwoBytesPerSample) {
  const TempDir dir;
  writeBytes(dir.file("g.pgm"), std::string("P5 2 1 256\n\x01\x00\x00\x80", 15));
  writeBytes(dir.file("c.ppm"), std::string("P6 1 1 256\n\x01\x00\x00\x80\x00\x00", 17));
  ASSERT_EQ(runFbc(dir, "roundtrip g.pgm --out g --format pnm").status, 0);
  EXPECT_EQ(readBytes(dir.file("g/input.pgm")), std::string("P5\n2 1\n4095\n\x0F\xF0\x07\xF8", 16));
  ASSERT_EQ(runFbc(dir, "roundtrip c.ppm --out c --format pnm").status,
            0);  // RGGB: pixel (0, 0) is red
  EXPECT_EQ(readBytes(dir.file("c/input.pgm")), std::string("P5\n1 1\n4095\n\x0F\xF0", 14));
}

TEST(Outputs, HelpEverywhereAndTrue) {
  const TempDir dir;
  const std::string help = runFbc(dir, "encode --help").out;
  EXPECT_EQ(runFbc(dir, "encode -h").out, help);
  EXPECT_EQ(runFbc(dir, "help encode").out, help);
  EXPECT_NE(help.find("at most 2^28 samples"), std::string::npos);
  const std::string golden = runFbc(dir, "golden --help").out;
  EXPECT_NE(golden.find("--frame-index N    frame number, 0 or more; required"), std::string::npos);
  EXPECT_EQ(golden.find("default 0\n  --outdir"), std::string::npos);
  const Outcome none = runFbc(dir, "selftest --count 1 --filter nosuchcheck");
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.err, "fbc selftest: --filter: no check matches 'nosuchcheck' on this CPU\n");
}

}  // namespace
