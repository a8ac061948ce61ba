// The line reader and line parser under the INI reading and writing functions: one physical line
// at a time from a file or a text in memory, split into its kind, name and value.
#pragma once

#include <cstdio>
#include <string>

#include "config/IniAccess.h"

namespace ini_parse {

constexpr int kBufferSize = INI_BUFFERSIZE;

bool isBlank(char c);
bool equalsNoCase(const char* a, const char* b);
bool isGlobal(const char* section);
// Copies src into dst, cut to dstSize - 1 bytes and to one line buffer; returns the length copied.
int copyLimited(char* dst, int dstSize, const char* src);

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
Parsed parseLine(char* text);
// Cuts a trailing comment outside double quotes, strips trailing blanks, then removes enclosing
// quotes and unescapes \" and "" inside them.
char* cleanValue(char* v);

}  // namespace ini_parse
