#pragma once

#include <map>
#include <set>
#include <string>

// One INI file bound by name: typed reads and writes of scalars and comma-separated arrays over the
// ini_* primitives. The section and key lists are read once at construction and answer the
// existence tests; reads and writes always go to the file.
class IniFileIO {
public:
    explicit IniFileIO(const std::string& fileName);

    bool isSectionExist(const char* section) const;
    bool isKeyExist(const char* section, const char* key) const;

    // Each read returns isKeyExist(section, key); the output receives the file's value or the default.
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
    bool setArray(const char* section, const char* key, const int* values, int count, bool hex = false);
    bool setArray(const char* section, const char* key, const double* values, int count);

    const std::string& fileName() const { return m_fileName; }
    const std::map<std::string, std::set<std::string>>& keys() const { return m_keys; }

    static const char* const m_seperator;

private:
    template <class T, class Parse>
    bool readArray(const char* section, const char* key, T* values, int count,
                   const char* defaultText, Parse parse);

    std::string m_fileName;
    char m_buffer[4096];
    std::map<std::string, std::set<std::string>> m_keys;
};
