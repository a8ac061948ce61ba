#include "config/IniFileIO.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "config/IniAccess.h"

const char* const IniFileIO::m_seperator = ",";

namespace {

long defaultNumber(const char* text) {
  return text != nullptr ? std::strtol(text, nullptr, 10) : 0;
}

// Appends one formatted element at len; false when it does not fit the buffer.
template <class T>
bool appendElement(char* buffer, std::size_t size, std::size_t& len, const char* format, T value) {
  const int n = std::snprintf(buffer + len, size - len, format, value);
  if (n < 0 || static_cast<std::size_t>(n) >= size - len) return false;
  len += static_cast<std::size_t>(n);
  return true;
}

// Formats the elements into buffer, first with `first`, then with `further`; stops with false when
// the text already formed is longer than `limit` before a further element.
template <class T>
bool formatArray(char* buffer, std::size_t size, const T* values, int count, const char* first,
                 const char* further, std::size_t limit) {
  std::size_t len = 0;
  buffer[0] = '\0';
  for (int i = 0; i < count; ++i) {
    if (i > 0 && len > limit) return false;
    if (!appendElement(buffer, size, len, i == 0 ? first : further, values[i])) return false;
  }
  return true;
}

}  // namespace

IniFileIO::IniFileIO(const std::string& fileName) : m_fileName(fileName) {
  readKeys();
}

IniFileIO IniFileIO::fromText(const std::string& name, std::string text) {
  IniFileIO ini(name, std::move(text));
  return ini;
}

IniFileIO::IniFileIO(const std::string& name, std::string text)
    : m_fileName(name), m_inMemory(true), m_text(std::move(text)) {
  readKeys();
}

void IniFileIO::readKeys() {
  m_buffer[0] = '\0';
  char section[64];
  const auto getsection = [&](int s) {
    return m_inMemory ? ini_getsection(s, section, sizeof section, IniText{&m_text})
                      : ini_getsection(s, section, sizeof section, m_fileName.c_str());
  };
  const auto getkey = [&](int k) {
    return m_inMemory ? ini_getkey(section, k, m_buffer, sizeof m_buffer, IniText{&m_text})
                      : ini_getkey(section, k, m_buffer, sizeof m_buffer, m_fileName.c_str());
  };
  for (int s = 0; getsection(s) > 0; ++s) {
    std::set<std::string>& keys = m_keys[section];
    for (int k = 0; getkey(k) > 0; ++k) keys.insert(m_buffer);
  }
}

int IniFileIO::gets(const char* section, const char* key, const char* defaultText) {
  return m_inMemory
             ? ini_gets(section, key, defaultText, m_buffer, sizeof m_buffer, IniText{&m_text})
             : ini_gets(section, key, defaultText, m_buffer, sizeof m_buffer, m_fileName.c_str());
}

long IniFileIO::getl(const char* section, const char* key, long defaultValue) {
  return m_inMemory ? ini_getl(section, key, defaultValue, IniText{&m_text})
                    : ini_getl(section, key, defaultValue, m_fileName.c_str());
}

bool IniFileIO::puts(const char* section, const char* key, const char* value) {
  return (m_inMemory ? ini_puts(section, key, value, IniText{&m_text})
                     : ini_puts(section, key, value, m_fileName.c_str())) == 1;
}

bool IniFileIO::isSectionExist(const char* section) const {
  return section != nullptr && m_keys.count(section) != 0;
}

bool IniFileIO::isKeyExist(const char* section, const char* key) const {
  if (section == nullptr || key == nullptr) return false;
  const auto it = m_keys.find(section);
  return it != m_keys.end() && it->second.count(key) != 0;
}

bool IniFileIO::getVariable(const char* section, const char* key, bool& value,
                            const char* defaultText) {
  value = getl(section, key, defaultNumber(defaultText)) != 0;
  return isKeyExist(section, key);
}

bool IniFileIO::getVariable(const char* section, const char* key, int& value,
                            const char* defaultText) {
  value = static_cast<int>(getl(section, key, defaultNumber(defaultText)));
  return isKeyExist(section, key);
}

bool IniFileIO::getVariable(const char* section, const char* key, double& value,
                            const char* defaultText) {
  gets(section, key, defaultText);
  value = std::strtod(m_buffer, nullptr);
  return isKeyExist(section, key);
}

bool IniFileIO::getVariable(const char* section, const char* key, std::string& value,
                            const char* defaultText, bool toLower) {
  gets(section, key, defaultText);
  value = m_buffer;
  if (toLower) {
    for (char& c : value) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return isKeyExist(section, key);
}

// Splits the value at the separator the way strtok does (runs of separators give no empty
// elements) and parses up to `count` elements; `parse` may leave an element it cannot convert as
// it was. Too few elements: the last one parsed is copied into the next slot only, and the read
// fails.
template <class T, class Parse>
bool IniFileIO::readArray(const char* section, const char* key, T* values, int count,
                          const char* defaultText, Parse parse) {
  gets(section, key, defaultText);
  int n = 0;
  char* p = m_buffer;
  while (n < count) {
    p += std::strspn(p, m_seperator);
    if (*p == '\0') break;
    char* end = p + std::strcspn(p, m_seperator);
    const bool last = (*end == '\0');
    *end = '\0';
    parse(p, values[n++]);
    if (last) break;
    p = end + 1;
  }
  if (n >= count) return isKeyExist(section, key);
  if (n > 0) values[n] = values[n - 1];
  return false;
}

bool IniFileIO::getArray(const char* section, const char* key, int* values, int count,
                         const char* defaultText) {
  return readArray(section, key, values, count, defaultText, [](const char* token, int& value) {
    // Only a lower-case x marks hexadecimal; "0X1F" goes through the decimal parser as 0. A
    // hexadecimal token that does not convert leaves the element as it was.
    if (std::strchr(token, 'x') != nullptr) {
      unsigned int v = 0;
      if (std::sscanf(token, "%x", &v) == 1) value = static_cast<int>(v);
    } else {
      value = static_cast<int>(std::strtol(token, nullptr, 10));
    }
  });
}

bool IniFileIO::getArray(const char* section, const char* key, double* values, int count,
                         const char* defaultText) {
  return readArray(section, key, values, count, defaultText,
                   [](const char* token, double& value) { value = std::strtod(token, nullptr); });
}

bool IniFileIO::setVariable(const char* section, const char* key, bool value) {
  std::snprintf(m_buffer, sizeof m_buffer, "%d", value ? 1 : 0);
  return puts(section, key, m_buffer);
}

bool IniFileIO::setVariable(const char* section, const char* key, const char* value) {
  return puts(section, key, value);
}

bool IniFileIO::setVariable(const char* section, const char* key, int value, bool hex) {
  return setArray(section, key, &value, 1, hex);
}

bool IniFileIO::setVariable(const char* section, const char* key, double value) {
  return setArray(section, key, &value, 1);
}

bool IniFileIO::setArray(const char* section, const char* key, const int* values, int count,
                         bool hex) {
  if (!formatArray(m_buffer, sizeof m_buffer, values, count, hex ? "0x%x" : "%d",
                   hex ? ", 0x%x" : ", %d", 4084))
    return false;
  return puts(section, key, m_buffer);
}

bool IniFileIO::setArray(const char* section, const char* key, const double* values, int count) {
  if (!formatArray(m_buffer, sizeof m_buffer, values, count, "%lf", ", %lf", 4078)) return false;
  return puts(section, key, m_buffer);
}
