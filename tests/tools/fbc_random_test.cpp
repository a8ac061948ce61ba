// fbc random: reproducible trees, tests that re-run on their own through fbc golden, settings.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::listTree;
using fbc::test::Outcome;
using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

bool isGolden(const std::string& name) {
  return name.find("fbc_") != std::string::npos;
}

TEST(Random, SameSeedGivesIdenticalTrees) {
  const TempDir dir;
  const Outcome a = runFbc(dir, "random --count 3 --seed 1 --outdir a");
  ASSERT_EQ(a.status, 0) << a.err;
  EXPECT_EQ(a.err, "");
  EXPECT_EQ(a.out.rfind("seed 1\ntest_0000: ", 0), 0u) << a.out;
  EXPECT_NE(a.out.find("\ntest_0002: "), std::string::npos);
  EXPECT_NE(a.out.find("\n3 tests in a: "), std::string::npos);

  const std::set<std::string> files = listTree(dir.file("a"));
  for (const char* test : {"test_0000", "test_0001", "test_0002"}) {
    for (const char* name : {"/params.ini", "/input.raw", "/run.sh"}) {
      EXPECT_EQ(files.count(test + std::string(name)), 1u) << test << name;
    }
  }
  // Another seed draws other tests (the same seed, the same tree: see the shards below).
  ASSERT_EQ(runFbc(dir, "random --count=1 --seed=2 --outdir b/c").status, 0);
  EXPECT_NE(readBytes(dir.file("a/test_0000/params.ini")),
            readBytes(dir.file("b/c/test_0000/params.ini")));
}

// Every test's run.sh holds the fbc golden command that writes its golden files again.
TEST(Random, EveryTestRerunsThroughGolden) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"),
             "[GlobalControl]\nframes=2\nenable_percent=100\nwidth_max=40\nheight_max=6\n");
  const Outcome r = runFbc(dir, "random --count 3 --seed 7 --outdir t --settings s.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* test : {"test_0000", "test_0001", "test_0002"}) {
    SCOPED_TRACE(test);
    const std::string testDir = dir.file(std::string("t/") + test);
    const std::string script = readBytes(testDir + "/run.sh");
    EXPECT_NE(script.find("\"${FBC:-fbc}\" golden --params params.ini --width "),
              std::string::npos);
    EXPECT_NE(script.find(" --frame-index 1 --outdir \"$out\" input.raw\n"), std::string::npos);

    const std::string cmd =
        "FBC='" FBC_TOOL "' sh '" + testDir + "/run.sh' '" + dir.file("rerun") + "' >/dev/null";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    std::set<std::string> golden;
    for (const std::string& f : listTree(testDir)) {
      if (isGolden(f)) golden.insert(f);
    }
    EXPECT_EQ(golden.size(), 10u);  // five files for each of the two frames
    EXPECT_EQ(listTree(dir.file("rerun")), golden);
    for (const std::string& f : golden) {
      EXPECT_EQ(readBytes(dir.file("rerun/" + f)), readBytes(testDir + "/" + f)) << f;
    }
    std::filesystem::remove_all(dir.file("rerun"));
  }
}

TEST(Random, DisabledBlockWritesNoGoldenFiles) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), "[GlobalControl]\nenable_percent=0\n");
  Outcome r = runFbc(dir, "random --count 1 --seed 3 --outdir t --settings s.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(", block disabled, "), std::string::npos);
  EXPECT_EQ(
      listTree(dir.file("t")),
      (std::set<std::string>{"test_0000/params.ini", "test_0000/input.raw", "test_0000/run.sh"}));
  EXPECT_NE(readBytes(dir.file("t/test_0000/params.ini")).find("[Enable]\nreg_fbc_en=0\n"),
            std::string::npos);
}

// A 4x2 grey picture of 255 crops to at most 4x2 samples of 255 << 4 = 4080 = 0x0ff0.
TEST(Random, CropsPicturesFromTheImageDirectory) {
  const TempDir dir;
  std::filesystem::create_directory(dir.file("pics"));
  writeBytes(dir.file("pics/grey.pgm"), std::string("P5\n4 2\n255\n", 11) + std::string(8, '\xff'));
  writeBytes(dir.file("pics/notes.txt"), "not a picture");
  const Outcome r = runFbc(dir, "random --count 2 --seed 5 --outdir t --images pics");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(", crop of grey.pgm at ("), std::string::npos) << r.out;
  const std::string input = readBytes(dir.file("t/test_0000/input.raw"));
  ASSERT_FALSE(input.empty());
  EXPECT_LE(input.size(), 16u);
  for (std::size_t i = 0; i < input.size(); i += 2) {
    EXPECT_EQ(static_cast<unsigned char>(input[i]), 0xF0);
    EXPECT_EQ(static_cast<unsigned char>(input[i + 1]), 0x0F);
  }
}

struct BadSettings {
  const char* name;
  const char* text;
  const char* err;
};

class RandomSettings : public ::testing::TestWithParam<BadSettings> {};

TEST_P(RandomSettings, ExitTwoAndWriteNothing) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), GetParam().text);
  const Outcome r = runFbc(dir, "random --count 2 --seed 1 --outdir t --settings s.ini");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, GetParam().err);
  EXPECT_EQ(listTree(dir.path()), std::set<std::string>{"s.ini"});
}

const BadSettings kBadSettings[] = {
    {"NoSection", "; nothing\n", "fbc random: s.ini: no section [GlobalControl]\n"},
    {"OtherSection", "[Global]\nframes=2\n",
     "fbc random: s.ini:1: section [Global] is not [GlobalControl]\n"},
    {"KeyTwice", "[GlobalControl]\nframes=2\nFrames=3\n",
     "fbc random: s.ini:3: key \"Frames\" appears twice in [GlobalControl] (first at line 2); the "
     "readers take the "
     "first\n"},
    {"UnknownKey", "[GlobalControl]\nframe=2\n",
     "fbc random: s.ini: unknown setting \"frame\" (nearest name: frames)\n"},
    {"OutOfRange", "[GlobalControl]\nenable_percent=101\n",
     "fbc random: s.ini: setting \"enable_percent\": 101 is out of range 0..100\n"},
    {"BelowRange", "[GlobalControl]\nframes=0\n",
     "fbc random: s.ini: setting \"frames\": 0 is out of range 1..64\n"},
    {"CfaOutOfRange", "[GlobalControl]\ncfa=1,4\n",
     "fbc random: s.ini: setting \"cfa\": 1,4 is out of range 0..3\n"},
    {"NotAnInteger", "[GlobalControl]\nframes=two\n",
     "fbc random: s.ini: setting \"frames\": 'two' is not an integer\n"},
    {"EmptyRange", "[GlobalControl]\nwidth_min=30\nwidth_max=20\n",
     "fbc random: s.ini: width_min is above width_max\n"},
};
INSTANTIATE_TEST_SUITE_P(Fbc, RandomSettings, ::testing::ValuesIn(kBadSettings),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Random, ShippedSettingsAreTheDefaults) {
  const TempDir dir;
  ASSERT_EQ(runFbc(dir, "random --count 2 --seed 4 --outdir a").status, 0);
  const Outcome r = runFbc(dir, "random --count 2 --seed 4 --outdir b --settings '" FBC_SOURCE_DIR
                                "/data/random_settings.ini'");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::set<std::string> files = listTree(dir.file("a"));
  ASSERT_EQ(files, listTree(dir.file("b")));
  for (const std::string& f : files)
    EXPECT_EQ(readBytes(dir.file("a/" + f)), readBytes(dir.file("b/" + f))) << f;
}

const char kSmallTests[] = "[GlobalControl]\nwidth_max=20\nheight_max=2\nenable_percent=70\n";

// N shards written into one folder, in any order, make the tree of one unsharded run.
TEST(RandomShard, ShardsMakeTheUnshardedTree) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), kSmallTests);
  ASSERT_EQ(runFbc(dir, "random --count 9 --seed 11 --outdir whole --settings s.ini").status, 0);
  const std::set<std::string> files = listTree(dir.file("whole"));
  for (const int n : {1, 3, 7}) {
    SCOPED_TRACE(n);
    const std::string out = "shards" + std::to_string(n);
    for (int k = n - 1; k >= 0; --k) {
      const Outcome r =
          runFbc(dir, "random --count 9 --seed 11 --outdir " + out + " --settings s.ini --shard " +
                          std::to_string(k) + "/" + std::to_string(n));
      ASSERT_EQ(r.status, 0) << r.err;
      if (n == 7 && k == 1) {
        EXPECT_NE(r.out.find("\n2 tests of shard 1/7 in shards7: "), std::string::npos) << r.out;
      }
    }
    ASSERT_EQ(listTree(dir.file(out)), files);
    for (const std::string& f : files) {
      EXPECT_EQ(readBytes(dir.file(out + "/" + f)), readBytes(dir.file("whole/" + f))) << f;
    }
  }
}

// Tests written several at a time: the tree and the output of one job, lines in test order,
// with more jobs than tests left for the last batch.
TEST(RandomJobs, ManyJobsMakeTheOneJobTreeAndOutput) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), kSmallTests);
  const Outcome one =
      runFbc(dir, "random --count 7 --seed 5 --coverage --outdir t --settings s.ini");
  ASSERT_EQ(one.status, 0) << one.err;
  const std::set<std::string> files = listTree(dir.file("t"));
  std::filesystem::rename(dir.file("t"), dir.file("one"));
  for (const int jobs : {3, 16}) {
    SCOPED_TRACE(jobs);
    const Outcome r =
        runFbc(dir, "random --count 7 --seed 5 --coverage --outdir t --settings s.ini --jobs " +
                        std::to_string(jobs));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, one.out);
    ASSERT_EQ(listTree(dir.file("t")), files);
    for (const std::string& f : files)
      EXPECT_EQ(readBytes(dir.file("t/" + f)), readBytes(dir.file("one/" + f))) << f;
    std::filesystem::remove_all(dir.file("t"));
  }
}

// Two tests by hand: 16x2 over two frames enabled, 8x1 disabled; indices 1 and 3 missing.
TEST(RandomReport, CountsTestsSizesAndMissingIndices) {
  const TempDir dir;
  const std::string line = "\"${FBC:-fbc}\" golden --params params.ini --width ";
  std::filesystem::create_directories(dir.file("t/test_0000"));
  std::filesystem::create_directories(dir.file("t/test_0002"));
  std::filesystem::create_directories(dir.file("t/notes"));
  writeBytes(dir.file("t/test_0000/params.ini"), "[Enable]\nreg_fbc_en=1\n");
  writeBytes(dir.file("t/test_0000/run.sh"),
             line + "16 --height 2 --frame-index 0\n" + line + "16 --height 2 --frame-index 1\n");
  writeBytes(dir.file("t/test_0002/params.ini"), "[Enable]\nreg_fbc_en=0\n");
  writeBytes(dir.file("t/test_0002/run.sh"), line + "8 --height 1 --frame-index 0\n");
  const Outcome r = runFbc(dir, "random report t --count 4");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(r.out,
            "t: 2 tests\n"
            "block: 1 enabled, 1 disabled\n"
            "sizes: width 8..16, height 1..2, 1..2 frames per test, 72 pixels in all\n"
            "missing indices of 0..3: 2 (1, 3)\n");
  EXPECT_NE(runFbc(dir, "random report t --count 1").out.find("\nindices beyond --count: 2\n"),
            std::string::npos);

  // Coverage sums over the tests that hold it and counts the tests that hit each point.
  writeBytes(dir.file("t/test_0000/coverage.json"), "{\"points\": {\"mode.dpcm\": 3}}");
  writeBytes(dir.file("t/test_0002/coverage.json"),
             "{\"points\": {\"mode.minmax\": 1, \"mode.dpcm\": 4}}");
  const Outcome summed = runFbc(dir, "random report t");
  EXPECT_NE(summed.out.find("\ncoverage.json in 2 of 2 tests\n"), std::string::npos) << summed.out;
  EXPECT_NE(summed.out.find("\n  mode.minmax                             1         1\n"
                            "  mode.dpcm                               7         2\n"),
            std::string::npos);
  EXPECT_NE(summed.out.find("\nnever hit: "), std::string::npos);
  writeBytes(dir.file("t/test_0002/coverage.json"), "{\"points\": {\"mode.dpcn\": 4}}");
  EXPECT_EQ(runFbc(dir, "random report t").err,
            "fbc random: t/test_0002/coverage.json: unknown cover point \"mode.dpcn\"\n");
  EXPECT_EQ(runFbc(dir, "random report t/notes").err,
            "fbc random: t/notes: no tests (folders test_0000, test_0001, ...)\n");
}

TEST(RandomCheck, ListsEveryDifference) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), "[GlobalControl]\nwidth_max=20\nheight_max=2\n");
  ASSERT_EQ(runFbc(dir, "random --count 2 --seed 3 --outdir t --settings s.ini").status, 0);
  writeBytes(dir.file("same"), "#!/bin/sh\nexec '" FBC_TOOL "' \"$@\"\n");
  std::filesystem::permissions(dir.file("same"), std::filesystem::perms::owner_all);
  Outcome r = runFbc(dir, "random check t --fbc-like ./same");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "2 tests checked: 2 identical, 0 differ\n");

  std::string dec = readBytes(dir.file("t/test_0001/fbc_golden_ref_dec_0000.txt"));
  dec[5] ^= 1;
  writeBytes(dir.file("t/test_0001/fbc_golden_ref_dec_0000.txt"), dec);
  std::filesystem::remove(dir.file("t/test_0000/fbc_com_input_0000.raw"));
  r = runFbc(dir, "random check t");
  EXPECT_EQ(r.status, 1) << r.err;
  // The flipped bit is the lowest of sample 6 of the first word: 0xff1 written, 0xff0 again.
  EXPECT_EQ(
      r.out.rfind(
          "test_0000: fbc_com_input_0000.raw written, but the test has no such file\n"
          "test_0001: first difference: fbc_golden_ref_dec_0000.txt, line 1, x=0 y=0 (decoded "
          "pixels, frame 0)\n"
          "    differing 12-bit samples of the word: sample 6 (expected 0xff1, actual 0xff0)\n"
          "  trace of the expected block (registers: t/test_0001/params.ini; cfa 2):\n",
          0),
      0u)
      << r.out;
  EXPECT_NE(r.out.find("\n  summary: 1 of 5 files differ (width 9)\n"
                       "    fbc_golden_ref_dec_0000.txt: 1 block differs (of 4 lines); by expected "
                       "mode: Curve 1\n"
                       "      first positions: x=0 y=0\n"
                       "2 tests checked: 0 identical, 2 differ\n"
                       "differing: test_0000, test_0001\n"),
            std::string::npos)
      << r.out;
  r = runFbc(dir, "random check t --fbc-like /bin/false");
  EXPECT_EQ(r.out.rfind("test_0000: run.sh exited with status 1: ", 0), 0u) << r.out;
  EXPECT_EQ(runFbc(dir, "random check t --fbc-like ./absent").status, 2);
}

// Each block is coded by exactly one encoder: over two tests of 2 rows of 2 blocks, the mode
// points add up to 8. Counting changes no golden file.
TEST(RandomCoverage, ModePointsCountEveryBlockOnce) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"),
             "[GlobalControl]\nwidth_min=9\nwidth_max=16\nheight_min=2\nheight_max=2\nenable_"
             "percent=100\n");
  ASSERT_EQ(runFbc(dir, "random --count 2 --seed 9 --outdir plain --settings s.ini").status, 0);
  ASSERT_EQ(
      runFbc(dir, "random --count 2 --seed 9 --outdir counted --settings s.ini --coverage").status,
      0);
  for (const std::string& f : listTree(dir.file("plain"))) {
    EXPECT_EQ(readBytes(dir.file("counted/" + f)), readBytes(dir.file("plain/" + f))) << f;
  }
  const Outcome r = runFbc(dir, "random report counted");
  ASSERT_EQ(r.status, 0) << r.err;
  long long blocks = 0;
  for (std::size_t at = r.out.find("\n  mode."); at != std::string::npos;
       at = r.out.find("\n  mode.", at + 1)) {
    blocks += std::stoll(r.out.substr(at + 32, 12));
  }
  EXPECT_EQ(blocks, 8);
}

}  // namespace
