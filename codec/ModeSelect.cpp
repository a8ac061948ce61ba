// Mode cost and mode selection. Every mode's cost for the block is its largest absolute pixel
// error; selection is minimax with a fixed priority among equal costs, an optional edge-first
// policy, per-mode enables and a final remapping table.
#include <algorithm>

#include "codec/Compression1x8.h"

using namespace fbc;

int Compression1x8::modeCost(int mode) const {
    switch (mode) {
        case kModeHadamard: return HadamaMaxErr;
        case kModeMinMax: return MinMaxMaxErr;
        case kModeDpcm: return DPCMMaxErr;
        case kModeTruncate: return TruncateMaxErr;
        case kModeEdge2: case kModeEdge3: case kModeEdge4:
        case kModeEdge5: case kModeEdge6: case kModeEdge7:
            return edge(mode - 3).MaxErr;
        default: return 4095;  // Curve has no cost; nor have remapped numbers beyond the modes
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
    if (reg_compress_edgefisrt_enable != 1) {
        // Any value other than 0 and 1 leaves the edge minimum out: an edge member then wins only
        // when it ties with the best non-edge cost.
        const int target = reg_compress_edgefisrt_enable == 0 ? std::min(nonEdge, edgeBest) : nonEdge;
        for (int m : kPlainOrder) {
            if (matches(m, target)) {
                mode = m;
                break;
            }
        }
    } else {
        int winner = kModeTruncate;
        for (int m : kNonEdgeOrder) {
            if (matches(m, nonEdge)) {
                winner = m;
                break;
            }
        }
        mode = winner;
        // A Truncate winner never shields the block from edge coding.
        const bool keepWinner = winner != kModeTruncate && nonEdge <= reg_compress_edgefisrt_finalth;
        if (!keepWinner && edgeBest <= reg_compress_edgemin_th) {
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
                    break;
                }
            }
        }
    }

    SelectedMode = reg_curve_mode_en != 0 ? static_cast<int>(kModeCurve) : remapMode(mode);
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
    switch (encoderOf(SelectedMode)) {
        case kModeHadamard: return encodeHadama();
        case kModeCurve: return encodeCurve(p);
        case kModeMinMax: return encodeMinMax();
        case kModeDpcm: return encodeDPCM();
        case kModeEdge2: case kModeEdge3: case kModeEdge4:
        case kModeEdge5: case kModeEdge6: case kModeEdge7:
            return encodeEdge(SelectedMode - 3, p);
        default: return encodeTruncate(p, parity);
    }
}

BlockCode Compression1x8::encodeBlock(const int* pixels, bool parity) {
    int p[8];
    std::copy(pixels, pixels + 8, p);
    EncodeCalculateSAD(p, parity);
    Encode_modeselect();
    return encodeSelected(p, parity);
}

void Compression1x8::EncodePixel8(int* pixels, bool* code, bool parity) {
    unpackCode(encodeBlock(pixels, parity), code);
}

void Compression1x8::Encode_bitstream(int* pixels, bool* code, bool parity) {
    unpackCode(encodeSelected(pixels, parity), code);
}
