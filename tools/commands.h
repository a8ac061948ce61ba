// The subcommands of the fbc tool. Each takes the words after its name, returns the exit status
// and reports failures by throwing fbc::cli::Error; the dispatcher in main.cpp prints them.
#pragma once

#include <string>
#include <vector>

namespace fbc::cli {

using Words = std::vector<std::string>;

int runEncode(const Words& argv);
int runDecode(const Words& argv);
int runGolden(const Words& argv);
int runDemo(const Words& argv);
int runRoundtrip(const Words& argv);
int runBench(const Words& argv);
int runSelftest(const Words& argv);
int runParams(const Words& argv);
int runRegs(const Words& argv);
int runRandom(const Words& argv);
int runTrace(const Words& argv);
int runCompare(const Words& argv);
int runFingerprint(const Words& argv);
int runReport(const Words& argv);
// 'fbc random report' and 'fbc random check', reached through runRandom.
int runRandomReport(const Words& argv);
int runRandomCheck(const Words& argv);
int runCover(const Words& argv);

}  // namespace fbc::cli
