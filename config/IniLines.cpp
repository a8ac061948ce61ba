#include "config/IniLines.h"

#include <cassert>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace ini_parse {
namespace {

char* skipLeading(char* s) {
  while (isBlank(*s)) ++s;
  return s;
}

void stripTrailing(char* s) {
  std::size_t n = std::strlen(s);
  while (n > 0 && isBlank(s[n - 1])) s[--n] = '\0';
}

[[maybe_unused]] bool overlaps(const char* a, std::size_t aLen, const char* b, std::size_t bLen) {
  const auto x = reinterpret_cast<std::uintptr_t>(a);
  const auto y = reinterpret_cast<std::uintptr_t>(b);
  return x < y + bLen && y < x + aLen;
}

}  // namespace

bool isBlank(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return u >= 1 && u <= 32;
}

bool equalsNoCase(const char* a, const char* b) {
  for (; *a != '\0' && *b != '\0'; ++a, ++b) {
    if (std::tolower(static_cast<unsigned char>(*a)) !=
        std::tolower(static_cast<unsigned char>(*b)))
      return false;
  }
  return *a == *b;
}

bool isGlobal(const char* section) {
  return section == nullptr || *section == '\0';
}

int copyLimited(char* dst, int dstSize, const char* src) {
  const std::size_t srcLen = std::strlen(src);
  assert(!overlaps(dst, static_cast<std::size_t>(dstSize), src, srcLen + 1));
  std::size_t n = srcLen;
  const std::size_t cap =
      static_cast<std::size_t>((dstSize < kBufferSize ? dstSize : kBufferSize) - 1);
  if (n > cap) n = cap;
  std::memmove(dst, src, n);
  dst[n] = '\0';
  return static_cast<int>(n);
}

Parsed parseLine(char* text) {
  Parsed p;
  char* s = skipLeading(text);
  if (*s == '\0') {
    p.kind = LineKind::Blank;
    return p;
  }
  if (*s == ';' || *s == '#') {
    p.kind = LineKind::Comment;
    return p;
  }
  if (*s == '[') {
    char* close = std::strchr(s + 1, ']');
    if (close != nullptr) {
      *close = '\0';
      p.kind = LineKind::Section;
      p.name = s + 1;
      return p;
    }
  }
  char* sep = std::strchr(s, '=');
  if (sep == nullptr) sep = std::strchr(s, ':');
  if (sep == nullptr) return p;
  *sep = '\0';
  stripTrailing(s);
  p.kind = LineKind::Key;
  p.name = s;
  p.value = skipLeading(sep + 1);
  return p;
}

char* cleanValue(char* v) {
  bool quoted = false;
  char* p = v;
  for (; *p != '\0'; ++p) {
    if (*p == '"') {
      if (quoted && p[1] == '"') {
        ++p;
        continue;
      }
      quoted = !quoted;
    } else if (*p == '\\' && quoted && p[1] == '"') {
      ++p;
    } else if (!quoted && (*p == ';' || *p == '#')) {
      break;
    }
  }
  *p = '\0';
  stripTrailing(v);
  const std::size_t n = std::strlen(v);
  if (n >= 2 && v[0] == '"' && v[n - 1] == '"') {
    v[n - 1] = '\0';
    char* out = v;
    for (char* in = v + 1; *in != '\0'; ++in) {
      if ((in[0] == '\\' || in[0] == '"') && in[1] == '"') ++in;
      *out++ = *in;
    }
    *out = '\0';
  }
  return v;
}

}  // namespace ini_parse

using namespace ini_parse;

std::vector<IniLineInfo> ini_lines(const std::string& text) {
  std::vector<IniLineInfo> lines;
  Line line;
  LineReader reader(text);
  for (int number = 1; reader.next(line); ++number) {
    std::string kept = line.text;
    const Parsed p = parseLine(line.text);
    lines.push_back({number, p.kind, p.name != nullptr ? p.name : "", std::move(kept)});
  }
  return lines;
}
