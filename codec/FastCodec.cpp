// Variant table, register resolution and the row drivers of the fast path.
#include "codec/FastCodec.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "codec/Compression1x8.h"

namespace fbc {

namespace {

#define FBC_VARIANT(name, isa)                                                                    \
    CodecVariant {                                                                                \
        name, x86::encodeRow##isa, x86::decodeRow##isa, x86::decodeRow32##isa,                    \
            x86::decodeFrameRow##isa, x86::inRange##isa, x86::widenBytes##isa, x86::narrowBytes##isa \
    }

std::vector<CodecVariant> detectVariants() {
    std::vector<CodecVariant> v;
#if defined(FBC_HAVE_X86_KERNELS)
    __builtin_cpu_init();
#if defined(FBC_HAVE_AVX512_TU)
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq"))
        v.push_back(FBC_VARIANT("avx512", Avx512));
#endif
#if defined(FBC_HAVE_AVX2_TU)
    if (__builtin_cpu_supports("avx2")) v.push_back(FBC_VARIANT("avx2", Avx2));
#endif
    v.push_back(FBC_VARIANT("sse2", Sse2));
#endif
    return v;
}

bool forceScalar() {
    const char* e = std::getenv("FBC_FORCE_SCALAR");
    return e != nullptr && *e != '\0' && std::strcmp(e, "0") != 0;
}

}  // namespace

const std::vector<CodecVariant>& supportedVariants() {
    static const std::vector<CodecVariant> variants = detectVariants();
    return variants;
}

const CodecVariant* activeVariant() {
    static const CodecVariant* const active =
        forceScalar() || supportedVariants().empty() ? nullptr : &supportedVariants().front();
    return active;
}

x86::EncodeParams makeEncodeParams(const Compression1x8& c) {
    x86::EncodeParams p{};
    for (int m = 0; m < kModeCount; ++m) p.modeEnabled[m] = c.reg_mode_en[m] != 0;
    p.policy = c.reg_compress_edgefisrt_enable;
    p.finalTh = c.reg_compress_edgefisrt_finalth;
    p.edgeMinTh = c.reg_compress_edgemin_th;
    p.ratio = static_cast<std::int32_t>(static_cast<std::uint32_t>(c.reg_compress_edgemin_ratio));
    p.diffminTh = c.reg_edge_diffmin_th;
    p.truncExt = c.reg_tr_ext_en != 0;
    p.truncSelFlip = c.reg_tr_ext_rb != 0;
    p.encRound = c.reg_comp_enc_trun_rnd != 0;
    p.dpcmMaxShift = std::clamp(3 + c.reg_dpcm_stepsize_expansion_en, 0, 6);
    p.dpcmHalfDownRow = c.reg_dpcm_swing_rounder_en != 0 && c.SwingRowSelect != 0;
    p.dpcmLsbUpdate = c.reg_dpcm_pmin_lsb_update_en != 0;
    for (int m = 0; m < kModeCount; ++m) {
        // Remapping as selection applies it (an entry of 1 keeps the mode), then the encoder
        // the block dispatch runs for the resulting number.
        const int d = c.reg_mode_definition[m];
        const int selected = d != 1 ? d : m;
        const bool known = selected >= 0 && selected < kModeCount && selected != kModeCurve;
        p.encoderOf[m] = static_cast<std::int8_t>(known ? selected : kModeTruncate);
    }
    return p;
}

void makeDecodeParams(const Compression1x8& c, x86::DecodeParams& p) {
    p.prefixMode = kPrefixTable.mode;
    p.curve = c.reg_curve_mode_en != 0;
    p.truncExt = c.reg_tr_ext_en != 0;
    p.roundMd = c.reg_comp_de_tr_round_md != 0;
    p.roundZero = c.reg_comp_de_tr_round_zero != 0;
    p.streamOut = 0;
    const bool md = c.reg_comp_de_tr_round_md != 0, zero = c.reg_comp_de_tr_round_zero != 0;
    // Reconstruction at the middle of the interval unless a rounding register says otherwise.
    const auto half = [&](int t) { return md || (zero && t == 0) ? 0 : 1; };
    for (int t = 0; t < 128; ++t) p.truncCoarse[t] = static_cast<std::uint16_t>((2 * t + half(t)) << 4);
    for (int t = 0; t < 256; ++t) p.truncFine[t] = static_cast<std::uint16_t>((2 * t + half(t)) << 3);
    for (int d = 0; d < 6; ++d) {
        const int h = d >= 1 ? 1 << (d - 1) : 0;
        p.coarseHalf[0][d] = half(1) * h;
        p.coarseHalf[1][d] = half(0) * h;
    }
    if (p.curve) {
        for (int y = 0; y < 256; ++y) p.curveOut[y] = static_cast<std::uint16_t>(c.curveUncompress(y));
    }
}

FastEncoder::FastEncoder(Compression1x8& codec, const CodecVariant* variant)
    : codec_(codec), variant_(variant), params_(makeEncodeParams(codec)), curve_(codec.reg_curve_mode_en != 0) {
    if (curve_ && variant_) {
        curveLut_.resize(4096);
        for (int x = 0; x < 4096; ++x) curveLut_[x] = static_cast<std::uint8_t>(codec.curveCompress(x));
    }
}

void FastEncoder::encodeRow(const int* row, int width, bool parity, BlockCode* codes) {
    const int full = width / 8, blocks = (width + 7) / 8;
    const int* src = row;
    if (full != blocks) {
        padded_.assign(static_cast<std::size_t>(blocks) * 8, 0);
        std::copy(row, row + width, padded_.begin());
        src = padded_.data();
    }
    if (variant_ == nullptr || !variant_->inRange(src, blocks * 8)) {
        for (int b = 0; b < blocks; ++b) codes[b] = codec_.encodeBlock(src + 8 * b, parity);
        return;
    }
    if (curve_) {
        // Curve coding ignores every cost: byte i of a code is pixel i through the curve.
        for (int b = 0; b < blocks; ++b) {
            BlockCode c = 0;
            for (int i = 0; i < 8; ++i) c |= BlockCode{curveLut_[src[8 * b + i]]} << (8 * i);
            codes[b] = c;
        }
        return;
    }
    variant_->encodeRow(params_, src, blocks, parity, codes);
}

FastDecoder::FastDecoder(Compression1x8& codec, const CodecVariant* variant) : codec_(codec), variant_(variant) {
    if (variant_) makeDecodeParams(codec, params_);
}

template <class Out>
void FastDecoder::decodeRowReference(const unsigned char* codes, int width, Out* out) {
    for (int x = 0; x < width; x += 8) {
        int px[8];
        codec_.decodeBlock(loadCode(codes + x), px);
        const int n = std::min(width - x, 8);
        for (int i = 0; i < n; ++i) out[x + i] = static_cast<Out>(px[i] << 4);
    }
}

template <class In, class Out, class Kernel>
void FastDecoder::decodeRowWith(Kernel kernel, const In* codes, int width, Out* out) {
    const int full = width / 8;
    kernel(params_, codes, full, out);
    if (full * 8 != width) {
        Out last[8];
        kernel(params_, codes + 8 * full, 1, last);
        std::copy(last, last + (width - 8 * full), out + 8 * full);
    }
}

void FastDecoder::decodeRow(const unsigned char* codes, int width, std::uint16_t* out) {
    if (variant_ == nullptr) return decodeRowReference(codes, width, out);
    decodeRowWith(variant_->decodeRow, codes, width, out);
}

void FastDecoder::decodeRow(const unsigned char* codes, int width, std::int32_t* out) {
    if (variant_ == nullptr) return decodeRowReference(codes, width, out);
    decodeRowWith(variant_->decodeRow32, codes, width, out);
}

void FastDecoder::decodeRow(const std::int32_t* samples, int width, std::int32_t* out) {
    if (variant_ == nullptr) {
        bytes_.resize(static_cast<std::size_t>((width + 7) & ~7));
        for (std::size_t i = 0; i < bytes_.size(); ++i) bytes_[i] = static_cast<unsigned char>(samples[i]);
        return decodeRowReference(bytes_.data(), width, out);
    }
    decodeRowWith(variant_->decodeFrameRow, samples, width, out);
}

}  // namespace fbc
