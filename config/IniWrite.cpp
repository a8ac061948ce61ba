// Writing keys and sections: the file is scanned once for where the change goes, then changed in
// place when a key line keeps its length, else rewritten whole through a temporary file.
#include <cassert>
#include <cstdio>
#include <cstring>

#include "config/IniAccess.h"
#include "config/IniLines.h"

using namespace ini_parse;

namespace {

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
