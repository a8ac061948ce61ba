// Stand-in for the fuzz engine: runs the target once on every file named on the command line,
// and on every regular file below each directory named, in sorted order. A missing path is an
// error; a broken property aborts inside the target.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    const fs::path arg(argv[i]);
    std::error_code ec;
    if (fs::is_directory(arg, ec)) {
      for (const auto& entry : fs::recursive_directory_iterator(arg))
        if (entry.is_regular_file()) files.push_back(entry.path());
    } else if (fs::is_regular_file(arg, ec)) {
      files.push_back(arg);
    } else {
      std::fprintf(stderr, "%s: no such file or directory\n", argv[i]);
      return 2;
    }
  }
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                  std::istreambuf_iterator<char>());
    std::fprintf(stderr, "%s (%zu bytes)\n", file.string().c_str(), bytes.size());
    // Copied to a buffer of exactly the input's size, so a sanitizer sees any read past it.
    std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
  }
  std::fprintf(stderr, "%zu inputs replayed\n", files.size());
  return 0;
}
