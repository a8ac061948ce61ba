#include "config/IniAccess.h"

#include <cassert>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace {

constexpr int kBufferSize = INI_BUFFERSIZE;

bool isBlank(char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  return u >= 1 && u <= 32;
}

char* skipLeading(char* s) {
  while (isBlank(*s)) ++s;
  return s;
}

void stripTrailing(char* s) {
  std::size_t n = std::strlen(s);
  while (n > 0 && isBlank(s[n - 1])) s[--n] = '\0';
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

[[maybe_unused]] bool overlaps(const char* a, std::size_t aLen, const char* b, std::size_t bLen) {
  const auto x = reinterpret_cast<std::uintptr_t>(a);
  const auto y = reinterpret_cast<std::uintptr_t>(b);
  return x < y + bLen && y < x + aLen;
}

// Copies src into dst, cut to dstSize - 1 bytes and to one line buffer; returns the length copied.
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

// One physical line of the file. A line longer than the buffer keeps its first kBufferSize - 1
// bytes for parsing; its remaining bytes still count in the offsets, so a hostile long line is
// read as one truncated line and never split into several.
struct Line {
  long start = 0;       // offset of the first byte
  long contentEnd = 0;  // offset past the content ("\n" or "\r\n" excluded)
  long end = 0;         // offset past the line terminator
  bool terminated = false;
  char text[kBufferSize];
};

// Reads the lines of a file opened "rb" or of a text in memory, whichever it was made with.
class LineReader {
 public:
  explicit LineReader(std::FILE* fp) : m_fp(fp) {}
  explicit LineReader(const std::string& text) : m_text(&text) {}

  bool next(Line& line) {
    int c = get();
    if (c == EOF) return false;
    line.start = m_pos;
    std::size_t kept = 0;
    long length = 0;
    int last = 0;
    while (c != EOF && c != '\n') {
      if (kept < kBufferSize - 1) line.text[kept++] = static_cast<char>(c);
      ++length;
      last = c;
      c = get();
    }
    line.terminated = (c == '\n');
    long content = length;
    if (line.terminated && last == '\r') {
      --content;
      if (kept == static_cast<std::size_t>(length)) --kept;
    }
    line.text[kept] = '\0';
    line.contentEnd = m_pos + content;
    m_pos += length + (line.terminated ? 1 : 0);
    line.end = m_pos;
    return true;
  }

 private:
  int get() {
    if (m_fp != nullptr) return std::getc(m_fp);
    if (m_next >= m_text->size()) return EOF;
    return static_cast<unsigned char>((*m_text)[m_next++]);
  }

  std::FILE* m_fp = nullptr;
  const std::string* m_text = nullptr;
  std::size_t m_next = 0;
  long m_pos = 0;
};

using LineKind = IniLineKind;

struct Parsed {
  LineKind kind = LineKind::Other;
  char* name = nullptr;   // section name or key
  char* value = nullptr;  // raw text after the separator, leading blanks skipped
};

// Splits a line in place into its kind, name and raw value.
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

// Cuts a trailing comment outside double quotes, strips trailing blanks, then removes enclosing
// quotes and unescapes \" and "" inside them.
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

// Formats "key=value" (quoting the value when it would not read back as written) without the
// line feed; returns its length, or -1 when it would not fit one line of the reader.
int formatKeyLine(char* out, const char* key, const char* value) {
  const std::size_t vlen = std::strlen(value);
  const bool quote = value[0] == '"' || std::strpbrk(value, "\";#") != nullptr ||
                     (vlen > 0 && isBlank(value[vlen - 1]));
  std::size_t n = std::strlen(key);
  if (n >= kBufferSize) return -1;
  std::memcpy(out, key, n);
  out[n++] = '=';
  auto put = [&](char c) {
    if (n >= kBufferSize - 1) return false;
    out[n++] = c;
    return true;
  };
  if (quote && !put('"')) return -1;
  for (const char* v = value; *v != '\0'; ++v) {
    if (quote && *v == '"' && !put('\\')) return -1;
    if (!put(*v)) return -1;
  }
  if (quote && !put('"')) return -1;
  out[n] = '\0';
  return static_cast<int>(n);
}

bool copyRange(std::FILE* in, std::FILE* out, long from, long to) {
  char cache[kBufferSize];
  if (std::fseek(in, from, SEEK_SET) != 0) return false;
  long left = to - from;
  while (left > 0) {
    const std::size_t want = left < kBufferSize ? static_cast<std::size_t>(left) : kBufferSize;
    const std::size_t got = std::fread(cache, 1, want, in);
    if (got == 0) return false;
    if (std::fwrite(cache, 1, got, out) != got) return false;
    left -= static_cast<long>(got);
  }
  return true;
}

// Where a write changes the file: bytes [cutStart, cutEnd) are replaced by the new text.
struct Edit {
  bool sectionFound = false;
  bool keyFound = false;
  bool sameValue = false;
  long keyStart = 0, keyContentEnd = 0, keyEnd = 0;
  long sectionStart = 0;  // header line (0 for the global section)
  long sectionEnd = 0;    // next header, or the end of the file
  long textEnd = 0;       // past the last non-blank line of the section (or its header)
  bool textTerminated = true;
  long fileEnd = 0;
  bool fileTerminated = true;
};

void scanForEdit(LineReader& reader, const char* section, const char* key, const char* value,
                 Edit& e) {
  Line line;
  bool inside = isGlobal(section);
  bool done = false;
  e.sectionFound = inside;
  while (reader.next(line)) {
    e.fileEnd = line.end;
    e.fileTerminated = line.terminated;
    if (done) continue;
    Parsed p = parseLine(line.text);
    if (p.kind == LineKind::Section) {
      if (inside) {
        e.sectionEnd = line.start;
        done = true;
        continue;
      }
      if (equalsNoCase(p.name, section)) {
        inside = true;
        e.sectionFound = true;
        e.sectionStart = line.start;
        e.textEnd = line.end;
        e.textTerminated = line.terminated;
      }
      continue;
    }
    if (!inside) continue;
    if (p.kind != LineKind::Blank) {
      e.textEnd = line.end;
      e.textTerminated = line.terminated;
    }
    if (key != nullptr && !e.keyFound && p.kind == LineKind::Key && equalsNoCase(p.name, key)) {
      e.keyFound = true;
      e.keyStart = line.start;
      e.keyContentEnd = line.contentEnd;
      e.keyEnd = line.end;
      e.sameValue = value != nullptr && std::strcmp(cleanValue(p.value), value) == 0;
    }
  }
  if (inside && !done) e.sectionEnd = e.fileEnd;
}

// Writes the file anew through "<name minus its last byte>~" and renames that over the original,
// so an interruption leaves either the old or the new file complete.
int rewrite(std::FILE* in, const char* filename, long cutStart, long cutEnd, const char* text,
            std::size_t textLen, long fileEnd) {
  char tempName[kBufferSize];
  const std::size_t nameLen = std::strlen(filename);
  if (nameLen == 0 || nameLen >= sizeof tempName) return 0;
  std::memcpy(tempName, filename, nameLen + 1);
  tempName[nameLen - 1] = '~';
  std::FILE* out = std::fopen(tempName, "wb");
  if (out == nullptr) return 0;
  bool ok = copyRange(in, out, 0, cutStart);
  ok = ok && std::fwrite(text, 1, textLen, out) == textLen;
  ok = ok && copyRange(in, out, cutEnd, fileEnd);
  ok = std::fclose(out) == 0 && ok;
  std::fclose(in);
  if (!ok) {
    std::remove(tempName);
    return 0;
  }
  for (int attempt = 0; attempt < kBufferSize; ++attempt) {
    if (std::rename(tempName, filename) == 0) return 1;
  }
  std::remove(tempName);
  return 0;
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

// What a write does to an existing file: nothing, or bytes [cutStart, cutEnd) become text[0, n).
// `inPlace` marks a key line replaced by one of the same length, which a file takes without a
// rewrite.
struct Change {
  bool write = false;
  bool fail = false;
  bool inPlace = false;
  long cutStart = 0;
  long cutEnd = 0;
  long fileEnd = 0;
  char text[2 * kBufferSize + 4];
  std::size_t n = 0;
};

void planPut(LineReader& reader, const char* section, const char* key, const char* value,
             char* keyLine, int keyLineLen, Change& c) {
  Edit e;
  scanForEdit(reader, section, key, value, e);
  c.fileEnd = e.fileEnd;
  if (key == nullptr) {  // delete the section
    c.write = e.sectionFound;
    c.cutStart = e.sectionStart;
    c.cutEnd = e.sectionEnd;
    return;
  }
  if (value == nullptr) {  // delete the key
    c.write = e.keyFound;
    c.cutStart = e.keyStart;
    c.cutEnd = e.keyEnd;
    return;
  }
  c.write = true;
  if (e.keyFound) {
    if (e.sameValue) {
      c.write = false;
      return;
    }
    c.cutStart = e.keyStart;
    std::memcpy(c.text, keyLine, static_cast<std::size_t>(keyLineLen));
    c.n = static_cast<std::size_t>(keyLineLen);
    if (e.keyContentEnd - e.keyStart == keyLineLen) {
      c.inPlace = true;
      c.cutEnd = e.keyContentEnd;
    } else {
      c.text[c.n++] = '\n';
      c.cutEnd = e.keyEnd;
    }
    return;
  }

  // New key: at the end of the section's text, ahead of the blank lines that separate it from the
  // next section; a new section goes to the end of the file.
  const long at = e.sectionFound ? e.textEnd : e.fileEnd;
  c.cutStart = c.cutEnd = at;
  if (e.sectionFound ? !e.textTerminated : !e.fileTerminated) c.text[c.n++] = '\n';
  if (!e.sectionFound) {
    const std::size_t slen = std::strlen(section);
    if (slen >= kBufferSize) {
      c.fail = true;
      return;
    }
    c.text[c.n++] = '[';
    std::memcpy(c.text + c.n, section, slen);
    c.n += slen;
    c.text[c.n++] = ']';
    c.text[c.n++] = '\n';
  }
  std::memcpy(c.text + c.n, keyLine, static_cast<std::size_t>(keyLineLen));
  c.n += static_cast<std::size_t>(keyLineLen);
  c.text[c.n++] = '\n';
}

// Formats the key line a write needs (none when deleting); -1 when it does not fit one line.
int keyLineFor(const char* key, const char* value, char* keyLine) {
  if (key == nullptr || value == nullptr) return 0;
  return formatKeyLine(keyLine, key, value);
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

int ini_puts(const char* section, const char* key, const char* value, const char* filename) {
  assert(filename != nullptr);
  char keyLine[kBufferSize];
  const int keyLineLen = keyLineFor(key, value, keyLine);
  if (keyLineLen < 0) return 0;

  std::FILE* fp = std::fopen(filename, "rb");
  if (fp == nullptr) {
    if (key == nullptr || value == nullptr) return 1;
    std::FILE* out = std::fopen(filename, "wb");
    if (out == nullptr) return 0;
    bool ok = true;
    if (!isGlobal(section)) ok = std::fprintf(out, "[%s]\n", section) > 0;
    ok = ok && std::fprintf(out, "%s\n", keyLine) > 0;
    ok = std::fclose(out) == 0 && ok;
    return ok ? 1 : 0;
  }

  Change c;
  LineReader reader(fp);
  planPut(reader, section, key, value, keyLine, keyLineLen, c);
  if (!c.write || c.fail) {
    std::fclose(fp);
    return c.fail ? 0 : 1;
  }
  if (c.inPlace) {
    std::fclose(fp);
    std::FILE* rw = std::fopen(filename, "r+b");
    if (rw == nullptr) return 0;
    bool ok = std::fseek(rw, c.cutStart, SEEK_SET) == 0 && std::fwrite(c.text, 1, c.n, rw) == c.n;
    ok = std::fclose(rw) == 0 && ok;
    return ok ? 1 : 0;
  }
  return rewrite(fp, filename, c.cutStart, c.cutEnd, c.text, c.n, c.fileEnd);
}

int ini_puts(const char* section, const char* key, const char* value, IniText text) {
  if (text.text == nullptr) return 0;
  char keyLine[kBufferSize];
  const int keyLineLen = keyLineFor(key, value, keyLine);
  if (keyLineLen < 0) return 0;
  Change c;
  LineReader reader(*text.text);
  planPut(reader, section, key, value, keyLine, keyLineLen, c);
  if (c.fail) return 0;
  if (c.write) {
    text.text->replace(static_cast<std::size_t>(c.cutStart),
                       static_cast<std::size_t>(c.cutEnd - c.cutStart), c.text, c.n);
  }
  return 1;
}

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

int ini_putl(const char* section, const char* key, long value, const char* filename) {
  char text[32];
  std::snprintf(text, sizeof text, "%ld", value);
  return ini_puts(section, key, text, filename);
}

int ini_putf(const char* section, const char* key, float value, const char* filename) {
  char text[64];
  std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
  return ini_puts(section, key, text, filename);
}
