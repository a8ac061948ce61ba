// INI text: the input becomes a file that IniFileIO and the ini_* primitives read in full
// (every key of every section as text, number, flag and array, and a browse of the whole file).
// Then a key the file names and a new key are written and read back, and the other keys must
// keep the text they had.
#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "config/IniAccess.h"
#include "config/IniFileIO.h"
#include "fuzz/FuzzSupport.h"

namespace {

using Texts = std::map<std::pair<std::string, std::string>, std::string>;

Texts readEverything(IniFileIO& ini) {
  Texts texts;
  const char* file = ini.fileName().c_str();
  for (const auto& [section, keys] : ini.keys()) {
    for (const std::string& key : keys) {
      std::string text;
      ini.getVariable(section.c_str(), key.c_str(), text, "", true);
      ini.getVariable(section.c_str(), key.c_str(), text, "");
      texts[{section, key}] = text;
      int i = 0;
      double d = 0;
      bool b = false;
      ini.getVariable(section.c_str(), key.c_str(), i, "0");
      ini.getVariable(section.c_str(), key.c_str(), d, "0");
      ini.getVariable(section.c_str(), key.c_str(), b, "0");
      int ints[16];
      double doubles[16];
      ini.getArray(section.c_str(), key.c_str(), ints, 16, "");
      ini.getArray(section.c_str(), key.c_str(), doubles, 16, "");
      ini_getf(section.c_str(), key.c_str(), 0.0f, file);
      ini_getbool(section.c_str(), key.c_str(), 0, file);
    }
  }
  char buffer[64];
  for (int k = 0; ini_getkey(nullptr, k, buffer, sizeof buffer, file) > 0; ++k) {
    char value[INI_BUFFERSIZE];
    ini_gets(nullptr, buffer, "", value, sizeof value, file);
  }
  ini_browse([](const char*, const char*, const char*, void*) { return 1; }, nullptr, file);
  return texts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = fbc::fuzz::writeScratchFile("fuzz.ini", data, size);
  IniFileIO ini(path);
  Texts before = readEverything(ini);

  // A key of the file, and a key in a section the file cannot have had under that spelling
  // unless it already holds it.
  std::pair<std::string, std::string> written{"fuzz_probe", "probe_key"};
  const bool listed = !before.empty();
  if (listed) written = before.begin()->first;
  if (!ini.setVariable(written.first.c_str(), written.second.c_str(), 12345)) return 0;
  const std::pair<std::string, std::string> added{"fuzz_probe_section", "probe_key_added"};
  const bool addedOk = ini.setVariable(added.first.c_str(), added.second.c_str(), "text 7");

  IniFileIO reread(path);
  // New keys are checked by value only: IniFileIO lists sections up to the first "[]" header,
  // and an appended section may come after one.
  int value = 0;
  const bool exists =
      reread.getVariable(written.first.c_str(), written.second.c_str(), value, "-1");
  if ((listed && !exists) || value != 12345)
    fbc::fuzz::fail("[%s] %s: wrote 12345, read back %d", written.first.c_str(),
                    written.second.c_str(), value);
  std::string text;
  reread.getVariable(added.first.c_str(), added.second.c_str(), text, "");
  if (addedOk && text != "text 7")
    fbc::fuzz::fail("[%s] %s: wrote \"text 7\", read back \"%s\"", added.first.c_str(),
                    added.second.c_str(), text.c_str());
  const Texts after = readEverything(reread);
  for (const auto& [name, old] : before) {
    // Names are matched without regard to case: a spelling variant is the written key.
    if (strcasecmp(name.first.c_str(), written.first.c_str()) == 0 &&
        strcasecmp(name.second.c_str(), written.second.c_str()) == 0)
      continue;
    const auto it = after.find(name);
    if (it == after.end() || it->second != old)
      fbc::fuzz::fail("[%s] %s: \"%s\" became \"%s\" after writing [%s] %s", name.first.c_str(),
                      name.second.c_str(), old.c_str(),
                      it == after.end() ? "(missing)" : it->second.c_str(), written.first.c_str(),
                      written.second.c_str());
  }
  return 0;
}
