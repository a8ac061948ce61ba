#include "config/IniText.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>

#include "config/IniAccess.h"

namespace fbc {

TextProblem checkText(const std::string& text, std::size_t maxLine) {
  TextProblem problem;
  problem.line = 1;
  // The line's length so far; a CR counts only once a byte other than the LF follows it, as the
  // reader takes "\r\n" as the terminator and a lone CR as content.
  std::size_t length = 0;
  bool pendingCr = false;
  const auto tooLong = [&](std::size_t extra) {
    length += extra;
    if (maxLine == 0 || length <= maxLine) return false;
    problem.reason = "longer than " + std::to_string(maxLine) + " bytes";
    return true;
  };
  for (const char ch : text) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c == '\n') {
      ++problem.line;
      length = 0;
      pendingCr = false;
      continue;
    }
    if ((c < 0x20 && c != '\t' && c != '\r') || c == 0x7F) {
      char hex[8];
      std::snprintf(hex, sizeof hex, "0x%02x", c);
      problem.reason = std::string("control byte ") + hex + " (not a text file)";
      return problem;
    }
    if (tooLong((pendingCr ? 1u : 0u) + (c == '\r' ? 0u : 1u))) return problem;
    pendingCr = c == '\r';
  }
  if (pendingCr) tooLong(1);
  return problem;
}

std::string printable(const std::string& bytes) {
  std::string out;
  for (const char ch : bytes) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c >= 0x20 && c < 0x7F) {
      out += ch;
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    }
  }
  return out;
}

TextProblem checkTextFile(const std::string& path, std::size_t maxLine) {
  std::ifstream in(path, std::ios::binary);
  return checkText(std::string(std::istreambuf_iterator<char>(in), {}), maxLine);
}

TextProblem checkIniStructure(const std::string& text, const std::vector<std::string>& sections) {
  TextProblem problem;
  if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    problem.line = 1;
    problem.reason =
        "UTF-8 byte order mark at the start (the readers would not see the first line)";
    return problem;
  }
  const auto lower = [](std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
  };
  std::string allowed;
  for (const std::string& s : sections) allowed += (allowed.empty() ? "[" : " or [") + s + "]";
  std::map<std::string, int> sectionLine;
  std::map<std::string, int> keyLine;  // key, lower case as the readers compare it -> line
  std::string section;
  for (const IniLineInfo& line : ini_lines(text)) {
    problem.line = line.number;
    switch (line.kind) {
      case IniLineKind::Blank:
      case IniLineKind::Comment:
        break;
      case IniLineKind::Other:
        problem.reason = "'" + printable(line.text) + "' is neither a section, a key nor a comment";
        return problem;
      case IniLineKind::Section: {
        if (std::find(sections.begin(), sections.end(), line.name) == sections.end()) {
          problem.reason = "section [" + printable(line.name) + "] is not " + allowed;
          return problem;
        }
        const auto first = sectionLine.emplace(line.name, line.number);
        if (!first.second) {
          problem.reason = "section [" + line.name + "] appears twice (first at line " +
                           std::to_string(first.first->second) + "); the readers ignore the second";
          return problem;
        }
        section = line.name;
        keyLine.clear();
        break;
      }
      case IniLineKind::Key: {
        if (section.empty()) {
          problem.reason = "key \"" + printable(line.name) + "\" before the first section";
          return problem;
        }
        const auto first = keyLine.emplace(lower(line.name), line.number);
        if (!first.second) {
          problem.reason = "key \"" + printable(line.name) + "\" appears twice in [" + section +
                           "] (first at line " + std::to_string(first.first->second) +
                           "); the readers take the first";
          return problem;
        }
        break;
      }
    }
  }
  problem.line = 0;
  return problem;
}

bool parseIntegerList(const std::string& text, bool upperHex, std::vector<long long>& values,
                      std::string& error) {
  values.clear();
  const auto blank = [](char ch) { return ch == ' ' || ch == '\t'; };
  std::size_t begin = 0;
  while (true) {
    const std::size_t comma = std::min(text.find(',', begin), text.size());
    std::size_t a = begin, b = comma;
    while (a < b && blank(text[a])) ++a;
    while (b > a && blank(text[b - 1])) --b;
    const std::string token = text.substr(a, b - a);
    if (token.empty()) {
      error = text.find_first_not_of(" \t") == std::string::npos
                  ? "empty value"
                  : "empty element " + std::to_string(values.size() + 1) + " in '" +
                        printable(text) + "'";
      return false;
    }
    const bool hex =
        token.size() > 2 && token[0] == '0' && (token[1] == 'x' || (upperHex && token[1] == 'X'));
    const std::size_t digits = hex ? 2 : (token[0] == '-' ? 1 : 0);
    const char* accepted = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits >= token.size() || token.find_first_not_of(accepted, digits) != std::string::npos) {
      error = "'" + printable(token) + "' is not an integer";
      return false;
    }
    // Hexadecimal is a 32-bit pattern (0xffffffff is -1); decimal must fit a signed 32-bit int.
    errno = 0;
    const long long v = std::strtoll(token.c_str() + (hex ? 2 : 0), nullptr, hex ? 16 : 10);
    if (errno == ERANGE || (hex ? v > 0xFFFFFFFFLL : (v < -2147483648LL || v > 2147483647LL))) {
      error = "'" + token + "' is too " +
              (hex               ? "large (at most 0xffffffff)"
               : token[0] == '-' ? "small (at least -2147483648)"
                                 : "large (at most 2147483647)");
      return false;
    }
    values.push_back(v);
    if (comma == text.size()) return true;
    begin = comma + 1;
  }
}

}  // namespace fbc
