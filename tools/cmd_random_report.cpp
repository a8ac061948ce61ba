// fbc random report and fbc random check: what a tree of random tests holds, written by any
// number of shards, and whether every test still writes its golden files byte for byte.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "config/IniAccess.h"
#include "tools/cli.h"
#include "tools/commands.h"
#include "tools/compare.h"
#include "tools/coverage_file.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kReportSpec{
    "random report",
    "DIR [--count N]",
    "Summarises a tree of 'fbc random' tests, however many shards wrote it: the number of\n"
    "tests, with the block enabled and disabled, picture sizes and frames, and the indices\n"
    "missing from 0 .. N-1 (N from --count, else one past the highest index found). When\n"
    "tests hold coverage.json ('fbc random --coverage'), the cover points summed over them,\n"
    "with the number of tests that hit each, and the points never hit.\n"
    "Exit status 1 when indices are missing.",
    {{"count", "N", "the number of tests the tree should hold, 1..100000"}},
    1,
    1};

const CommandSpec kCheckSpec{
    "random check",
    "DIR [--fbc-like CMD]",
    "Re-runs every test's run.sh into a scratch folder and compares what it writes with the\n"
    "test's golden files as 'fbc compare' does: for each differing test its first difference\n"
    "(file, line, block, fields, the expected block's trace) and which files differ; golden\n"
    "files not written again, or written but not in the test, are differences too. Then the\n"
    "count and the names of the differing tests. CMD is the program run.sh runs as FBC:\n"
    "another implementation with the interface of 'fbc golden' (default: this fbc).\n"
    "Exit status 0 when every test is identical, 1 when any differs, 2 for bad input.",
    {{"fbc-like", "CMD", "the tool run.sh runs (a path, or a name on the PATH)"}},
    1,
    1};

// One test folder of a tree: DIR/test_NNNN.
struct TestDir {
  int index = 0;
  std::string name;
  std::string path;
};

bool isTestName(const std::string& name, int& index) {
  if (name.size() < 9 || name.size() > 11 || name.compare(0, 5, "test_") != 0 ||
      name.find_first_not_of("0123456789", 5) != std::string::npos) {
    return false;
  }
  index = std::stoi(name.substr(5));
  return true;
}

// The test folders of `dir` in index order; a tree without any is bad input. Scratch folders
// of runs still going (".fbc-...") are not tests.
std::vector<TestDir> listTests(const std::string& dir) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) inputError(dir + ": not a directory");
  std::vector<TestDir> tests;
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    const std::string name = entry.path().filename().string();
    TestDir t;
    if (!isTestName(name, t.index) || !entry.is_directory(ec)) continue;
    t.name = name;
    t.path = entry.path().string();
    tests.push_back(t);
  }
  if (ec) inputError(dir + ": cannot list: " + ec.message());
  if (tests.empty()) inputError(dir + ": no tests (folders test_0000, test_0001, ...)");
  std::sort(tests.begin(), tests.end(),
            [](const TestDir& a, const TestDir& b) { return a.index < b.index; });
  for (std::size_t k = 1; k < tests.size(); ++k) {
    if (tests[k].index == tests[k - 1].index) {
      inputError(dir + ": " + tests[k - 1].name + " and " + tests[k].name + " have the same index");
    }
  }
  return tests;
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) inputError(path + ": cannot open: " + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// What report reads of a test: its size and frames from the golden commands of run.sh, the
// enable from params.ini.
struct TestInfo {
  bool enabled = false;
  int width = 0;
  int height = 0;
  int frames = 0;
};

TestInfo readTest(const TestDir& t) {
  TestInfo info;
  const std::string params = t.path + "/params.ini";
  checkInputFile(params);
  info.enabled = ini_getl("Enable", "reg_fbc_en", 0, params.c_str()) == 1;
  const std::string script = t.path + "/run.sh";
  std::istringstream lines(readText(script));
  std::string line;
  while (std::getline(lines, line)) {
    const std::size_t at = line.find(" golden --params params.ini --width ");
    if (at == std::string::npos) continue;
    int w = 0, h = 0;
    if (std::sscanf(line.c_str() + at, " golden --params params.ini --width %d --height %d", &w,
                    &h) != 2 ||
        (info.frames > 0 && (w != info.width || h != info.height))) {
      inputError(script + ": not a golden command of fbc random: " + line);
    }
    info.width = w;
    info.height = h;
    ++info.frames;
  }
  if (info.frames == 0) inputError(script + ": no 'fbc golden' command");
  return info;
}

// "3, 7..9, 12" for a sorted list of indices.
std::string ranges(const std::vector<int>& v) {
  std::string text;
  for (std::size_t k = 0; k < v.size();) {
    std::size_t end = k;
    while (end + 1 < v.size() && v[end + 1] == v[end] + 1) ++end;
    if (!text.empty()) text += ", ";
    text += std::to_string(v[k]) + (end > k ? ".." + std::to_string(v[end]) : "");
    k = end + 1;
  }
  return text;
}

std::string systemError() {
  return std::strerror(errno);
}

// Runs `sh SCRIPT OUTDIR` with FBC=fbc in the environment, standard output and error into
// `log`; returns the shell's exit status (128 + signal when killed).
int runTestScript(const std::string& script, const std::string& outdir, const std::string& fbc,
                  const std::string& log) {
  const pid_t pid = ::fork();
  if (pid < 0) failure("cannot start sh: " + systemError());
  if (pid == 0) {
    const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || ::dup2(fd, STDOUT_FILENO) < 0 || ::dup2(fd, STDERR_FILENO) < 0) ::_exit(127);
    ::close(fd);
    ::setenv("FBC", fbc.c_str(), 1);
    ::execl("/bin/sh", "sh", script.c_str(), outdir.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) failure("cannot wait for sh: " + systemError());
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The golden files of a test folder: the block's files, all named after it ("fbc_...").
std::set<std::string> goldenFiles(const std::string& dir) {
  std::set<std::string> names;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.compare(0, 4, "fbc_") == 0 && entry.is_regular_file(ec)) names.insert(name);
  }
  if (ec) inputError(dir + ": cannot list: " + ec.message());
  return names;
}

// The program run.sh runs: CMD (the shell looks a bare name up on the PATH), or this very fbc.
std::string fbcProgram(const Args& args) {
  if (!args.has("fbc-like")) {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (ec) failure("cannot find this program: " + ec.message());
    return self.string();
  }
  const std::string& cmd = args.value("fbc-like");
  if (cmd.empty()) usageError("--fbc-like: empty command");
  if (cmd.find('/') != std::string::npos && ::access(cmd.c_str(), X_OK) != 0) {
    inputError(cmd + ": not an executable program");
  }
  // run.sh changes into its own folder: a relative path is taken from here.
  return cmd.find('/') == std::string::npos ? cmd : fs::absolute(cmd).string();
}

std::string firstLine(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  return line.empty() ? "no output" : line;
}

}  // namespace

int runRandomReport(const Words& argv) {
  Args args;
  if (!parseArgs(kReportSpec, argv, args)) return kExitOk;
  const std::string dir = args.positional()[0];
  const std::vector<TestDir> tests = listTests(dir);
  const int expected = args.has("count")
                           ? static_cast<int>(args.requiredInteger("count", 1, 100000))
                           : tests.back().index + 1;

  int enabled = 0, minWidth = 1 << 30, maxWidth = 0, minHeight = 1 << 30, maxHeight = 0;
  int minFrames = 1 << 30, maxFrames = 0;
  long long pixels = 0;
  std::vector<int> present, beyond;
  fbc::Coverage hits, hitBy;
  int covered = 0;
  for (const TestDir& t : tests) {
    const TestInfo info = readTest(t);
    const std::string coverageFile = t.path + "/coverage.json";
    std::error_code ec;
    if (fs::exists(coverageFile, ec)) {
      const fbc::Coverage one = readCoverageJson(coverageFile);
      hits.add(one);
      for (int p = 0; p < fbc::kCoverPointCount; ++p) hitBy.hits[p] += one.hits[p] != 0 ? 1 : 0;
      ++covered;
    }
    enabled += info.enabled ? 1 : 0;
    minWidth = std::min(minWidth, info.width);
    maxWidth = std::max(maxWidth, info.width);
    minHeight = std::min(minHeight, info.height);
    maxHeight = std::max(maxHeight, info.height);
    minFrames = std::min(minFrames, info.frames);
    maxFrames = std::max(maxFrames, info.frames);
    pixels += static_cast<long long>(info.width) * info.height * info.frames;
    (t.index < expected ? present : beyond).push_back(t.index);
  }
  std::vector<int> missing;
  for (int i = 0, k = 0; i < expected; ++i) {
    if (k < static_cast<int>(present.size()) && present[static_cast<std::size_t>(k)] == i) {
      ++k;
    } else {
      missing.push_back(i);
    }
  }
  const auto span = [](int lo, int hi) {
    return lo == hi ? std::to_string(lo) : std::to_string(lo) + ".." + std::to_string(hi);
  };
  const int n = static_cast<int>(tests.size());
  std::cout << dir << ": " << n << " test" << (n == 1 ? "" : "s") << "\n"
            << "block: " << enabled << " enabled, " << n - enabled << " disabled\n"
            << "sizes: width " << span(minWidth, maxWidth) << ", height "
            << span(minHeight, maxHeight) << ", " << span(minFrames, maxFrames) << " frame"
            << (maxFrames == 1 ? "" : "s") << " per test, " << pixels << " pixels in all\n"
            << "missing indices of 0.." << expected - 1 << ": "
            << (missing.empty() ? "none"
                                : std::to_string(missing.size()) + " (" + ranges(missing) + ")")
            << '\n';
  if (!beyond.empty()) std::cout << "indices beyond --count: " << ranges(beyond) << '\n';
  if (covered > 0) {
    std::cout << "coverage.json in " << covered << " of " << n << " tests\n";
    printCoverage(std::cout, hits, &hitBy);
  }
  return missing.empty() ? kExitOk : kExitFailure;
}

int runRandomCheck(const Words& argv) {
  Args args;
  if (!parseArgs(kCheckSpec, argv, args)) return kExitOk;
  const std::string dir = args.positional()[0];
  const std::vector<TestDir> tests = listTests(dir);
  const std::string fbc = fbcProgram(args);
  for (const TestDir& t : tests) {
    for (const char* name : {"/run.sh", "/params.ini", "/input.raw"}) checkInputFile(t.path + name);
  }

  std::vector<std::string> differing;
  for (const TestDir& t : tests) {
    const ScratchDir scratch;
    const std::string out = scratch.file("out");
    const std::string log = scratch.file("log");
    std::vector<std::string> problems;
    std::string compared;  // the comparison's report when any file differs
    const int status = runTestScript(fs::absolute(t.path + "/run.sh").string(), out, fbc, log);
    if (status != 0) {
      problems.push_back("run.sh exited with status " + std::to_string(status) + ": " +
                         firstLine(readText(log)));
    } else {
      const std::set<std::string> golden = goldenFiles(t.path);
      const std::set<std::string> rerun =
          fs::is_directory(out) ? goldenFiles(out) : std::set<std::string>();
      CompareSetup setup;
      setup.expected = t.path;
      setup.actual = out;
      for (const std::string& name : golden) {
        if (rerun.count(name) == 0) {
          problems.push_back(name + " not written");
        } else {
          setup.names.push_back(name);
        }
      }
      for (const std::string& name : rerun) {
        if (golden.count(name) == 0)
          problems.push_back(name + " written, but the test has no such file");
      }
      if (!setup.names.empty()) {
        // A file the comparison cannot read (a malformed line written again) is this test's
        // difference, not bad input to the check.
        try {
          const GoldenComparison c = compareGolden(setup);
          if (c.differingFiles != 0) compared = c.report;
        } catch (const Error& e) {
          problems.push_back(e.what());
        }
      }
    }
    for (const std::string& p : problems) std::cout << t.name << ": " << p << '\n';
    if (!compared.empty()) {
      // The comparison's report, its first line after the test's name, the rest indented.
      std::istringstream lines(compared);
      std::string line;
      for (bool first = true; std::getline(lines, line); first = false)
        std::cout << (first ? t.name + ": " : std::string("  ")) << line << '\n';
    }
    if (!problems.empty() || !compared.empty()) differing.push_back(t.name);
  }
  const int n = static_cast<int>(tests.size());
  const int d = static_cast<int>(differing.size());
  std::cout << n << " test" << (n == 1 ? "" : "s") << " checked: " << n - d << " identical, " << d
            << " differ\n";
  if (d != 0) {
    std::cout << "differing:";
    for (std::size_t k = 0; k < differing.size(); ++k)
      std::cout << (k ? ", " : " ") << differing[k];
    std::cout << '\n';
  }
  return d == 0 ? kExitOk : kExitFailure;
}

}  // namespace fbc::cli
