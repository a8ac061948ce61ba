#pragma once

#include <map>
#include <set>
#include <string>

// One INI file bound by name: typed reads and writes of scalars and comma-separated arrays over the
// ini_* primitives. The section and key lists are read once at construction and answer the
// existence tests; reads and writes always go to the file. Made with fromText, the same object
// works on a text held in memory instead (the primitives' IniText overloads), and fileName()
// only names it.
class IniFileIO {
 public:
  explicit IniFileIO(const std::string& fileName);
  static IniFileIO fromText(const std::string& name, std::string text);

  bool isSectionExist(const char* section) const;
  bool isKeyExist(const char* section, const char* key) const;

  // Each read returns isKeyExist(section, key); the output receives the file's value or the
  // default.
  bool getVariable(const char* section, const char* key, bool& value, const char* defaultText);
  bool getVariable(const char* section, const char* key, int& value, const char* defaultText);
  bool getVariable(const char* section, const char* key, double& value, const char* defaultText);
  bool getVariable(const char* section, const char* key, std::string& value,
                   const char* defaultText, bool toLower = false);
  bool getArray(const char* section, const char* key, int* values, int count,
                const char* defaultText);
  bool getArray(const char* section, const char* key, double* values, int count,
                const char* defaultText);

  // Each write returns true when the file was written.
  bool setVariable(const char* section, const char* key, bool value);
  bool setVariable(const char* section, const char* key, const char* value);
  bool setVariable(const char* section, const char* key, int value, bool hex = false);
  bool setVariable(const char* section, const char* key, double value);
  bool setArray(const char* section, const char* key, const int* values, int count,
                bool hex = false);
  bool setArray(const char* section, const char* key, const double* values, int count);

  const std::string& fileName() const { return m_fileName; }
  bool inMemory() const { return m_inMemory; }
  // The text of an object made with fromText, with every write so far.
  const std::string& text() const { return m_text; }
  const std::map<std::string, std::set<std::string>>& keys() const { return m_keys; }

  static const char* const m_seperator;

 private:
  IniFileIO(const std::string& name, std::string text);
  void readKeys();
  int gets(const char* section, const char* key, const char* defaultText);  // into m_buffer
  long getl(const char* section, const char* key, long defaultValue);
  bool puts(const char* section, const char* key, const char* value);

  template <class T, class Parse>
  bool readArray(const char* section, const char* key, T* values, int count,
                 const char* defaultText, Parse parse);

  std::string m_fileName;
  char m_buffer[4096];
  std::map<std::string, std::set<std::string>> m_keys;
  bool m_inMemory = false;
  std::string m_text;
};
