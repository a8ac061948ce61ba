#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fbc::test {

// A fresh directory for one test, removed with everything in it when the test ends.
class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::path(::testing::TempDir()) / "fbc_test_XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << pattern;
        m_path = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return (m_path / name).string(); }
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

inline void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary);
    out << bytes;
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace fbc::test
