// fbc cover: the suite it writes reproduces through run.sh and hits every point not out of reach.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::listDir;
using fbc::test::Outcome;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::writeBytes;

TEST(Cover, SuiteReproducesAndHitsEveryReachablePoint) {
  const TempDir dir;
  const Outcome cover = runFbc(dir, "cover --out suite --seed 3 --budget 64000");
  ASSERT_EQ(cover.status, 0) << cover.out << cover.err;
  const std::set<std::string> tests = listDir(dir.file("suite"));
  EXPECT_GE(tests.size(), 2u);
  EXPECT_LE(tests.size(), 36u);  // a directed smoke suite: a few dozen tests at most

  const Outcome check = runFbc(dir, "random check suite");
  EXPECT_EQ(check.status, 0) << check.out;
  EXPECT_EQ(check.out, std::to_string(tests.size()) + " tests checked: " +
                           std::to_string(tests.size()) + " identical, 0 differ\n");

  // Every point the suite misses is one the table puts out of reach, with its reason.
  const Outcome report = runFbc(dir, "random report suite");
  EXPECT_EQ(report.status, 0) << report.err;
  EXPECT_NE(report.out.find("\nnever hit: 0\n"), std::string::npos) << report.out;
  EXPECT_NE(report.out.find(
                "\nout of reach: dpcm.shift5: needs reg_dpcm_stepsize_expansion_en of 2 or more"),
            std::string::npos);
}

TEST(Cover, RefusesAFolderThatHoldsTests) {
  const TempDir dir;
  std::filesystem::create_directories(dir.file("suite/test_0000"));
  const Outcome r = runFbc(dir, "cover --out suite --budget 1000");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err,
            "fbc cover: suite: already holds tests (test_0000); fbc cover writes a suite into a "
            "folder of its own\n");
  EXPECT_EQ(listDir(dir.file("suite")), std::set<std::string>{"test_0000"});
}

}  // namespace
