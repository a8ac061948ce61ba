// The table of cover points: one name and one description per point, in CoverPoint order.
#include "codec/Coverage.h"

#include <cstring>

namespace fbc {

namespace {

constexpr const char* kNeedsExpansion2 =
    "needs reg_dpcm_stepsize_expansion_en of 2 or more; the register map allows 0..1";

const CoverPointInfo kPoints[] = {
    {"mode.hadamard", "Hadamard's encoder coded the block", nullptr},
    {"mode.curve", "Curve's encoder coded the block (reg_curve_mode_en)", nullptr},
    {"mode.minmax", "MinMax's encoder coded the block", nullptr},
    {"mode.dpcm", "DPCM's encoder coded the block", nullptr},
    {"mode.truncate", "Truncate's encoder coded the block (also for a remapped unknown number)",
     nullptr},
    {"mode.edge2", "Edge2's encoder coded the block", nullptr},
    {"mode.edge3", "Edge3's encoder coded the block", nullptr},
    {"mode.edge4", "Edge4's encoder coded the block", nullptr},
    {"mode.edge5", "Edge5's encoder coded the block", nullptr},
    {"mode.edge6", "Edge6's encoder coded the block", nullptr},
    {"mode.edge7", "Edge7's encoder coded the block", nullptr},

    {"rule.plain", "plain policy (edge-first 0): the lowest cost of all modes decided", nullptr},
    {"rule.plain_non_edge",
     "plain policy with the edge minimum left out (edge-first 2 or 3): the best non-edge cost "
     "decided",
     nullptr},
    {"rule.plain_fallback",
     "plain policy: no mode of the priority order had the best cost, Truncate taken", nullptr},
    {"rule.kept_under_final",
     "edge-first: the non-edge winner's cost was at most reg_compress_edgefisrt_finalth, kept",
     nullptr},
    {"rule.edge_taken",
     "edge-first: the edge trial took an unbalanced member at the best edge cost", nullptr},
    {"rule.edge_balanced",
     "edge-first: the edge trial ran but took no member (all balanced), the non-edge winner kept",
     nullptr},
    {"rule.edge_above_min",
     "edge-first: best edge cost above reg_compress_edgemin_th, trial skipped, non-edge winner "
     "kept",
     nullptr},
    {"tie.plain",
     "plain policy: several enabled modes had the deciding cost, the priority order chose",
     nullptr},
    {"tie.non_edge_winner",
     "edge-first: several non-edge modes had the best non-edge cost, the order DPCM, MinMax, "
     "Hadamard chose",
     nullptr},
    {"tie.edge_members",
     "edge trial: several edge members had the best edge cost, the order Edge7 .. Edge2 chose",
     nullptr},
    {"edge_first.truncate_winner",
     "edge-first: Truncate was the non-edge winner, so edge members were tried whatever its cost",
     nullptr},
    {"edge_trial.member_balanced",
     "edge trial: a member at the best edge cost passed over, its head and tail ranges balanced",
     nullptr},

    {"edge2.eligible", "Edge2's cost function found a group within its range limits", nullptr},
    {"edge3.eligible", "Edge3's cost function found a group within its range limits", nullptr},
    {"edge4.eligible", "Edge4's cost function found a group within its range limits", nullptr},
    {"edge5.eligible", "Edge5's cost function found a group within its range limits", nullptr},
    {"edge6.eligible", "Edge6's cost function found a group within its range limits", nullptr},
    {"edge7.eligible", "Edge7's cost function found a group within its range limits", nullptr},
    {"edge2.ineligible", "Edge2 cannot code the block: both group ranges too wide", nullptr},
    {"edge3.ineligible", "Edge3 cannot code the block: both group ranges too wide", nullptr},
    {"edge4.ineligible", "Edge4 cannot code the block: both group ranges too wide", nullptr},
    {"edge5.ineligible", "Edge5 cannot code the block: both group ranges too wide", nullptr},
    {"edge6.ineligible", "Edge6 cannot code the block: both group ranges too wide", nullptr},
    {"edge7.ineligible", "Edge7 cannot code the block: both group ranges too wide", nullptr},
    {"edge.head_group", "an eligible edge member chose the head group (direction 1)", nullptr},
    {"edge.tail_group",
     "an eligible edge member chose the tail group (direction 0, also on equal ranges)", nullptr},

    {"remap.hadamard", "reg_mode_definition turned a selected Hadamard into another number",
     nullptr},
    {"remap.minmax", "reg_mode_definition turned a selected MinMax into another number", nullptr},
    {"remap.dpcm", "reg_mode_definition turned a selected DPCM into another number", nullptr},
    {"remap.truncate", "reg_mode_definition turned a selected Truncate into another number",
     nullptr},
    {"remap.edge2", "reg_mode_definition turned a selected Edge2 into another number", nullptr},
    {"remap.edge3", "reg_mode_definition turned a selected Edge3 into another number", nullptr},
    {"remap.edge4", "reg_mode_definition turned a selected Edge4 into another number", nullptr},
    {"remap.edge5", "reg_mode_definition turned a selected Edge5 into another number", nullptr},
    {"remap.edge6", "reg_mode_definition turned a selected Edge6 into another number", nullptr},
    {"remap.edge7", "reg_mode_definition turned a selected Edge7 into another number", nullptr},
    {"remap.unknown", "the remapped number names no mode (11..15): Truncate's encoder ran",
     nullptr},
    {"curve.forced", "reg_curve_mode_en forced Curve over the selection and the remapping",
     nullptr},

    {"hadamard.shift0", "Hadamard quantiser step 256 (AC terms beyond +-8192)", nullptr},
    {"hadamard.shift1", "Hadamard quantiser step 128", nullptr},
    {"hadamard.shift2", "Hadamard quantiser step 64", nullptr},
    {"hadamard.shift3", "Hadamard quantiser step 32 (AC terms within -2048..2047)", nullptr},
    {"hadamard.ac_capped", "a positive Hadamard AC term capped so that it codes as 63, not 64",
     nullptr},

    {"truncate.ext_off_sel0", "Truncate coded without extension, sel 0", nullptr},
    {"truncate.ext_off_sel1", "Truncate coded without extension, sel 1", nullptr},
    {"truncate.ext_on_sel0", "Truncate coded with extension, sel 0: odd pixels keep 8 bits",
     nullptr},
    {"truncate.ext_on_sel1", "Truncate coded with extension, sel 1: even pixels keep 8 bits",
     nullptr},
    {"truncate.sel_flipped", "Truncate coded with reg_tr_ext_rb inverting the row parity", nullptr},

    {"dpcm.not_applicable", "DPCM cannot code the block: range at least 64 << its largest shift",
     nullptr},
    {"dpcm.shift0", "DPCM applicable with step 1", nullptr},
    {"dpcm.shift1", "DPCM applicable with step 2", nullptr},
    {"dpcm.shift2", "DPCM applicable with step 4", nullptr},
    {"dpcm.shift3", "DPCM applicable with step 8", nullptr},
    {"dpcm.shift4", "DPCM applicable with step 16 (step size expansion on)", nullptr},
    {"dpcm.shift5", "DPCM applicable with step 32", kNeedsExpansion2},
    {"dpcm.shift6", "DPCM applicable with step 64", kNeedsExpansion2},
    {"dpcm.swing_row",
     "DPCM's cost used the half-down rounder row (swing rounder on, row 1 this frame)", nullptr},
    {"dpcm.lsb_down", "DPCM base LSB update: adjustment a - step", nullptr},
    {"dpcm.lsb_up", "DPCM base LSB update: adjustment a + step", nullptr},
    {"dpcm.lsb_keep", "DPCM base LSB update: adjustment a", nullptr},
    {"dpcm.base_clamp0", "DPCM base after the LSB update below 0, clamped", nullptr},
    {"dpcm.base_clamp4095", "DPCM base after the LSB update above 4095, clamped",
     "cannot happen: the base rises past 4095 only from the top step interval, where every "
     "pixel's low bits are at least Pmin's, so the update never adds a step there"},

    {"decode.hadamard_clamp0", "Hadamard decoder clamped a pixel at 0", nullptr},
    {"decode.hadamard_clamp4095", "Hadamard decoder clamped a pixel at 4095", nullptr},
    {"decode.dpcm_clamp4095", "DPCM decoder clamped a pixel at 4095", nullptr},
    {"decode.edge_clamp4095", "edge decoder clamped a group pixel at 4095", nullptr},
    {"decode.curve_clamp0", "Curve decoder clamped a pixel at 0", nullptr},
    {"decode.curve_clamp4095", "Curve decoder clamped a pixel at 4095", nullptr},

    {"round.enc_truncate", "Truncate's encoder rounded before truncating (reg_comp_enc_trun_rnd)",
     nullptr},
    {"round.enc_edge", "an edge encoder rounded a coarse pixel (reg_comp_enc_trun_rnd)", nullptr},
    {"round.enc_clamp", "an encoder's rounding went past 4095 and was clamped", nullptr},
    {"round.dec_truncate_mid", "Truncate decoder rebuilt a pixel at the middle of its interval",
     nullptr},
    {"round.dec_truncate_bottom",
     "Truncate decoder rebuilt a pixel at the bottom (reg_comp_de_tr_round_md)", nullptr},
    {"round.dec_truncate_zero",
     "Truncate decoder rebuilt a field of 0 as 0 (reg_comp_de_tr_round_zero)", nullptr},
    {"round.dec_edge_mid", "edge decoder rebuilt a coarse pixel at the middle of its interval",
     nullptr},
    {"round.dec_edge_bottom",
     "edge decoder rebuilt a coarse pixel at the bottom (reg_comp_de_tr_round_md)", nullptr},
    {"round.dec_edge_zero",
     "edge decoder rebuilt a coarse field of 0 as 0 (reg_comp_de_tr_round_zero)", nullptr},
};
static_assert(sizeof kPoints / sizeof kPoints[0] == kCoverPointCount,
              "one table entry per cover point");

}  // namespace

const CoverPointInfo& coverPointInfo(int point) {
  return kPoints[point];
}

int coverPointByName(const char* name) {
  for (int i = 0; i < kCoverPointCount; ++i)
    if (std::strcmp(kPoints[i].name, name) == 0) return i;
  return -1;
}

}  // namespace fbc
