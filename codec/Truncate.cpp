// Truncate: the fallback mode. Every pixel keeps its top 7 bits; with the extension
// (reg_tr_ext_en) four alternate pixels keep 8 bits, bit 4 travelling in an extension bit.
// Which four depends on sel = row parity XOR reg_tr_ext_rb, so that in a Bayer mosaic one colour
// of each row pair gets the finer truncation. sel is written even without the extension.
//
//  63 62 | 61 | 60  | 59 | 58 | 57..51 | 50..44 | ... | 15..9 | 8  | 7  | 6..0
//   1  1 |  0 | sel | e0 | e1 |  t[0]  |  t[1]  | ... |  t[6] | e2 | e3 | t[7]
//
// e0..e3 are the extension bits of pixels 1, 3, 5, 7 (sel 0) or 0, 2, 4, 6 (sel 1).
#include <algorithm>
#include <cstdlib>

#include "codec/Compression1x8.h"

namespace {

constexpr fbc::BlockCode kPrefix = fbc::BlockCode{0x3} << 62;
constexpr int kExtBit[4] = {59, 58, 8, 7};

constexpr int fieldOf(int pixel) { return pixel == 7 ? 0 : 51 - 7 * pixel; }

}  // namespace

void Compression1x8::CalculateTruncateSAD(const int* p, bool parity) {
    // The cost models reconstruction at the middle of each interval whatever the rounding
    // registers say, so every rounding option sees the same cost.
    const int sel = (parity ? 1 : 0) ^ (reg_tr_ext_rb != 0 ? 1 : 0);
    int sad = 0, maxErr = 0;
    for (int i = 0; i < 8; ++i) {
        const bool fine = reg_tr_ext_en != 0 && (i & 1) != sel;
        const int e = fine ? std::abs((p[i] & 15) - 8) : std::abs((p[i] & 31) - 16);
        sad += e;
        maxErr = std::max(maxErr, e);
    }
    TruncateSAD = sad;
    TruncateMaxErr = maxErr;
}

fbc::BlockCode Compression1x8::encodeTruncate(const int* p, bool parity) const {
    const int sel = (parity ? 1 : 0) ^ (reg_tr_ext_rb != 0 ? 1 : 0);
    const bool ext = reg_tr_ext_en != 0;
    if (coverage) {
        fbc::cover(coverage, (ext ? fbc::kCoverTruncExtOnSel0 : fbc::kCoverTruncExtOffSel0) + sel);
        if (reg_tr_ext_rb != 0) fbc::cover(coverage, fbc::kCoverTruncSelFlipped);
        if (reg_comp_enc_trun_rnd != 0) fbc::cover(coverage, fbc::kCoverEncRoundTruncate);
    }
    fbc::BlockCode c = kPrefix | fbc::putField(sel, 60, 1);
    for (int i = 0; i < 8; ++i) {
        const bool fine = ext && (i & 1) != sel;
        int q = p[i];
        if (reg_comp_enc_trun_rnd != 0) {
            if (q + (fine ? 8 : 16) > 4095) fbc::cover(coverage, fbc::kCoverEncRoundClamp);
            q = std::clamp(q + (fine ? 8 : 16), 0, 4095);
        }
        c |= fbc::putField(q >> 5, fieldOf(i), 7);
        if (fine) c |= fbc::putField(q >> 4, kExtBit[i >> 1], 1);
    }
    return c;
}

namespace {

// kCount instantiates the decoder's counting of cover points.
template <bool kCount>
void decodeTruncateWith(const Compression1x8& c, fbc::BlockCode code, int* out) {
    // The decoder takes the extension from its own register, not from the bits.
    const bool ext = c.reg_tr_ext_en != 0;
    const int sel = static_cast<int>(fbc::getField(code, 60, 1));
    fbc::Coverage* const cov = c.coverage;
    for (int i = 0; i < 8; ++i) {
        int t = static_cast<int>(fbc::getField(code, fieldOf(i), 7));
        int shift = 4;
        if (ext && (i & 1) != sel) {
            t = 2 * t + static_cast<int>(fbc::getField(code, kExtBit[i >> 1], 1));
            shift = 3;
        }
        int r = 1;
        if (c.reg_comp_de_tr_round_md != 0 || (c.reg_comp_de_tr_round_zero != 0 && t == 0)) r = 0;
        out[i] = (2 * t + r) << shift;
        if (kCount) {
            fbc::cover(cov, r == 1                         ? fbc::kCoverDecTruncMid
                                 : c.reg_comp_de_tr_round_md != 0 ? fbc::kCoverDecTruncBottom
                                                                : fbc::kCoverDecTruncZero);
        }
    }
}

}  // namespace

void Compression1x8::decodeTruncate(fbc::BlockCode code, int* out) const {
    if (coverage)
        decodeTruncateWith<true>(*this, code, out);
    else
        decodeTruncateWith<false>(*this, code, out);
}

int fbc::layout::truncateFields(BlockCode, CodeField* f) {
    int n = 0;
    f[n++] = {"prefix", -1, 62, 2, false};
    f[n++] = {"zero", -1, 61, 1, false};
    f[n++] = {"sel", -1, 60, 1, false};
    f[n++] = {"ext", 0, kExtBit[0], 1, false};
    f[n++] = {"ext", 1, kExtBit[1], 1, false};
    for (int i = 0; i < 7; ++i) f[n++] = {"t", i, fieldOf(i), 7, false};
    f[n++] = {"ext", 2, kExtBit[2], 1, false};
    f[n++] = {"ext", 3, kExtBit[3], 1, false};
    f[n++] = {"t", 7, fieldOf(7), 7, false};
    return n;
}

void Compression1x8::encodeTruncate(int* p, bool* code, bool parity) {
    fbc::unpackCode(encodeTruncate(p, parity), code);
}
void Compression1x8::decodeTruncate(bool* code, int* out) { decodeTruncate(fbc::packCode(code), out); }
