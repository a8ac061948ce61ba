// Reviewed golden vectors from an independent model of the block: registers that differ from
// the defaults, row parity, eight pixels, the expected 64-bit code (bit 63 first) and the
// pixels that code decodes to under the same registers.
#include <fstream>
#include <sstream>

#include "codec_fixture.h"

namespace {

std::vector<std::string> split(const std::string& s, char sep) {
  std::vector<std::string> parts;
  std::stringstream ss(s);
  std::string part;
  while (std::getline(ss, part, sep)) parts.push_back(part);
  return parts;
}

std::vector<int> ints(const std::string& s) {
  std::vector<int> v;
  for (const std::string& p : split(s, ',')) v.push_back(std::stoi(p));
  return v;
}

// Sets a register by its key, as a parameter file would: every variable bound to the key.
void setRegister(Compression1x8& codec, const std::string& key, const std::vector<int>& values) {
  if (key == "SwingRowSelect") {
    codec.SwingRowSelect = values.at(0);
    return;
  }
  int bound = 0;
  for (const auto& [var, info] : codec.bindings()) {
    if (info.name.second != key) continue;
    ASSERT_EQ(static_cast<int>(values.size()), info.count) << key;
    std::copy(values.begin(), values.end(), static_cast<int*>(var));
    ++bound;
  }
  ASSERT_GT(bound, 0) << "no register " << key;
}

}  // namespace

TEST(CodecVectors, IndependentModelAgrees) {
  std::ifstream file(FBC_SOURCE_DIR "/tests/codec/data/codec_vectors.txt");
  ASSERT_TRUE(file) << "missing vector file";
  std::string line;
  int count = 0;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string regs, pixels, code, decoded;
    int parity = 0;
    ASSERT_TRUE(fields >> regs >> parity >> pixels >> code >> decoded) << line;
    Compression1x8 codec("FBC", false);
    codec.setSWinit();
    codec.setEnable(true);
    if (regs != "-") {
      for (const std::string& assignment : split(regs, ';')) {
        const auto eq = assignment.find('=');
        setRegister(codec, assignment.substr(0, eq), ints(assignment.substr(eq + 1)));
      }
    }
    const std::vector<int> p = ints(pixels);
    ASSERT_EQ(p.size(), 8u);
    const fbc::BlockCode expected = std::stoull(code, nullptr, 16);
    ASSERT_EQ(codec.encodeBlock(p.data(), parity != 0), expected)
        << "line " << count + 1 << ": " << line;
    std::vector<int> out(8);
    codec.decodeBlock(expected, out.data());
    ASSERT_EQ(out, ints(decoded)) << "line " << count + 1;
    ++count;
  }
  EXPECT_EQ(count, 2000);
}
