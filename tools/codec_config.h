// Registers of the codec from parameter files and --set overrides, checked so that no value a
// user wrote is ignored in silence, and the effective register set written back in the
// parameter file's own syntax.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "config/IniFileIO.h"
#include "config/IniText.h"

class Compression1x8;
class RegisterTable;

namespace fbc::cli {

class Args;

// The register map built into the library, read once; a broken map is an internal failure.
RegisterTable& builtinRegisters();

// The register map a command checks parameters against: the file of --registers when given,
// else the built-in one. A file the reader rejects is an input Error "FILE:LINE: reason"; so is
// a map that lacks a parameter the block binds.
class RegisterMap {
 public:
  explicit RegisterMap(const Args& args);
  // The map file at *path, or the built-in map when `path` is null.
  explicit RegisterMap(const std::string* path);
  ~RegisterMap();
  RegisterMap(const RegisterMap&) = delete;
  RegisterMap& operator=(const RegisterMap&) = delete;
  RegisterTable& table() const { return *table_; }

 private:
  std::unique_ptr<RegisterTable> own_;
  RegisterTable* table_;
};

// The tool's starting point for every register set: the block's software defaults
// (setSWinit) with the block enabled.
void resetCodec(Compression1x8& codec);

// resetCodec, then the parameter file (none when `paramsPath` is empty), then each "KEY=VALUE"
// override in order; the first that has problems ends in a usage Error listing them all.
void loadRegisters(Compression1x8& codec, RegisterTable& regs, const std::string& paramsPath,
                   const std::vector<std::string>& overrides);

// Loads `path` into the codec over the map `regs` and returns every problem, each one line
// without the file name: the library's messages (keys absent from the file are not problems;
// they keep their values), a missing block section, keys in the block's sections that name no
// bound parameter (with the nearest real name, or the section they belong in), and values that
// are not exactly the bound number of comma-separated integers. A file the INI readers would
// read only in part (see readIniFile) is an input Error.
std::vector<std::string> loadParamFile(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& path);

// The same, then what `checkParam` finds; with `complete`, keys absent from the file are
// reported too, as the library reports them.
std::vector<std::string> checkParamFile(Compression1x8& codec, RegisterTable& regs,
                                        const std::string& path, bool complete);

// The sections a parameter file of the block may hold: those it binds parameters in.
std::vector<std::string> blockSections(const Compression1x8& codec);

// Applies one "KEY=VALUE" override with the checks of loadParamFile; returns the problems.
std::vector<std::string> applyOverride(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& keyValue);

// The effective register set as a parameter file: "[Enable]" and "[FBC]" sections, one
// key=value line per parameter, arrays comma-separated. Loading it reproduces the set.
std::string renderParams(Compression1x8& codec, RegisterTable& regs);
// The same text written atomically to `path`.
void writeParamFile(Compression1x8& codec, RegisterTable& regs, const std::string& path);

using fbc::checkIniStructure;
using fbc::checkText;
using fbc::checkTextFile;
using fbc::printable;
using fbc::TextProblem;

// The INI file at `path`, read once into memory after checkText and checkIniStructure; any
// problem is an input Error "FILE: reason" or "FILE:LINE: reason".
IniFileIO readIniFile(const std::string& path, const std::vector<std::string>& sections);

// Problems as one error text, each line "<object>: <problem>" (the dispatcher prefixes every
// line with the command); throws a usage Error when there is any.
void throwProblems(const std::string& object, const std::vector<std::string>& problems);

// The candidate closest to `word` by edit distance (insertions, deletions, substitutions);
// the first of equally close ones.
std::string nearestName(const std::string& word, const std::vector<std::string>& candidates);

using fbc::parseIntegerList;

}  // namespace fbc::cli
