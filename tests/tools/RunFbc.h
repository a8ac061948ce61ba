// Runs the built fbc binary the way a user does, for the tool's tests.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "tests/image/TempDir.h"

namespace fbc::test {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

// Runs `fbc ARGS` inside `dir` with its output streams captured to files outside it.
inline Outcome runFbc(const TempDir& dir, const std::string& args) {
  const std::string outFile = dir.path() + ".out", errFile = dir.path() + ".err";
  const std::string cmd = "cd '" + dir.path() + "' && '" FBC_BINARY_DIR "/fbc' " + args + " >'" + outFile +
                          "' 2>'" + errFile + "'";
  const int raw = std::system(cmd.c_str());
  Outcome r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readBytes(outFile), readBytes(errFile)};
  std::filesystem::remove(outFile);
  std::filesystem::remove(errFile);
  return r;
}

// Every regular file below `dir`, by path relative to it.
inline std::set<std::string> listTree(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
    if (e.is_regular_file()) names.insert(std::filesystem::relative(e.path(), dir).string());
  }
  return names;
}

}  // namespace fbc::test
