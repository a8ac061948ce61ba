// fbc regs: the register writes a parameter file stands for, and the register map itself as a C
// header, a SystemVerilog package or JSON for the programs that program the block.
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "framework/RegisterTable.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "regs",
    "[--set KEY=VALUE ...] [--registers FILE] IN.ini",
    "Loads IN.ini over the defaults (then every --set) and prints the block's 16-bit registers\n"
    "as the register map composes them (the built-in one, or the file of --registers), one line\n"
    "\"0xAAAA 0xVVVV\" (address, value) per register, in ascending address order.\n"
    "'fbc regs export --format c|sv|json OUT' writes the register map itself (see\n"
    "'fbc regs export --help').",
    {kOptSet, kOptRegisters},
    1,
    1};

const CommandSpec kExportSpec{
    "regs export",
    "--format c|sv|json [--registers FILE] OUT",
    "Writes the register map (the built-in one, or the file of --registers) to OUT: for every\n"
    "parameter that occupies registers its checking range, signedness and element count, and for\n"
    "every field the register address, bit position and width, the element bit it starts from\n"
    "and its reset value (the map's defaults); then every register with its reset value.\n"
    "  c     a header of #defines (FBC_<KEY>[_<ELEMENT>][_P<PART>]_ADDR, _SHIFT, _WIDTH, _MASK,\n"
    "        _SRC, _RESET) with X-macro lists, for C and C++\n"
    "  sv    the package fbc_regs_pkg of localparams, named as in C without FBC_\n"
    "  json  an object with one object per parameter and the register list\n"
    "A field puts WIDTH bits of the element, from element bit SRC up, into bits SHIFT and up of\n"
    "register ADDR; composing every field of a parameter set gives what 'fbc regs' prints.",
    {{"format", "FMT", "c, sv or json"}, kOptRegisters},
    1,
    1};

// One register field as the export lists it: a slice of a table field in one register.
struct ExportField {
  std::string name;
  int element;
  TRegSlice slice;
  unsigned reset;  // the field's bits of the element's reset value, unshifted
  unsigned mask() const { return ((1u << slice.width) - 1u) << slice.shift; }
};

struct ExportParam {
  const TParamInfo* info;
  std::string name;  // upper-case key; section-prefixed when two sections share the key
  int count;
  bool isSigned;             // a negative checking minimum: the fields hold two's complement
  std::map<int, int> reset;  // element -> reset value, for the elements in registers
  std::vector<ExportField> fields;
};

struct ExportMap {
  std::string source;
  std::vector<ExportParam> params;
  std::map<int, int> registers;  // address -> reset value
};

std::string upper(const std::string& s) {
  std::string out = s;
  for (char& c : out) {
    const unsigned char u = static_cast<unsigned char>(c);
    c = std::isalnum(u) ? static_cast<char>(std::toupper(u)) : '_';
  }
  return out;
}

// The map at its reset values: the block's software defaults, then the map's own defaults.
ExportMap buildExport(RegisterTable& table, const std::string& source) {
  Compression1x8 codec("FBC", false);
  resetCodec(codec);
  codec.setDefaultParam(table);
  ExportMap map;
  map.source = source;
  std::vector<TFieldUse> uses;
  std::vector<std::string> errors;
  if (!codec.getRegisterFields(table, uses, errors) ||
      !codec.getRegisterValue(table, map.registers, errors)) {
    failure("register table: " + (errors.empty() ? std::string("incomplete") : errors.front()));
  }

  // One entry per table parameter in table order; a parameter bound twice (the curve points)
  // takes the fields of its first binding.
  std::map<const TParamInfo*, const TVarInfo*> firstBinding;
  for (const TFieldUse& u : uses) firstBinding.emplace(u.info, u.var);
  std::map<std::string, int> keyUse;
  for (const TParamInfo& info : table.entries()) ++keyUse[upper(info.key)];
  for (const TParamInfo& info : table.entries()) {
    const auto bound = firstBinding.find(&info);
    if (bound == firstBinding.end()) continue;
    ExportParam p{&info, upper(info.key), bound->second->count, info.minVal < 0, {}, {}};
    if (keyUse[p.name] > 1) p.name = upper(info.section) + "_" + p.name;
    std::map<int, std::vector<TRegSlice>> slices;  // per element, in field order
    for (const TFieldUse& u : uses) {
      if (u.var != bound->second) continue;
      p.reset[u.element] = u.value;
      for (const TRegSlice& s : registerSlices(*u.field)) slices[u.element].push_back(s);
    }
    for (const auto& [element, list] : slices) {
      for (std::size_t part = 0; part < list.size(); ++part) {
        std::string name = p.name;
        if (p.count > 1) name += "_" + std::to_string(element);
        if (list.size() > 1) name += "_P" + std::to_string(part);
        const TRegSlice& s = list[part];
        const unsigned bits =
            static_cast<unsigned>(p.reset[element] >> s.source) & ((1u << s.width) - 1u);
        p.fields.push_back({name, element, s, bits});
      }
    }
    map.params.push_back(p);
  }

  std::set<std::string> names;
  for (const ExportParam& p : map.params) {
    for (const ExportField& f : p.fields) {
      if (!names.insert(f.name).second) {
        inputError(source + ": the field name " + f.name + " stands for two fields");
      }
    }
  }
  return map;
}

std::string format(const char* fmt, long long a, long long b = 0) {
  char text[64];
  std::snprintf(text, sizeof text, fmt, a, b);
  return text;
}

// A signed decimal that C and SystemVerilog read as a 32-bit int, the most negative one included.
std::string intLiteral(int v) {
  if (v == -2147483647 - 1) return "(-2147483647 - 1)";
  return v < 0 ? "(" + std::to_string(v) + ")" : std::to_string(v);
}

std::string describe(const ExportParam& p) {
  return p.info->section + "/" + p.info->key + ": " + std::to_string(p.count) +
         (p.count == 1 ? " element, " : " elements, ") + std::to_string(p.info->minVal) + ".." +
         std::to_string(p.info->maxVal) + (p.isSigned ? ", signed" : ", unsigned");
}

std::string exportC(const ExportMap& m) {
  std::string t =
      "/* Register map of the FBC block (" + m.source +
      "), written by 'fbc regs export'.\n"
      " *\n"
      " * Registers are 16 bits. Field F puts F_WIDTH bits of its parameter's element, from\n"
      " * element bit F_SRC up (the element as a 32-bit signed value), into bits F_SHIFT and up\n"
      " * of register F_ADDR:\n"
      " *   reg[F_ADDR] |= (((uint32_t)(value >> F_SRC)) << F_SHIFT) & F_MASK\n"
      " * F_RESET is the field's value (unshifted) at reset. A parameter whose _SIGNED is 1 holds\n"
      " * two's complement: read back, its field is sign-extended from bit F_WIDTH - 1. */\n"
      "#ifndef FBC_REGS_H\n#define FBC_REGS_H\n";
  std::string fieldList, paramList;
  for (const ExportParam& p : m.params) {
    const std::string base = "FBC_" + p.name;
    t += "\n/* " + describe(p) + " */\n";
    t += "#define " + base + "_COUNT " + std::to_string(p.count) + "\n";
    t += "#define " + base + "_MIN " + intLiteral(p.info->minVal) + "\n";
    t += "#define " + base + "_MAX " + intLiteral(p.info->maxVal) + "\n";
    t += "#define " + base + "_SIGNED " + (p.isSigned ? "1" : "0") + "\n";
    paramList += " \\\n  X(" + base + ", \"" + p.info->section + "\", \"" + p.info->key + "\", " +
                 std::to_string(p.count) + ", " + intLiteral(p.info->minVal) + ", " +
                 intLiteral(p.info->maxVal) + ", " + (p.isSigned ? "1" : "0") + ")";
    for (const ExportField& f : p.fields) {
      const std::string n = "#define FBC_" + f.name;
      t += n + "_ADDR " + format("0x%04llxu", f.slice.address) + "\n";
      t += n + "_SHIFT " + std::to_string(f.slice.shift) + "\n";
      t += n + "_WIDTH " + std::to_string(f.slice.width) + "\n";
      t += n + "_MASK " + format("0x%04llxu", f.mask()) + "\n";
      t += n + "_SRC " + std::to_string(f.slice.source) + "\n";
      t += n + "_RESET " + format("0x%04llxu", f.reset) + "\n";
      fieldList += " \\\n  X(FBC_" + f.name + ", \"" + p.info->section + "\", \"" + p.info->key +
                   "\", " + std::to_string(f.element) + ", " +
                   format("0x%04llxu, %lld, ", f.slice.address, f.slice.shift) +
                   format("%lld, %lld, ", f.slice.width, f.slice.source) +
                   format("0x%04llxu)", f.reset);
    }
  }
  std::string registerList;
  for (const auto& [address, value] : m.registers) {
    registerList += " \\\n  X(" + format("0x%04llxu, 0x%04llxu)", address, value & 0xFFFF);
  }
  t += "\n/* Every parameter: X(NAME, SECTION, KEY, COUNT, MIN, MAX, SIGNED) */\n"
       "#define FBC_PARAMS(X)" +
       paramList + "\n";
  t += "\n/* Every field: X(NAME, SECTION, KEY, ELEMENT, ADDR, SHIFT, WIDTH, SRC, RESET) */\n"
       "#define FBC_FIELDS(X)" +
       fieldList + "\n";
  t += "\n/* Every register in ascending address order: X(ADDR, RESET) */\n"
       "#define FBC_REGISTER_COUNT " +
       std::to_string(m.registers.size()) +
       "\n"
       "#define FBC_REGISTERS(X)" +
       registerList + "\n";
  return t + "\n#endif /* FBC_REGS_H */\n";
}

std::string exportSv(const ExportMap& m) {
  std::string t =
      "// Register map of the FBC block (" + m.source +
      "), written by 'fbc regs export'.\n"
      "//\n"
      "// Registers are 16 bits. Field F puts F_WIDTH bits of its parameter's element, from "
      "element\n"
      "// bit F_SRC up, into bits F_SHIFT and up of register F_ADDR (F_MASK in place); F_RESET is\n"
      "// the field's value at reset. _SIGNED parameters hold two's complement.\n"
      "package fbc_regs_pkg;\n";
  for (const ExportParam& p : m.params) {
    t += "\n  // " + describe(p) + "\n";
    t += "  localparam int " + p.name + "_COUNT = " + std::to_string(p.count) + ";\n";
    t += "  localparam int " + p.name + "_MIN = " + intLiteral(p.info->minVal) + ";\n";
    t += "  localparam int " + p.name + "_MAX = " + intLiteral(p.info->maxVal) + ";\n";
    t += "  localparam bit " + p.name + "_SIGNED = 1'b" + (p.isSigned ? "1" : "0") + ";\n";
    for (const ExportField& f : p.fields) {
      const std::string n = "  localparam ";
      t += n + "int unsigned " + f.name + "_ADDR = " + format("32'h%04llx;\n", f.slice.address);
      t += n + "int " + f.name + "_SHIFT = " + std::to_string(f.slice.shift) + ";\n";
      t += n + "int " + f.name + "_WIDTH = " + std::to_string(f.slice.width) + ";\n";
      t += n + "bit [15:0] " + f.name + "_MASK = " + format("16'h%04llx;\n", f.mask());
      t += n + "int " + f.name + "_SRC = " + std::to_string(f.slice.source) + ";\n";
      t += n + "bit [15:0] " + f.name + "_RESET = " + format("16'h%04llx;\n", f.reset);
    }
  }
  std::string addresses, resets;
  for (const auto& [address, value] : m.registers) {
    const char* sep = addresses.empty() ? "" : ",";
    addresses += sep + format("\n    32'h%04llx", address);
    resets += sep + format("\n    16'h%04llx", value & 0xFFFF);
  }
  t += "\n  // Every register in ascending address order, with its reset value.\n"
       "  localparam int REGISTER_COUNT = " +
       std::to_string(m.registers.size()) +
       ";\n"
       "  localparam int unsigned REGISTER_ADDR[REGISTER_COUNT] = '{" +
       addresses +
       "\n  };\n"
       "  localparam bit [15:0] REGISTER_RESET[REGISTER_COUNT] = '{" +
       resets + "\n  };\n";
  return t + "endpackage\n";
}

std::string jsonString(const std::string& s) {
  std::string out = "\"";
  for (const char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) < 0x20) {
      out += format("\\u%04llx", static_cast<unsigned char>(c));
    } else {
      out += c;
    }
  }
  return out + "\"";
}

std::string exportJson(const ExportMap& m) {
  std::string t = "{\n  \"block\": \"FBC\",\n  \"source\": " + jsonString(m.source) +
                  ",\n  \"register_bits\": 16,\n  \"parameters\": [";
  for (std::size_t i = 0; i < m.params.size(); ++i) {
    const ExportParam& p = m.params[i];
    const TParamInfo& info = *p.info;
    t += std::string(i ? "," : "") + "\n    {\"section\": " + jsonString(info.section) +
         ", \"key\": " + jsonString(info.key) + ", \"name\": " + jsonString(p.name) +
         ",\n     \"count\": " + std::to_string(p.count) +
         ", \"signed\": " + (p.isSigned ? "true" : "false") +
         ", \"min\": " + std::to_string(info.minVal) + ", \"max\": " + std::to_string(info.maxVal) +
         ", \"random_min\": " + std::to_string(info.randomMin) +
         ", \"random_max\": " + std::to_string(info.randomMax) +
         ", \"ini\": " + (info.iniExcluded ? "false" : "true") + ",\n     \"reset\": [";
    for (int e = 0; e < p.count; ++e) {
      const auto it = p.reset.find(e);
      t += std::string(e ? ", " : "") + (it == p.reset.end() ? "null" : std::to_string(it->second));
    }
    t += "],\n     \"fields\": [";
    for (std::size_t j = 0; j < p.fields.size(); ++j) {
      const ExportField& f = p.fields[j];
      t += std::string(j ? "," : "") + "\n       {\"name\": " + jsonString(f.name) +
           ", \"element\": " + std::to_string(f.element) +
           ", \"address\": " + std::to_string(f.slice.address) +
           ", \"shift\": " + std::to_string(f.slice.shift) +
           ", \"width\": " + std::to_string(f.slice.width) +
           ", \"mask\": " + std::to_string(f.mask()) +
           ", \"source\": " + std::to_string(f.slice.source) +
           ", \"reset\": " + std::to_string(f.reset) + "}";
    }
    t += "]}";
  }
  t += "\n  ],\n  \"registers\": [";
  bool first = true;
  for (const auto& [address, value] : m.registers) {
    t += std::string(first ? "" : ",") + "\n    {\"address\": " + std::to_string(address) +
         ", \"reset\": " + std::to_string(value & 0xFFFF) + "}";
    first = false;
  }
  return t + "\n  ]\n}\n";
}

int runExport(const Words& argv) {
  Args args;
  if (!parseArgs(kExportSpec, argv, args)) return kExitOk;
  if (!args.has("format")) usageError("missing required option --format");
  const std::string& fmt = args.value("format");
  if (fmt != "c" && fmt != "sv" && fmt != "json") {
    usageError("--format: '" + fmt + "' is not one of c, sv, json");
  }
  const RegisterMap regs(args);
  const ExportMap map = buildExport(
      regs.table(), args.has("registers") ? args.value("registers") : "built-in register map");
  const std::string text = fmt == "c"    ? exportC(map)
                           : fmt == "sv" ? exportSv(map)
                                         : exportJson(map);
  writeFileAtomic(args.positional()[0], text);
  return kExitOk;
}

}  // namespace

int runRegs(const Words& argv) {
  if (!argv.empty() && argv[0] == "export") return runExport(Words(argv.begin() + 1, argv.end()));
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const RegisterMap regs(args);
  Compression1x8 codec("FBC", false);
  loadRegisters(codec, regs.table(), args.positional()[0], args.values("set"));
  std::map<int, int> values;
  std::vector<std::string> errors;
  if (!codec.getRegisterValue(regs.table(), values, errors)) {
    failure("register table: " + (errors.empty() ? std::string("incomplete") : errors.front()));
  }
  std::string text;
  char line[32];
  for (const auto& [address, value] : values) {
    std::snprintf(line, sizeof line, "0x%04x 0x%04x\n", static_cast<unsigned>(address) & 0xFFFFu,
                  static_cast<unsigned>(value) & 0xFFFFu);
    text += line;
  }
  std::fputs(text.c_str(), stdout);
  return kExitOk;
}

}  // namespace fbc::cli
