// fbc: the command-line front end of the frame-buffer codec model.
#include <algorithm>
#include <exception>
#include <iostream>
#include <new>
#include <string>

#include "tools/cli.h"
#include "tools/commands.h"

namespace {

using namespace fbc::cli;

struct Command {
  const char* name;
  const char* summary;
  int (*run)(const Words&);
};

// To add a subcommand: one file defining its run function, one line here, one in CMakeLists.txt.
const Command kCommands[] = {
    {"encode", "compress a picture (.png, .pgm, .ppm, .raw) into a frame of 64-bit block codes",
     runEncode},
    {"decode", "decompress a frame of block codes into 16-bit samples", runDecode},
    {"golden", "write the five golden reference files of one frame", runGolden},
    {"demo", "round-trip a built-in test chart and report modes, error and speed", runDemo},
    {"roundtrip", "the demo's report for your own picture (.png, .pgm, .ppm, .raw)", runRoundtrip},
    {"bench", "time encode and decode of a 4K frame, on every core or --threads N", runBench},
    {"selftest", "compare every fast-path variant with the scalar reference", runSelftest},
    {"params", "show, write, check or draw parameter files of the block", runParams},
    {"regs", "the register list of a parameter file; export: the register map as C, SV or JSON",
     runRegs},
    {"random", "generate random regression tests: parameters, input and golden files", runRandom},
    {"trace", "why the model codes a block as it does: costs, rule, mode, code, fields", runTrace},
    {"compare", "compare two golden sets; the first difference by block, field and trace",
     runCompare},
    {"fingerprint", "SHA-256 digests of decoding and re-encoding a fixed stream of codes",
     runFingerprint},
    {"report", "one self-contained HTML page: pictures, mode and error maps, traces", runReport},
    {"cover", "a small directed suite of tests that together hit every reachable cover point",
     runCover},
};

void printUsage(std::ostream& os) {
  os << "usage: fbc <command> [options] [arguments]\n"
        "       fbc <command> --help    (or -h, or fbc help <command>)\n"
        "       fbc --version\n\n"
        "Bit-exact model of a 1x8 frame-buffer compression block: every block of eight 12-bit\n"
        "pixels is coded into 64 bits by one of eleven modes.\n\ncommands:\n";
  for (const Command& c : kCommands) {
    std::string name = c.name;
    name.resize(std::max<std::size_t>(name.size() + 1, 11), ' ');
    os << "  " << name << c.summary << '\n';
  }
  os << "\nExit status: 0 success, 2 bad usage or bad input, 1 any other failure. A standard "
        "output\n"
        "closed by its reader ends a run quietly with status 0.\n";
}

}  // namespace

int main(int argc, char** argv) {
  installSignalCleanup();
  std::string first = argc > 1 ? argv[1] : "";
  Words words(argv + std::min(argc, 2), argv + argc);
  if (first == "help" && argc > 2) {
    // "fbc help CMD" is "fbc CMD --help".
    first = argv[2];
    words = {"--help"};
  } else if (first == "--help" || first == "-h" || first == "help") {
    printUsage(std::cout);
    return kExitOk;
  }
  if (first == "--version") {
    std::cout << "fbc " FBC_VERSION "\n";
    return kExitOk;
  }
  for (const Command& c : kCommands) {
    if (first != c.name) continue;
    try {
      const int status = c.run(words);
      flushStandardOutput();
      return status;
    } catch (const StandardOutputClosed&) {
      // The reader of standard output is gone (`| head`): nothing more to say to anyone.
      return kExitOk;
    } catch (const Error& e) {
      // An error may list several problems, one per line; each line names the command.
      const std::string message = e.what();
      for (std::size_t begin = 0; begin <= message.size();) {
        const std::size_t end = std::min(message.find('\n', begin), message.size());
        std::cerr << "fbc " << c.name << ": " << message.substr(begin, end - begin) << '\n';
        begin = end + 1;
      }
      return e.status();
    } catch (const std::bad_alloc&) {
      std::cerr << "fbc " << c.name << ": out of memory\n";
    } catch (const std::exception& e) {
      std::cerr << "fbc " << c.name << ": internal error: " << e.what() << '\n';
    }
    return kExitFailure;
  }
  if (first.empty()) {
    std::cerr << "fbc: missing command (try 'fbc --help')\n";
  } else {
    std::cerr << "fbc: unknown command '" << first << "' (try 'fbc --help')\n";
  }
  return kExitUsage;
}
