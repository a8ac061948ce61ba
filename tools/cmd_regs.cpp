// fbc regs: the register writes a parameter file stands for.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "regs",
    "[--set KEY=VALUE ...] [--registers FILE] IN.ini",
    "Loads IN.ini over the defaults (then every --set) and prints the block's 16-bit registers\n"
    "as the register map composes them (the built-in one, or the file of --registers), one line\n"
    "\"0xAAAA 0xVVVV\" (address, value) per register, in ascending address order.",
    {kOptSet, kOptRegisters},
    1,
    1};

}  // namespace

int runRegs(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  loadRegisters(codec, regs.table(), args.positional()[0], args.values("set"));
  std::map<int, int> values;
  std::vector<std::string> errors;
  if (!codec.getRegisterValue(regs.table(), values, errors)) {
    failure("register table: " + (errors.empty() ? std::string("incomplete") : errors.front()));
  }
  std::string text;
  char line[32];
  for (const auto& [address, value] : values) {
    std::snprintf(line, sizeof line, "0x%04x 0x%04x\n", static_cast<unsigned>(address) & 0xFFFFu,
                  static_cast<unsigned>(value) & 0xFFFFu);
    text += line;
  }
  std::fputs(text.c_str(), stdout);
  return kExitOk;
}

}  // namespace fbc::cli
