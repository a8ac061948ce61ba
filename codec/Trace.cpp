// Names of the selection rules and the field tables of block codes.
#include "codec/Trace.h"

#include "codec/Coverage.h"

namespace fbc {

namespace {

struct RuleInfo {
  const char* name;
  const char* text;
};

constexpr RuleInfo kRules[kRuleCount] = {
    {"plain", "plain policy: the lowest cost of all enabled modes, ties by priority"},
    {"plain_non_edge", "plain policy, edge minimum left out: the best non-edge cost decided"},
    {"plain_fallback", "plain policy: no mode of the priority order has the best cost, Truncate"},
    {"kept_under_final", "edge-first: non-edge winner at or below the final threshold, kept"},
    {"edge_taken", "edge-first: edge trial took an unbalanced member at the best edge cost"},
    {"edge_balanced", "edge-first: edge trial took no member (balanced), non-edge winner kept"},
    {"edge_above_min",
     "edge-first: best edge cost above the minimum threshold, non-edge winner kept"},
};

// The rules and their cover points run in the same order.
static_assert(kCoverRulePlain + kRuleEdgeAboveMin == kCoverRuleEdgeAboveMin, "rule order");

}  // namespace

const char* selectionRuleName(int rule) {
  return rule >= 0 && rule < kRuleCount ? kRules[rule].name : "?";
}
const char* selectionRuleText(int rule) {
  return rule >= 0 && rule < kRuleCount ? kRules[rule].text : "?";
}

int codeFields(BlockCode code, int mode, CodeField* out) {
  if (const int member = edgeMemberOf(mode)) return layout::edgeFields(member, code, out);
  switch (mode) {
    case kModeHadamard:
      return layout::hadamardFields(code, out);
    case kModeCurve:
      return layout::curveFields(code, out);
    case kModeMinMax:
      return layout::minMaxFields(code, out);
    case kModeDpcm:
      return layout::dpcmFields(code, out);
    case kModeTruncate:
      return layout::truncateFields(code, out);
    default:
      return 0;
  }
}

}  // namespace fbc
