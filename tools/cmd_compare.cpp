// fbc compare: two golden sets (ours and, typically, an RTL dump in the same format), the first
// difference told by file, line, block, field and the expected block's decision trace, then a
// summary of every difference.
#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"
#include "tools/compare.h"
#include "tools/trace_out.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "compare",
    "[--width W] [--cfa N] [--params F] EXPECTED ACTUAL",
    "Compares two golden sets: two directories holding the golden files of 'fbc golden' (every\n"
    "file of EXPECTED must be in ACTUAL under the same name), or two golden files of the same\n"
    "kind. Exit status 0 when identical, 1 when they differ (different line counts are a\n"
    "difference), 2 for bad input (a missing file, a malformed line).\n"
    "For the first difference, in the order the block produces its files (input, raw input,\n"
    "codes, decoder input, decoded): the file, the line, the block as x= y=, expected and\n"
    "actual values; for codes the mode of each and the fields that differ by name, the decoded\n"
    "pixels of both, and the decision trace of the expected block. Then a summary: differing\n"
    "blocks per file and per expected mode, and the first 10 positions.\n"
    "The width comes from --width, else from run.sh beside EXPECTED (as 'fbc random' writes it),\n"
    "else from the raw input when only one width fits it; registers from --params, else\n"
    "params.ini beside EXPECTED, else the defaults, read with the map of --registers, else the\n"
    "one run.sh names, else the built-in map; the Bayer layout from --cfa, else run.sh.",
    {kOptWidth, kOptCfa, kOptParams, kOptRegisters},
    2,
    2};

enum Kind { kComInput, kRaw, kCom, kDecInput, kDec, kKindCount };
const char* const kKindText[kKindCount] = {"block input pixels", "raw input", "block codes",
                                           "decoder input codes", "decoded pixels"};

// Golden file names: <stem>_<kind>_<frame>.<ext>, the longest kind name tried first.
struct Named {
  Kind kind;
  int frame;
};
bool nameKind(const std::string& name, Named& out) {
  static const std::regex re(
      "^(.*?)_(golden_ref_com_input|com_input|golden_ref_com|golden_ref_dec_input|golden_ref_dec)_("
      "[0-9]+)\\.(txt|raw)$");
  std::smatch m;
  if (!std::regex_match(name, m, re)) return false;
  const std::string k = m[2];
  out.kind = k == "golden_ref_com_input"   ? kComInput
             : k == "com_input"            ? kRaw
             : k == "golden_ref_com"       ? kCom
             : k == "golden_ref_dec_input" ? kDecInput
                                           : kDec;
  if ((out.kind == kRaw) != (m[4] == "raw")) return false;
  out.frame = std::stoi(m[3].str().substr(0, 9));
  return true;
}

// The kind of a file whose name says nothing, from its first line's shape.
Kind kindFromContent(const std::string& first) {
  if (first.size() == 16) return kCom;
  if (first.size() == 24) return kDec;
  if (first.size() == 31) return kComInput;
  return kDecInput;
}

std::vector<std::string> readLines(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) inputError(path + ": cannot open");
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<unsigned char> readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) inputError(path + ": cannot open");
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), {});
}

// Parses `count` groups of `digits` hex digits separated by `sep` (0: none); false if malformed.
bool parseHex(const std::string& s, int count, int digits, char sep,
              std::vector<std::uint64_t>& out) {
  const std::size_t want = static_cast<std::size_t>(count * digits + (sep ? count - 1 : 0));
  if (s.size() != want) return false;
  out.clear();
  std::size_t i = 0;
  for (int g = 0; g < count; ++g) {
    std::uint64_t v = 0;
    for (int d = 0; d < digits; ++d, ++i) {
      const char c = s[i];
      if (!std::isxdigit(static_cast<unsigned char>(c)) ||
          std::isupper(static_cast<unsigned char>(c)))
        return false;
      v = v * 16 + static_cast<std::uint64_t>(
                       std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : c - 'a' + 10);
    }
    out.push_back(v);
    if (sep && g + 1 < count) {
      if (s[i] != sep) return false;
      ++i;
    }
  }
  return true;
}

const char* const kFormat[kKindCount] = {"8 groups of 3 hex digits joined by '_'", "",
                                         "16 hex digits", "8 groups of 2 hex digits joined by '_'",
                                         "24 hex digits"};

// A text golden file, every line checked.
struct TextFile {
  Kind kind;
  std::vector<std::vector<std::uint64_t>> values;  // per line, as written (pixel 7 / byte 7 first)
};
TextFile readText(const std::string& path, Kind kind) {
  TextFile f{kind, {}};
  const std::vector<std::string> lines = readLines(path);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    std::vector<std::uint64_t> v;
    const bool ok = kind == kComInput   ? parseHex(lines[i], 8, 3, '_', v)
                    : kind == kCom      ? parseHex(lines[i], 1, 16, 0, v)
                    : kind == kDecInput ? parseHex(lines[i], 8, 2, '_', v)
                                        : parseHex(lines[i], 2, 12, 0, v);
    if (!ok)
      inputError(path + ":" + std::to_string(i + 1) + ": malformed line, expected " +
                 kFormat[kind]);
    f.values.push_back(v);
  }
  return f;
}

BlockCode codeOf(const TextFile& f, std::size_t line) {
  const std::vector<std::uint64_t>& v = f.values[line];
  if (f.kind == kCom) return v[0];
  BlockCode c = 0;
  for (std::uint64_t b : v) c = (c << 8) | b;
  return c;
}

// The 12-bit samples of a decoded-frame word, lowest bits first.
std::array<int, 8> samplesOf(const std::vector<std::uint64_t>& word) {
  std::array<int, 8> s{};
  // The line's 24 digits were read as two 48-bit halves, the high half first.
  for (int i = 0; i < 8; ++i)
    s[static_cast<std::size_t>(i)] =
        static_cast<int>((word[i < 4 ? 1 : 0] >> (12 * (i & 3))) & 0xFFF);
  return s;
}

// One pair of files to compare.
struct Pair {
  std::string name, expected, actual;
  Kind kind;
  int frame;
};

// What lies beside the expected files: width, layout, registers, and the expected frame's
// input pixels and codes for positions, modes and traces.
struct Context {
  int width = 0;  // 0: unknown
  std::string widthFrom;
  int cfa = 0;
  std::string regsFrom = "defaults";
  Compression1x8 codec{"FBC", false};
  std::map<int, TextFile> inputs, codes;  // by frame
};

std::string fileText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

int optionIn(const std::string& text, const char* option, int fallback) {
  std::smatch m;
  if (std::regex_search(text, m, std::regex(std::string(option) + "[ =]([0-9]+)")))
    return std::stoi(m[1].str().substr(0, 9));
  return fallback;
}

// The register map run.sh passes to fbc golden ("--registers 'PATH'", quoted for the shell as
// 'fbc random' writes it); empty when it passes none.
std::string registersIn(const std::string& text) {
  std::smatch m;
  if (!std::regex_search(text, m, std::regex("--registers '((?:[^']|'\\\\'')*)'"))) return {};
  return std::regex_replace(m[1].str(), std::regex("'\\\\''"), "'");
}

// Widths that fit a raw input of `bytes` bytes and a block-input file: every row of the raw
// input appears in the file's lines, padded with zeros to whole blocks.
int inferWidth(const std::vector<unsigned char>& raw, const TextFile& input) {
  const std::size_t pixels = raw.size() / 2;
  int found = 0;
  for (std::size_t w = 1; w <= pixels && w <= 65536; ++w) {
    if (pixels % w) continue;
    const std::size_t h = pixels / w, bpr = (w + 7) / 8;
    if (h * bpr != input.values.size()) continue;
    bool fits = true;
    for (std::size_t l = 0; l < input.values.size() && fits; ++l) {
      const std::size_t y = l / bpr, x0 = 8 * (l % bpr);
      for (std::size_t k = 0; k < 8 && fits; ++k) {
        const std::uint64_t v = input.values[l][7 - k];
        const std::uint64_t want =
            x0 + k < w ? raw[2 * (y * w + x0 + k)] | (raw[2 * (y * w + x0 + k) + 1] << 8) : 0;
        fits = v == want;
      }
    }
    if (fits) {
      if (found) return 0;  // ambiguous
      found = static_cast<int>(w);
    }
  }
  return found;
}

struct Diff {
  std::size_t line;  // 0-based line (block) or byte offset for the raw input
};

std::string position(const Context& c, Kind kind, std::size_t line) {
  if (c.width == 0)
    return kind == kRaw ? "byte " + std::to_string(line) : "block " + std::to_string(line);
  const std::size_t bpr = (static_cast<std::size_t>(c.width) + 7) / 8;
  if (kind == kRaw) {
    const std::size_t px = line / 2;
    return "x=" + std::to_string(px % c.width) + " y=" + std::to_string(px / c.width);
  }
  return "x=" + std::to_string(8 * (line % bpr)) + " y=" + std::to_string(line / bpr);
}

// The block (line of the per-block files) a difference belongs to.
std::size_t blockOf(const Context& c, Kind kind, std::size_t line) {
  if (kind != kRaw) return line;
  if (c.width == 0) return static_cast<std::size_t>(-1);
  const std::size_t px = line / 2, bpr = (static_cast<std::size_t>(c.width) + 7) / 8;
  return (px / c.width) * bpr + (px % c.width) / 8;
}

std::string joinInts(const int* v, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += (i ? " " : "") + std::to_string(v[i]);
  return s;
}

std::string hex(std::uint64_t v, int digits) {
  char b[24];
  std::snprintf(b, sizeof b, "0x%0*llx", digits, static_cast<unsigned long long>(v));
  return b;
}

void describeCodes(std::ostream& o, Context& c, BlockCode e, BlockCode a) {
  const int me = decodedMode(c.codec, e), ma = decodedMode(c.codec, a);
  o << "  expected " << hexCode(e) << "  " << kModeNames[me] << '\n';
  o << "  actual   " << hexCode(a) << "  " << kModeNames[ma] << '\n';
  if (me != ma) {
    o << "  the modes differ: expected " << kModeNames[me] << ", actual " << kModeNames[ma] << '\n';
    o << "  expected fields  " << fieldsText(c.codec, e) << '\n';
    o << "  actual fields    " << fieldsText(c.codec, a) << '\n';
  } else {
    CodeField f[kMaxCodeFields];
    const int n = codeFields(e, me, f);
    o << "  differing fields:";
    bool layoutMoved = false;
    for (int i = 0; i < n; ++i) {
      if (f[i].value(e) != f[i].value(a))
        o << ' ' << fieldName(f[i]) << " (expected " << f[i].value(e) << ", actual "
          << f[i].value(a) << ')';
    }
    // DPCM's field positions follow pminpos: the actual code read with its own layout.
    CodeField g[kMaxCodeFields];
    layoutMoved =
        codeFields(a, ma, g) == n && me == kModeDpcm && f[n - 2].value(e) != f[n - 2].value(a);
    o << '\n';
    if (layoutMoved)
      o << "  (pminpos differs: the actual deltas sit elsewhere) " << fieldsText(c.codec, a)
        << '\n';
  }
  int pe[8], pa[8];
  c.codec.decodeBlock(e, pe);
  c.codec.decodeBlock(a, pa);
  o << "  decoded expected " << joinInts(pe, 8) << '\n';
  o << "  decoded actual   " << joinInts(pa, 8) << '\n';
}

void describeFirst(std::ostream& o, Context& c, const Pair& p, const TextFile* te,
                   const TextFile* ta, const std::vector<unsigned char>* re,
                   const std::vector<unsigned char>* ra, std::size_t line) {
  const bool raw = p.kind == kRaw;
  o << "first difference: " << p.name << (raw ? ", byte " : ", line ") << (raw ? line : line + 1)
    << ", " << position(c, p.kind, line) << " (" << kKindText[p.kind] << ", frame " << p.frame
    << ")\n";
  const std::size_t ne = raw ? re->size() : te->values.size(),
                    na = raw ? ra->size() : ta->values.size();
  if (line >= ne || line >= na) {
    o << "  the files differ in length: expected " << ne << (raw ? " bytes" : " lines")
      << ", actual " << na << '\n';
  } else if (raw) {
    o << "  expected " << hex((*re)[line], 2) << ", actual " << hex((*ra)[line], 2) << " ("
      << ((line & 1) ? "high" : "low") << " byte of the sample)\n";
  } else if (p.kind == kCom || p.kind == kDecInput) {
    describeCodes(o, c, codeOf(*te, line), codeOf(*ta, line));
  } else if (p.kind == kComInput) {
    o << "  differing pixels:";
    for (int k = 0; k < 8; ++k) {
      const std::uint64_t e = te->values[line][7 - k], a = ta->values[line][7 - k];
      if (e != a)
        o << " pixel " << k << " (expected " << hex(e, 3) << ", actual " << hex(a, 3) << ')';
    }
    o << '\n';
  } else {
    const std::array<int, 8> e = samplesOf(te->values[line]), a = samplesOf(ta->values[line]);
    o << "  differing 12-bit samples of the word:";
    for (int k = 0; k < 8; ++k)
      if (e[k] != a[k])
        o << " sample " << k << " (expected " << hex(e[k], 3) << ", actual " << hex(a[k], 3) << ')';
    o << '\n';
  }
  // The expected block's decision, from the expected input of the same frame.
  const std::size_t block = blockOf(c, p.kind, line);
  const auto in = c.inputs.find(p.frame);
  if (in == c.inputs.end() || block >= in->second.values.size()) {
    o << "  (no block input file of frame " << p.frame << " beside EXPECTED: no trace)\n";
    return;
  }
  int px[8];
  for (int k = 0; k < 8; ++k) px[k] = static_cast<int>(in->second.values[block][7 - k]);
  const std::size_t bpr = c.width ? (static_cast<std::size_t>(c.width) + 7) / 8 : 0;
  const int y = bpr ? static_cast<int>(block / bpr) : 0,
            x = bpr ? static_cast<int>(8 * (block % bpr)) : 0;
  c.codec.startFrame(c.width, p.frame);
  const BlockTrace t = traceBlock(c.codec, px, Compression1x8::rowParity(y, c.cfa));
  std::string text = traceText(c.codec, t, x, y, "  ");
  if (!c.width)
    text = "  block " + std::to_string(block) + ", parity of row 0" + text.substr(text.find('\n'));
  o << "trace of the expected block (registers: " << c.regsFrom << "; cfa " << c.cfa << "):\n"
    << text;
}

}  // namespace

GoldenComparison compareGolden(const CompareSetup& setup) {
  const std::string& expected = setup.expected;
  const std::string& actual = setup.actual;
  for (const std::string& path : {expected, actual})
    if (!fs::exists(path)) inputError(path + ": no such file or directory");
  const bool dirs = fs::is_directory(expected);
  if (dirs != fs::is_directory(actual))
    inputError(actual + ": compare a directory with a directory, a file with a file");

  std::vector<Pair> pairs;
  const fs::path home = dirs ? fs::path(expected) : fs::path(expected).parent_path();
  if (dirs && !setup.names.empty()) {
    for (const std::string& name : setup.names) {
      Named n;
      if (!nameKind(name, n))
        inputError((fs::path(expected) / name).string() + ": not a golden file");
      pairs.push_back({name, (fs::path(expected) / name).string(),
                       (fs::path(actual) / name).string(), n.kind, n.frame});
    }
  } else if (dirs) {
    for (const auto& entry : fs::directory_iterator(expected)) {
      Named n;
      const std::string name = entry.path().filename().string();
      if (!entry.is_regular_file() || !nameKind(name, n)) continue;
      const fs::path other = fs::path(actual) / name;
      if (!fs::is_regular_file(other))
        inputError(other.string() + ": missing (it is in " + expected + ")");
      pairs.push_back({name, entry.path().string(), other.string(), n.kind, n.frame});
    }
    if (pairs.empty()) inputError(expected + ": no golden files in the directory");
  } else {
    Named n{kCom, 0};
    const std::string name = fs::path(expected).filename().string();
    if (!nameKind(name, n)) {
      const std::vector<std::string> first = readLines(expected);
      n.kind = kindFromContent(first.empty() ? std::string() : first[0]);
    }
    pairs.push_back({name, expected, actual, n.kind, n.frame});
  }
  std::sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) {
    return a.frame != b.frame ? a.frame < b.frame
           : a.kind != b.kind ? a.kind < b.kind
                              : a.name < b.name;
  });

  Context c;
  const std::string runSh = fileText((home / "run.sh").string());
  std::unique_ptr<RegisterMap> runShMap;
  RegisterTable* regs = setup.registers;
  if (regs == nullptr) {
    const std::string map = registersIn(runSh);
    runShMap = std::make_unique<RegisterMap>(map.empty() ? nullptr : &map);
    regs = &runShMap->table();
  }
  std::string params = setup.params;
  if (params.empty() && fs::is_regular_file(home / "params.ini"))
    params = (home / "params.ini").string();
  loadRegisters(c.codec, *regs, params, {});
  if (!params.empty()) c.regsFrom = params;
  c.cfa = setup.cfa >= 0 ? setup.cfa : optionIn(runSh, "--cfa", 0) & 3;
  if (setup.width > 0) {
    c.width = setup.width;
  } else if (const int w = optionIn(runSh, "--width", 0); w > 0) {
    c.width = w;
  }

  // Expected inputs and codes of every frame, from the expected side.
  std::map<int, std::vector<unsigned char>> raws;
  for (const Pair& p : pairs) {
    if (p.kind == kComInput) c.inputs.emplace(p.frame, readText(p.expected, kComInput));
    if (p.kind == kCom) c.codes.emplace(p.frame, readText(p.expected, kCom));
    if (p.kind == kRaw) raws.emplace(p.frame, readBytes(p.expected));
  }
  if (!dirs) {
    // A single file: its own frame's block input beside it, if there.
    for (const auto& entry : fs::directory_iterator(home.empty() ? fs::path(".") : home)) {
      Named n;
      const std::string name = entry.path().filename().string();
      if (entry.is_regular_file() && nameKind(name, n) && n.frame == pairs[0].frame) {
        if (n.kind == kComInput && !c.inputs.count(n.frame))
          c.inputs.emplace(n.frame, readText(entry.path().string(), kComInput));
        if (n.kind == kCom && !c.codes.count(n.frame))
          c.codes.emplace(n.frame, readText(entry.path().string(), kCom));
        if (n.kind == kRaw && !raws.count(n.frame))
          raws.emplace(n.frame, readBytes(entry.path().string()));
      }
    }
  }
  if (c.width == 0) {
    for (const auto& [frame, raw] : raws) {
      const auto in = c.inputs.find(frame);
      if (in != c.inputs.end()) c.width = inferWidth(raw, in->second);
      if (c.width) break;
    }
  }

  std::ostringstream out;
  bool first = true;
  int differingFiles = 0;
  std::ostringstream summary;
  for (const Pair& p : pairs) {
    std::vector<Diff> diffs;
    std::size_t total = 0;
    TextFile te, ta;
    std::vector<unsigned char> re, ra;
    if (p.kind == kRaw) {
      re = readBytes(p.expected);
      ra = readBytes(p.actual);
      total = std::max(re.size(), ra.size());
      for (std::size_t i = 0; i < total; ++i)
        if (i >= re.size() || i >= ra.size() || re[i] != ra[i]) diffs.push_back({i});
    } else {
      te = readText(p.expected, p.kind);
      ta = readText(p.actual, p.kind);
      total = std::max(te.values.size(), ta.values.size());
      for (std::size_t i = 0; i < total; ++i)
        if (i >= te.values.size() || i >= ta.values.size() || te.values[i] != ta.values[i])
          diffs.push_back({i});
    }
    if (diffs.empty()) continue;
    ++differingFiles;
    if (first) {
      describeFirst(out, c, p, &te, &ta, &re, &ra, diffs[0].line);
      first = false;
    }
    // Differing blocks of the file, each counted once, with the expected mode of each.
    std::vector<std::size_t> blocks;
    for (const Diff& d : diffs) {
      const std::size_t b = blockOf(c, p.kind, d.line);
      if (blocks.empty() || blocks.back() != b) blocks.push_back(b);
    }
    summary << "  " << p.name << ": " << blocks.size() << " block"
            << (blocks.size() == 1 ? " differs" : "s differ");
    if (p.kind != kRaw) summary << " (of " << total << " lines)";
    const auto codes = c.codes.find(p.frame);
    if (codes != c.codes.end()) {
      std::array<long long, kModeCount> perMode{};
      long long unknown = 0;
      for (std::size_t b : blocks) {
        if (b < codes->second.values.size())
          ++perMode[static_cast<std::size_t>(decodedMode(c.codec, codeOf(codes->second, b)))];
        else
          ++unknown;
      }
      summary << "; by expected mode:";
      for (int m = 0; m < kModeCount; ++m)
        if (perMode[static_cast<std::size_t>(m)])
          summary << ' ' << kModeNames[m] << ' ' << perMode[static_cast<std::size_t>(m)];
      if (unknown) summary << " (beyond the codes) " << unknown;
    }
    summary << "\n    first positions:";
    for (std::size_t i = 0; i < diffs.size() && i < 10; ++i)
      summary << (i ? ", " : " ") << position(c, p.kind, diffs[i].line);
    summary << '\n';
  }
  GoldenComparison result;
  result.files = pairs.size();
  result.differingFiles = differingFiles;
  if (differingFiles == 0) return result;
  std::ostringstream report;
  report << out.str() << "summary: " << differingFiles << " of " << pairs.size() << " file"
         << (pairs.size() == 1 ? "" : "s") << " differ"
         << (c.width ? " (width " + std::to_string(c.width) + ")"
                     : " (width unknown: give --width)")
         << '\n'
         << summary.str();
  result.report = report.str();
  return result;
}

int runCompare(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  CompareSetup setup;
  setup.expected = args.positional()[0];
  setup.actual = args.positional()[1];
  if (args.has("width")) setup.width = static_cast<int>(args.integer("width", 1, kMaxSide, 0));
  if (args.has("cfa")) setup.cfa = cfaOption(args);
  if (args.has("params")) setup.params = args.value("params");
  const RegisterMap regs(args);
  if (args.has("registers")) setup.registers = &regs.table();
  const GoldenComparison r = compareGolden(setup);
  if (r.differingFiles == 0) {
    std::cout << "identical: " << r.files << " file" << (r.files == 1 ? "" : "s") << '\n';
  } else {
    std::cout << r.report;
  }
  flushStandardOutput();
  return r.differingFiles == 0 ? kExitOk : kExitFailure;
}

}  // namespace fbc::cli
