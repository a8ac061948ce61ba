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

std::string parameterName(const std::string& section, const std::string& key) {
  return "parameter " + quotedName(printable(section), printable(key));
}

// The tool's line about the text of one bound key, or "" when the text is exactly `count`
// integers in the syntax the INI reader takes without guessing (it reads "12abc" as 12,
// 99999999999 as -1, and ignores elements past the count).
std::string valueTextProblem(IniFileIO& ini, const std::string& section, const std::string& key,
                             int count) {
  std::string text;
  ini.getVariable(section.c_str(), key.c_str(), text, "");
  std::vector<long long> values;
  std::string error;
  // A scalar goes through the reader's strtol with base detection, which knows "0X"; array
  // elements only recognise a lower-case x.
  if (!parseIntegerList(text, count == 1, values, error)) {
    return parameterName(section, key) + ": " + error;
  }
  if (static_cast<int>(values.size()) == count) return "";
  return parameterName(section, key) + " has " + std::to_string(values.size()) +
         (values.size() == 1 ? " value" : " values") + ", expected " + std::to_string(count);
}

// The library's problems as lines, each once (the curve keys are bound twice, and the load and
// the check both find a stored value out of range), the out-of-range elements of one array
// folded into the first one's line. `replaced` holds the tool's line for each parameter whose
// text it found wrong: such a value is not what the user wrote, so its range messages give way
// to the tool's line, which follows the library's own message when there is one (`said`).
void describeProblems(const std::vector<ParamProblem>& found, bool reportAbsent,
                      const std::map<std::string, std::string>& replaced,
                      std::set<std::string>& said, std::vector<std::string>& lines) {
  std::vector<std::size_t> more;
  std::map<std::string, std::size_t> rangeLine;  // parameter -> its range line
  std::set<std::string> seen;
  for (const ParamProblem& p : found) {
    const std::string name = p.name.first + "/" + p.name.second;
    const auto wrongText = replaced.find(name);
    if (p.kind == ParamProblem::Kind::NotInIni && !reportAbsent) continue;
    if (p.kind == ParamProblem::Kind::OutOfRange && wrongText != replaced.end()) continue;
    const std::string text = paramProblemText(p);
    if (!seen.insert(text + "#" + std::to_string(p.element)).second) continue;
    if (p.kind == ParamProblem::Kind::OutOfRange) {
      const auto first = rangeLine.find(name);
      if (first != rangeLine.end()) {
        ++more[first->second];
        continue;
      }
      rangeLine[name] = lines.size();
    }
    lines.push_back(text);
    more.push_back(0);
    if (wrongText != replaced.end() && said.insert(name).second) {
      lines.push_back(wrongText->second);
      more.push_back(0);
    }
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (more[i] != 0) {
      lines[i] += " (and " + std::to_string(more[i]) + " more element" + (more[i] == 1 ? "" : "s") +
                  " out of range)";
    }
  }
}

// The library's load over `ini`, then the checks the library does not make. With
// `blockSection` the file must hold the block's own section; with `reportAbsent` keys missing
// from it are reported too; with `check` what checkParam finds is added.
std::vector<std::string> loadChecked(Compression1x8& codec, RegisterTable& regs, IniFileIO& ini,
                                     bool blockSection, bool reportAbsent, bool check) {
  std::vector<std::string> problems;
  const std::string block = codec.getName();
  if (blockSection && !ini.isSectionExist(block.c_str())) {
    problems.push_back("no section [" + block + "] for the block");
    return problems;
  }

  std::vector<ParamProblem> found;
  codec.loadParamReport(ini, regs, found);
  if (check) codec.checkParamReport(regs, found);

  std::map<std::string, int> counts;
  std::map<std::string, std::string> sectionOf;  // bound key -> its section
  for (const auto& binding : codec.bindings()) {
    const auto& name = binding.second.name;
    counts[name.first + "/" + name.second] = binding.second.count;
    sectionOf[name.second] = name.first;
  }
  // Keys in the file's sections: unknown ones, and the text of every bound one, in file order.
  std::vector<std::pair<std::string, std::string>> late;  // parameter, line
  std::map<std::string, std::string> wrongText;
  for (const auto& [section, bound] : boundKeys(codec)) {
    const auto present = ini.keys().find(section);
    if (present == ini.keys().end()) continue;
    for (const std::string& key : present->second) {
      const std::string name = section + "/" + key;
      const auto c = counts.find(name);
      if (c == counts.end()) {
        const auto home = sectionOf.find(key);
        late.emplace_back(
            name, home != sectionOf.end()
                      ? parameterName(section, key) + " belongs in section [" + home->second + "]"
                      : "unknown " + parameterName(section, key) +
                            " (nearest name: " + nearestName(key, bound) + ")");
        continue;
      }
      const std::string wrong = valueTextProblem(ini, section, key, c->second);
      if (wrong.empty()) continue;
      wrongText[name] = wrong;
      late.emplace_back(name, wrong);
    }
  }
  std::set<std::string> said;
  describeProblems(found, reportAbsent, wrongText, said, problems);
  for (const auto& [name, line] : late) {
    if (said.count(name) == 0) problems.push_back(line);
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

RegisterMap::RegisterMap(const Args& args)
    : RegisterMap(args.has("registers") ? &args.value("registers") : nullptr) {}

RegisterMap::RegisterMap(const std::string* file) : table_(&builtinRegisters()) {
  if (file == nullptr) return;
  const std::string& path = *file;
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
    throwProblems("--set " + printable(keyValue), applyOverride(codec, regs, keyValue));
  }
}

std::vector<std::string> loadParamFile(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& path) {
  IniFileIO ini = readIniFile(path, blockSections(codec));
  return loadChecked(codec, regs, ini, true, false, false);
}

std::vector<std::string> checkParamFile(Compression1x8& codec, RegisterTable& regs,
                                        const std::string& path, bool complete) {
  IniFileIO ini = readIniFile(path, blockSections(codec));
  return loadChecked(codec, regs, ini, true, complete, true);
}

std::vector<std::string> blockSections(const Compression1x8& codec) {
  std::vector<std::string> sections;
  for (const auto& entry : boundKeys(codec)) sections.push_back(entry.first);
  return sections;
}

IniFileIO readIniFile(const std::string& path, const std::vector<std::string>& sections) {
  checkInputFile(path);
  std::ifstream in(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) inputError(path + ": cannot read: " + std::strerror(errno));
  const TextProblem problem = checkText(text, INI_BUFFERSIZE - 1);
  if (problem.reason.empty()) {
    const TextProblem s = checkIniStructure(text, sections);
    if (!s.reason.empty()) inputError(path + ":" + std::to_string(s.line) + ": " + s.reason);
  } else {
    inputError(path + ":" + std::to_string(problem.line) + ": " + problem.reason);
  }
  return IniFileIO::fromText(path, std::move(text));
}

std::vector<std::string> applyOverride(Compression1x8& codec, RegisterTable& regs,
                                       const std::string& keyValue) {
  const std::size_t eq = keyValue.find('=');
  if (eq == std::string::npos || eq == 0) return {"expected KEY=VALUE"};
  const std::string key = keyValue.substr(0, eq);
  const std::string value = keyValue.substr(eq + 1);
  std::string section;
  std::vector<std::string> allKeys;
  for (const auto& [sec, keys] : boundKeys(codec)) {
    for (const std::string& k : keys) {
      if (k == key) section = sec;
      allKeys.push_back(k);
    }
  }
  if (section.empty()) {
    return {"unknown parameter \"" + printable(key) +
            "\" (nearest name: " + nearestName(key, allKeys) + ")"};
  }
  if (value.find_first_of("\r\n") != std::string::npos) {
    return {parameterName(section, key) + ": '" + printable(value) + "' is not an integer"};
  }
  // The override goes through the same reader as a parameter file: a one-key text.
  std::string text;
  ini_puts(section.c_str(), key.c_str(), value.c_str(), IniText{&text});
  IniFileIO ini = IniFileIO::fromText("--set", std::move(text));
  return loadChecked(codec, regs, ini, false, false, false);
}

std::string renderParams(Compression1x8& codec, RegisterTable& regs) {
  IniFileIO ini = IniFileIO::fromText("params", "");
  std::vector<std::string> errors;
  codec.saveParam(ini, regs, errors, false);
  if (!errors.empty()) {
    std::string message = errors.front();
    for (std::size_t i = 1; i < errors.size(); ++i) message += "\n" + errors[i];
    failure(message);
  }
  return ini.text();
}

void writeParamFile(Compression1x8& codec, RegisterTable& regs, const std::string& path) {
  writeFileAtomic(path, renderParams(codec, regs));
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
