// The C interface, through libfbc.so itself: register writes invert the composition `fbc regs`
// prints, frames match the tool byte for byte, block calls match frame calls, and every failure
// leaves the codec and the outputs as they were.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fbc/fbc.h"
#include "framework/RegisterTable.h"
#include "tests/TestFiles.h"

namespace {

using fbc::test::TempDir;
using Codec = std::unique_ptr<fbc_codec, void (*)(fbc_codec*)>;

Codec makeCodec() {
  return Codec(fbc_new(), fbc_free);
}

std::string run(const std::string& command) {
  std::string out;
  if (std::FILE* p = popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0) out.append(buffer, n);
    if (pclose(p) != 0) out = "failed: " + command;
  }
  return out;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<int32_t> get(const fbc_codec* c, const char* key) {
  size_t count = 0;
  int32_t values[32];
  EXPECT_EQ(fbc_get(c, key, values, 32, &count), FBC_OK) << key;
  return std::vector<int32_t>(values, values + count);
}

// Every parameter and every register: what a failed call must leave alone.
std::string snapshot(const fbc_codec* c) {
  std::ostringstream s;
  for (size_t i = 0; fbc_param_key(i) != nullptr; ++i) {
    s << fbc_param_key(i) << '=';
    for (int32_t v : get(c, fbc_param_key(i))) s << v << ',';
    s << '\n';
  }
  int64_t address;
  for (size_t i = 0; (address = fbc_register_address(i)) >= 0; ++i) {
    uint16_t value = 0;
    EXPECT_EQ(fbc_read_register(c, static_cast<uint32_t>(address), &value), FBC_OK);
    s << address << ':' << value << '\n';
  }
  return s.str();
}

// A parameter file with every register-backed parameter drawn from its range.
std::string randomParams(std::mt19937& rng) {
  RegisterTable table;
  std::string error;
  EXPECT_TRUE(fbc::loadBuiltinRegisterTable(table, error)) << error;
  const Codec probe = makeCodec();
  std::map<std::string, std::string> sections;
  for (const TParamInfo& p : table.entries()) {
    if (p.regs.empty()) continue;  // a software switch, not a register
    size_t count = 0;
    EXPECT_EQ(fbc_get(probe.get(), p.key.c_str(), nullptr, 0, &count), FBC_OK) << p.key;
    std::string line = p.key + "=";
    for (size_t i = 0; i < count; ++i) {
      line += (i ? "," : "") +
              std::to_string(std::uniform_int_distribution<int>(p.minVal, p.maxVal)(rng));
    }
    sections[p.section] += line + "\n";
  }
  std::string text;
  for (const auto& [section, lines] : sections) text += "[" + section + "]\n" + lines;
  return text;
}

TEST(CApiRegisters, WritingWhatFbcRegsListsReproducesTheParameterFile) {
  const TempDir dir;
  std::mt19937 rng(20261123);
  for (int round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    const std::string file = dir.file("p.ini"), other = dir.file("q.ini");
    std::ofstream(file) << randomParams(rng);
    std::ofstream(other) << randomParams(rng);
    const Codec loaded = makeCodec(), written = makeCodec();
    ASSERT_EQ(fbc_load_params(loaded.get(), file.c_str()), FBC_OK) << fbc_error(loaded.get());
    // Start from another random set, so every bit must be written, zeros included.
    ASSERT_EQ(fbc_load_params(written.get(), other.c_str()), FBC_OK) << fbc_error(written.get());
    std::istringstream lines(run("'" FBC_TOOL "' regs '" + file + "'"));
    int registers = 0;
    for (unsigned address, value; lines >> std::hex >> address >> value; ++registers) {
      ASSERT_EQ(fbc_write_register(written.get(), address, static_cast<uint16_t>(value)), FBC_OK)
          << fbc_error(written.get());
      uint16_t back = 0;
      ASSERT_EQ(fbc_read_register(written.get(), address, &back), FBC_OK);
      EXPECT_EQ(back, value) << std::hex << address;
    }
    EXPECT_EQ(registers,
              65);  // 0x00..0x09, 0x10..0x1e, 0x20..0x27, 0x30..0x3f, 0x40..0x4f: 10+15+8+16+16
    EXPECT_EQ(snapshot(written.get()), snapshot(loaded.get()));
  }
}

struct FieldCase {
  uint32_t address;
  uint16_t value;
  uint16_t readBack;  // bits no field occupies read as 0
  const char* key;
  std::vector<int32_t> expected;  // the parameter's first elements after the write
};

TEST(CApiRegisters, FieldsTakeTheirBits) {
  const FieldCase cases[] = {
      // Signed 16-bit slopes sign-extend: 0x8000 is -32768, 0xffff is -1.
      {0x0030, 0x8000, 0x8000, "reg_comp_lut_slope", {-32768, 819}},
      {0x0041, 0xFFFF, 0xFFFF, "reg_uncomp_lut_slope", {256, -1, 4274}},
      // A 12-bit field: the top nibble is not the register's.
      {0x0002, 0xF123, 0x0123, "reg_compress_edgefisrt_finalth", {0x123}},
      // Four 4-bit elements per register, element 0 lowest: 0xa5c3 -> 3, 12, 5, 10.
      {0x0007, 0xA5C3, 0xA5C3, "reg_mode_definition", {3, 12, 5, 10, 4}},
      // Elements 8..10 in the third register; bits 12..15 free.
      {0x0009, 0xF321, 0x0321, "reg_mode_definition", {0, 1, 2, 3, 4, 5, 6, 7, 1, 2, 3}},
      // Two 8-bit curve points: both curves bound to the key take them, so the composition
      // (where the decompression curve's field is written last) reads them back.
      {0x0020, 0x1234, 0x1234, "reg_comp_lut_out", {0x34, 0x12, 220}},
      // The control register: eleven one- and two-bit switches, five free bits.
      {0x0001, 0xFFFF, 0x07FF, "reg_tr_ext_rb", {1}},
      {0x0001, 0xFFFF, 0x07FF, "reg_compress_edgefisrt_enable", {3}},
      {0x0000, 0xFFFE, 0x0000, "reg_fbc_en", {0}},
  };
  for (const FieldCase& t : cases) {
    SCOPED_TRACE(std::to_string(t.address) + " " + t.key);
    const Codec c = makeCodec();
    ASSERT_EQ(fbc_write_register(c.get(), t.address, t.value), FBC_OK) << fbc_error(c.get());
    const std::vector<int32_t> values = get(c.get(), t.key);
    EXPECT_EQ(std::vector<int32_t>(values.begin(), values.begin() + t.expected.size()), t.expected);
    uint16_t back = 0;
    EXPECT_EQ(fbc_read_register(c.get(), t.address, &back), FBC_OK);
    EXPECT_EQ(back, t.readBack);
  }
}

// A 12-bit test picture with a short last block per row and every mode in play.
std::vector<uint16_t> picture(int width, int height, ptrdiff_t stride) {
  std::vector<uint16_t> px(static_cast<size_t>(stride) * height, 0xFFFF);
  std::mt19937 rng(7);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int smooth = (x * 97 + y * 31) % 4096, edge = x % 16 < 5 ? 4095 : 0;
      const int pick = static_cast<int>(rng() % 4);
      px[y * stride + x] = static_cast<uint16_t>(pick == 0   ? rng() % 4096
                                                 : pick == 1 ? edge
                                                             : smooth);
    }
  }
  return px;
}

TEST(CApiFrames, MatchTheToolAndTheBlockCalls) {
  const TempDir dir;
  const int width = 37, height = 6, padded = 40, cfa = 1, frameIndex = 3;
  const ptrdiff_t pixelStride = 41, codeStride = 48;  // guard elements past every row
  const std::vector<uint16_t> px = picture(width, height, pixelStride);
  std::string raw;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      raw += static_cast<char>(px[y * pixelStride + x] & 0xFF);
      raw += static_cast<char>(px[y * pixelStride + x] >> 8);
    }
  }
  std::ofstream(dir.file("in.raw"), std::ios::binary) << raw;
  const char* sets[][2] = {
      {"reg_tr_ext_en", "1"}, {"sw_dpcm_swing_en", "1"}, {"reg_dpcm_swing_rounder_en", "1"}};
  std::string options;
  const Codec c = makeCodec();
  for (const auto& s : sets) {
    ASSERT_EQ(fbc_set(c.get(), s[0], s[1]), FBC_OK) << fbc_error(c.get());
    options += std::string(" --set ") + s[0] + "=" + s[1];
  }
  ASSERT_EQ(run("cd '" + dir.path() +
                "' && '" FBC_TOOL "' encode --width 37 --height 6 --cfa 1 --frame-index 3" +
                options + " in.raw out.bin && '" FBC_TOOL "' decode --width 37 --height 6" +
                options + " out.bin dec.raw"),
            "");

  // The rows split among threads, as many as the rows and more: the same bytes every time.
  for (const int threads : {1, 4, 9}) {
    SCOPED_TRACE(threads);
    ASSERT_EQ(fbc_set_threads(c.get(), threads), FBC_OK);
    std::vector<uint8_t> codes(static_cast<size_t>(codeStride) * height, 0xA5);
    ASSERT_EQ(fbc_encode_frame(c.get(), px.data(), pixelStride, width, height, cfa, frameIndex,
                               codes.data(), codeStride),
              FBC_OK)
        << fbc_error(c.get());
    std::string packed;
    for (int y = 0; y < height; ++y) {
      packed.append(reinterpret_cast<const char*>(&codes[y * codeStride]), padded);
      for (int x = padded; x < codeStride; ++x) ASSERT_EQ(codes[y * codeStride + x], 0xA5);
    }
    EXPECT_EQ(packed, readFile(dir.file("out.bin")));

    // Blocks: layout 1 starts with the other colour pair, so even rows have the odd parity.
    ASSERT_EQ(fbc_set_frame_index(c.get(), frameIndex), FBC_OK);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; x += 8) {
        uint16_t block[8] = {};
        for (int k = 0; k < 8 && x + k < width; ++k) block[k] = px[y * pixelStride + x + k];
        uint64_t code = 0;
        std::memcpy(&code, &codes[y * codeStride + x], 8);
        EXPECT_EQ(fbc_encode_block(c.get(), block, y % 2 == 0), code) << x << "," << y;
      }
    }

    std::vector<uint16_t> out(static_cast<size_t>(pixelStride) * height, 0xBEEF);
    ASSERT_EQ(
        fbc_decode_frame(c.get(), codes.data(), codeStride, width, height, out.data(), pixelStride),
        FBC_OK);
    const std::string decoded = readFile(dir.file("dec.raw"));
    ASSERT_EQ(decoded.size(), size_t{2} * width * height);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < pixelStride; ++x) {
        if (x >= width) {
          EXPECT_EQ(out[y * pixelStride + x], 0xBEEF);
          continue;
        }
        const size_t i = 2 * (static_cast<size_t>(y) * width + x);
        const int tool = static_cast<uint8_t>(decoded[i]) | static_cast<uint8_t>(decoded[i + 1])
                                                                << 8;
        ASSERT_EQ(out[y * pixelStride + x] * 16, tool) << x << "," << y;
      }
    }
  }
}

// Separate codecs on separate threads share nothing (ThreadSanitizer watches this in CI).
TEST(CApiThreads, SeparateCodecsGiveTheSingleThreadedResults) {
  const int width = 64, height = 16;
  const std::vector<uint16_t> px = picture(width, height, width);
  const auto work = [&](std::vector<uint8_t>& codes, std::vector<uint16_t>& out) {
    const Codec c = makeCodec();
    codes.assign(size_t{width} * height, 0);
    out.assign(px.size(), 0);
    if (fbc_write_register(c.get(), 0x0001, 0x0201) != FBC_OK ||
        fbc_encode_frame(c.get(), px.data(), width, width, height, 2, 1, codes.data(), width) !=
            FBC_OK ||
        fbc_decode_frame(c.get(), codes.data(), width, width, height, out.data(), width) !=
            FBC_OK) {
      codes.clear();
    }
  };
  std::vector<uint8_t> codes;
  std::vector<uint16_t> out;
  work(codes, out);
  ASSERT_FALSE(codes.empty());
  std::vector<std::vector<uint8_t>> threadCodes(4);
  std::vector<std::vector<uint16_t>> threadOut(4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back(work, std::ref(threadCodes[t]), std::ref(threadOut[t]));
  for (std::thread& t : threads) t.join();
  for (int t = 0; t < 4; ++t) {
    EXPECT_EQ(threadCodes[t], codes);
    EXPECT_EQ(threadOut[t], out);
  }
}

struct FailureCase {
  const char* name;
  int code;
  const char* error;
  std::function<int(fbc_codec*, std::vector<uint8_t>& codes, std::vector<uint16_t>& pixels)> call;
};

TEST(CApiThreads, CountOutOfRangeIsRefused) {
  const Codec c = makeCodec();
  EXPECT_EQ(fbc_set_threads(c.get(), 0), FBC_ERR_VALUE);
  EXPECT_STREQ(fbc_error(c.get()), "thread count 0 is not in [1, 1024]");
  EXPECT_EQ(fbc_set_threads(c.get(), 1025), FBC_ERR_VALUE);
  EXPECT_EQ(fbc_set_threads(nullptr, 2), FBC_ERR_NULL);
}

TEST(CApiFailures, ChangeNothing) {
  const TempDir dir;
  std::ofstream(dir.file("range.ini"))
      << "[FBC]\nreg_tr_ext_en=1\nreg_mode_en=1,1,1,1,1,1,1,1,1,1,2\n";
  std::ofstream(dir.file("unknown.ini")) << "[FBC]\nreg_tr_ext_en=1\nreg_tr_ext_enable=1\n";
  std::ofstream(dir.file("syntax.ini")) << "[FBC]\nreg_tr_ext_en=1\nreg_edge_diffmin_th=12abc\n";
  std::ofstream(dir.file("nosection.ini")) << "[Enable]\nreg_fbc_en=0\n";
  const std::string range = dir.file("range.ini"), unknown = dir.file("unknown.ini"),
                    syntax = dir.file("syntax.ini"), nosection = dir.file("nosection.ini"),
                    missing = dir.file("missing.ini");
  using C = fbc_codec*;
  using B = std::vector<uint8_t>&;
  using P = std::vector<uint16_t>&;
  const FailureCase cases[] = {
      {"unknown key", FBC_ERR_KEY, "unknown parameter \"reg_tr_ext\"",
       [](C c, B, P) { return fbc_set(c, "reg_tr_ext", "1"); }},
      {"out of range", FBC_ERR_VALUE, "\"reg_tr_ext_en\": 2 is not in [0, 1]",
       [](C c, B, P) { return fbc_set(c, "reg_tr_ext_en", "2"); }},
      {"short array", FBC_ERR_VALUE, "has 10 values, expected 11",
       [](C c, B, P) { return fbc_set(c, "reg_mode_en", "0,0,0,0,0,0,0,0,0,0"); }},
      {"not an integer", FBC_ERR_VALUE, "'1x' is not an integer",
       [](C c, B, P) { return fbc_set(c, "reg_tr_ext_en", "1x"); }},
      {"null value", FBC_ERR_NULL, "null",
       [](C c, B, P) { return fbc_set(c, "reg_tr_ext_en", nullptr); }},
      {"unmapped register", FBC_ERR_ADDRESS, "register 0x001f is not mapped",
       [](C c, B, P) { return fbc_write_register(c, 0x1F, 1); }},
      {"file out of range", FBC_ERR_VALUE, "\"reg_mode_en\" element 10: 2 is not in [0, 1]",
       [&](C c, B, P) { return fbc_load_params(c, range.c_str()); }},
      {"file unknown key", FBC_ERR_KEY,
       "unknown.ini:3: unknown parameter \"FBC/reg_tr_ext_enable\"",
       [&](C c, B, P) { return fbc_load_params(c, unknown.c_str()); }},
      {"file syntax", FBC_ERR_VALUE, "'12abc' is not an integer",
       [&](C c, B, P) { return fbc_load_params(c, syntax.c_str()); }},
      {"file without block", FBC_ERR_FILE, "no section [FBC]",
       [&](C c, B, P) { return fbc_load_params(c, nosection.c_str()); }},
      {"missing file", FBC_ERR_FILE, "cannot open",
       [&](C c, B, P) { return fbc_load_params(c, missing.c_str()); }},
      {"last pixel above 4095", FBC_ERR_PIXEL, "pixel (15, 1) is 4096, above 4095",
       [](C c, B codes, P px) {
         return fbc_encode_frame(c, px.data(), 16, 16, 2, 0, 0, codes.data(), 16);
       }},
      {"code stride below the padded row", FBC_ERR_SIZE, "do not fit",
       [](C c, B codes, P px) {
         return fbc_encode_frame(c, px.data(), 16, 9, 2, 0, 0, codes.data(), 15);
       }},
      {"rows past the address space", FBC_ERR_SIZE, "do not fit",
       [](C c, B codes, P px) {
         return fbc_decode_frame(c, codes.data(), PTRDIFF_MAX / 4, 16, 8, px.data(), 16);
       }},
      {"bad CFA", FBC_ERR_VALUE, "CFA layout 4",
       [](C c, B codes, P px) {
         return fbc_encode_frame(c, px.data(), 16, 16, 2, 4, 0, codes.data(), 16);
       }},
      {"negative height", FBC_ERR_SIZE, "negative size",
       [](C c, B codes, P px) {
         return fbc_decode_frame(c, codes.data(), 16, 16, -1, px.data(), 16);
       }},
      {"null pixels", FBC_ERR_NULL, "null",
       [](C c, B codes, P) {
         return fbc_encode_frame(c, nullptr, 16, 16, 2, 0, 0, codes.data(), 16);
       }},
      {"pixel above 4095 in a block", FBC_ERR_PIXEL, "pixel 7 is 65535",
       [](C c, B, P) {
         const uint16_t block[8] = {0, 0, 0, 0, 0, 0, 0, 65535};
         uint64_t code = 7;
         const int rc = fbc_encode_block_checked(c, block, 0, &code);
         return code == 7 && fbc_encode_block(c, block, 0) == 0 ? rc : 0;
       }},
  };
  for (const FailureCase& t : cases) {
    SCOPED_TRACE(t.name);
    const Codec c = makeCodec();
    ASSERT_EQ(fbc_set(c.get(), "reg_edge_diffmin_th", "77"), FBC_OK);
    const std::string before = snapshot(c.get());
    std::vector<uint8_t> codes(32, 0x5A);
    std::vector<uint16_t> px(32, 100);
    px[31] = 4096;
    const std::vector<uint16_t> pixels = px;
    EXPECT_EQ(t.call(c.get(), codes, px), t.code);
    EXPECT_NE(std::string(fbc_error(c.get())).find(t.error), std::string::npos)
        << fbc_error(c.get());
    EXPECT_EQ(snapshot(c.get()), before);
    EXPECT_EQ(codes, std::vector<uint8_t>(32, 0x5A));
    EXPECT_EQ(px, pixels);
  }
}

}  // namespace
