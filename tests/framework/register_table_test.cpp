#include "framework/RegisterTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;
using fbc::test::writeBytes;

TEST(RegisterTable, ReadsParamsFieldsAndPacks) {
  RegisterTable t;
  std::string error;
  ASSERT_TRUE(
      fbc::parseRegisterTable("# comment line\n"
                              "\n"
                              "param S a  -5 0x20  random 0 3  default 1,2   # trailing comment\n"
                              "  field 0x0100..0x0101 19:0 src 23:4 elem 1\n"
                              "  pack 0x0102 5 6\n"
                              "param S b 0 1 noini\n",
                              "t.txt", t, error))
      << error;
  ASSERT_EQ(2, t.size());
  EXPECT_EQ(0, t.lookupParam("S", "a"));
  EXPECT_EQ(1, t.lookupParam("S", "b"));
  EXPECT_EQ(-1, t.lookupParam("s", "a"));
  EXPECT_EQ(-1, t.lookupParam("S", "c"));

  const TParamInfo& a = t.getEntry(0);
  EXPECT_EQ(-5, a.minVal);
  EXPECT_EQ(32, a.maxVal);
  EXPECT_EQ(0, a.randomMin);
  EXPECT_EQ(3, a.randomMax);
  EXPECT_EQ((std::vector<int>{1, 2}), a.defaultVal);
  EXPECT_FALSE(a.iniExcluded);
  ASSERT_EQ(6u, a.regs.size());
  const TRegEntity& f = a.regs[0];
  EXPECT_EQ(0x100, f.address);
  EXPECT_EQ(0x100, f.spanLo);
  EXPECT_EQ(0x101, f.spanHi);
  EXPECT_EQ(19, f.dstHi);
  EXPECT_EQ(0, f.dstLo);
  EXPECT_EQ(23, f.srcHi);
  EXPECT_EQ(4, f.srcLo);
  EXPECT_EQ(1, f.index);
  // Six-bit elements, two per register: element 2 opens register 0x0103, element 4 0x0104.
  const int expected[5][4] = {
      {0x102, 5, 0, 0}, {0x102, 11, 6, 1}, {0x103, 5, 0, 2}, {0x103, 11, 6, 3}, {0x104, 5, 0, 4}};
  for (int i = 0; i < 5; ++i) {
    const TRegEntity& p = a.regs[static_cast<std::size_t>(i + 1)];
    EXPECT_EQ(expected[i][0], p.address) << i;
    EXPECT_EQ(expected[i][0], p.spanHi) << i;
    EXPECT_EQ(expected[i][1], p.dstHi) << i;
    EXPECT_EQ(expected[i][2], p.dstLo) << i;
    EXPECT_EQ(expected[i][3], p.index) << i;
    EXPECT_EQ(5, p.srcHi) << i;
    EXPECT_EQ(0, p.srcLo) << i;
  }

  const TParamInfo& b = t.getEntry(1);
  EXPECT_TRUE(b.iniExcluded);
  EXPECT_EQ(0, b.randomMin);  // random range defaults to the checking range
  EXPECT_EQ(1, b.randomMax);
  EXPECT_TRUE(b.defaultVal.empty());
  EXPECT_TRUE(b.regs.empty());
}

struct BadCase {
  const char* text;
  const char* error;
};

class RegisterTableErrors : public ::testing::TestWithParam<BadCase> {};

TEST_P(RegisterTableErrors, NamesFileLineAndReason) {
  RegisterTable t;
  std::string error;
  ASSERT_TRUE(fbc::parseRegisterTable("param K keep 0 1\n", "old", t, error));
  EXPECT_FALSE(fbc::parseRegisterTable(GetParam().text, "r.txt", t, error));
  EXPECT_EQ(GetParam().error, error);
  EXPECT_EQ(1, t.size());  // a failed read leaves the table as it was
}

INSTANTIATE_TEST_SUITE_P(
    Cases, RegisterTableErrors,
    ::testing::Values(
        BadCase{"prm S a 0 1\n", "r.txt:1: unknown word 'prm' (expected param, field or pack)"},
        BadCase{"# c\nparam S a 0\n", "r.txt:2: param needs SECTION KEY MIN MAX"},
        BadCase{"param S a 0 x1\n", "r.txt:1: bad range '0 x1'"},
        BadCase{"param S a 5 1\n", "r.txt:1: empty range 5..1"},
        BadCase{"param S a 0 9 random 0 10\n", "r.txt:1: random range 0..10 is not inside 0..9"},
        BadCase{"param S a 0 9 random 3\n", "r.txt:1: random needs LO HI"},
        BadCase{"param S a 0 9 default 1,12\n", "r.txt:1: default 12 is outside 0..9"},
        BadCase{"param S a 0 9 default 1,,2\n", "r.txt:1: bad default value ''"},
        BadCase{"param S a 0 9 sticky\n",
                "r.txt:1: unknown word 'sticky' in param (expected random, default or noini)"},
        BadCase{"param S a 0 1\nparam S a 0 1\n", "r.txt:2: parameter S/a is defined twice"},
        BadCase{"field 0x10 3:0\n", "r.txt:1: field before any param"},
        BadCase{"pack 0x10 2 4\n", "r.txt:1: pack before any param"},
        BadCase{"param S a 0 1\nfield 0x10\n", "r.txt:2: field needs ADDR[..LAST] HI:LO"},
        BadCase{"param S a 0 1\nfield 0x10000 0:0\n", "r.txt:2: bad register address '0x10000'"},
        BadCase{"param S a 0 1\nfield 0x11..0x10 0:0\n",
                "r.txt:2: bad register address '0x11..0x10'"},
        BadCase{"param S a 0 1\nfield 0x10 0:3\n", "r.txt:2: bad bit range '0:3'"},
        BadCase{"param S a 0 1\nfield 0x10 16:3\n",
                "r.txt:2: bit range 16:3 does not fit one 16-bit register"},
        BadCase{"param S a 0 1\nfield 0x10..0x11 19:4\n",
                "r.txt:2: a field over several registers must start at bit 0"},
        BadCase{"param S a 0 1\nfield 0x10..0x12 19:0\n",
                "r.txt:2: bit range 19:0 does not fill registers 0x10..0x12"},
        BadCase{"param S a 0 1\nfield 0x10 3:0 src 32:0\n", "r.txt:2: src needs HI:LO within 31:0"},
        BadCase{"param S a 0 1\nfield 0x10 3:0 elem -1\n",
                "r.txt:2: elem needs an element index of 0 or more"},
        BadCase{"param S a 0 1\nfield 0x10 3:0 wide\n",
                "r.txt:2: unknown word 'wide' in field (expected src or elem)"},
        BadCase{"param S a 0 1\npack 0x10 3\n", "r.txt:2: pack needs ADDR COUNT BITS"},
        BadCase{"param S a 0 1\npack 0x10 0 4\n", "r.txt:2: bad element count '0'"},
        BadCase{"param S a 0 1\npack 0x10 2 17\n",
                "r.txt:2: bad element width '17' (1 to 16 bits)"},
        BadCase{"param S a 0 1\npack 0xffff 2 16\n", "r.txt:2: pack runs past register 0xffff"},
        BadCase{"param S a 0 1\nfield 0x10 7:0\nparam S b 0 1\n\nfield 0x10 8:7\n",
                "r.txt:5: register 0x0010 bit 7 is already used by the field on line 2"}));

TEST(RegisterTable, MissingFileIsReported) {
  TempDir dir;
  RegisterTable t;
  std::string error;
  const std::string path = dir.file("none.txt");
  EXPECT_FALSE(fbc::loadRegisterTable(path, t, error));
  EXPECT_EQ(path + ": cannot open the register table", error);
}

TEST(RegisterTable, LoadsFromFile) {
  TempDir dir;
  const std::string path = dir.file("r.txt");
  writeBytes(path, "param S a 0 1\nfield 0x1 0:0\nfield 0x1 0:0\n");
  RegisterTable t;
  std::string error;
  EXPECT_FALSE(fbc::loadRegisterTable(path, t, error));
  EXPECT_EQ(path + ":3: register 0x0001 bit 0 is already used by the field on line 2", error);
}

TEST(BuiltinRegisterTable, IsTheShippedDataFile) {
  EXPECT_EQ(readBytes(FBC_SOURCE_DIR "/data/fbc_registers.txt"), fbc::builtinRegisterTableText());
}

}  // namespace
