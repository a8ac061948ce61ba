#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "framework/IPBase.h"

// The register map: for each parameter (section, key) its checking and random ranges, defaults,
// INI exclusion and the 16-bit register fields it occupies.
class RegisterTable {
 public:
  // Index of the parameter, or -1 when the table lacks it (exact, case-sensitive names).
  int lookupParam(const std::string& section, const std::string& key) const;
  const TParamInfo& getEntry(int index) const { return m_entries[static_cast<std::size_t>(index)]; }
  int size() const { return static_cast<int>(m_entries.size()); }
  const std::vector<TParamInfo>& entries() const { return m_entries; }

  // Adds a parameter; returns its index, or -1 when the name is already present.
  int addParam(const TParamInfo& info);
  void addField(int index, const TRegEntity& field) {
    m_entries[static_cast<std::size_t>(index)].regs.push_back(field);
  }
  void clear();

 private:
  std::vector<TParamInfo> m_entries;
  std::map<std::pair<std::string, std::string>, int> m_index;
};

namespace fbc {

// Reads a register map in text form. On failure `error` names the source, the line and the reason
// ("regs.txt:12: bit range 16:3 does not fit one 16-bit register") and `table` is left unchanged.
bool parseRegisterTable(const std::string& text, const std::string& sourceName,
                        RegisterTable& table, std::string& error);
bool loadRegisterTable(const std::string& path, RegisterTable& table, std::string& error);

// The codec's register map shipped with the library (the text of data/fbc_registers.txt).
const std::string& builtinRegisterTableText();
bool loadBuiltinRegisterTable(RegisterTable& table, std::string& error);

}  // namespace fbc
