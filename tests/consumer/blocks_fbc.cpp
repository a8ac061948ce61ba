// The static C++ parts (fbc::core): the codec block loaded from the installed sample parameter
// file through the framework, against the C interface loading the same file.
#include <fbc/fbc.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "config/IniFileIO.h"
#include "framework/RegisterTable.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const std::string params = argv[1];  // share/fbc/sample_params.ini
  RegisterTable table;
  std::string error;
  if (!fbc::loadBuiltinRegisterTable(table, error)) return 1;
  Compression1x8 block("FBC", false);
  block.setSWinit();
  block.setEnable(true);
  IniFileIO ini(params);
  TGlobalParam global;
  std::vector<std::string> messages;
  block.init(ini, table, global, messages);  // keys the file leaves out keep their defaults

  fbc_codec* c = fbc_new();
  if (fbc_load_params(c, params.c_str()) != FBC_OK) {
    std::cerr << fbc_error(c) << "\n";
    return 1;
  }
  int px[8] = {4095, 0, 4095, 0, 17, 900, 2048, 3};
  const std::uint16_t px16[8] = {4095, 0, 4095, 0, 17, 900, 2048, 3};
  const std::uint64_t fromBlock = block.encodeBlock(px, false),
                      fromC = fbc_encode_block(c, px16, 0);
  fbc_free(c);
  std::cout << "block " << std::hex << fromBlock << ", C interface " << fromC << "\n";
  return fromBlock == fromC ? 0 : 1;
}
