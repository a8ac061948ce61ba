#include "config/IniText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace fbc {

TextProblem checkTextFile(const std::string& path, std::size_t maxLine) {
  std::ifstream in(path, std::ios::binary);
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
  char buffer[1 << 16];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    const std::streamsize n = in.gcount();
    for (std::streamsize i = 0; i < n; ++i) {
      const unsigned char c = static_cast<unsigned char>(buffer[i]);
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
    if (!in) break;
  }
  if (pendingCr) tooLong(1);
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
                  : "empty element " + std::to_string(values.size() + 1) + " in '" + text + "'";
      return false;
    }
    const bool hex =
        token.size() > 2 && token[0] == '0' && (token[1] == 'x' || (upperHex && token[1] == 'X'));
    const std::size_t digits = hex ? 2 : (token[0] == '-' ? 1 : 0);
    const char* accepted = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits >= token.size() || token.find_first_not_of(accepted, digits) != std::string::npos) {
      error = "'" + token + "' is not an integer";
      return false;
    }
    // Hexadecimal is a 32-bit pattern (0xffffffff is -1); decimal must fit a signed 32-bit int.
    errno = 0;
    const long long v = std::strtoll(token.c_str() + (hex ? 2 : 0), nullptr, hex ? 16 : 10);
    if (errno == ERANGE || (hex ? v > 0xFFFFFFFFLL : (v < -2147483648LL || v > 2147483647LL))) {
      error = "'" + token + "' does not fit 32 bits";
      return false;
    }
    values.push_back(v);
    if (comma == text.size()) return true;
    begin = comma + 1;
  }
}

}  // namespace fbc
