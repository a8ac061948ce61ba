// Runs the built fbc binary the way a user does, for the tool's tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "tests/TestFiles.h"

namespace fbc::test {

struct Outcome {
  int status;
  std::string out;
  std::string err;
};

// Runs `fbc ARGS` inside `dir` with its output streams captured to files outside it; `env`, when
// given, is a list of shell variable assignments ("TMPDIR=...") for the tool's environment.
inline Outcome runFbc(const TempDir& dir, const std::string& args, const std::string& env = "") {
  const std::string outFile = dir.path() + ".out", errFile = dir.path() + ".err";
  const std::string cmd = "cd '" + dir.path() + "' && " + env + (env.empty() ? "" : " ") +
                          "'" FBC_TOOL "' " + args + " >'" + outFile + "' 2>'" + errFile + "'";
  const int raw = std::system(cmd.c_str());
  Outcome r{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readBytes(outFile), readBytes(errFile)};
  std::filesystem::remove(outFile);
  std::filesystem::remove(errFile);
  return r;
}

// A command line or input the tool must reject, with the whole of its standard error.
struct ErrorCase {
  const char* name;  // the test case's name
  const char* args;
  const char* err;
};

// Top-level names in `dir`, directories included: a failed run must not even create one.
inline std::set<std::string> listDir(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    names.insert(e.path().filename().string());
  return names;
}

// Runs a case that must fail as bad usage or bad input: exit status 2, exactly the expected
// standard error, nothing on standard output, and nothing created in `dir` (no output, no
// temporary, no directory).
inline void expectRejected(const TempDir& dir, const ErrorCase& c) {
  const std::set<std::string> before = listDir(dir.path());
  const Outcome r = runFbc(dir, c.args);
  EXPECT_EQ(r.status, 2) << c.args;
  EXPECT_EQ(r.err, c.err);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(listDir(dir.path()), before);
}

// Every regular file below `dir`, by path relative to it.
inline std::set<std::string> listTree(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
    if (e.is_regular_file()) names.insert(std::filesystem::relative(e.path(), dir).string());
  }
  return names;
}

// Every parameter at the default of the register map, in binding order; the curve keys appear
// once although each is bound twice.
inline const char kDefaultParams[] =
    "[Enable]\n"
    "reg_fbc_en=1\n"
    "[FBC]\n"
    "reg_compress_edgefisrt_enable=1\n"
    "reg_compress_edgefisrt_finalth=2000\n"
    "reg_compress_edgemin_th=2000\n"
    "reg_compress_edgemin_ratio=1\n"
    "reg_edge_diffmin_th=200\n"
    "reg_comp_enc_trun_rnd=0\n"
    "reg_comp_de_tr_round_md=0\n"
    "reg_comp_de_tr_round_zero=0\n"
    "reg_dpcm_swing_rounder_en=0\n"
    "reg_dpcm_pmin_lsb_update_en=0\n"
    "reg_dpcm_stepsize_expansion_en=0\n"
    "reg_tr_ext_en=0\n"
    "reg_tr_ext_rb=0\n"
    "reg_mode_en=1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1\n"
    "reg_mode_definition=0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10\n"
    "reg_curve_mode_en=0\n"
    "reg_comp_lut_in=32, 512, 2048, 4095, 4095, 4095, 4095, 4095, 4095, 4095, 4095, 4095, 4095, "
    "4095, 4095\n"
    "reg_comp_lut_out=32, 128, 220, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255\n"
    "reg_comp_lut_slope=4096, 819, 245, 70, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0\n"
    "reg_uncomp_lut_slope=256, 1280, 4274, 14973, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0\n"
    "sw_dpcm_swing_en=0\n";

}  // namespace fbc::test
