// What every test that touches files needs: a scratch directory, whole-file reads and writes,
// one digest for long outputs, and the recorded digests kept beside a test.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

namespace fbc::test {

// A fresh directory per test, removed with everything in it afterwards.
class TempDir {
 public:
  TempDir() {
    std::string pattern =
        (std::filesystem::path(::testing::TempDir()) / "fbc-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// 64-bit FNV-1a over `size` bytes, continuing from `h`.
inline std::uint64_t fnv1a(const void* data, std::size_t size,
                           std::uint64_t h = 0xcbf29ce484222325ull) {
  const auto* p = static_cast<const unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
  return h;
}
inline std::uint64_t fnv1a(const std::string& bytes) {
  return fnv1a(bytes.data(), bytes.size());
}

// Recorded digests, one "name 0xHEX" a line; '#' starts a comment line.
inline std::map<std::string, std::uint64_t> readDigests(const std::string& path) {
  std::map<std::string, std::uint64_t> digests;
  std::istringstream in(readBytes(path));
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string name, hex;
    if (line.empty() || line[0] == '#' || !(fields >> name >> hex)) continue;
    digests[name] = std::stoull(hex, nullptr, 16);
  }
  EXPECT_FALSE(digests.empty()) << path;
  return digests;
}

}  // namespace fbc::test
