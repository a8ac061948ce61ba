#include "framework/RegisterTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

int RegisterTable::lookupParam(const std::string& section, const std::string& key) const {
  const auto it = m_index.find({section, key});
  return it == m_index.end() ? -1 : it->second;
}

int RegisterTable::addParam(const TParamInfo& info) {
  const int index = size();
  if (!m_index.emplace(std::make_pair(info.section, info.key), index).second) return -1;
  m_entries.push_back(info);
  return index;
}

void RegisterTable::clear() {
  m_entries.clear();
  m_index.clear();
}

namespace fbc {
namespace {

constexpr int kRegisterBits = 16;
constexpr int kMaxAddress = 0xFFFF;

bool parseNumber(const std::string& token, int& out) {
  if (token.empty()) return false;
  const char* s = token.c_str();
  const bool negative = (*s == '-');
  if (negative) ++s;
  int base = 10;
  if (s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16;
    s += 2;
  }
  if (*s == '\0' || *s == '-' || *s == '+' || *s == ' ') return false;
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(s, &end, base);
  if (*end != '\0' || errno != 0) return false;
  if (negative) v = -v;
  if (v < -2147483648LL || v > 2147483647LL) return false;
  out = static_cast<int>(v);
  return true;
}

// "HI:LO" with 0 <= LO <= HI <= maxHi.
bool parseBitRange(const std::string& token, int maxHi, int& hi, int& lo) {
  const std::size_t colon = token.find(':');
  if (colon == std::string::npos) return false;
  if (!parseNumber(token.substr(0, colon), hi) || !parseNumber(token.substr(colon + 1), lo))
    return false;
  return lo >= 0 && lo <= hi && hi <= maxHi;
}

// "ADDR" or "ADDR..LAST".
bool parseAddressSpan(const std::string& token, int& first, int& last) {
  const std::size_t dots = token.find("..");
  if (dots == std::string::npos) {
    if (!parseNumber(token, first)) return false;
    last = first;
  } else if (!parseNumber(token.substr(0, dots), first) ||
             !parseNumber(token.substr(dots + 2), last)) {
    return false;
  }
  return first >= 0 && last >= first && last <= kMaxAddress;
}

std::string hex4(int v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04x", v);
  return text;
}

class Parser {
 public:
  Parser(const std::string& sourceName, RegisterTable& table)
      : m_source(sourceName), m_table(table) {}

  bool line(int number, const std::string& raw) {
    m_line = number;
    std::istringstream in(raw.substr(0, raw.find('#')));
    std::vector<std::string> t;
    for (std::string w; in >> w;) t.push_back(w);
    if (t.empty()) return true;
    if (t[0] == "param") return param(t);
    if (t[0] == "field") return field(t);
    if (t[0] == "pack") return pack(t);
    return fail("unknown word '" + t[0] + "' (expected param, field or pack)");
  }

  const std::string& error() const { return m_error; }

 private:
  bool fail(const std::string& reason) {
    m_error = m_source + ":" + std::to_string(m_line) + ": " + reason;
    return false;
  }

  bool param(const std::vector<std::string>& t) {
    if (t.size() < 5) return fail("param needs SECTION KEY MIN MAX");
    TParamInfo info;
    info.section = t[1];
    info.key = t[2];
    if (!parseNumber(t[3], info.minVal) || !parseNumber(t[4], info.maxVal))
      return fail("bad range '" + t[3] + " " + t[4] + "'");
    if (info.minVal > info.maxVal) return fail("empty range " + t[3] + ".." + t[4]);
    info.randomMin = info.minVal;
    info.randomMax = info.maxVal;
    for (std::size_t i = 5; i < t.size(); ++i) {
      if (t[i] == "random") {
        if (i + 2 >= t.size() || !parseNumber(t[i + 1], info.randomMin) ||
            !parseNumber(t[i + 2], info.randomMax))
          return fail("random needs LO HI");
        if (info.randomMin > info.randomMax || info.randomMin < info.minVal ||
            info.randomMax > info.maxVal)
          return fail("random range " + t[i + 1] + ".." + t[i + 2] + " is not inside " + t[3] +
                      ".." + t[4]);
        i += 2;
      } else if (t[i] == "default") {
        if (i + 1 >= t.size()) return fail("default needs a value list");
        std::istringstream list(t[++i]);
        for (std::string v; std::getline(list, v, ',');) {
          int value = 0;
          if (!parseNumber(v, value)) return fail("bad default value '" + v + "'");
          if (value < info.minVal || value > info.maxVal)
            return fail("default " + v + " is outside " + t[3] + ".." + t[4]);
          info.defaultVal.push_back(value);
        }
      } else if (t[i] == "noini") {
        info.iniExcluded = true;
      } else {
        return fail("unknown word '" + t[i] + "' in param (expected random, default or noini)");
      }
    }
    const int previous = m_table.lookupParam(info.section, info.key);
    if (previous >= 0)
      return fail("parameter " + info.section + "/" + info.key + " is defined twice");
    m_current = m_table.addParam(info);
    return true;
  }

  bool field(const std::vector<std::string>& t) {
    if (m_current < 0) return fail("field before any param");
    if (t.size() < 3) return fail("field needs ADDR[..LAST] HI:LO");
    TRegEntity f;
    if (!parseAddressSpan(t[1], f.spanLo, f.spanHi))
      return fail("bad register address '" + t[1] + "'");
    f.address = f.spanLo;
    const int registers = f.spanHi - f.spanLo + 1;
    if (!parseBitRange(t[2], 31, f.dstHi, f.dstLo)) return fail("bad bit range '" + t[2] + "'");
    if (registers == 1 && f.dstHi >= kRegisterBits)
      return fail("bit range " + t[2] + " does not fit one 16-bit register");
    if (registers > 1) {
      // Later registers take the element shifted by 16, so only a field from bit 0 lines up.
      if (f.dstLo != 0) return fail("a field over several registers must start at bit 0");
      if (f.dstHi < kRegisterBits * (registers - 1) || f.dstHi >= kRegisterBits * registers)
        return fail("bit range " + t[2] + " does not fill registers " + t[1]);
    }
    f.srcLo = 0;
    f.srcHi = f.dstHi - f.dstLo;
    for (std::size_t i = 3; i < t.size(); ++i) {
      if (t[i] == "src") {
        if (i + 1 >= t.size() || !parseBitRange(t[i + 1], 31, f.srcHi, f.srcLo))
          return fail("src needs HI:LO within 31:0");
        ++i;
      } else if (t[i] == "elem") {
        if (i + 1 >= t.size() || !parseNumber(t[i + 1], f.index) || f.index < 0)
          return fail("elem needs an element index of 0 or more");
        ++i;
      } else {
        return fail("unknown word '" + t[i] + "' in field (expected src or elem)");
      }
    }
    return addField(f);
  }

  bool pack(const std::vector<std::string>& t) {
    if (m_current < 0) return fail("pack before any param");
    if (t.size() != 4) return fail("pack needs ADDR COUNT BITS");
    int address = 0, count = 0, bits = 0;
    if (!parseNumber(t[1], address) || address < 0 || address > kMaxAddress)
      return fail("bad register address '" + t[1] + "'");
    if (!parseNumber(t[2], count) || count < 1 || count > 4096)
      return fail("bad element count '" + t[2] + "'");
    if (!parseNumber(t[3], bits) || bits < 1 || bits > kRegisterBits)
      return fail("bad element width '" + t[3] + "' (1 to 16 bits)");
    const int perRegister = kRegisterBits / bits;
    if (address + (count - 1) / perRegister > kMaxAddress)
      return fail("pack runs past register 0xffff");
    for (int i = 0; i < count; ++i) {
      TRegEntity f;
      f.address = f.spanLo = f.spanHi = address + i / perRegister;
      f.dstLo = (i % perRegister) * bits;
      f.dstHi = f.dstLo + bits - 1;
      f.srcHi = bits - 1;
      f.srcLo = 0;
      f.index = i;
      if (!addField(f)) return false;
    }
    return true;
  }

  // Records the field and claims its register bits; a bit claimed twice is an error.
  bool addField(const TRegEntity& f) {
    for (int r = 0; r <= f.spanHi - f.spanLo; ++r) {
      const int hi = std::min(f.dstHi - kRegisterBits * r, kRegisterBits - 1);
      const int lo = r == 0 ? f.dstLo : 0;
      std::array<int, kRegisterBits>& owners = m_owners[f.address + r];
      for (int b = lo; b <= hi; ++b) {
        if (owners[static_cast<std::size_t>(b)] != 0)
          return fail("register " + hex4(f.address + r) + " bit " + std::to_string(b) +
                      " is already used by the field on line " +
                      std::to_string(owners[static_cast<std::size_t>(b)]));
        owners[static_cast<std::size_t>(b)] = m_line;
      }
    }
    m_table.addField(m_current, f);
    return true;
  }

  std::string m_source;
  RegisterTable& m_table;
  int m_line = 0;
  int m_current = -1;
  std::string m_error;
  std::map<int, std::array<int, kRegisterBits>> m_owners;
};

}  // namespace

bool parseRegisterTable(const std::string& text, const std::string& sourceName,
                        RegisterTable& table, std::string& error) {
  RegisterTable parsed;
  Parser parser(sourceName, parsed);
  std::istringstream in(text);
  int number = 0;
  for (std::string raw; std::getline(in, raw);) {
    if (!parser.line(++number, raw)) {
      error = parser.error();
      return false;
    }
  }
  table = std::move(parsed);
  return true;
}

bool loadRegisterTable(const std::string& path, RegisterTable& table, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = path + ": cannot open the register table";
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) {
    error = path + ": read error";
    return false;
  }
  return parseRegisterTable(text.str(), path, table, error);
}

bool loadBuiltinRegisterTable(RegisterTable& table, std::string& error) {
  return parseRegisterTable(builtinRegisterTableText(), "fbc_registers.txt", table, error);
}

}  // namespace fbc
