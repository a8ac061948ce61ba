// libfbc.so exports exactly the C interface and the host entries, under their plain names, with
// the SONAME of its major version, and carries none of the fast path's checker.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string run(const std::string& command) {
  std::string out;
  if (std::FILE* p = popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0) out.append(buffer, n);
    pclose(p);
  }
  return out;
}

// The last word of every line of `text` (nm prints "ADDRESS TYPE NAME").
std::set<std::string> lastWords(const std::string& text) {
  std::set<std::string> words;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t space = line.find_last_of(' ');
    if (!line.empty()) words.insert(line.substr(space == std::string::npos ? 0 : space + 1));
  }
  return words;
}

const std::set<std::string> kExports = {
    "FBD_Execute",
    "FBD_ExecuteChecked",
    "fbc_clone",
    "fbc_code_mode",
    "fbc_decode_block",
    "fbc_decode_frame",
    "fbc_dpi_decode",
    "fbc_dpi_encode",
    "fbc_dpi_free",
    "fbc_dpi_mode",
    "fbc_dpi_new",
    "fbc_dpi_read_reg",
    "fbc_dpi_write_reg",
    "fbc_encode_block",
    "fbc_encode_block_checked",
    "fbc_encode_frame",
    "fbc_error",
    "fbc_free",
    "fbc_get",
    "fbc_load_params",
    "fbc_new",
    "fbc_param_key",
    "fbc_read_register",
    "fbc_register_address",
    "fbc_reset",
    "fbc_set",
    "fbc_set_frame_index",
    "fbc_set_threads",
    "fbc_version",
    "fbc_write_register",
};

}  // namespace

TEST(SharedLibrary, ExportsTheCInterfaceAndNothingElse) {
  const std::string dynamic = run("nm -D --defined-only '" FBC_LIBRARY "'");
  ASSERT_FALSE(dynamic.empty());
  EXPECT_EQ(lastWords(dynamic), kExports) << dynamic;
}

TEST(SharedLibrary, NamesItsMajorVersion) {
  EXPECT_NE(run("objdump -p '" FBC_LIBRARY "'").find("SONAME               libfbc.so.1\n"),
            std::string::npos);
}

TEST(SharedLibrary, LeavesTheCheckerOut) {
  const std::string all = run("nm -C '" FBC_LIBRARY "'");
  ASSERT_NE(all.find("fbc_new"), std::string::npos);
  EXPECT_EQ(all.find("runSelfTest"), std::string::npos);
}

TEST(SharedLibrary, EntriesResolveUnderPlainNames) {
  void* lib = dlopen(FBC_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  for (const std::string& name : kExports) EXPECT_NE(dlsym(lib, name.c_str()), nullptr) << name;
  dlclose(lib);
}
