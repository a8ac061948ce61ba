#include "config/IniAccess.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/IniLines.h"

using namespace ini_parse;

namespace {

// Walks the lines of the section; calls f(line, parsed) for each line inside it (header excluded)
// until f returns false. Returns whether the section was found.
template <class F>
bool walkSection(LineReader& reader, const char* section, Line& line, F f) {
  bool inside = isGlobal(section);
  bool found = inside;
  while (reader.next(line)) {
    Parsed p = parseLine(line.text);
    if (p.kind == LineKind::Section) {
      if (inside) break;
      inside = equalsNoCase(p.name, section);
      found = found || inside;
      continue;
    }
    if (inside && !f(line, p)) break;
  }
  return found;
}

// Finds the key in the section and leaves its cleaned value in the line buffer.
const char* findValue(LineReader& reader, const char* section, const char* key, Line& line) {
  const char* value = nullptr;
  walkSection(reader, section, line, [&](Line&, Parsed& p) {
    if (p.kind == LineKind::Key && equalsNoCase(p.name, key)) {
      value = cleanValue(p.value);
      return false;
    }
    return true;
  });
  return value;
}

// What one call reads: a file by name, opened "rb" for the call, or a text in memory.
class Source {
 public:
  explicit Source(const char* filename)
      : m_fp(filename != nullptr ? std::fopen(filename, "rb") : nullptr), m_reader(m_fp) {}
  explicit Source(IniText text) : m_isText(text.text != nullptr), m_reader(*text.text) {}
  ~Source() {
    if (m_fp != nullptr) std::fclose(m_fp);
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  bool open() const { return m_fp != nullptr || m_isText; }
  LineReader& reader() { return m_reader; }

 private:
  std::FILE* m_fp = nullptr;
  bool m_isText = false;
  LineReader m_reader;
};

// Copies the key's cleaned value into buffer; false when the source or the key is missing.
bool lookup(Source& src, const char* section, const char* key, char* buffer, int bufferSize) {
  if (!src.open()) return false;
  Line line;
  const char* value = findValue(src.reader(), section, key, line);
  if (value != nullptr) copyLimited(buffer, bufferSize, value);
  return value != nullptr;
}

int getsFrom(Source& src, const char* section, const char* key, const char* defValue, char* buffer,
             int bufferSize) {
  if (buffer == nullptr || key == nullptr || bufferSize <= 0) return 0;
  if (lookup(src, section, key, buffer, bufferSize)) return static_cast<int>(std::strlen(buffer));
  return copyLimited(buffer, bufferSize, defValue != nullptr ? defValue : "");
}

long getlFrom(Source& src, const char* section, const char* key, long defValue) {
  char text[64];
  if (key == nullptr || !lookup(src, section, key, text, sizeof text) || text[0] == '\0')
    return defValue;
  const int base = (text[0] != '\0' && (text[1] == 'x' || text[1] == 'X')) ? 16 : 10;
  return std::strtol(text, nullptr, base);
}

int getsectionFrom(Source& src, int index, char* buffer, int bufferSize) {
  if (buffer == nullptr || bufferSize <= 0) return 0;
  buffer[0] = '\0';
  if (!src.open()) return 0;
  Line line;
  int seen = 0;
  while (index >= 0 && src.reader().next(line)) {
    Parsed p = parseLine(line.text);
    if (p.kind == LineKind::Section && seen++ == index)
      return copyLimited(buffer, bufferSize, p.name);
  }
  return 0;
}

int getkeyFrom(Source& src, const char* section, int index, char* buffer, int bufferSize) {
  if (buffer == nullptr || bufferSize <= 0) return 0;
  buffer[0] = '\0';
  if (!src.open()) return 0;
  Line line;
  int n = 0;
  int seen = 0;
  if (index >= 0) {
    walkSection(src.reader(), section, line, [&](Line&, Parsed& p) {
      if (p.kind == LineKind::Key && seen++ == index) {
        n = copyLimited(buffer, bufferSize, p.name);
        return false;
      }
      return true;
    });
  }
  return n;
}

}  // namespace

int ini_gets(const char* section, const char* key, const char* defValue, char* buffer,
             int bufferSize, const char* filename) {
  Source src(filename);
  return getsFrom(src, section, key, defValue, buffer, bufferSize);
}

int ini_gets(const char* section, const char* key, const char* defValue, char* buffer,
             int bufferSize, IniText text) {
  Source src(text);
  return getsFrom(src, section, key, defValue, buffer, bufferSize);
}

long ini_getl(const char* section, const char* key, long defValue, const char* filename) {
  Source src(filename);
  return getlFrom(src, section, key, defValue);
}

long ini_getl(const char* section, const char* key, long defValue, IniText text) {
  Source src(text);
  return getlFrom(src, section, key, defValue);
}

float ini_getf(const char* section, const char* key, float defValue, const char* filename) {
  char text[64];
  Source src(filename);
  if (key == nullptr || !lookup(src, section, key, text, sizeof text)) return defValue;
  return static_cast<float>(std::strtod(text, nullptr));
}

int ini_getbool(const char* section, const char* key, int defValue, const char* filename) {
  char text[2] = "";
  ini_gets(section, key, "", text, sizeof text, filename);
  switch (text[0]) {
    case '1':
    case 'Y':
    case 'y':
    case 'T':
    case 't':
      return 1;
    case '0':
    case 'N':
    case 'n':
    case 'F':
    case 'f':
      return 0;
    default:
      return defValue;
  }
}

int ini_getsection(int index, char* buffer, int bufferSize, const char* filename) {
  Source src(filename);
  return getsectionFrom(src, index, buffer, bufferSize);
}

int ini_getsection(int index, char* buffer, int bufferSize, IniText text) {
  Source src(text);
  return getsectionFrom(src, index, buffer, bufferSize);
}

int ini_getkey(const char* section, int index, char* buffer, int bufferSize, const char* filename) {
  Source src(filename);
  return getkeyFrom(src, section, index, buffer, bufferSize);
}

int ini_getkey(const char* section, int index, char* buffer, int bufferSize, IniText text) {
  Source src(text);
  return getkeyFrom(src, section, index, buffer, bufferSize);
}

int ini_browse(INI_CALLBACK callback, void* userData, const char* filename) {
  std::FILE* fp = filename != nullptr ? std::fopen(filename, "rb") : nullptr;
  if (fp == nullptr) return 0;
  char section[kBufferSize] = "";
  Line line;
  LineReader reader(fp);
  while (reader.next(line)) {
    Parsed p = parseLine(line.text);
    if (p.kind == LineKind::Section) {
      copyLimited(section, sizeof section, p.name);
    } else if (p.kind == LineKind::Key && callback != nullptr) {
      if (callback(section, p.name, cleanValue(p.value), userData) == 0) break;
    }
  }
  std::fclose(fp);
  return 1;
}
