// Register map text through the reporting reader. A rejected map leaves the table as it was and
// names the source; an accepted one must serve a codec: defaults, range checks and the register
// values and write sequence built from it.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "codec/Compression1x8.h"
#include "framework/RegisterTable.h"
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  RegisterTable table;
  TParamInfo marker;
  marker.section = "marker";
  marker.key = "kept";
  table.addParam(marker);

  std::string error;
  if (!fbc::parseRegisterTable(text, "fuzz.txt", table, error)) {
    if (error.compare(0, 9, "fuzz.txt:") != 0 || error.find('\n') != std::string::npos)
      fbc::fuzz::fail("message is not one line naming the source: \"%s\"", error.c_str());
    if (table.size() != 1 || table.lookupParam("marker", "kept") != 0)
      fbc::fuzz::fail("a rejected map changed the table (%d entries)", table.size());
    return 0;
  }

  Compression1x8 codec("FBC", false);
  codec.setDefaultParam(table);
  std::vector<std::string> errors;
  codec.checkParam(table, errors);
  std::unordered_set<int> addresses;
  codec.getRegisterAddress(table, addresses, errors);
  std::map<int, int> values;
  codec.getRegisterValue(table, values, errors);
  std::vector<TAddrVal> sequence;
  codec.getRegisterValueSequence(table, sequence, errors);
  return 0;
}
