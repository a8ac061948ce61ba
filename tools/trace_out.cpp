// Text and JSON of block decision traces.
#include "tools/trace_out.h"

#include <cinttypes>
#include <cstdio>
#include <sstream>

#include "codec/Compression1x8.h"
#include "tools/codec_config.h"

namespace fbc::cli {

namespace {

template <class T>
std::string list(const T* v, int n, const char* sep) {
  std::string s;
  for (int i = 0; i < n; ++i) s += (i ? sep : "") + std::to_string(v[i]);
  return s;
}

std::string modeName(int mode) {
  return mode >= 0 && mode < kModeCount ? kModeNames[mode] : "unknown number";
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

}  // namespace

BlockTrace traceBlock(Compression1x8& codec, const int* pixels, bool parity) {
  BlockTrace t;
  BlockTrace* const saved = codec.trace;
  codec.trace = &t;
  int out[8];
  codec.decodeBlock(codec.encodeBlock(pixels, parity), out);
  codec.trace = saved;
  return t;
}

int decodedMode(const Compression1x8& codec, BlockCode code) {
  return codec.reg_curve_mode_en != 0 ? static_cast<int>(kModeCurve) : modeOfCode(code);
}

std::string fieldName(const CodeField& f) {
  return f.index < 0 ? std::string(f.name)
                     : std::string(f.name) + "[" + std::to_string(f.index) + "]";
}

std::string fieldsText(const Compression1x8& codec, BlockCode code) {
  CodeField f[kMaxCodeFields];
  const int n = codeFields(code, decodedMode(codec, code), f);
  std::string s;
  for (int i = 0; i < n; ++i)
    s += (i ? " " : "") + fieldName(f[i]) + "=" + std::to_string(f[i].value(code));
  return s;
}

std::string hexCode(BlockCode code) {
  char buf[20];
  std::snprintf(buf, sizeof buf, "%016" PRIx64, static_cast<std::uint64_t>(code));
  return buf;
}

std::string traceJson(const Compression1x8& codec, const BlockTrace& t, int x, int y) {
  std::ostringstream o;
  o << "{\"x\":" << x << ",\"y\":" << y << ",\"parity\":" << (t.parity ? 1 : 0) << ",\"pixels\":["
    << list(t.pixels, 8, ",") << "],\"sad\":[";
  for (int m = 0; m < kModeCount; ++m)
    o << (m ? "," : "") << (t.hasCost[m] ? std::to_string(t.sad[m]) : "null");
  o << "],\"maxerr\":[";
  for (int m = 0; m < kModeCount; ++m)
    o << (m ? "," : "") << (t.hasCost[m] ? std::to_string(t.maxerr[m]) : "null");
  o << "],\"enabled\":[";
  for (int m = 0; m < kModeCount; ++m) o << (m ? "," : "") << (t.enabled[m] ? "true" : "false");
  o << "],\"policy\":\"" << selectionRuleName(t.rule) << "\",\"policy_text\":\""
    << selectionRuleText(t.rule) << "\",\"selected\":" << t.selected << ",\"mode\":" << t.mode
    << ",\"mode_name\":\"" << (t.curveForced ? "Curve" : modeName(t.mode))
    << "\",\"encoder\":" << t.encoder << ",\"curve_forced\":" << (t.curveForced ? "true" : "false")
    << ",\"code\":\"" << hexCode(t.code) << "\",\"decoded\":[" << list(t.decoded, 8, ",")
    << "],\"fields\":{";
  CodeField f[kMaxCodeFields];
  const int n = codeFields(t.code, decodedMode(codec, t.code), f);
  for (int i = 0; i < n; ++i)
    o << (i ? "," : "") << '"' << fieldName(f[i]) << "\":" << f[i].value(t.code);
  o << "},\"nonedge_best\":" << t.nonEdgeBest << ",\"edge_best\":" << t.edgeBest
    << ",\"nonedge_winner\":" << t.nonEdgeWinner << ",\"pmin\":" << t.pmin << ",\"pmax\":" << t.pmax
    << ",\"pminpos\":" << t.pminpos << ",\"edge_groups\":[";
  for (int k = 0; k < 6; ++k) {
    o << (k ? "," : "") << "{\"head_range\":" << t.edgeHeadRange[k]
      << ",\"tail_range\":" << t.edgeTailRange[k] << ",\"dir\":" << t.edgeDir[k] << '}';
  }
  o << "]}";
  return o.str();
}

std::string traceText(const Compression1x8& codec, const BlockTrace& t, int x, int y,
                      const std::string& in) {
  std::ostringstream o;
  char buf[160];
  o << in << "block x=" << x << " y=" << y << ", parity " << (t.parity ? 1 : 0) << '\n';
  o << in << "pixels    " << list(t.pixels, 8, " ") << "  (min " << t.pmin << " at " << t.pminpos
    << ", max " << t.pmax << ")\n";
  o << in << "mode       maxerr    sad  enabled  edge groups (head/tail range, chosen)\n";
  for (int m = 0; m < kModeCount; ++m) {
    const std::string err = t.hasCost[m] ? std::to_string(t.maxerr[m]) : "-";
    const std::string sad = t.hasCost[m] ? std::to_string(t.sad[m]) : "-";
    std::snprintf(buf, sizeof buf, "%-2d %-8s %6s %6s  %-7s", m, kModeNames[m], err.c_str(),
                  sad.c_str(), t.enabled[m] ? "yes" : "no");
    std::string line = buf;
    if (m >= kModeEdge2) {
      const int k = m - kModeEdge2;
      line += "  " + std::to_string(t.edgeHeadRange[k]) + "/" + std::to_string(t.edgeTailRange[k]) +
              (t.edgeDir[k] ? ", head" : ", tail");
    }
    line.erase(line.find_last_not_of(' ') + 1);
    o << in << line << '\n';
  }
  o << in << "policy    " << selectionRuleName(t.rule) << ": " << selectionRuleText(t.rule) << '\n';
  o << in << "          best non-edge cost " << t.nonEdgeBest << ", best edge cost " << t.edgeBest;
  if (t.rule >= kRuleKeptUnderFinal) o << ", non-edge winner " << modeName(t.nonEdgeWinner);
  o << '\n';
  o << in << "selected  " << t.selected << " " << modeName(t.selected) << '\n';
  o << in << "mode      " << t.mode << " " << modeName(t.mode);
  if (t.curveForced)
    o << " (forced by reg_curve_mode_en)";
  else if (t.mode != t.selected)
    o << " (remapped by reg_mode_definition)";
  if (t.encoder != t.mode && !t.curveForced) o << ", Truncate's encoder ran";
  o << '\n';
  o << in << "code      " << hexCode(t.code) << '\n';
  o << in << "fields    " << fieldsText(codec, t.code) << '\n';
  o << in << "decoded   " << list(t.decoded, 8, " ") << '\n';
  return o.str();
}

std::vector<std::string> nonDefaultRegisters(Compression1x8& codec, RegisterTable& regs) {
  Compression1x8 defaults("FBC", false);
  resetCodec(defaults);
  const std::vector<std::string> base = lines(renderParams(defaults, regs));
  std::vector<std::string> diff;
  for (const std::string& line : lines(renderParams(codec, regs))) {
    bool same = false;
    for (const std::string& b : base) same = same || b == line;
    if (!same && line.find('=') != std::string::npos) diff.push_back(line);
  }
  return diff;
}

}  // namespace fbc::cli
