#include "tools/codec_config.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <utility>

#include "codec/Compression1x8.h"
#include "config/IniAccess.h"
#include "config/IniFileIO.h"
#include "framework/RegisterTable.h"
#include "tools/cli.h"

namespace fbc::cli {

namespace {

std::string quotedName(const std::string& section, const std::string& key) {
  return "\"" + section + "/" + key + "\"";
}

std::string readText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) failure(path + ": cannot read back: " + std::strerror(errno));
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The sections the block binds parameters in, and the keys bound in each.
std::map<std::string, std::vector<std::string>> boundKeys(const Compression1x8& codec) {
  std::map<std::string, std::vector<std::string>> keys;
  for (const auto& binding : codec.bindings()) {
    std::vector<std::string>& list = keys[binding.second.name.first];
    // The curve keys are bound twice; list each name once.
    if (std::find(list.begin(), list.end(), binding.second.name.second) == list.end()) {
      list.push_back(binding.second.name.second);
    }
  }
  return keys;
}

// Checks the text of one bound key: exactly `count` integers in the syntax the INI reader
// takes without guessing (it reads "12abc" as 12 and ignores elements past the count).
void checkValueText(const std::string& path, const std::string& section, const std::string& key,
                    int count, std::vector<std::string>& problems) {
  char text[INI_BUFFERSIZE];
  ini_gets(section.c_str(), key.c_str(), "", text, sizeof text, path.c_str());
  std::vector<long long> values;
  std::string error;
  // A scalar goes through the reader's strtol with base detection, which knows "0X"; array
  // elements only recognise a lower-case x.
  if (!parseIntegerList(text, count == 1, values, error)) {
    problems.push_back("parameter " + quotedName(section, key) + ": " + error);
  } else if (static_cast<int>(values.size()) != count) {
    problems.push_back("parameter " + quotedName(section, key) + " has " +
                       std::to_string(values.size()) + " values, expected " +
                       std::to_string(count));
  }
}

// `init` over an opened file, then the checks the library does not make. With `blockSection`
// the file must hold the block's own section; with `reportAbsent` keys missing from it are
// reported too.
std::vector<std::string> loadChecked(Compression1x8& codec, RegisterTable& regs, IniFileIO& ini,
                                     bool blockSection, bool reportAbsent) {
  std::vector<std::string> problems;
  const std::string block = codec.getName();
  if (blockSection && !ini.isSectionExist(block.c_str())) {
    problems.push_back("no section [" + block + "] for the block");
    return problems;
  }

  std::vector<std::string> messages;
  TGlobalParam global;
  codec.init(ini, regs, global, messages);
  std::set<std::string> absent;
  for (const auto& binding : codec.bindings()) {
    const auto& name = binding.second.name;
    if (!reportAbsent) {
      absent.insert("Cannot find parameter name " + quotedName(name.first, name.second) +
                    " in the INI file!");
    }
  }
  for (const std::string& m : messages) {
    // The curve keys are bound twice, so the library reports their problems twice.
    if (absent.count(m) == 0 && std::find(problems.begin(), problems.end(), m) == problems.end()) {
      problems.push_back(m);
    }
  }

  std::map<std::string, int> counts;
  for (const auto& binding : codec.bindings()) {
    counts[binding.second.name.first + "/" + binding.second.name.second] = binding.second.count;
  }
  for (const auto& [section, bound] : boundKeys(codec)) {
    const auto found = ini.keys().find(section);
    if (found == ini.keys().end()) continue;
    for (const std::string& key : found->second) {
      const auto c = counts.find(section + "/" + key);
      if (c == counts.end()) {
        problems.push_back("unknown parameter " + quotedName(section, key) +
                           " (nearest name: " + nearestName(key, bound) + ")");
        continue;
      }
      const std::string mention = quotedName(section, key);
      const bool reported = std::any_of(messages.begin(), messages.end(), [&](const std::string& m) {
        return m.find(mention) != std::string::npos;
      });
      if (!reported) checkValueText(ini.fileName(), section, key, c->second, problems);
    }
  }
  return problems;
}

}  // namespace

const OptionSpec kOptParams{"params", "FILE.ini",
                            "parameter file loaded over the defaults; keys absent keep theirs"};
const OptionSpec kOptRegisters{"registers", "FILE",
                               "register map to check parameters against, in the format of "
                               "data/fbc_registers.txt; default: built in"};
const OptionSpec kOptSet{"set", "KEY=VALUE",
                         "override one register after the file, e.g. reg_tr_ext_en=1 or an array "
                         "reg_mode_en=1,1,0,1,1,1,1,1,1,1,1",
                         true};

RegisterTable& builtinRegisters() {
  static RegisterTable table;
  static const bool loaded = [] {
    std::string error;
    if (!fbc::loadBuiltinRegisterTable(table, error)) failure("built-in register table: " + error);
    return true;
  }();
  (void)loaded;
  return table;
}

RegisterMap::RegisterMap(const Args& args) : table_(&builtinRegisters()) {
  if (!args.has("registers")) return;
  const std::string& path = args.value("registers");
  checkInputFile(path);
  const TextProblem text = checkTextFile(path, 0);
  if (!text.reason.empty()) inputError(path + ":" + std::to_string(text.line) + ": " + text.reason);
  own_ = std::make_unique<RegisterTable>();
  std::string error;
  if (!fbc::loadRegisterTable(path, *own_, error)) inputError(error);
  // A map without one of the block's parameters would fail every later step with a message per
  // binding; say it once, here.
  const Compression1x8 probe("FBC", false);
  std::size_t missing = 0;
  std::string first;
  for (const auto& binding : probe.bindings()) {
    const auto& name = binding.second.name;
    if (own_->lookupParam(name.first, name.second) >= 0) continue;
    if (missing++ == 0) first = name.first + "/" + name.second;
  }
  if (missing != 0) {
    inputError(path + ": no entry for parameter \"" + first + "\"" +
               (missing > 1 ? " (and " + std::to_string(missing - 1) + " more)" : std::string()));
  }
  table_ = own_.get();
}

RegisterMap::~RegisterMap() = default;

void resetCodec(Compression1x8& codec) {
  codec.setSWinit();
  codec.setEnable(true);
}

void configureCodec(Compression1x8& codec, const Args& args) {
  const RegisterMap regs(args);
  loadRegisters(codec, regs.table(), args.has("params") ? args.value("params") : std::string(),
                args.values("set"));
}

void loadRegisters(Compression1x8& codec, RegisterTable& regs, const std::string& paramsPath,
                   const std::vector<std::string>& overrides) {
  resetCodec(codec);
  if (!paramsPath.empty()) throwProblems(paramsPath, loadParamFile(codec, regs, paramsPath));
  for (const std::string& keyValue : overrides) {
    throwProblems("--set " + keyValue, applyOverride(codec, regs, keyValue));
  }
}

std::vector<std::string> loadParamFile(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& path) {
  std::vector<std::string> problems = readParamFile(codec, regs, path, false);
  collapseRangeErrors(problems);
  return problems;
}

std::vector<std::string> checkParamFile(Compression1x8& codec, RegisterTable& regs,
                                        const std::string& path) {
  std::vector<std::string> problems = readParamFile(codec, regs, path, true);
  std::vector<std::string> errors;
  codec.checkParam(regs, errors);
  // An out-of-range value is reported by both the load and the check; list it once.
  for (const std::string& e : errors) {
    if (std::find(problems.begin(), problems.end(), e) == problems.end()) problems.push_back(e);
  }
  collapseRangeErrors(problems);
  return problems;
}

std::vector<std::string> readParamFile(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& path, bool reportAbsent) {
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) return {"cannot open: No such file or directory"};
  if (!std::filesystem::is_regular_file(path, ec)) return {"not a regular file"};
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    std::fclose(f);
  } else {
    return {std::string("cannot open: ") + std::strerror(errno)};
  }
  const TextProblem text = checkTextFile(path, INI_BUFFERSIZE - 1);
  if (!text.reason.empty()) return {"line " + std::to_string(text.line) + ": " + text.reason};
  IniFileIO ini(path);
  return loadChecked(codec, regs, ini, true, reportAbsent);
}

std::vector<std::string> applyOverride(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& keyValue) {
  const std::size_t eq = keyValue.find('=');
  if (eq == std::string::npos || eq == 0) return {"expected KEY=VALUE"};
  const std::string key = keyValue.substr(0, eq);
  std::string section;
  std::vector<std::string> allKeys;
  for (const auto& [sec, keys] : boundKeys(codec)) {
    for (const std::string& k : keys) {
      if (k == key) section = sec;
      allKeys.push_back(k);
    }
  }
  if (section.empty()) {
    return {"unknown parameter \"" + key + "\" (nearest name: " + nearestName(key, allKeys) + ")"};
  }
  // The override goes through the same reader as a parameter file: a one-key file.
  const ScratchDir scratch;
  const std::string path = scratch.file("set.ini");
  {
    IniFileIO writer(path);
    if (!writer.setVariable(section.c_str(), key.c_str(), keyValue.c_str() + eq + 1)) {
      failure(path + ": cannot write");
    }
  }
  IniFileIO ini(path);
  std::vector<std::string> problems = loadChecked(codec, regs, ini, false, false);
  collapseRangeErrors(problems);
  return problems;
}

std::string renderParams(Compression1x8& codec, RegisterTable& regs) {
  const ScratchDir scratch;
  const std::string path = scratch.file("params.ini");
  IniFileIO ini(path);
  std::vector<std::string> errors;
  codec.saveParam(ini, regs, errors, false);
  if (!errors.empty()) {
    std::string message = errors.front();
    for (std::size_t i = 1; i < errors.size(); ++i) message += "\n" + errors[i];
    failure(message);
  }
  return readText(path);
}

void writeParamFile(Compression1x8& codec, RegisterTable& regs, const std::string& path) {
  writeFileAtomic(path, renderParams(codec, regs));
}

void collapseRangeErrors(std::vector<std::string>& problems) {
  // The library's message: Parameter "SECTION/KEY" is out of range! V is not in [LO, HI]!
  const std::string marker = "\" is out of range! ";
  std::vector<std::string> kept;
  std::vector<std::size_t> extra;
  for (const std::string& p : problems) {
    const std::size_t end = p.find(marker);
    if (end != std::string::npos && p.compare(0, 11, "Parameter \"") == 0) {
      const std::string head = p.substr(0, end + marker.size());
      const auto same = std::find_if(kept.begin(), kept.end(), [&](const std::string& k) {
        return k.compare(0, head.size(), head) == 0;
      });
      if (same != kept.end()) {
        ++extra[static_cast<std::size_t>(same - kept.begin())];
        continue;
      }
    }
    kept.push_back(p);
    extra.push_back(0);
  }
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (extra[i] != 0) {
      kept[i] += " (and " + std::to_string(extra[i]) + " more element" + (extra[i] == 1 ? "" : "s") +
                 " out of range)";
    }
  }
  problems = std::move(kept);
}

void throwProblems(const std::string& object, const std::vector<std::string>& problems) {
  if (problems.empty()) return;
  std::string message;
  for (const std::string& p : problems) {
    if (!message.empty()) message += '\n';
    message += object + ": " + p;
  }
  inputError(message);
}

std::string nearestName(const std::string& word, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t bestDistance = std::string::npos;
  std::vector<std::size_t> row, next;
  for (const std::string& c : candidates) {
    // One row of the edit-distance table at a time: row[j] is the distance between the
    // word's prefix so far and the candidate's first j bytes.
    row.resize(c.size() + 1);
    next.resize(c.size() + 1);
    for (std::size_t j = 0; j <= c.size(); ++j) row[j] = j;
    for (std::size_t i = 0; i < word.size(); ++i) {
      next[0] = i + 1;
      for (std::size_t j = 0; j < c.size(); ++j) {
        const std::size_t substitute = row[j] + (word[i] == c[j] ? 0 : 1);
        next[j + 1] = std::min({substitute, row[j + 1] + 1, next[j] + 1});
      }
      std::swap(row, next);
    }
    if (row[c.size()] < bestDistance) {
      bestDistance = row[c.size()];
      best = c;
    }
  }
  return best;
}

}  // namespace fbc::cli
