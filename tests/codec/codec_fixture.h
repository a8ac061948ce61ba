#pragma once

#include <gtest/gtest.h>

#include "codec/Compression1x8.h"

// A codec with the register defaults, enabled, as the library entry sets it up.
class CodecTest : public ::testing::Test {
 protected:
  CodecTest() : codec("FBC", false) {
    codec.setSWinit();
    codec.setEnable(true);
  }

  // Costs of every mode, then the block statistics the cost functions need.
  void cost(std::initializer_list<int> pixels, bool parity = false) {
    std::copy(pixels.begin(), pixels.end(), block);
    codec.EncodeCalculateSAD(block, parity);
  }

  std::vector<int> decode(fbc::BlockCode code) {
    std::vector<int> out(8);
    codec.decodeBlock(code, out.data());
    return out;
  }

  Compression1x8 codec;
  int block[8] = {};
};
