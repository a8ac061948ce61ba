#include "config/IniFileIO.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;
using fbc::test::writeBytes;

TEST(IniFileIO, CacheComparesNamesExactly) {
  TempDir dir;
  const std::string file = dir.file("c.ini");
  writeBytes(file, "g=1\n[a]\nx=1\n; y=0\n[b]\ny=2\n");
  IniFileIO ini(file);
  EXPECT_TRUE(ini.isSectionExist("a"));
  EXPECT_TRUE(ini.isSectionExist("b"));
  EXPECT_FALSE(ini.isSectionExist("B"));  // the primitives would find it, the cache does not
  EXPECT_FALSE(ini.isSectionExist(""));   // global keys are not cached
  EXPECT_TRUE(ini.isKeyExist("a", "x"));
  EXPECT_FALSE(ini.isKeyExist("a", "y"));
  EXPECT_TRUE(ini.isKeyExist("b", "y"));
  EXPECT_FALSE(ini.isKeyExist("a", "X"));
}

TEST(IniFileIO, SectionNamesAreCutTo63Bytes) {
  TempDir dir;
  const std::string file = dir.file("c.ini");
  const std::string longName(70, 's');
  writeBytes(file, "[" + longName + "]\nk=1\n[" + longName.substr(0, 63) + "]\nq=2\n");
  IniFileIO ini(file);
  // Both headers cut to the same 63 bytes; the keys are those of the full-length match.
  EXPECT_TRUE(ini.isSectionExist(longName.substr(0, 63).c_str()));
  EXPECT_FALSE(ini.isSectionExist(longName.c_str()));
  EXPECT_TRUE(ini.isKeyExist(longName.substr(0, 63).c_str(), "q"));
  EXPECT_FALSE(ini.isKeyExist(longName.substr(0, 63).c_str(), "k"));
}

struct ArrayCase {
  const char* text;
  std::vector<int> expected;  // after reading into {-1, -1, -1}
  bool result;
};

class IniFileIOGetArray : public ::testing::TestWithParam<ArrayCase> {};

TEST_P(IniFileIOGetArray, ParsesElements) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, std::string("[S]\nv=") + GetParam().text + "\n");
  IniFileIO ini(file);
  int values[3] = {-1, -1, -1};
  EXPECT_EQ(GetParam().result, ini.getArray("S", "v", values, 3, ""));
  EXPECT_EQ(GetParam().expected, std::vector<int>(values, values + 3));
}

INSTANTIATE_TEST_SUITE_P(
    Quirks, IniFileIOGetArray,
    ::testing::Values(ArrayCase{"1, 0x10,7", {1, 16, 7}, true},
                      ArrayCase{"5", {5, 5, -1}, false},  // only the next slot is filled
                      ArrayCase{
                          "0X1F, 0x1F, 3", {0, 31, 3}, true},  // upper-case X reads as decimal 0
                      ArrayCase{"1,,2,3", {1, 2, 3}, true},    // empty elements vanish
                      ArrayCase{"4, -2, 0xffffffff, 9", {4, -2, -1}, true},
                      ArrayCase{"1, x7, 3", {1, -1, 3}, true},  // "%x" does not convert: kept
                      ArrayCase{"", {-1, -1, -1}, false}));

// The same object over a text in memory: the key lists of the text, reads and writes through the
// primitives' rules, and no file anywhere.
TEST(IniFileIO, TextInMemory) {
  IniFileIO ini = IniFileIO::fromText("mem", "[S]\na = 0x10 ; hex\n\n[T]\n");
  EXPECT_TRUE(ini.isKeyExist("S", "a"));
  EXPECT_TRUE(ini.isSectionExist("T"));
  int a = 0;
  EXPECT_TRUE(ini.getVariable("S", "a", a, "0"));
  EXPECT_EQ(16, a);
  EXPECT_TRUE(ini.setVariable("S", "b", 7));
  EXPECT_TRUE(ini.setVariable("S", "a", 3));
  EXPECT_TRUE(ini.setVariable("U", "c", "x;y"));
  EXPECT_EQ("[S]\na=3\nb=7\n\n[T]\n[U]\nc=\"x;y\"\n", ini.text());
  EXPECT_FALSE(std::ifstream("mem").good());
}

TEST(IniFileIO, GetArrayOfMissingKeyUsesDefaultTextButFails) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "[S]\n");
  IniFileIO ini(file);
  int values[2] = {0, 0};
  EXPECT_FALSE(ini.getArray("S", "v", values, 2, "3,4"));
  EXPECT_EQ(3, values[0]);
  EXPECT_EQ(4, values[1]);
}

TEST(IniFileIO, GetDoubleArray) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "[S]\nv=1.5, -2e1\n");
  IniFileIO ini(file);
  double values[2] = {0, 0};
  EXPECT_TRUE(ini.getArray("S", "v", values, 2, ""));
  EXPECT_DOUBLE_EQ(1.5, values[0]);
  EXPECT_DOUBLE_EQ(-20.0, values[1]);
}

TEST(IniFileIO, ScalarReads) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "[S]\ni=0x10\nb=2\nd=2.25\ns=MiXed\n");
  IniFileIO ini(file);
  int i = 0;
  EXPECT_TRUE(ini.getVariable("S", "i", i, "5"));
  EXPECT_EQ(16, i);
  EXPECT_FALSE(ini.getVariable("S", "missing", i, "5"));
  EXPECT_EQ(5, i);
  bool b = false;
  EXPECT_TRUE(ini.getVariable("S", "b", b, "0"));
  EXPECT_TRUE(b);
  double d = 0;
  EXPECT_TRUE(ini.getVariable("S", "d", d, "0"));
  EXPECT_DOUBLE_EQ(2.25, d);
  std::string s;
  EXPECT_TRUE(ini.getVariable("S", "s", s, "", true));
  EXPECT_EQ("mixed", s);
  EXPECT_FALSE(ini.getVariable("S", "t", s, "Dflt"));
  EXPECT_EQ("Dflt", s);
}

TEST(IniFileIO, WritesArraysAndScalars) {
  TempDir dir;
  const std::string file = dir.file("w.ini");
  IniFileIO ini(file);
  const int pair[2] = {1, 2};
  EXPECT_TRUE(ini.setArray("S", "h", pair, 2, true));
  EXPECT_TRUE(ini.setArray("S", "d", pair, 2, false));
  const int neg[2] = {31, -1};
  EXPECT_TRUE(ini.setArray("S", "n", neg, 2, true));
  EXPECT_TRUE(ini.setVariable("S", "i", 26, true));
  EXPECT_TRUE(ini.setVariable("S", "b", true));
  EXPECT_TRUE(ini.setVariable("S", "t", "text"));
  EXPECT_TRUE(ini.setVariable("S", "f", 0.5));
  const double dd[2] = {1.5, -2.0};
  EXPECT_TRUE(ini.setArray("S", "dd", dd, 2));
  EXPECT_EQ(
      "[S]\nh=0x1, 0x2\nd=1, 2\nn=0x1f, 0xffffffff\ni=0x1a\nb=1\nt=text\nf=0.500000\n"
      "dd=1.500000, -2.000000\n",
      readBytes(file));
}

TEST(IniFileIO, OverlongArrayIsNotWritten) {
  TempDir dir;
  const std::string file = dir.file("w.ini");
  writeBytes(file, "[S]\nv=1\n");
  IniFileIO ini(file);
  // 400 elements of 13 characters each pass the 4084-byte limit.
  const std::vector<int> values(400, -1000000000);
  EXPECT_FALSE(ini.setArray("S", "v", values.data(), 400, false));
  EXPECT_EQ("[S]\nv=1\n", readBytes(file));
}

TEST(IniFileIO, WritesDoNotUpdateTheCache) {
  TempDir dir;
  const std::string file = dir.file("w.ini");
  writeBytes(file, "[S]\n");
  IniFileIO ini(file);
  EXPECT_TRUE(ini.setVariable("S", "k", 3, false));
  int v = 0;
  EXPECT_FALSE(ini.getVariable("S", "k", v, "0"));
  EXPECT_EQ(3, v);
  EXPECT_TRUE(IniFileIO(file).isKeyExist("S", "k"));
}

}  // namespace
