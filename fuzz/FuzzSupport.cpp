#include "fuzz/FuzzSupport.h"

#include <stdlib.h>

#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "codec/Compression1x8.h"
#include "framework/RegisterTable.h"

namespace fbc::fuzz {

int ByteReader::inRange(int lo, int hi) {
  const std::uint32_t span = static_cast<std::uint32_t>(static_cast<std::int64_t>(hi) - lo) + 1;
  const std::uint32_t raw = span <= 0x100 ? byte() : span <= 0x10000 ? u16() : u32();
  return static_cast<int>(lo + static_cast<std::int64_t>(span == 0 ? raw : raw % span));
}

const RegisterTable& shippedRegisters() {
  static const RegisterTable table = [] {
    RegisterTable t;
    std::string error;
    if (!fbc::loadBuiltinRegisterTable(t, error)) fail("shipped register table: %s", error.c_str());
    return t;
  }();
  return table;
}

void drawRegisters(Compression1x8& codec, ByteReader& in) {
  const RegisterTable& table = shippedRegisters();
  for (const auto& [var, info] : codec.bindings()) {
    if (var == &codec.Enable) continue;
    const int index = table.lookupParam(info.name.first, info.name.second);
    if (index < 0)
      fail("register %s/%s is missing from the table", info.name.first.c_str(),
           info.name.second.c_str());
    const TParamInfo& range = table.getEntry(index);
    int* element = static_cast<int*>(var);
    for (int i = 0; i < info.count; ++i) element[i] = in.inRange(range.minVal, range.maxVal);
  }
  codec.SwingRowSelect = in.byte() & 1;
}

namespace {

// Removed when the process ends normally; a crashing run leaves it for inspection.
struct ScratchDir {
  std::filesystem::path path;
  ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "fbc_fuzz_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
      fail("cannot create a scratch directory from %s", pattern.c_str());
    path = pattern;
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path, ec);
  }
};

}  // namespace

std::string writeScratchFile(const std::string& name, const std::uint8_t* data, std::size_t size) {
  static const ScratchDir dir;
  const std::string path = (dir.path / name).string();
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (!out) fail("cannot write %s", path.c_str());
  return path;
}

void fail(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
  std::abort();
}

}  // namespace fbc::fuzz
