#include "config/IniAccess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "tests/TestFiles.h"

namespace {

using fbc::test::readBytes;
using fbc::test::TempDir;
using fbc::test::writeBytes;

const char kSample[] =
    "gkey = global value\n"
    "; comment = no\n"
    "[FBC]\n"
    "Key = value ; note\n"
    "quoted = \"a;b\"\n"
    "colon:5\n"
    "KEY2 = Upper\n"
    "trailing = \"x \"\n"
    "esc = \"say \\\"hi\\\"\"\n"
    "dq = \"a\"\"b\"\n"
    "hash = v#c\n"
    "empty = ;just a comment\n"
    "# hidden = 1\n"
    "noseparator\n"
    "crlf = 7\r\n"
    "[Other]\n"
    "Key = other\n";

struct ReadCase {
  const char* section;
  const char* key;
  const char* expected;  // "<default>" when the key must not be found
};

class IniRead : public ::testing::TestWithParam<ReadCase> {};

TEST_P(IniRead, ValueAsCleaned) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, kSample);
  const ReadCase& c = GetParam();
  char buffer[64];
  const int n = ini_gets(c.section, c.key, "<default>", buffer, sizeof buffer, file.c_str());
  EXPECT_STREQ(c.expected, buffer);
  EXPECT_EQ(static_cast<int>(std::string(c.expected).size()), n);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, IniRead,
    ::testing::Values(ReadCase{"FBC", "Key", "value"},         // trailing comment cut
                      ReadCase{"FBC", "quoted", "a;b"},        // ';' inside quotes kept
                      ReadCase{"FBC", "colon", "5"},           // ':' separates when no '='
                      ReadCase{"fbc", "key2", "Upper"},        // names compared case-insensitively
                      ReadCase{"FBC", "trailing", "x "},       // quotes keep the trailing blank
                      ReadCase{"FBC", "esc", "say \"hi\""},    // \" unescaped
                      ReadCase{"FBC", "dq", "a\"b"},           // "" unescaped
                      ReadCase{"FBC", "hash", "v"},            // '#' starts a comment too
                      ReadCase{"FBC", "empty", ""},            // value that begins with ';'
                      ReadCase{"FBC", "hidden", "<default>"},  // commented-out key
                      ReadCase{"FBC", "# hidden", "<default>"},
                      ReadCase{"FBC", "noseparator", "<default>"},
                      ReadCase{"FBC", "crlf", "7"},        // CR of a CRLF line is trailing blank
                      ReadCase{"FBC", "Ke", "<default>"},  // full-length match only
                      ReadCase{"Other", "Key", "other"},
                      ReadCase{"", "gkey", "global value"},  // keys before the first header
                      ReadCase{nullptr, "gkey", "global value"},
                      ReadCase{"FBC", "gkey", "<default>"},
                      ReadCase{"", "Key", "<default>"},  // global search stops at a header
                      ReadCase{"Missing", "Key", "<default>"}));

TEST(IniGets, TruncatesToBufferAndRejectsBadArguments) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, kSample);
  char buffer[4] = "zz";
  EXPECT_EQ(3, ini_gets("FBC", "Key", "", buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("val", buffer);
  EXPECT_EQ(0, ini_gets("FBC", nullptr, "d", buffer, sizeof buffer, file.c_str()));
  EXPECT_EQ(0, ini_gets("FBC", "Key", "d", buffer, 0, file.c_str()));
  EXPECT_EQ(0, ini_gets("FBC", "Key", "d", nullptr, 4, file.c_str()));
  EXPECT_EQ(0, ini_gets("FBC", "none", nullptr, buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("", buffer);
  EXPECT_EQ(2,
            ini_gets("FBC", "Key", "dd", buffer, sizeof buffer, dir.file("missing.ini").c_str()));
  EXPECT_STREQ("dd", buffer);
}

TEST(IniGetl, DecimalHexAndDefaults) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "a=0x1F\nb=0X1F\nc=12\nd=-5\ne=\nf=x\n");
  EXPECT_EQ(31, ini_getl(nullptr, "a", 9, file.c_str()));
  EXPECT_EQ(31, ini_getl(nullptr, "b", 9, file.c_str()));  // second character X: base 16
  EXPECT_EQ(12, ini_getl(nullptr, "c", 9, file.c_str()));
  EXPECT_EQ(-5, ini_getl(nullptr, "d", 9, file.c_str()));
  EXPECT_EQ(9, ini_getl(nullptr, "e", 9, file.c_str()));  // empty value gives the default
  EXPECT_EQ(0, ini_getl(nullptr, "f", 9, file.c_str()));  // present but not a number
  EXPECT_EQ(9, ini_getl(nullptr, "g", 9, file.c_str()));
}

// The default only when the key is missing: unlike ini_getl, an empty value is read (as 0).
TEST(IniGetf, ParsesOrDefaults) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "a=2.5\ne=\n");
  EXPECT_FLOAT_EQ(2.5f, ini_getf(nullptr, "a", 1.0f, file.c_str()));
  EXPECT_FLOAT_EQ(1.0f, ini_getf(nullptr, "b", 1.0f, file.c_str()));
  EXPECT_FLOAT_EQ(0.0f, ini_getf(nullptr, "e", 1.0f, file.c_str()));
}

struct BoolCase {
  const char* text;
  int expected;  // with the default 7
};

class IniGetbool : public ::testing::TestWithParam<BoolCase> {};

TEST_P(IniGetbool, FirstCharacterDecides) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, std::string("v=") + GetParam().text + "\n");
  EXPECT_EQ(GetParam().expected, ini_getbool(nullptr, "v", 7, file.c_str()));
}

INSTANTIATE_TEST_SUITE_P(Values, IniGetbool,
                         ::testing::Values(BoolCase{"yes", 1}, BoolCase{"True", 1},
                                           BoolCase{"1", 1}, BoolCase{"t", 1}, BoolCase{"no", 0},
                                           BoolCase{"False", 0}, BoolCase{"0", 0},
                                           BoolCase{"off", 7}, BoolCase{"", 7}));

TEST(IniEnumerate, SectionsAndKeysByIndex) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, kSample);
  char buffer[64];
  EXPECT_EQ(3, ini_getsection(0, buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("FBC", buffer);
  EXPECT_EQ(5, ini_getsection(1, buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("Other", buffer);
  EXPECT_EQ(0, ini_getsection(2, buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("", buffer);

  const std::vector<std::string> keys = {"Key", "quoted", "colon", "KEY2",  "trailing",
                                         "esc", "dq",     "hash",  "empty", "crlf"};
  for (std::size_t i = 0; i < keys.size(); ++i) {
    ini_getkey("fbc", static_cast<int>(i), buffer, sizeof buffer, file.c_str());
    EXPECT_EQ(keys[i], buffer) << i;
  }
  EXPECT_EQ(0,
            ini_getkey("FBC", static_cast<int>(keys.size()), buffer, sizeof buffer, file.c_str()));
  EXPECT_EQ(4, ini_getkey(nullptr, 0, buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("gkey", buffer);
}

TEST(IniBrowse, VisitsKeyLinesInOrderAndStopsEarly) {
  TempDir dir;
  const std::string file = dir.file("a.ini");
  writeBytes(file, "g=1\n[A]\nx = \"q;\" ; c\n; y=2\n[B]\nz=3\n");
  std::vector<std::string> seen;
  auto collect = [](const char* s, const char* k, const char* v, void* user) {
    static_cast<std::vector<std::string>*>(user)->push_back(std::string(s) + "|" + k + "|" + v);
    return 1;
  };
  EXPECT_EQ(1, ini_browse(collect, &seen, file.c_str()));
  EXPECT_EQ((std::vector<std::string>{"|g|1", "A|x|q;", "B|z|3"}), seen);

  int calls = 0;
  auto stopAtFirst = [](const char*, const char*, const char*, void* user) {
    ++*static_cast<int*>(user);
    return 0;
  };
  EXPECT_EQ(1, ini_browse(stopAtFirst, &calls, file.c_str()));
  EXPECT_EQ(1, calls);
  EXPECT_EQ(0, ini_browse(collect, &seen, dir.file("missing.ini").c_str()));
}

struct WriteCase {
  const char* name;
  const char* before;  // nullptr: no file
  const char* section;
  const char* key;
  const char* value;
  const char* after;  // nullptr: no file
};

class IniPuts : public ::testing::TestWithParam<WriteCase> {};

TEST_P(IniPuts, ResultingBytes) {
  TempDir dir;
  const std::string file = dir.file("p.ini");
  const WriteCase& c = GetParam();
  if (c.before != nullptr) writeBytes(file, c.before);
  EXPECT_EQ(1, ini_puts(c.section, c.key, c.value, file.c_str()));
  if (c.after == nullptr) {
    EXPECT_FALSE(std::filesystem::exists(file));
  } else {
    EXPECT_EQ(c.after, readBytes(file));
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("p.in~")));
}

INSTANTIATE_TEST_SUITE_P(
    Rules, IniPuts,
    ::testing::Values(
        WriteCase{"NewFileWithSection", nullptr, "FBC", "k", "v", "[FBC]\nk=v\n"},
        WriteCase{"NewFileGlobal", nullptr, nullptr, "k", "v", "k=v\n"},
        WriteCase{"DeleteOnMissingFile", nullptr, "FBC", "k", nullptr, nullptr},
        WriteCase{"LongerValue", "[FBC]\nk=1\n\n[B]\nx=2\n", "FBC", "k", "100",
                  "[FBC]\nk=100\n\n[B]\nx=2\n"},
        WriteCase{"CaseInsensitiveReplace", "[fbc]\nKEY = 1\n", "FBC", "key", "22",
                  "[fbc]\nkey=22\n"},
        WriteCase{"NewKeyAheadOfBlankLines", "[A]\nx=1\n\n\n[B]\ny=2\n", "A", "z", "3",
                  "[A]\nx=1\nz=3\n\n\n[B]\ny=2\n"},
        WriteCase{"NewKeyAfterUnterminatedLine", "[A]\nx=1", "A", "z", "3", "[A]\nx=1\nz=3\n"},
        WriteCase{"NewSectionAtEnd", "[A]\nx=1\n", "B", "y", "2", "[A]\nx=1\n[B]\ny=2\n"},
        WriteCase{"NewSectionInEmptyFile", "", "A", "k", "1", "[A]\nk=1\n"},
        WriteCase{"NewGlobalKey", "g=0\n[A]\nx=1\n", "", "h", "1", "g=0\nh=1\n[A]\nx=1\n"},
        WriteCase{"DeleteKey", "[A]\nx=1\ny=2\n", "A", "x", nullptr, "[A]\ny=2\n"},
        WriteCase{"DeleteMissingKey", "[A]\nx=1\n", "A", "q", nullptr, "[A]\nx=1\n"},
        WriteCase{"DeleteFirstSection", "[A]\nx=1\n\n[B]\ny=2\n", "a", nullptr, nullptr,
                  "[B]\ny=2\n"},
        WriteCase{"DeleteLastSection", "[A]\nx=1\n\n[B]\ny=2\n", "B", nullptr, nullptr,
                  "[A]\nx=1\n\n"},
        WriteCase{"QuoteSemicolon", "", nullptr, "k", "a;b", "k=\"a;b\"\n"},
        WriteCase{"QuoteHash", "", nullptr, "k", "a#b", "k=\"a#b\"\n"},
        WriteCase{"QuoteTrailingBlank", "", nullptr, "k", "x ", "k=\"x \"\n"},
        WriteCase{"EscapeInnerQuote", "", nullptr, "k", "say \"hi\"", "k=\"say \\\"hi\\\"\"\n"}),
    [](const ::testing::TestParamInfo<WriteCase>& p) { return std::string(p.param.name); });

TEST(IniPuts, QuotedValuesReadBackAsWritten) {
  TempDir dir;
  const std::string file = dir.file("q.ini");
  for (const char* value : {"a;b", "x ", "say \"hi\"", "\"lead", "#x"}) {
    ASSERT_EQ(1, ini_puts("S", "k", value, file.c_str()));
    char buffer[64];
    ini_gets("S", "k", "", buffer, sizeof buffer, file.c_str());
    EXPECT_STREQ(value, buffer);
  }
}

TEST(IniPuts, EqualLengthLineIsOverwrittenInPlace) {
  TempDir dir;
  const std::string file = dir.file("p.ini");
  // "  Key = 12 ; c" and "Key=1234567890" are both 14 bytes; the CRLF and every other byte stay.
  writeBytes(file, "a=1\n[FBC]\n  Key = 12 ; c\r\nz=9\n");
  const std::string link = dir.file("link.ini");
  std::filesystem::create_hard_link(file, link);
  EXPECT_EQ(1, ini_puts("FBC", "Key", "1234567890", file.c_str()));
  EXPECT_EQ("a=1\n[FBC]\nKey=1234567890\r\nz=9\n", readBytes(file));
  EXPECT_EQ(readBytes(file), readBytes(link));  // same file: written in place, not replaced
}

TEST(IniPuts, UnchangedValueLeavesFileAlone) {
  TempDir dir;
  const std::string file = dir.file("p.ini");
  writeBytes(file, "[A]\nk = \"v\" ; same\n");
  const std::string link = dir.file("link.ini");
  std::filesystem::create_hard_link(file, link);
  EXPECT_EQ(1, ini_puts("A", "k", "v", file.c_str()));
  EXPECT_EQ("[A]\nk = \"v\" ; same\n", readBytes(file));
  EXPECT_EQ(2u, std::filesystem::hard_link_count(file));
}

TEST(IniPuts, RewriteReplacesTheFileWhole) {
  TempDir dir;
  const std::string file = dir.file("p.ini");
  writeBytes(file, "[A]\nk=1\n");
  const std::string link = dir.file("link.ini");
  std::filesystem::create_hard_link(file, link);
  EXPECT_EQ(1, ini_puts("A", "k", "12", file.c_str()));
  EXPECT_EQ("[A]\nk=12\n", readBytes(file));
  EXPECT_EQ("[A]\nk=1\n", readBytes(link));  // the old file stayed complete until the rename
}

TEST(IniPutNumbers, DecimalAndSixDecimals) {
  TempDir dir;
  const std::string file = dir.file("n.ini");
  EXPECT_EQ(1, ini_putl("A", "l", -42, file.c_str()));
  EXPECT_EQ(1, ini_putf("A", "f", 1.5f, file.c_str()));
  EXPECT_EQ("[A]\nl=-42\nf=1.500000\n", readBytes(file));
}

TEST(IniHostileInput, LongLineIsOneTruncatedLine) {
  TempDir dir;
  const std::string file = dir.file("h.ini");
  // The continuation of a line longer than the buffer must not be taken for a key line.
  const std::string longLine = "x=" + std::string(5000, 'b') + "k=7\n";
  writeBytes(file, "[A]\n" + longLine + "m=1\n");
  char buffer[8];
  EXPECT_EQ(1, ini_gets("A", "k", "-", buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("-", buffer);
  EXPECT_EQ(1, ini_gets("A", "m", "-", buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("1", buffer);
  EXPECT_EQ(7, ini_gets("A", "x", "-", buffer, sizeof buffer, file.c_str()));
  EXPECT_STREQ("bbbbbbb", buffer);

  // Rewrites copy the long line byte for byte.
  EXPECT_EQ(1, ini_puts("A", "z", "2", file.c_str()));
  EXPECT_EQ("[A]\n" + longLine + "m=1\nz=2\n", readBytes(file));
  EXPECT_EQ(1, ini_puts("A", "m", "10", file.c_str()));
  EXPECT_EQ("[A]\n" + longLine + "m=10\nz=2\n", readBytes(file));
}

TEST(IniHostileInput, KeyLineLongerThanTheReaderIsRefused) {
  TempDir dir;
  const std::string file = dir.file("h.ini");
  writeBytes(file, "[A]\n");
  const std::string value(INI_BUFFERSIZE, 'v');
  EXPECT_EQ(0, ini_puts("A", "k", value.c_str(), file.c_str()));
  EXPECT_EQ("[A]\n", readBytes(file));
}

TEST(IniHostileInput, EmbeddedNulBytesAreCopiedOnRewrite) {
  TempDir dir;
  const std::string file = dir.file("h.ini");
  const std::string before("[A]\nj=a\0b\nk=1\n", 14);
  writeBytes(file, before);
  EXPECT_EQ(1, ini_puts("A", "k", "22", file.c_str()));
  EXPECT_EQ(std::string("[A]\nj=a\0b\nk=22\n", 15), readBytes(file));
}

}  // namespace

namespace {

// Over random texts, the IniText overloads read and write exactly as the file functions do on a
// file holding the same bytes.
TEST(IniText, ReadsAndWritesLikeTheFile) {
  const char* const lines[] = {"[A]",  "[b]",      "[A]",   "k=1",     "K = 2 ;c",
                               "k:3",  "x=\"q;\"", "; k=9", "",        "  ",
                               "junk", "[]",       "k=",    "y = 5\r", "[A"};
  const char* const names[] = {"A", "b", "", "B", "k", "x", "y", "K"};
  std::mt19937 gen(7);
  TempDir dir;
  const std::string file = dir.file("r.ini");
  for (int round = 0; round < 300; ++round) {
    std::string text;
    for (int n = static_cast<int>(gen() % 12); n > 0; --n)
      text += std::string(lines[gen() % 15]) + "\n";
    if (gen() % 2 != 0 && !text.empty()) text.pop_back();  // no final line feed
    writeBytes(file, text);
    for (const char* section : names) {
      for (const char* key : names) {
        char a[64], b[64];
        EXPECT_EQ(ini_gets(section, key, "d", a, sizeof a, file.c_str()),
                  ini_gets(section, key, "d", b, sizeof b, IniText{&text}));
        EXPECT_STREQ(a, b);
        EXPECT_EQ(ini_getl(section, key, 4, file.c_str()),
                  ini_getl(section, key, 4, IniText{&text}));
      }
    }
    for (int i = 0; i < 4; ++i) {
      char a[64], b[64];
      EXPECT_EQ(ini_getsection(i, a, sizeof a, file.c_str()),
                ini_getsection(i, b, sizeof b, IniText{&text}));
      EXPECT_STREQ(a, b);
      EXPECT_EQ(ini_getkey(names[i], 1, a, sizeof a, file.c_str()),
                ini_getkey(names[i], 1, b, sizeof b, IniText{&text}));
      EXPECT_STREQ(a, b);
    }
    const char* section = names[gen() % 4];
    const char* key = gen() % 5 == 0 ? nullptr : names[4 + gen() % 4];
    const char* value = gen() % 4 == 0 ? nullptr : (gen() % 2 != 0 ? "1" : "a b;");
    EXPECT_EQ(ini_puts(section, key, value, file.c_str()),
              ini_puts(section, key, value, IniText{&text}));
    ASSERT_EQ(readBytes(file), text) << round;
  }
}

}  // namespace
