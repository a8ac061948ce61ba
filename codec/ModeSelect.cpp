// Mode cost and mode selection. Every mode's cost for the block is its largest absolute pixel
// error; selection is minimax with a fixed priority among equal costs, an optional edge-first
// policy, per-mode enables and a final remapping table.
#include <algorithm>

#include "codec/Compression1x8.h"
#include "codec/Coverage.h"
#include "codec/Trace.h"

using namespace fbc;

namespace {

// The cover point of a remapping away from each selectable mode (Curve is never selected).
constexpr int kRemapPoint[kModeCount] = {
    kCoverRemapHadamard, kCoverCurveForced, kCoverRemapMinMax, kCoverRemapDpcm,
    kCoverRemapTruncate, kCoverRemapEdge2,  kCoverRemapEdge3,  kCoverRemapEdge4,
    kCoverRemapEdge5,    kCoverRemapEdge6,  kCoverRemapEdge7};

}  // namespace

int Compression1x8::modeCost(int mode) const {
  switch (mode) {
    case kModeHadamard:
      return HadamaMaxErr;
    case kModeMinMax:
      return MinMaxMaxErr;
    case kModeDpcm:
      return DPCMMaxErr;
    case kModeTruncate:
      return TruncateMaxErr;
    default:
      if (const int member = edgeMemberOf(mode)) return edge(member).MaxErr;
      return 4095;  // Curve has no cost; nor have remapped numbers beyond the modes
  }
}

void Compression1x8::EncodeCalculateSAD(int* pixels, bool parity) {
  const int* p = pixels;
  // The first occurrence of the minimum wins; a block of all 4095 keeps Pminpos 0.
  Pmin = 4095;
  Pminpos = 0;
  Pmax = 0;
  for (int i = 0; i < 8; ++i) {
    if (p[i] < Pmin) {
      Pmin = p[i];
      Pminpos = i;
    }
    if (p[i] > Pmax) Pmax = p[i];
  }
  CalculateHadama(p);
  CalculateMinMaxSAD(p);
  CalculateDPCMSAD(p);
  CalculateTruncateSAD(p, parity);
  for (int member = 2; member <= 7; ++member) CalculateEdgeSAD(member, p);
}

void Compression1x8::Encode_modeselect() {
  int c[kModeCount];
  for (int m = 0; m < kModeCount; ++m) c[m] = reg_mode_en[m] != 0 ? modeCost(m) : 4095;
  const int nonEdge = std::min({c[kModeHadamard], c[kModeMinMax], c[kModeDpcm], c[kModeTruncate]});
  const int edgeBest = *std::min_element(c + kModeEdge2, c + kModeEdge7 + 1);
  const auto matches = [&](int m, int cost) { return reg_mode_en[m] != 0 && c[m] == cost; };

  int mode = kModeTruncate;
  int winner = kModeTruncate;
  int target = nonEdge;
  int rule;
  if (reg_compress_edgefisrt_enable != 1) {
    // Any value other than 0 and 1 leaves the edge minimum out: an edge member then wins only
    // when it ties with the best non-edge cost.
    if (reg_compress_edgefisrt_enable == 0) target = std::min(nonEdge, edgeBest);
    rule = kRulePlainFallback;
    for (int m : kPlainOrder) {
      if (matches(m, target)) {
        mode = m;
        rule = reg_compress_edgefisrt_enable == 0 ? kRulePlain : kRulePlainNonEdge;
        break;
      }
    }
  } else {
    for (int m : kNonEdgeOrder) {
      if (matches(m, nonEdge)) {
        winner = m;
        break;
      }
    }
    mode = winner;
    // A Truncate winner never shields the block from edge coding.
    const bool keepWinner = winner != kModeTruncate && nonEdge <= reg_compress_edgefisrt_finalth;
    if (keepWinner) {
      rule = kRuleKeptUnderFinal;
    } else if (edgeBest <= reg_compress_edgemin_th) {
      rule = kRuleEdgeBalanced;
      const long long ratio = reg_compress_edgemin_ratio;
      for (int m : kEdgeOrder) {
        if (!matches(m, edgeBest)) continue;
        const EdgeResult& e = edge(m - 3);
        // Products are 32-bit in the data path.
        const int headLimit = static_cast<int>(static_cast<unsigned>(e.TailRange * ratio));
        const int tailLimit = static_cast<int>(static_cast<unsigned>(e.HeadRange * ratio));
        const bool balanced = e.HeadRange <= headLimit && e.TailRange <= tailLimit;
        if (!balanced) {
          mode = m;
          rule = kRuleEdgeTaken;
          break;
        }
        cover(coverage, kCoverEdgeMemberBalanced);
      }
    } else {
      rule = kRuleEdgeAboveMin;
    }
  }

  SelectedMode = reg_curve_mode_en != 0 ? static_cast<int>(kModeCurve) : remapMode(mode);
  if (!instrumented()) return;

  if (coverage) {
    // How many of `modes` are enabled at `cost`, Truncate counted with them when asked.
    const auto count = [&](const auto& modes, int cost, bool truncate = true) {
      int n = truncate && matches(kModeTruncate, cost) ? 1 : 0;
      for (int m : modes) n += matches(m, cost) ? 1 : 0;
      return n;
    };
    cover(coverage, kCoverRulePlain + rule);
    if ((rule == kRulePlain || rule == kRulePlainNonEdge) && count(kPlainOrder, target) > 1)
      cover(coverage, kCoverTiePlain);
    if (reg_compress_edgefisrt_enable == 1) {
      if (winner == kModeTruncate)
        cover(coverage, kCoverTruncateWinnerTriesEdges);
      else if (count(kNonEdgeOrder, nonEdge) > 1)
        cover(coverage, kCoverTieNonEdgeWinner);
    }
    if ((rule == kRuleEdgeTaken || rule == kRuleEdgeBalanced) &&
        count(kEdgeOrder, edgeBest, false) > 1)
      cover(coverage, kCoverTieEdgeMembers);
    if (reg_curve_mode_en != 0) {
      cover(coverage, kCoverCurveForced);
    } else if (SelectedMode != mode) {
      cover(coverage, kRemapPoint[mode]);
      if (SelectedMode < 0 || SelectedMode >= kModeCount) cover(coverage, kCoverRemapUnknown);
    }
  }
  if (trace) {
    trace->nonEdgeBest = nonEdge;
    trace->edgeBest = edgeBest;
    trace->nonEdgeWinner = winner;
    trace->rule = rule;
    trace->selected = mode;
    trace->mode = SelectedMode;
    trace->curveForced = reg_curve_mode_en != 0;
  }
}

int Compression1x8::remapMode(int mode) const {
  // An entry of 1 means "keep": the remapping can never select the curve mode.
  const int d = reg_mode_definition[mode];
  return d != 1 ? d : mode;
}

int Compression1x8::encoderOf(int selected) {
  return selected >= 0 && selected < kModeCount ? selected : static_cast<int>(kModeTruncate);
}

BlockCode Compression1x8::encodeSelected(const int* p, bool parity) {
  const int encoder = encoderOf(SelectedMode);
  if (const int member = edgeMemberOf(encoder)) return encodeEdge(member, p);
  switch (encoder) {
    case kModeHadamard:
      return encodeHadama();
    case kModeCurve:
      return encodeCurve(p);
    case kModeMinMax:
      return encodeMinMax();
    case kModeDpcm:
      return encodeDPCM();
    default:
      return encodeTruncate(p, parity);
  }
}

BlockCode Compression1x8::encodeBlock(const int* pixels, bool parity) {
  int p[8];
  std::copy(pixels, pixels + 8, p);
  EncodeCalculateSAD(p, parity);
  Encode_modeselect();
  const BlockCode code = encodeSelected(p, parity);
  if (instrumented()) record(p, parity, code);
  return code;
}

void Compression1x8::record(const int* p, bool parity, BlockCode code) {
  const int encoder = encoderOf(SelectedMode);
  if (coverage) {
    // What the cost functions found, read from their results: an ineligible edge member and
    // an inapplicable DPCM leave a sum of 32767, which no coded block reaches (8 x 4095).
    cover(coverage, kCoverModeHadamard + encoder);
    cover(coverage, kCoverHadamardShift0 + HadamaShift);
    for (int k = 0; k < 6; ++k) {
      if (Edge[k].SAD == kNoSad) {
        cover(coverage, kCoverEdge2Ineligible + k);
      } else {
        cover(coverage, kCoverEdge2Eligible + k);
        cover(coverage, Edge[k].Dir ? kCoverEdgeHeadGroup : kCoverEdgeTailGroup);
      }
    }
    cover(coverage, DPCMSAD == kNoSad ? kCoverDpcmNotApplicable : kCoverDpcmShift0 + DPCMShift);
    if (dpcmRounderRow() == 1) cover(coverage, kCoverDpcmSwingRow);
  }
  if (!trace) return;
  BlockTrace& t = *trace;
  std::copy(p, p + 8, t.pixels);
  t.parity = parity;
  t.pmin = Pmin;
  t.pmax = Pmax;
  t.pminpos = Pminpos;
  const int sads[kModeCount] = {HadamaSAD,   kNoSad,      MinMaxSAD,   DPCMSAD,
                                TruncateSAD, Edge[0].SAD, Edge[1].SAD, Edge[2].SAD,
                                Edge[3].SAD, Edge[4].SAD, Edge[5].SAD};
  for (int m = 0; m < kModeCount; ++m) {
    t.hasCost[m] = m != kModeCurve;
    t.sad[m] = sads[m];
    t.maxerr[m] = modeCost(m);
    t.enabled[m] = reg_mode_en[m] != 0;
  }
  for (int k = 0; k < 6; ++k) {
    t.edgeHeadRange[k] = Edge[k].HeadRange;
    t.edgeTailRange[k] = Edge[k].TailRange;
    t.edgeDir[k] = Edge[k].Dir;
  }
  t.encoder = encoder;
  t.code = code;
}

void Compression1x8::EncodePixel8(int* pixels, bool* code, bool parity) {
  unpackCode(encodeBlock(pixels, parity), code);
}

void Compression1x8::Encode_bitstream(int* pixels, bool* code, bool parity) {
  unpackCode(encodeSelected(pixels, parity), code);
}
