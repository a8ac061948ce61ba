#include "framework/IPBase.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>

#include "config/IniFileIO.h"
#include "framework/RegisterTable.h"
#include "image/Frame.h"

namespace {

// Bytes per element: 1, 2, and anything else stands for 4.
int elementBytes(const TVarInfo& v) {
  return v.size == 1 || v.size == 2 ? v.size : 4;
}

std::size_t variableBytes(const TVarInfo& v) {
  return static_cast<std::size_t>(elementBytes(v)) *
         static_cast<std::size_t>(v.count > 0 ? v.count : 0);
}

// Widens element i: 1 byte unsigned, 2 bytes unsigned unless bound as signed, 4 bytes signed.
int readElement(const void* var, const TVarInfo& v, int i) {
  const unsigned char* p = static_cast<const unsigned char*>(var) + i * elementBytes(v);
  switch (elementBytes(v)) {
    case 1:
      return *p;
    case 2: {
      std::uint16_t u;
      std::memcpy(&u, p, sizeof u);
      return v.isSigned ? static_cast<int>(static_cast<std::int16_t>(u)) : static_cast<int>(u);
    }
    default: {
      std::int32_t s;
      std::memcpy(&s, p, sizeof s);
      return s;
    }
  }
}

// Stores the value truncated to the element's width.
void storeElement(void* var, const TVarInfo& v, int i, int value) {
  unsigned char* p = static_cast<unsigned char*>(var) + i * elementBytes(v);
  switch (elementBytes(v)) {
    case 1:
      *p = static_cast<unsigned char>(value);
      break;
    case 2: {
      const std::uint16_t u = static_cast<std::uint16_t>(value);
      std::memcpy(p, &u, sizeof u);
      break;
    }
    default: {
      const std::int32_t s = value;
      std::memcpy(p, &s, sizeof s);
      break;
    }
  }
}

ParamProblem problem(ParamProblem::Kind kind, const TVarInfo& v) {
  ParamProblem p;
  p.kind = kind;
  p.name = v.name;
  p.count = v.count;
  return p;
}

std::string notInTable(const TVarInfo& v) {
  return paramProblemText(problem(ParamProblem::Kind::NotInTable, v));
}

ParamProblem outOfRange(const TVarInfo& v, int element, int value, const TParamInfo& info) {
  ParamProblem p = problem(ParamProblem::Kind::OutOfRange, v);
  p.element = element;
  p.value = value;
  p.minVal = info.minVal;
  p.maxVal = info.maxVal;
  return p;
}

void appendTexts(const std::vector<ParamProblem>& problems, std::vector<std::string>& errors) {
  for (const ParamProblem& p : problems) errors.push_back(paramProblemText(p));
}

const TParamInfo* lookup(RegisterTable& regs, const TVarInfo& v) {
  const int index = regs.lookupParam(v.name.first, v.name.second);
  return index < 0 ? nullptr : &regs.getEntry(index);
}

std::string transformed(const std::string& s, int (*f)(int)) {
  std::string out = s;
  for (char& c : out) c = static_cast<char>(f(static_cast<unsigned char>(c)));
  return out;
}

// Calls f(binding, table record, field, element index, element value) for every register field
// of every binding, in address order.
template <class F>
bool forEachField(const std::map<void*, TVarInfo>& vars, RegisterTable& regs,
                  std::vector<std::string>& errors, F f) {
  bool ok = true;
  for (const auto& [var, v] : vars) {
    const TParamInfo* info = lookup(regs, v);
    if (info == nullptr) {
      errors.push_back(notInTable(v));
      ok = false;
      continue;
    }
    for (std::size_t pos = 0; pos < info->regs.size(); ++pos) {
      const TRegEntity& field = info->regs[pos];
      if (field.address < 0) continue;
      int element = 0;
      if (v.count != 1) element = field.index != -1 ? field.index : static_cast<int>(pos);
      // The table may name an element the block lacks.
      if (element < 0 || element >= v.count) continue;
      f(v, *info, field, element, readElement(var, v, element));
    }
  }
  return ok;
}

std::mt19937& generator() {
  static std::mt19937 g{std::random_device{}()};
  return g;
}

}  // namespace

void setBits(int value, int srcHi, int srcLo, int& reg, int dstHi, int dstLo) {
  if (srcLo < 0) srcLo = 0;
  if (dstLo < 0) dstLo = 0;
  std::uint32_t field = static_cast<std::uint32_t>(value >> (srcLo >= 32 ? 31 : srcLo));
  const int srcWidth = srcHi - srcLo + 1;
  if (srcWidth < 32) field &= srcWidth > 0 ? (1u << srcWidth) - 1u : 0u;
  if (dstLo >= 32) return;
  const int dstWidth = dstHi - dstLo + 1;
  const std::uint32_t mask =
      dstWidth >= 32 ? 0xFFFFFFFFu : (dstWidth > 0 ? (1u << dstWidth) - 1u : 0u);
  const std::uint32_t r = static_cast<std::uint32_t>(reg);
  reg = static_cast<int>((((field << dstLo) ^ r) & (mask << dstLo)) ^ r);
}

void setRandSeed(unsigned int seed) {
  generator().seed(seed);
}

int randomVal(int lo, int hi) {
  // u in [0, 1) from two outputs, the first the low word: (a + b * 2^32) / 2^64, nudged below 1
  // when the sum rounds up to 2^64.
  const double u = std::generate_canonical<double, 53>(generator());
  const long long span = static_cast<long long>(hi) - lo + 1;
  if (span <= 0) return lo;
  return static_cast<int>(lo + static_cast<long long>(static_cast<double>(span) * u));
}

std::string paramProblemText(const ParamProblem& p) {
  const std::string name = "\"" + p.name.first + "/" + p.name.second + "\"";
  switch (p.kind) {
    case ParamProblem::Kind::NotInTable:
      return "Cannot find parameter name " + name + " in the register table!";
    case ParamProblem::Kind::NotInIni:
      return "Cannot find parameter name " + name + " in the INI file!";
    case ParamProblem::Kind::OutOfRange:
      return "Parameter " + name + " is out of range! " + std::to_string(p.value) + " is not in [" +
             std::to_string(p.minVal) + ", " + std::to_string(p.maxVal) + "]!";
    case ParamProblem::Kind::ArrayLength:
      break;
  }
  return "Failed to get parameter " + name + "! (Array length mismatch ?)";
}

IPBase::IPBase(const std::string& name) : m_name(name) {}

IPBase::~IPBase() {
  release();
}

bool IPBase::init(IniFileIO&, RegisterTable&, TGlobalParam&, std::vector<std::string>&) {
  return true;
}

void IPBase::allocateOutputFrame(const std::vector<Frame*>& in, std::vector<Frame*>& out) {
  if (!in.empty()) out.push_back(in[0]->cloneFrame());
}

bool IPBase::execute(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam&) {
  if (in.empty() || out.empty()) return false;
  *out[0] = *in[0];
  return true;
}

void IPBase::dumpRegister(TGlobalParam&) {}

void IPBase::setEnable(bool) {}

bool IPBase::isEnabled() {
  return false;
}

bool IPBase::randomSpecificParam(RegisterTable&, TGlobalParam&, bool, std::vector<std::string>&) {
  return true;
}

std::vector<TRegSlice> registerSlices(const TRegEntity& f) {
  // Registers are 16 bits: what does not fit the first continues from bit 0 of the next, taking
  // the element shifted right by 16 per register; every register takes at most the field's
  // source width.
  std::vector<TRegSlice> slices;
  const int srcLo = f.srcLo < 0 ? 0 : f.srcLo;
  const int srcWidth = f.srcHi - srcLo + 1;
  for (int r = 0; r <= f.spanHi - f.spanLo; ++r) {
    TRegSlice s;
    s.address = f.address + r;
    s.shift = r == 0 ? (f.dstLo < 0 ? 0 : f.dstLo) : 0;
    const int hi = f.dstHi - 16 * r < 15 ? f.dstHi - 16 * r : 15;
    s.width = std::min(srcWidth, hi - s.shift + 1);
    s.source = std::min(srcLo + 16 * r, 31);
    if (s.width > 0) slices.push_back(s);
  }
  return slices;
}

bool IPBase::getRegisterAddress(RegisterTable& regs, std::unordered_set<int>& addresses,
                                std::vector<std::string>& errors) {
  return forEachField(m_varInfo, regs, errors,
                      [&](const TVarInfo&, const TParamInfo&, const TRegEntity& f, int, int) {
                        for (int r = 0; r <= f.spanHi - f.spanLo; ++r)
                          addresses.insert(f.address + r);
                      });
}

bool IPBase::getRegisterValue(RegisterTable& regs, std::map<int, int>& values,
                              std::vector<std::string>& errors) {
  return forEachField(
      m_varInfo, regs, errors,
      [&](const TVarInfo&, const TParamInfo&, const TRegEntity& f, int, int element) {
        for (const TRegSlice& s : registerSlices(f)) {
          setBits(element, s.source + s.width - 1, s.source, values[s.address],
                  s.shift + s.width - 1, s.shift);
        }
      });
}

bool IPBase::getRegisterFields(RegisterTable& regs, std::vector<TFieldUse>& fields,
                               std::vector<std::string>& errors) {
  return forEachField(
      m_varInfo, regs, errors,
      [&](const TVarInfo& v, const TParamInfo& info, const TRegEntity& f, int element, int value) {
        fields.push_back({&v, &info, &f, element, value});
      });
}

bool IPBase::getRegisterValueSequence(RegisterTable&, std::vector<TAddrVal>&,
                                      std::vector<std::string>&) {
  return true;
}

std::string IPBase::getName() const {
  return m_instanceName.empty() ? m_name : m_instanceName;
}

std::string IPBase::getNameLower() const {
  return transformed(getName(), std::tolower);
}

std::string IPBase::getNameUpper() const {
  return transformed(getName(), std::toupper);
}

std::string IPBase::getSectionNameLower() const {
  return transformed(m_name, std::tolower);
}

std::string IPBase::getEnableKey() const {
  return "reg_" + getSectionNameLower() + "_en";
}

bool IPBase::run(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam& param,
                 std::string dumpDir, int index) {
  if (in.empty() || out.empty()) return false;
  const std::string lower = getNameLower();
  for (std::size_t i = 0; i < in.size(); ++i) {
    const std::string name =
        in.size() == 1 ? lower + "_in" : lower + "_p" + std::to_string(i) + "_in";
    in[i]->dumpFrame(dumpDir, name, index);
  }

  // The output frames keep the format they were allocated with; only their samples are the block's.
  struct Format {
    Frame::CS_TYPE cs;
    CFA_TYPE_HW cfa;
    int depth;
    CFA_TYPE_RGBIR rgbir;
  };
  std::vector<Format> formats;
  formats.reserve(out.size());
  for (const Frame* f : out) formats.push_back({f->cs, f->cfa, f->depth, f->rgbir});

  const bool result = execute(in, out, param);

  for (std::size_t j = 0; j < out.size(); ++j) {
    out[j]->cs = formats[j].cs;
    out[j]->cfa = formats[j].cfa;
    out[j]->depth = formats[j].depth;
    out[j]->rgbir = formats[j].rgbir;
  }
  out[0]->dumpFrame(dumpDir, lower + "_out", index);
  return result;
}

void IPBase::release() {
  for (auto& [var, buffer] : m_savedValue) delete[] static_cast<unsigned char*>(buffer);
  m_savedValue.clear();
}

void IPBase::bind(void* var, const std::pair<std::string, std::string>& name, int size,
                  bool isSigned, int count) {
  if (m_varInfo.count(var) != 0) {
    std::puts(("Parameter \"" + name.first + "/" + name.second +
               "\" bind to a variable that was bound before!")
                  .c_str());
    return;
  }
  TVarInfo info;
  info.name = name;
  info.size = size;
  info.count = count;
  info.isSigned = isSigned;
  m_varInfo.emplace(var, std::move(info));
}

void IPBase::setDefaultParam(RegisterTable& regs) {
  for (auto& [var, v] : m_varInfo) {
    const TParamInfo* info = lookup(regs, v);
    if (info == nullptr || info->defaultVal.empty()) continue;
    const int n = static_cast<int>(info->defaultVal.size());
    for (int i = 0; i < v.count; ++i)
      storeElement(var, v, i, info->defaultVal[static_cast<std::size_t>(i < n ? i : n - 1)]);
  }
}

bool IPBase::loadParam(IniFileIO& ini, RegisterTable& regs, std::vector<std::string>& errors) {
  std::vector<ParamProblem> problems;
  const bool ok = loadParamReport(ini, regs, problems);
  appendTexts(problems, errors);
  return ok;
}

bool IPBase::loadParamReport(IniFileIO& ini, RegisterTable& regs,
                             std::vector<ParamProblem>& problems) {
  bool ok = true;
  std::vector<int> buffer;
  for (auto& [var, v] : m_varInfo) {
    const char* section = v.name.first.c_str();
    const char* key = v.name.second.c_str();
    const TParamInfo* info = lookup(regs, v);
    if (info == nullptr) {
      problems.push_back(problem(ParamProblem::Kind::NotInTable, v));
      ok = false;
    } else if (info->iniExcluded) {
      continue;
    }
    if (!ini.isKeyExist(section, key)) {
      problems.push_back(problem(ParamProblem::Kind::NotInIni, v));
      ok = false;
      continue;
    }
    if (v.count < 2) {
      std::string defaultText = "0";
      if (info != nullptr)
        defaultText = std::to_string(info->defaultVal.empty() ? -1 : info->defaultVal[0]);
      int value = 0;
      ini.getVariable(section, key, value, defaultText.c_str());
      storeElement(var, v, 0, value);
      if (info != nullptr && (value < info->minVal || value > info->maxVal)) {
        problems.push_back(outOfRange(v, 0, value, *info));
        ok = false;
      }
      continue;
    }
    buffer.assign(static_cast<std::size_t>(v.count), 0);
    if (!ini.getArray(section, key, buffer.data(), v.count, "")) {
      problems.push_back(problem(ParamProblem::Kind::ArrayLength, v));
      ok = false;
      continue;
    }
    for (int i = 0; i < v.count; ++i) {
      const int value = buffer[static_cast<std::size_t>(i)];
      storeElement(var, v, i, value);
      if (info != nullptr && (value < info->minVal || value > info->maxVal)) {
        problems.push_back(outOfRange(v, i, value, *info));
        ok = false;
      }
    }
  }
  m_paramLoaded = true;
  return ok;
}

bool IPBase::checkParam(RegisterTable& regs, std::vector<std::string>& errors) {
  std::vector<ParamProblem> problems;
  const bool ok = checkParamReport(regs, problems);
  appendTexts(problems, errors);
  return ok;
}

bool IPBase::checkParamReport(RegisterTable& regs, std::vector<ParamProblem>& problems) {
  if (!m_paramLoaded) return true;
  bool ok = true;
  for (const auto& [var, v] : m_varInfo) {
    const TParamInfo* info = lookup(regs, v);
    if (info == nullptr) {
      problems.push_back(problem(ParamProblem::Kind::NotInTable, v));
      ok = false;
      continue;
    }
    for (int i = 0; i < v.count; ++i) {
      const int value = readElement(var, v, i);
      if (value < info->minVal || value > info->maxVal) {
        problems.push_back(outOfRange(v, i, value, *info));
        ok = false;
      }
    }
  }
  return ok;
}

bool IPBase::saveParam(IniFileIO& ini, RegisterTable& regs, std::vector<std::string>& errors,
                       bool onlyChanged) {
  if (m_varInfo.empty()) return true;
  bool ok = true;
  std::vector<int> buffer;
  for (auto& [var, v] : m_varInfo) {
    const TParamInfo* info = getParamInfo(regs, var, errors);
    if (info != nullptr && info->iniExcluded) continue;
    if (onlyChanged) {
      const std::size_t bytes = variableBytes(v);
      const auto it = m_savedValue.find(var);
      if (it != m_savedValue.end()) {
        unsigned char* snapshot = static_cast<unsigned char*>(it->second);
        const unsigned char* current = static_cast<const unsigned char*>(var);
        bool changed = false;
        for (std::size_t b = 0; b < bytes; ++b) {
          if (snapshot[b] != current[b]) {
            snapshot[b] = current[b];
            changed = true;
          }
        }
        if (!changed) continue;
      } else {
        unsigned char* snapshot = new unsigned char[bytes];
        std::memcpy(snapshot, var, bytes);
        m_savedValue.emplace(var, snapshot);
      }
    }
    const char* section = v.name.first.c_str();
    const char* key = v.name.second.c_str();
    bool written = false;
    if (v.count < 2) {
      written = ini.setVariable(section, key, readElement(var, v, 0), false);
    } else {
      buffer.resize(static_cast<std::size_t>(v.count));
      for (int i = 0; i < v.count; ++i)
        buffer[static_cast<std::size_t>(i)] = readElement(var, v, i);
      written = ini.setArray(section, key, buffer.data(), v.count, false);
    }
    if (!written) {
      errors.push_back("Failed to save parameter \"" + v.name.first + "/" + v.name.second +
                       "\"! (Array length mismatch ?)");
      ok = false;
    }
  }
  return ok;
}

bool IPBase::randomParam(RegisterTable& regs, bool useRandomRange,
                         std::vector<std::string>& errors) {
  bool ok = true;
  for (auto& [var, v] : m_varInfo) {
    const TParamInfo* info = lookup(regs, v);
    if (info == nullptr) {
      errors.push_back(notInTable(v));
      ok = false;
      continue;
    }
    const int lo = useRandomRange ? info->randomMin : info->minVal;
    const int hi = useRandomRange ? info->randomMax : info->maxVal;
    for (int i = 0; i < v.count; ++i) storeElement(var, v, i, randomVal(lo, hi));
  }
  return ok;
}

const TParamInfo* IPBase::getParamInfo(RegisterTable& regs, void* var,
                                       std::vector<std::string>& errors) {
  const auto it = m_varInfo.find(var);
  if (it == m_varInfo.end()) return nullptr;
  const TParamInfo* info = lookup(regs, it->second);
  if (info == nullptr) errors.push_back(notInTable(it->second));
  return info;
}

const TParamInfo* IPBase::getParamRange(RegisterTable& regs, void* var,
                                        std::vector<std::string>& errors, bool useRandomRange,
                                        int& lo, int& hi) {
  const TParamInfo* info = getParamInfo(regs, var, errors);
  if (info != nullptr) {
    lo = useRandomRange ? info->randomMin : info->minVal;
    hi = useRandomRange ? info->randomMax : info->maxVal;
  }
  return info;
}
