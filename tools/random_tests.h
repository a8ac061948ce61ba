// The layout of a random regression test, shared by 'fbc random' and 'fbc cover': DIR/test_NNNN
// holds params.ini, input.raw, the golden files of every frame, run.sh (the 'fbc golden'
// commands that write them again) and, when asked, coverage.json.
#pragma once

#include <string>

#include "framework/IPBase.h"
#include "image/Frame.h"

class Compression1x8;
class RegisterTable;

namespace fbc::cli {

struct TestCase {
  int index = 0;
  unsigned int seed = 0;
  bool enabled = false;
  int width = 0;
  int height = 0;
  int cfa = 0;
  std::string source;  // "generated" or "crop of NAME at (x, y)"
  std::string origin;  // what drew the test, first words of run.sh's comment
};

// A synthetic 12-bit picture made to reach every mode, drawn from the library's generator.
Frame generatePicture(int width, int height);

// Writes DIR/test_NNNN for `t`: the registers of `drawn`, the input, the golden files of
// global.frameCount frames and run.sh (`registersPath`: the absolute path of a --registers map,
// empty for the built-in one), and coverage.json when `coverage`. The folder is built aside and
// appears complete.
void writeTest(const std::string& outdir, const TestCase& t, Compression1x8& drawn,
               RegisterTable& regs, Frame& input, TGlobalParam& global,
               const std::string& registersPath, bool coverage);

}  // namespace fbc::cli
