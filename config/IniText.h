// Strict reading of parameter text: what the INI reader would take in silence (a control byte,
// a line it cuts short, "12abc" read as 12) is found here first and named.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fbc {

// The first reason a file cannot be read as text by line-based readers: a NUL or other control
// byte (tab, CR and LF are text), or a line longer than `maxLine` bytes without its terminator
// (0: any length), which the INI reader would cut short in silence. `line` is 1-based; an empty
// reason means none.
struct TextProblem {
  int line = 0;
  std::string reason;
};
TextProblem checkTextFile(const std::string& path, std::size_t maxLine);

// A comma-separated list of integers, each decimal with an optional minus sign or "0x"
// hexadecimal (also "0X" when `upperHex`), blanks around elements allowed. False on anything
// else, with `error` naming the first offending element.
bool parseIntegerList(const std::string& text, bool upperHex, std::vector<long long>& values,
                      std::string& error);

}  // namespace fbc
