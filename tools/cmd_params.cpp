// fbc params: parameter files of the codec block: show, defaults, check, random.
#include <iostream>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "framework/IPBase.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kShow{
    "params show",
    "[--params FILE.ini] [--set KEY=VALUE ...] [--registers FILE]",
    "Prints the effective register set (the defaults, then FILE.ini, then every --set) as a\n"
    "parameter file: saved and passed back with --params it reproduces the same registers.",
    {kOptParams, kOptSet, kOptRegisters},
    0,
    0};

const CommandSpec kDefaults{
    "params defaults",
    "[--registers FILE] OUT.ini",
    "Writes every parameter of the block at its default, section [Enable] with the block\n"
    "enabled and section [FBC] with the registers.",
    {kOptRegisters},
    1,
    1};

const CommandSpec kCheck{
    "params check",
    "[--complete] [--registers FILE] IN.ini",
    "Loads IN.ini over the defaults as every command does and prints every problem: lines the\n"
    "INI readers would pass over (a byte order mark, a section or key given twice, a line that is\n"
    "no section, key or comment, a section other than [Enable] and [FBC]), values out of range,\n"
    "arrays of the wrong length, keys that name no parameter (with the nearest real name), then\n"
    "what the range check finds. Keys the file leaves out keep their defaults; with --complete\n"
    "they are problems too. Exit status 0 only when there is none, else 2.",
    {{"complete", nullptr, "every parameter must be in the file"}, kOptRegisters},
    1,
    1};

const CommandSpec kRandom{
    "params random",
    "--seed N [--random-range] [--registers FILE] OUT.ini",
    "Seeds the parameter generator with N, draws every parameter uniformly from its checking\n"
    "range (with --random-range from its random range), applies the block's own rules for\n"
    "drawn parameters, and writes the result to OUT.ini. The seed is echoed.",
    {{"seed", "N", "generator seed, 0..4294967295, decimal or 0x hexadecimal"},
     {"random-range", nullptr, "draw from each parameter's random range"},
     kOptRegisters},
    1,
    1};

int runShow(const Words& argv) {
  Args args;
  if (!parseArgs(kShow, argv, args)) return kExitOk;
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  loadRegisters(codec, regs.table(), args.has("params") ? args.value("params") : std::string(),
                args.values("set"));
  std::cout << renderParams(codec, regs.table());
  return kExitOk;
}

int runDefaults(const Words& argv) {
  Args args;
  if (!parseArgs(kDefaults, argv, args)) return kExitOk;
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  resetCodec(codec);
  writeParamFile(codec, regs.table(), args.positional()[0]);
  return kExitOk;
}

int runCheck(const Words& argv) {
  Args args;
  if (!parseArgs(kCheck, argv, args)) return kExitOk;
  const std::string& path = args.positional()[0];
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  resetCodec(codec);
  throwProblems(path, checkParamFile(codec, regs.table(), path, args.has("complete")));
  std::cout << path << ": no problems\n";
  return kExitOk;
}

int runDrawParams(const Words& argv) {
  Args args;
  if (!parseArgs(kRandom, argv, args)) return kExitOk;
  const auto seed = static_cast<unsigned int>(args.seed(0xFFFFFFFFu));
  const bool randomRange = args.has("random-range");
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  resetCodec(codec);
  setRandSeed(seed);
  std::vector<std::string> errors;
  TGlobalParam global;
  global.seed = seed;
  global.useRandomRange = randomRange;
  codec.randomParam(regs.table(), randomRange, errors);
  codec.randomSpecificParam(regs.table(), global, randomRange, errors);
  if (!errors.empty()) failure("register table: " + errors.front());
  writeParamFile(codec, regs.table(), args.positional()[0]);
  std::cout << "seed " << seed << '\n';
  return kExitOk;
}

}  // namespace

int runParams(const Words& argv) {
  return runVerbs(
      "params",
      "Parameter files of the codec block: an INI file with the key reg_fbc_en in section\n"
      "[Enable] and every register in section [FBC], arrays comma-separated. --registers\n"
      "names a register map (the format of data/fbc_registers.txt) to check them against\n"
      "instead of the built-in one.",
      {{&kShow, runShow},
       {&kDefaults, runDefaults},
       {&kCheck, runCheck},
       {&kRandom, runDrawParams}},
      argv);
}

}  // namespace fbc::cli
