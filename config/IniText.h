// Strict reading of parameter text: what the INI reader would take in silence (a control byte,
// a line it cuts short, "12abc" read as 12) is found here first and named.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fbc {

// A problem of a text at a line (1-based); an empty reason means none.
struct TextProblem {
  int line = 0;
  std::string reason;
};

// The first reason a text cannot be read by line-based readers: a NUL or other control byte
// (tab, CR and LF are text), or a line longer than `maxLine` bytes without its terminator
// (0: any length), which the INI reader would cut short in silence.
TextProblem checkText(const std::string& text, std::size_t maxLine);
// The same for the whole of the file at `path`.
TextProblem checkTextFile(const std::string& path, std::size_t maxLine);

// The first line whose value the INI readers would drop in silence: a UTF-8 byte order mark
// (it hides the first line), a line that is neither a section, a key nor a comment, a key before
// the first section, a section not in `sections` (names compared exactly, as IniFileIO does), a
// section given twice (the readers see only the first) or a key given twice in a section (the
// readers take the first; keys compare without case).
TextProblem checkIniStructure(const std::string& text, const std::vector<std::string>& sections);

// The bytes with every one outside printable ASCII written as \xNN, for echoing a file's or a
// command line's text in a message.
std::string printable(const std::string& bytes);

// A comma-separated list of integers, each decimal with an optional minus sign or "0x"
// hexadecimal (also "0X" when `upperHex`), blanks around elements allowed, each fitting 32 bits.
// False on anything else, with `error` naming the first offending element (bytes printable).
bool parseIntegerList(const std::string& text, bool upperHex, std::vector<long long>& values,
                      std::string& error);

}  // namespace fbc
