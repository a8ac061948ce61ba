// The decision record of one block on the reference path: its pixels and parity, every mode's
// cost, the enables, the selection rule that decided, the selected and remapped mode, the code,
// the decoded pixels, and the code's fields by name. Filled by Compression1x8::encodeBlock and
// decodeBlock when Compression1x8::trace points at one; nothing is recorded otherwise.
#pragma once

#include "codec/BlockCode.h"

namespace fbc {

// The rule of mode selection that decided a block.
enum SelectionRule : int {
  kRulePlain,           // plain policy: lowest cost, ties by priority
  kRulePlainNonEdge,    // plain policy, edge minimum left out: only the non-edge cost counts
  kRulePlainFallback,   // plain policy: no enabled mode in the priority order has the cost
  kRuleKeptUnderFinal,  // edge-first: the non-edge winner is at most the final threshold
  kRuleEdgeTaken,       // edge-first: an unbalanced edge member at the best edge cost
  kRuleEdgeBalanced,    // edge-first: edge trial ran, no member taken (balanced or disabled)
  kRuleEdgeAboveMin,    // edge-first: best edge cost above the minimum threshold, no trial
  kRuleCount
};

// Stable identifiers ("plain", "edge_taken", ...) and one-line explanations of the rules.
const char* selectionRuleName(int rule);
const char* selectionRuleText(int rule);

// Costs of a mode that cannot code a block (also Curve's "no cost").
constexpr int kNoSad = 32767;
constexpr int kNoMaxErr = 4095;

struct BlockTrace {
  // Input.
  int pixels[8] = {};
  bool parity = false;
  int pmin = 0, pmax = 0, pminpos = 0;
  // Every mode's cost function: sum and largest absolute error (Curve has none: hasCost false).
  bool hasCost[kModeCount] = {};
  int sad[kModeCount] = {};
  int maxerr[kModeCount] = {};
  bool enabled[kModeCount] = {};  // reg_mode_en
  // Edge members' candidate groups (index member - 2): ranges and the group chosen (1: head).
  int edgeHeadRange[6] = {};
  int edgeTailRange[6] = {};
  int edgeDir[6] = {};
  // Selection.
  int nonEdgeBest = 0;    // N: best enabled cost among Hadamard, MinMax, DPCM, Truncate
  int edgeBest = 0;       // E: best enabled edge cost
  int nonEdgeWinner = 0;  // W (edge-first policy only)
  int rule = kRulePlain;
  int selected = 0;  // what the selection rules chose
  int mode = 0;      // after reg_curve_mode_en and reg_mode_definition: the mode number dispatched
  int encoder = 0;   // the encoder that ran (an unknown mode number runs Truncate's)
  bool curveForced = false;
  // Result.
  BlockCode code = 0;
  int decoded[8] = {};
};

// One field of a block code: bits lo .. lo + width - 1, printed as name or name[index].
struct CodeField {
  const char* name;
  int index;  // -1: the field has no index
  int lo;
  int width;
  bool isSigned;
  int value(BlockCode code) const {
    return isSigned ? getSignedField(code, lo, width) : static_cast<int>(getField(code, lo, width));
  }
};
constexpr int kMaxCodeFields = 24;

// The fields of `code` read as mode `mode` (as decodeBlock reads it: Curve when the curve switch
// is on, else the prefix's mode), highest bits first; every bit belongs to exactly one field.
// Returns the number of fields written to `out`.
int codeFields(BlockCode code, int mode, CodeField* out);

// The same per mode, each beside its mode's layout.
namespace layout {
int hadamardFields(BlockCode code, CodeField* out);
int minMaxFields(BlockCode code, CodeField* out);
int dpcmFields(BlockCode code, CodeField* out);
int truncateFields(BlockCode code, CodeField* out);
int curveFields(BlockCode code, CodeField* out);
int edgeFields(int member, BlockCode code, CodeField* out);
}  // namespace layout

}  // namespace fbc
