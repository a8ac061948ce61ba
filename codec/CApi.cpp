// The C interface of <fbc/fbc.h> over the codec block: every call validates its arguments
// before touching anything, so a failed call leaves the registers and the outputs as they were.
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"
#include "config/IniAccess.h"
#include "config/IniFileIO.h"
#include "config/IniText.h"
#include "fbc/fbc.h"
#include "framework/RegisterTable.h"

#ifndef FBC_VERSION_STRING
#define FBC_VERSION_STRING "0.0.0"
#endif

struct fbc_codec {
  // Decoding records the block's mode in the working state, so const calls may touch it.
  mutable Compression1x8 codec{"FBC", false};
  std::int32_t frameIndex = 0;
  mutable std::string error;
};

namespace {

using fbc::BlockCode;

// One parameter as the C interface names it: the key, and every field of the block bound to it
// (the tone-curve point keys are bound twice), as byte offsets into the codec object.
struct Param {
  std::string section;
  std::string key;
  int count = 0;
  const TParamInfo* info = nullptr;
  std::vector<std::ptrdiff_t> fields;
  int topBit[32] = {};  // per element: the highest element bit any register holds, -1: none
};

// Where one register bit comes from: bit `bit` of element `element` of parameter `param`.
struct RegisterBit {
  int regBit;
  int param;
  int element;
  int bit;
};

// The builtin register map and the block's parameters, with the composition's bit mapping
// found once by probing: setting one element bit at a time and watching which register bit
// follows. Writing a register is then that mapping read backwards, so it inverts the
// composition by construction.
struct Layout {
  RegisterTable table;
  std::vector<Param> params;
  std::map<std::uint32_t, std::vector<RegisterBit>> registers;

  Layout();
  const Param* find(const char* key) const {
    for (const Param& p : params)
      if (p.key == key) return &p;
    return nullptr;
  }
};

int* field(Compression1x8& c, std::ptrdiff_t offset) {
  return reinterpret_cast<int*>(reinterpret_cast<char*>(&c) + offset);
}

std::map<int, int> compose(Compression1x8& c, RegisterTable& table) {
  std::map<int, int> values;
  std::vector<std::string> errors;
  c.getRegisterValue(table, values, errors);
  return values;
}

Layout::Layout() {
  std::string error;
  if (!fbc::loadBuiltinRegisterTable(table, error))
    throw std::runtime_error("built-in register table: " + error);
  Compression1x8 probe("FBC", false);
  for (const auto& [var, v] : probe.bindings()) {
    if (v.size != 4 || v.count < 1 || v.count > 32)
      throw std::logic_error("unexpected binding " + v.name.second);
    const std::ptrdiff_t offset = static_cast<char*>(var) - reinterpret_cast<char*>(&probe);
    Param* p = nullptr;
    for (Param& q : params)
      if (q.section == v.name.first && q.key == v.name.second) p = &q;
    if (p == nullptr) {
      const int index = table.lookupParam(v.name.first, v.name.second);
      if (index < 0) throw std::logic_error("no register table entry for " + v.name.second);
      params.push_back(Param{v.name.first, v.name.second, v.count, &table.getEntry(index), {}, {}});
      p = &params.back();
    }
    p->fields.push_back(offset);
  }
  for (Param& p : params) std::fill(std::begin(p.topBit), std::end(p.topBit), -1);
  for (const Param& p : params)
    for (std::ptrdiff_t f : p.fields) std::fill(field(probe, f), field(probe, f) + p.count, 0);
  const std::map<int, int> zero = compose(probe, table);
  for (const auto& [address, value] : zero) registers[static_cast<std::uint32_t>(address)];
  for (int pi = 0; pi < static_cast<int>(params.size()); ++pi) {
    Param& p = params[static_cast<std::size_t>(pi)];
    for (int e = 0; e < p.count; ++e) {
      for (int bit = 0; bit < 32; ++bit) {
        for (std::ptrdiff_t f : p.fields) field(probe, f)[e] = static_cast<int>(1u << bit);
        for (const auto& [address, value] : compose(probe, table)) {
          const int diff = value ^ zero.at(address);
          for (int r = 0; r < 16; ++r) {
            if (((diff >> r) & 1) == 0) continue;
            registers[static_cast<std::uint32_t>(address)].push_back(RegisterBit{r, pi, e, bit});
            if (bit > p.topBit[e]) p.topBit[e] = bit;
          }
        }
        for (std::ptrdiff_t f : p.fields) field(probe, f)[e] = 0;
      }
    }
  }
}

const Layout& layout() {
  static const Layout instance;
  return instance;
}

RegisterTable& table() {
  return const_cast<RegisterTable&>(layout().table);
}

int fail(const fbc_codec* c, int code, const std::string& message) {
  c->error = message;
  return code;
}

void resetCodec(Compression1x8& codec) {
  codec.setSWinit();
  codec.setEnable(true);
}

// Checks a whole value for `p` without storing it: the element count and every element's range.
int checkValues(const fbc_codec* c, const Param& p, const std::vector<long long>& values) {
  if (static_cast<int>(values.size()) != p.count) {
    return fail(c, FBC_ERR_VALUE,
                "parameter \"" + p.key + "\" has " + std::to_string(values.size()) + " value" +
                    (values.size() == 1 ? "" : "s") + ", expected " + std::to_string(p.count));
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    // Hexadecimal elements are 32-bit patterns.
    const long long v = static_cast<std::int32_t>(static_cast<std::uint32_t>(values[i]));
    if (v < p.info->minVal || v > p.info->maxVal) {
      return fail(c, FBC_ERR_VALUE,
                  "parameter \"" + p.key + "\"" +
                      (p.count > 1 ? " element " + std::to_string(i) : "") + ": " +
                      std::to_string(v) + " is not in [" + std::to_string(p.info->minVal) + ", " +
                      std::to_string(p.info->maxVal) + "]");
    }
  }
  return FBC_OK;
}

int parseValue(const fbc_codec* c, const Param& p, const char* text,
               std::vector<long long>& values) {
  std::string error;
  // A scalar is read with base detection, which knows "0X"; array elements only "0x".
  if (!fbc::parseIntegerList(text, p.count == 1, values, error)) {
    return fail(c, FBC_ERR_VALUE, "parameter \"" + p.key + "\": " + error);
  }
  return checkValues(c, p, values);
}

void store(Compression1x8& codec, const Param& p, const std::vector<long long>& values) {
  for (std::ptrdiff_t f : p.fields)
    for (int i = 0; i < p.count; ++i)
      field(codec, f)[i] = static_cast<std::int32_t>(
          static_cast<std::uint32_t>(values[static_cast<std::size_t>(i)]));
}

std::string lowerCase(std::string s) {
  for (char& ch : s) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  return s;
}

// The sections a parameter file may hold: the block's, and those of other blocks in a file they
// share, but no case variant of the block's, which the readers would take for the block's own
// while the loader's existence test would not.
std::vector<std::string> allowedSections(const std::string& text) {
  std::vector<std::string> allowed;
  for (const Param& p : layout().params)
    if (std::find(allowed.begin(), allowed.end(), p.section) == allowed.end())
      allowed.push_back(p.section);
  const std::size_t own = allowed.size();
  for (const IniLineInfo& line : ini_lines(text)) {
    if (line.kind != IniLineKind::Section) continue;
    bool variant = false;
    for (std::size_t i = 0; i < own; ++i)
      variant = variant || lowerCase(allowed[i]) == lowerCase(line.name);
    if (!variant && std::find(allowed.begin(), allowed.end(), line.name) == allowed.end())
      allowed.push_back(line.name);
  }
  return allowed;
}

// The block's own loader over `ini`, on a copy that replaces the registers only when the loader
// finds nothing beyond keys the text leaves out (they keep their values).
int loadThroughBlock(fbc_codec* c, IniFileIO& ini, const std::string& where) {
  Compression1x8 scratch("FBC", false);
  scratch.copyRegistersFrom(c->codec);
  std::vector<ParamProblem> problems;
  scratch.loadParamReport(ini, table(), problems);
  for (const ParamProblem& p : problems) {
    if (p.kind != ParamProblem::Kind::NotInIni)
      return fail(c, FBC_ERR_VALUE, where + paramProblemText(p));
  }
  c->codec.copyRegistersFrom(scratch);
  return FBC_OK;
}

int loadParams(fbc_codec* c, const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0)
    return fail(c, FBC_ERR_FILE, path + ": cannot open: " + std::strerror(errno));
  if (!S_ISREG(st.st_mode)) return fail(c, FBC_ERR_FILE, path + ": not a regular file");
  std::string text;
  {
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return fail(c, FBC_ERR_FILE, path + ": cannot open: " + std::strerror(errno));
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) text.append(buffer, n);
    const bool bad = std::ferror(f) != 0;
    const int readErrno = errno;
    std::fclose(f);
    if (bad) return fail(c, FBC_ERR_FILE, path + ": cannot read: " + std::strerror(readErrno));
  }
  fbc::TextProblem problem = fbc::checkText(text, INI_BUFFERSIZE - 1);
  if (problem.reason.empty()) problem = fbc::checkIniStructure(text, allowedSections(text));
  if (!problem.reason.empty()) {
    return fail(c, FBC_ERR_FILE, path + ":" + std::to_string(problem.line) + ": " + problem.reason);
  }
  IniFileIO ini = IniFileIO::fromText(path, text);
  if (!ini.isSectionExist(c->codec.getName().c_str())) {
    return fail(c, FBC_ERR_FILE, path + ": no section [" + c->codec.getName() + "] for the block");
  }
  // Keys in the block's sections, in file order: each names a parameter and holds exactly its
  // integers.
  std::vector<long long> values;
  std::string section;
  bool blockSection = false;
  for (const IniLineInfo& line : ini_lines(text)) {
    if (line.kind == IniLineKind::Section) {
      section = line.name;
      blockSection = false;
      for (const Param& p : layout().params) blockSection = blockSection || p.section == section;
    }
    if (line.kind != IniLineKind::Key || !blockSection) continue;
    const std::string at = path + ":" + std::to_string(line.number) + ": ";
    const Param* p = layout().find(line.name.c_str());
    if (p == nullptr || p->section != section) {
      return fail(c, FBC_ERR_KEY,
                  at + "unknown parameter \"" + section + "/" + fbc::printable(line.name) + "\"");
    }
    std::string raw;
    ini.getVariable(section.c_str(), line.name.c_str(), raw, "");
    if (const int rc = parseValue(c, *p, raw.c_str(), values); rc != FBC_OK) {
      c->error = at + c->error;
      return rc;
    }
  }
  return loadThroughBlock(c, ini, path + ": ");
}

// Limits for a frame call's buffers: `rowLength` elements per row at `stride` elements apart,
// `height` rows, all addressable in ptrdiff_t bytes.
bool sizesFit(std::ptrdiff_t stride, std::ptrdiff_t rowLength, int height, std::size_t elementBytes,
              bool output) {
  if (stride == PTRDIFF_MIN) return false;
  const std::ptrdiff_t magnitude = stride < 0 ? -stride : stride;
  if (output && magnitude < rowLength) return false;
  const std::ptrdiff_t limit = PTRDIFF_MAX / static_cast<std::ptrdiff_t>(elementBytes);
  if (rowLength > limit) return false;
  return height <= 1 || magnitude == 0 || (height - 1) <= (limit - rowLength) / magnitude;
}

int checkFrame(const fbc_codec* c, const void* in, const void* out, int width, int height) {
  if (in == nullptr || out == nullptr) return fail(c, FBC_ERR_NULL, "null buffer");
  if (width < 0 || height < 0) {
    return fail(c, FBC_ERR_SIZE,
                "negative size " + std::to_string(width) + "x" + std::to_string(height));
  }
  if (width > INT_MAX - 7)
    return fail(c, FBC_ERR_SIZE, "width " + std::to_string(width) + " too large");
  if (c->codec.Enable == 0) {
    return fail(c, FBC_ERR_STATE,
                "the block is disabled (reg_fbc_en=0): frames would pass through uncoded");
  }
  return FBC_OK;
}

template <class F>
int guarded(const fbc_codec* c, F f) {
  try {
    return f();
  } catch (const std::bad_alloc&) {
    return fail(c, FBC_ERR_NOMEM, "out of memory");
  }
}

}  // namespace

extern "C" {

const char* fbc_version(void) {
  return FBC_VERSION_STRING;
}

fbc_codec* fbc_new(void) {
  try {
    layout();
    fbc_codec* c = new fbc_codec;
    resetCodec(c->codec);
    return c;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

fbc_codec* fbc_clone(const fbc_codec* c) {
  if (c == nullptr) return nullptr;
  try {
    fbc_codec* copy = new fbc_codec;
    copy->codec.copyRegistersFrom(c->codec);
    copy->frameIndex = c->frameIndex;
    copy->codec.Threads = c->codec.Threads;
    return copy;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void fbc_free(fbc_codec* c) {
  delete c;
}

const char* fbc_error(const fbc_codec* c) {
  return c == nullptr ? "null codec" : c->error.c_str();
}

int fbc_reset(fbc_codec* c) {
  if (c == nullptr) return FBC_ERR_NULL;
  resetCodec(c->codec);
  c->frameIndex = 0;
  return FBC_OK;
}

int fbc_load_params(fbc_codec* c, const char* ini_path) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (ini_path == nullptr) return fail(c, FBC_ERR_NULL, "null parameter file name");
  return guarded(c, [&] { return loadParams(c, ini_path); });
}

int fbc_set(fbc_codec* c, const char* key, const char* value) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (key == nullptr || value == nullptr) return fail(c, FBC_ERR_NULL, "null key or value");
  return guarded(c, [&] {
    const Param* p = layout().find(key);
    if (p == nullptr) return fail(c, FBC_ERR_KEY, std::string("unknown parameter \"") + key + "\"");
    std::vector<long long> values;
    if (const int rc = parseValue(c, *p, value, values); rc != FBC_OK) return rc;
    // The value goes through the reader of a parameter file: a one-key text.
    std::string text;
    ini_puts(p->section.c_str(), p->key.c_str(), value, IniText{&text});
    IniFileIO ini = IniFileIO::fromText("fbc_set", std::move(text));
    return loadThroughBlock(c, ini, "");
  });
}

int fbc_get(const fbc_codec* c, const char* key, int32_t* values, size_t capacity, size_t* count) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (key == nullptr || count == nullptr) return fail(c, FBC_ERR_NULL, "null key or count");
  const Param* p = layout().find(key);
  if (p == nullptr) return fail(c, FBC_ERR_KEY, std::string("unknown parameter \"") + key + "\"");
  const std::size_t n = static_cast<std::size_t>(p->count);
  if (values != nullptr && capacity < n) {
    return fail(c, FBC_ERR_SIZE,
                "parameter \"" + p->key + "\" has " + std::to_string(n) + " values, room for " +
                    std::to_string(capacity));
  }
  if (values == nullptr && capacity != 0)
    return fail(c, FBC_ERR_NULL, "null values with a capacity");
  if (values != nullptr)
    std::memcpy(values, field(c->codec, p->fields.front()), sizeof(int32_t) * n);
  *count = n;
  return FBC_OK;
}

const char* fbc_param_key(size_t index) {
  const std::vector<Param>& params = layout().params;
  return index < params.size() ? params[index].key.c_str() : nullptr;
}

int fbc_write_register(fbc_codec* c, uint32_t address, uint16_t value) {
  if (c == nullptr) return FBC_ERR_NULL;
  const Layout& l = layout();
  const auto reg = l.registers.find(address);
  if (reg == l.registers.end()) {
    char text[64];
    std::snprintf(text, sizeof text, "register 0x%04x is not mapped",
                  static_cast<unsigned>(address));
    return fail(c, FBC_ERR_ADDRESS, text);
  }
  // The new values of the touched parameters, checked in full before any is stored.
  std::map<int, std::vector<long long>> touched;
  for (const RegisterBit& b : reg->second) {
    const Param& p = l.params[static_cast<std::size_t>(b.param)];
    auto [it, fresh] = touched.try_emplace(b.param);
    if (fresh) {
      const int* current = field(c->codec, p.fields.front());
      it->second.assign(current, current + p.count);
    }
    std::uint32_t v = static_cast<std::uint32_t>(it->second[static_cast<std::size_t>(b.element)]);
    v = (v & ~(1u << b.bit)) | (static_cast<std::uint32_t>((value >> b.regBit) & 1) << b.bit);
    it->second[static_cast<std::size_t>(b.element)] = static_cast<std::int32_t>(v);
  }
  for (auto& [index, values] : touched) {
    const Param& p = l.params[static_cast<std::size_t>(index)];
    for (int e = 0; e < p.count; ++e) {
      // Bits above the field: the sign for a signed parameter, else zero.
      const int top = p.topBit[e];
      if (top < 0 || top >= 31) continue;
      const std::uint32_t u = static_cast<std::uint32_t>(values[static_cast<std::size_t>(e)]);
      const std::uint32_t above = ~((2u << top) - 1u);
      const bool negative = p.info->minVal < 0 && ((u >> top) & 1) != 0;
      values[static_cast<std::size_t>(e)] =
          static_cast<std::int32_t>(negative ? (u | above) : (u & ~above));
    }
    if (const int rc = checkValues(c, p, values); rc != FBC_OK) return rc;
  }
  for (const auto& [index, values] : touched)
    store(c->codec, l.params[static_cast<std::size_t>(index)], values);
  return FBC_OK;
}

int fbc_read_register(const fbc_codec* c, uint32_t address, uint16_t* value) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (value == nullptr) return fail(c, FBC_ERR_NULL, "null value");
  return guarded(c, [&] {
    const std::map<int, int> values = compose(c->codec, table());
    const auto it = address <= INT_MAX ? values.find(static_cast<int>(address)) : values.end();
    if (it == values.end()) {
      char text[64];
      std::snprintf(text, sizeof text, "register 0x%04x is not mapped",
                    static_cast<unsigned>(address));
      return fail(c, FBC_ERR_ADDRESS, text);
    }
    *value = static_cast<uint16_t>(it->second & 0xFFFF);
    return FBC_OK;
  });
}

int64_t fbc_register_address(size_t index) {
  const auto& registers = layout().registers;
  if (index >= registers.size()) return -1;
  auto it = registers.begin();
  std::advance(it, static_cast<std::ptrdiff_t>(index));
  return it->first;
}

int fbc_set_threads(fbc_codec* c, int threads) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (threads < 1 || threads > 1024)
    return fail(c, FBC_ERR_VALUE,
                "thread count " + std::to_string(threads) + " is not in [1, 1024]");
  c->codec.Threads = threads;
  return FBC_OK;
}

int fbc_set_frame_index(fbc_codec* c, int32_t frame_index) {
  if (c == nullptr) return FBC_ERR_NULL;
  c->frameIndex = frame_index;
  return FBC_OK;
}

int fbc_encode_block_checked(fbc_codec* c, const uint16_t pixels[8], int parity, uint64_t* code) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (pixels == nullptr || code == nullptr) return fail(c, FBC_ERR_NULL, "null pixels or code");
  int block[8];
  for (int k = 0; k < 8; ++k) {
    if (pixels[k] > 4095) {
      return fail(
          c, FBC_ERR_PIXEL,
          "pixel " + std::to_string(k) + " is " + std::to_string(pixels[k]) + ", above 4095");
    }
    block[k] = pixels[k];
  }
  c->codec.startFrame(8, c->frameIndex);  // a frame one block wide
  *code = c->codec.encodeBlock(block, parity != 0);
  return FBC_OK;
}

uint64_t fbc_encode_block(fbc_codec* c, const uint16_t pixels[8], int parity) {
  uint64_t code = 0;
  return fbc_encode_block_checked(c, pixels, parity, &code) == FBC_OK ? code : 0;
}

void fbc_decode_block(const fbc_codec* c, uint64_t code, uint16_t pixels[8]) {
  if (c == nullptr) return;
  if (pixels == nullptr) {
    fail(c, FBC_ERR_NULL, "null pixels");
    return;
  }
  int px[8];
  c->codec.decodeBlock(code, px);
  for (int k = 0; k < 8; ++k) pixels[k] = static_cast<uint16_t>(px[k]);
}

int fbc_code_mode(const fbc_codec* c, uint64_t code) {
  if (c != nullptr && c->codec.reg_curve_mode_en != 0) return fbc::kModeCurve;
  return fbc::modeOfCode(code);
}

int fbc_encode_frame(fbc_codec* c, const uint16_t* pixels, ptrdiff_t pixel_stride, int width,
                     int height, int cfa, int frame_index, uint8_t* codes, ptrdiff_t code_stride) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (const int rc = checkFrame(c, pixels, codes, width, height); rc != FBC_OK) return rc;
  const std::ptrdiff_t padded = (static_cast<std::ptrdiff_t>(width) + 7) & ~std::ptrdiff_t{7};
  if (!sizesFit(pixel_stride, width, height, sizeof(uint16_t), false) ||
      !sizesFit(code_stride, padded, height, 1, true)) {
    return fail(c, FBC_ERR_SIZE,
                "strides " + std::to_string(pixel_stride) + " and " + std::to_string(code_stride) +
                    " do not fit a " + std::to_string(width) + "x" + std::to_string(height) +
                    " frame");
  }
  if (cfa < 0 || cfa > 3)
    return fail(c, FBC_ERR_VALUE, "CFA layout " + std::to_string(cfa) + " is not in [0, 3]");
  if (width == 0 || height == 0) return FBC_OK;
  for (int y = 0; y < height; ++y) {
    const uint16_t* row = pixels + y * pixel_stride;
    uint16_t largest = 0;
    for (int x = 0; x < width; ++x) largest = row[x] > largest ? row[x] : largest;
    if (largest <= 4095) continue;
    for (int x = 0; x < width; ++x) {
      if (row[x] > 4095) {
        return fail(c, FBC_ERR_PIXEL,
                    "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") is " +
                        std::to_string(row[x]) + ", above 4095");
      }
    }
  }
  return guarded(c, [&] {
    c->codec.startFrame(width, frame_index);
    c->codec.splitRows(height, [&](Compression1x8& codec, int begin, int end) {
      std::vector<int> row(static_cast<std::size_t>(width));
      std::vector<BlockCode> blocks(static_cast<std::size_t>(padded / 8));
      fbc::FastEncoder encoder(codec, fbc::activeVariant());
      for (int y = begin; y < end; ++y) {
        const uint16_t* src = pixels + y * pixel_stride;
        for (int x = 0; x < width; ++x) row[static_cast<std::size_t>(x)] = src[x];
        encoder.encodeRow(row.data(), width, Compression1x8::rowParity(y, cfa), blocks.data());
        uint8_t* dst = codes + y * code_stride;
        for (std::size_t b = 0; b < blocks.size(); ++b)
          for (int k = 0; k < 8; ++k)
            dst[8 * b + static_cast<std::size_t>(k)] = static_cast<uint8_t>(blocks[b] >> (8 * k));
      }
    });
    return FBC_OK;
  });
}

int fbc_decode_frame(const fbc_codec* c, const uint8_t* codes, ptrdiff_t code_stride, int width,
                     int height, uint16_t* pixels, ptrdiff_t pixel_stride) {
  if (c == nullptr) return FBC_ERR_NULL;
  if (const int rc = checkFrame(c, codes, pixels, width, height); rc != FBC_OK) return rc;
  const std::ptrdiff_t padded = (static_cast<std::ptrdiff_t>(width) + 7) & ~std::ptrdiff_t{7};
  if (!sizesFit(code_stride, padded, height, 1, false) ||
      !sizesFit(pixel_stride, width, height, sizeof(uint16_t), true)) {
    return fail(c, FBC_ERR_SIZE,
                "strides " + std::to_string(code_stride) + " and " + std::to_string(pixel_stride) +
                    " do not fit a " + std::to_string(width) + "x" + std::to_string(height) +
                    " frame");
  }
  if (width == 0 || height == 0) return FBC_OK;
  return guarded(c, [&] {
    c->codec.splitRows(height, [&](Compression1x8& codec, int begin, int end) {
      fbc::FastDecoder decoder(codec, fbc::activeVariant());
      for (int y = begin; y < end; ++y) {
        // The decoder writes pixels as the host entry returns them, shifted left by 4.
        uint16_t* dst = pixels + y * pixel_stride;
        decoder.decodeRow(codes + y * code_stride, width, dst);
        for (int x = 0; x < width; ++x) dst[x] = static_cast<uint16_t>(dst[x] >> 4);
      }
    });
    return FBC_OK;
  });
}

}  // extern "C"
