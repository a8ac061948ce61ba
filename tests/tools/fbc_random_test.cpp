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

bool isGolden(const std::string& name) { return name.find("fbc_") != std::string::npos; }

TEST(Random, SameSeedGivesIdenticalTrees) {
  const TempDir dir;
  const Outcome a = runFbc(dir, "random --count 3 --seed 1 --outdir a");
  ASSERT_EQ(a.status, 0) << a.err;
  const Outcome b = runFbc(dir, "random --count=3 --seed=1 --outdir b/c");
  ASSERT_EQ(b.status, 0) << b.err;
  EXPECT_EQ(a.err, "");
  EXPECT_EQ(a.out.rfind("seed 1\ntest_0000: ", 0), 0u) << a.out;
  EXPECT_NE(a.out.find("\ntest_0002: "), std::string::npos);
  EXPECT_NE(a.out.find("\n3 tests in a: "), std::string::npos);

  const std::set<std::string> files = listTree(dir.file("a"));
  ASSERT_EQ(files, listTree(dir.file("b/c")));
  for (const char* test : {"test_0000", "test_0001", "test_0002"}) {
    for (const char* name : {"/params.ini", "/input.raw", "/run.sh"}) {
      EXPECT_EQ(files.count(test + std::string(name)), 1u) << test << name;
    }
  }
  for (const std::string& f : files) {
    EXPECT_EQ(readBytes(dir.file("a/" + f)), readBytes(dir.file("b/c/" + f))) << f;
  }
  // Another seed draws other tests.
  ASSERT_EQ(runFbc(dir, "random --count 1 --seed 2 --outdir d").status, 0);
  EXPECT_NE(readBytes(dir.file("a/test_0000/params.ini")), readBytes(dir.file("d/test_0000/params.ini")));
}

// Every test's run.sh holds the fbc golden command that writes its golden files again.
TEST(Random, EveryTestRerunsThroughGolden) {
  const TempDir dir;
  writeBytes(dir.file("s.ini"), "[GlobalControl]\nframes=2\nenable_percent=100\nwidth_max=40\nheight_max=6\n");
  const Outcome r = runFbc(dir, "random --count 3 --seed 7 --outdir t --settings s.ini");
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* test : {"test_0000", "test_0001", "test_0002"}) {
    SCOPED_TRACE(test);
    const std::string testDir = dir.file(std::string("t/") + test);
    const std::string script = readBytes(testDir + "/run.sh");
    EXPECT_NE(script.find("\"${FBC:-fbc}\" golden --params params.ini --width "), std::string::npos);
    EXPECT_NE(script.find(" --frame-index 1 --outdir \"$out\" input.raw\n"), std::string::npos);

    const std::string cmd = "FBC='" FBC_BINARY_DIR "/fbc' sh '" + testDir + "/run.sh' '" + dir.file("rerun") +
                            "' >/dev/null";
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
  EXPECT_EQ(listTree(dir.file("t")),
            (std::set<std::string>{"test_0000/params.ini", "test_0000/input.raw", "test_0000/run.sh"}));
  EXPECT_NE(readBytes(dir.file("t/test_0000/params.ini")).find("[Enable]\nreg_fbc_en=0\n"), std::string::npos);
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
    {"NoSection", "[Global]\nframes=2\n", "fbc random: s.ini: no section [GlobalControl]\n"},
    {"UnknownKey", "[GlobalControl]\nframe=2\n",
     "fbc random: s.ini: unknown setting \"frame\" (nearest name: frames)\n"},
    {"OutOfRange", "[GlobalControl]\nenable_percent=101\n",
     "fbc random: s.ini: setting \"enable_percent\": 101 is out of range 0..100\n"},
    {"BelowRange", "[GlobalControl]\nframes=0\n",
     "fbc random: s.ini: setting \"frames\": 0 is out of range 1..64\n"},
    {"CfaOutOfRange", "[GlobalControl]\ncfa=1,4\n", "fbc random: s.ini: setting \"cfa\": 1,4 is out of range 0..3\n"},
    {"NotAnInteger", "[GlobalControl]\nframes=two\n",
     "fbc random: s.ini: setting \"frames\": 'two' is not an integer\n"},
    {"EmptyRange", "[GlobalControl]\nwidth_min=30\nwidth_max=20\n", "fbc random: s.ini: width_min is above width_max\n"},
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
  for (const std::string& f : files) EXPECT_EQ(readBytes(dir.file("a/" + f)), readBytes(dir.file("b/" + f))) << f;
}

}  // namespace
