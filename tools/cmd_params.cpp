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
    "[--registers FILE] IN.ini",
    "Loads IN.ini over the defaults and prints every problem: keys missing from the file,\n"
    "values out of range, arrays of the wrong length, keys that name no parameter (with the\n"
    "nearest real name), then what the range check finds. Exit status 0 only when there is\n"
    "none, else 2.",
    {kOptRegisters},
    1,
    1};

const CommandSpec kRandom{
    "params random",
    "--seed N [--random-range] [--registers FILE] OUT.ini",
    "Seeds the parameter generator with N, draws every parameter uniformly from its checking\n"
    "range (with --random-range from its random range), applies the block's own rules for\n"
    "drawn parameters, and writes the result to OUT.ini. The seed is echoed.",
    {{"seed", "N", "generator seed, 0..4294967295"},
     {"random-range", nullptr, "draw from each parameter's random range"},
     kOptRegisters},
    1,
    1};

void printParamsUsage(std::ostream& os) {
  os << "usage: fbc params show [--params FILE.ini] [--set KEY=VALUE ...] [--registers FILE]\n"
        "       fbc params defaults [--registers FILE] OUT.ini\n"
        "       fbc params check [--registers FILE] IN.ini\n"
        "       fbc params random --seed N [--random-range] [--registers FILE] OUT.ini\n"
        "       fbc params <verb> --help\n\n"
        "Parameter files of the codec block: an INI file with the key reg_fbc_en in section\n"
        "[Enable] and every register in section [FBC], arrays comma-separated. --registers\n"
        "names a register map (the format of data/fbc_registers.txt) to check them against\n"
        "instead of the built-in one.\n";
}

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
  throwProblems(path, checkParamFile(codec, regs.table(), path));
  std::cout << path << ": no problems\n";
  return kExitOk;
}

int runDrawParams(const Words& argv) {
  Args args;
  if (!parseArgs(kRandom, argv, args)) return kExitOk;
  const auto seed = static_cast<unsigned int>(args.requiredInteger("seed", 0, 0xFFFFFFFFLL));
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
  const std::string verb = argv.empty() ? "" : argv[0];
  const Words rest(argv.begin() + (argv.empty() ? 0 : 1), argv.end());
  if (verb == "show") return runShow(rest);
  if (verb == "defaults") return runDefaults(rest);
  if (verb == "check") return runCheck(rest);
  if (verb == "random") return runDrawParams(rest);
  if (verb == "--help" || verb == "-h") {
    printParamsUsage(std::cout);
    return kExitOk;
  }
  usageError(verb.empty() ? "missing verb (try 'fbc params --help')"
                          : "unknown verb '" + verb + "' (try 'fbc params --help')");
}

}  // namespace fbc::cli
