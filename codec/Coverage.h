// Functional coverage of the block: named points of the coding decisions (modes, selection
// rules, edge trial, remapping, Truncate's extension cases, DPCM's branches, decoder clamps,
// rounding options), counted by the reference encoder and decoder when a Coverage is attached
// to the codec (Compression1x8::coverage). The table in Coverage.cpp is the one documentation
// of every point.
#pragma once

#include <cstdint>

namespace fbc {

enum CoverPoint : int {
  // The encoder that ran for a block (after remapping and the curve switch), by mode number.
  kCoverModeHadamard,
  kCoverModeCurve,
  kCoverModeMinMax,
  kCoverModeDpcm,
  kCoverModeTruncate,
  kCoverModeEdge2,
  kCoverModeEdge3,
  kCoverModeEdge4,
  kCoverModeEdge5,
  kCoverModeEdge6,
  kCoverModeEdge7,

  // Which rule of the selection decided (see SelectionRule in Trace.h).
  kCoverRulePlain,
  kCoverRulePlainNonEdge,
  kCoverRulePlainFallback,
  kCoverRuleKeptUnderFinal,
  kCoverRuleEdgeTaken,
  kCoverRuleEdgeBalanced,
  kCoverRuleEdgeAboveMin,
  // Ties settled by a fixed order.
  kCoverTiePlain,
  kCoverTieNonEdgeWinner,
  kCoverTieEdgeMembers,
  // The edge-first policy with Truncate as the non-edge winner (never shields the block).
  kCoverTruncateWinnerTriesEdges,
  // An edge member passed over in the trial because its two groups are balanced.
  kCoverEdgeMemberBalanced,

  // Edge members' cost functions: eligible / ineligible, by member.
  kCoverEdge2Eligible,
  kCoverEdge3Eligible,
  kCoverEdge4Eligible,
  kCoverEdge5Eligible,
  kCoverEdge6Eligible,
  kCoverEdge7Eligible,
  kCoverEdge2Ineligible,
  kCoverEdge3Ineligible,
  kCoverEdge4Ineligible,
  kCoverEdge5Ineligible,
  kCoverEdge6Ineligible,
  kCoverEdge7Ineligible,
  kCoverEdgeHeadGroup,
  kCoverEdgeTailGroup,

  // Remapping through reg_mode_definition that changes the selected mode, by selected mode.
  kCoverRemapHadamard,
  kCoverRemapMinMax,
  kCoverRemapDpcm,
  kCoverRemapTruncate,
  kCoverRemapEdge2,
  kCoverRemapEdge3,
  kCoverRemapEdge4,
  kCoverRemapEdge5,
  kCoverRemapEdge6,
  kCoverRemapEdge7,
  kCoverRemapUnknown,
  kCoverCurveForced,

  // Hadamard's quantiser choice and the cap on positive AC terms.
  kCoverHadamardShift0,
  kCoverHadamardShift1,
  kCoverHadamardShift2,
  kCoverHadamardShift3,
  kCoverHadamardAcCapped,

  // Truncate's extension and the parity it follows.
  kCoverTruncExtOffSel0,
  kCoverTruncExtOffSel1,
  kCoverTruncExtOnSel0,
  kCoverTruncExtOnSel1,
  kCoverTruncSelFlipped,

  // DPCM.
  kCoverDpcmNotApplicable,
  kCoverDpcmShift0,
  kCoverDpcmShift1,
  kCoverDpcmShift2,
  kCoverDpcmShift3,
  kCoverDpcmShift4,
  kCoverDpcmShift5,
  kCoverDpcmShift6,
  kCoverDpcmSwingRow,
  kCoverDpcmLsbDown,
  kCoverDpcmLsbUp,
  kCoverDpcmLsbKeep,
  kCoverDpcmBaseClampLow,
  kCoverDpcmBaseClampHigh,

  // Decoders' clamps.
  kCoverDecHadamardClamp0,
  kCoverDecHadamardClamp4095,
  kCoverDecDpcmClamp4095,
  kCoverDecEdgeClamp4095,
  kCoverDecCurveClamp0,
  kCoverDecCurveClamp4095,

  // Rounding registers.
  kCoverEncRoundTruncate,
  kCoverEncRoundEdge,
  kCoverEncRoundClamp,
  kCoverDecTruncMid,
  kCoverDecTruncBottom,
  kCoverDecTruncZero,
  kCoverDecEdgeMid,
  kCoverDecEdgeBottom,
  kCoverDecEdgeZero,

  kCoverPointCount
};

struct CoverPointInfo {
  const char* name;         // short, stable: "mode.dpcm", "rule.edge_taken", ...
  const char* description;  // what happened in the block's hardware
  // Why the point cannot be hit under the register map's ranges; null when it can.
  const char* unreachable;
};

// The one table of cover points, indexed by CoverPoint.
const CoverPointInfo& coverPointInfo(int point);
// The point of a name, or -1.
int coverPointByName(const char* name);

struct Coverage {
  std::uint64_t hits[kCoverPointCount] = {};
  void add(const Coverage& other) {
    for (int i = 0; i < kCoverPointCount; ++i) hits[i] += other.hits[i];
  }
};

// Counts one hit when coverage is being collected.
inline void cover(Coverage* c, int point) {
  if (c != nullptr) ++c->hits[point];
}

}  // namespace fbc
