// Seeded comparison of every fast-path variant with the scalar reference.
#include "codec/FastCheck.h"

#include <algorithm>
#include <cstdio>
#include <ostream>
#include <utility>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"
#include "image/Frame.h"

namespace fbc {

namespace {

// splitmix64: each case has its own stream, so one case replays alone from the seed.
class Rng {
 public:
  explicit Rng(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }
  int below(int n) { return static_cast<int>(next() % static_cast<std::uint64_t>(n)); }
  int range(int lo, int hi) { return lo + below(hi - lo + 1); }
  bool chance(int oneIn) { return below(oneIn) == 0; }
  template <std::size_t N>
  int pick(const int (&v)[N]) {
    return v[below(static_cast<int>(N))];
  }

 private:
  std::uint64_t state_;
};

// Every register and the software row selector, by name, for the replay line.
std::vector<std::pair<std::string, int*>> registersOf(Compression1x8& c) {
  std::vector<std::pair<std::string, int*>> r = {
      {"reg_compress_edgefisrt_enable", &c.reg_compress_edgefisrt_enable},
      {"reg_compress_edgefisrt_finalth", &c.reg_compress_edgefisrt_finalth},
      {"reg_compress_edgemin_th", &c.reg_compress_edgemin_th},
      {"reg_compress_edgemin_ratio", &c.reg_compress_edgemin_ratio},
      {"reg_edge_diffmin_th", &c.reg_edge_diffmin_th},
      {"reg_comp_enc_trun_rnd", &c.reg_comp_enc_trun_rnd},
      {"reg_comp_de_tr_round_md", &c.reg_comp_de_tr_round_md},
      {"reg_comp_de_tr_round_zero", &c.reg_comp_de_tr_round_zero},
      {"reg_dpcm_swing_rounder_en", &c.reg_dpcm_swing_rounder_en},
      {"reg_dpcm_pmin_lsb_update_en", &c.reg_dpcm_pmin_lsb_update_en},
      {"reg_dpcm_stepsize_expansion_en", &c.reg_dpcm_stepsize_expansion_en},
      {"reg_tr_ext_en", &c.reg_tr_ext_en},
      {"reg_tr_ext_rb", &c.reg_tr_ext_rb},
      {"reg_curve_mode_en", &c.reg_curve_mode_en},
      {"SwingRowSelect", &c.SwingRowSelect},
  };
  const auto array = [&r](const char* name, int* v, int n) {
    for (int i = 0; i < n; ++i)
      r.emplace_back(std::string(name) + "[" + std::to_string(i) + "]", v + i);
  };
  array("reg_mode_en", c.reg_mode_en, kModeCount);
  array("reg_mode_definition", c.reg_mode_definition, kModeCount);
  array("reg_comp_lut_in", c.reg_comp_lut_in, 15);
  array("reg_comp_lut_out", c.reg_comp_lut_out, 15);
  array("reg_comp_lut_slope", c.reg_comp_lut_slope, 16);
  array("reg_uncomp_lut_slope", c.reg_uncomp_lut_slope, 16);
  return r;
}

std::string registersDifferingFromDefaults(Compression1x8& c) {
  Compression1x8 d("FBC", false);
  d.setSWinit();
  const auto a = registersOf(c), b = registersOf(d);
  std::string s;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (*a[i].second == *b[i].second) continue;
    s += (s.empty() ? "" : " ") + a[i].first + "=" + std::to_string(*a[i].second);
  }
  return s.empty() ? "none" : s;
}

// Register values near every boundary the data path has, defaults about half the time.
void randomRegisters(Rng& g, Compression1x8& c) {
  c.setSWinit();
  c.setEnable(true);
  const int flags[] = {0, 0, 1, 1, 2, -1};
  const int thresholds[] = {0, 1, 8, 30, 100, 200, 2000, 4094, 4095, 4096, 1 << 20, -1};
  const int ratios[] = {0, 1, 1, 2, 3, 7, 65536, 0x7FFFFFFF, -1, -3};
  const auto maybe = [&g](int& reg, int value) {
    if (g.chance(2)) reg = value;
  };
  maybe(c.reg_compress_edgefisrt_enable, g.pick(flags));
  maybe(c.reg_compress_edgefisrt_finalth, g.chance(2) ? g.pick(thresholds) : g.range(0, 4095));
  maybe(c.reg_compress_edgemin_th, g.chance(2) ? g.pick(thresholds) : g.range(0, 4095));
  maybe(c.reg_compress_edgemin_ratio, g.chance(2) ? g.pick(ratios) : static_cast<int>(g.next()));
  maybe(c.reg_edge_diffmin_th, g.chance(2) ? g.pick(thresholds) : g.range(0, 300));
  maybe(c.reg_comp_enc_trun_rnd, g.pick(flags));
  maybe(c.reg_comp_de_tr_round_md, g.pick(flags));
  maybe(c.reg_comp_de_tr_round_zero, g.pick(flags));
  maybe(c.reg_dpcm_swing_rounder_en, g.pick(flags));
  maybe(c.reg_dpcm_pmin_lsb_update_en, g.pick(flags));
  maybe(c.reg_dpcm_stepsize_expansion_en, g.range(-5, 5));
  maybe(c.reg_tr_ext_en, g.pick(flags));
  maybe(c.reg_tr_ext_rb, g.pick(flags));
  c.SwingRowSelect = g.below(2);
  if (g.chance(3)) {
    for (int m = 0; m < kModeCount; ++m) {
      if (g.chance(4)) c.reg_mode_en[m] = g.pick(flags);
      if (g.chance(6)) c.reg_mode_definition[m] = g.range(-2, 12);
    }
  }
  if (g.chance(8)) {
    c.reg_curve_mode_en = g.chance(2) ? 1 : g.pick(flags);
    if (g.chance(2)) {
      for (int k = 0; k < 15; ++k) {
        c.reg_comp_lut_in[k] = g.range(-100, 4200);
        c.reg_comp_lut_out[k] = g.range(-20, 300);
        c.reg_uncomp_lut_in[k] = c.reg_comp_lut_out[k];
        c.reg_uncomp_lut_out[k] = c.reg_comp_lut_in[k];
      }
      for (int k = 0; k < 16; ++k) {
        c.reg_comp_lut_slope[k] = g.chance(4) ? static_cast<int>(g.next()) : g.range(-5000, 5000);
        c.reg_uncomp_lut_slope[k] =
            g.chance(4) ? static_cast<int>(g.next()) : g.range(-20000, 20000);
      }
    }
  }
}

// Shapes a calm row is made of: flat, two levels, a range DPCM codes exactly. A non-edge mode
// wins each of them at cost 0, so whole groups of lanes skip the edge members' trial and only
// the remapping can call for their fields.
constexpr int kCalmShapes[] = {2, 3, 7};

// One block of a shape chosen so that each mode wins somewhere, plus extremes and noise; in a
// calm row only the shapes above, without outliers.
void randomBlock(Rng& g, int* px, bool calm) {
  const int shape = calm ? g.pick(kCalmShapes) : g.below(9);
  const int base = g.range(0, 4095);
  for (int i = 0; i < 8; ++i) px[i] = g.range(0, 4095);
  switch (shape) {
    case 0:
      break;   // uniform noise
    case 1: {  // ramp with a little noise: Hadamard
      const int slope = g.range(-300, 300);
      for (int i = 0; i < 8; ++i) px[i] = base + slope * i + g.range(-3, 3);
      break;
    }
    case 2: {  // two levels: MinMax
      const int other = g.range(0, 4095);
      for (int i = 0; i < 8; ++i) px[i] = g.chance(2) ? base : other;
      break;
    }
    case 3: {  // narrow range: DPCM at every step size
      const int span = calm ? g.below(64) : (64 << g.below(7)) - g.below(2);
      for (int i = 0; i < 8; ++i) px[i] = base + g.range(0, span);
      break;
    }
    case 4: {  // a close run at one end: the edge members
      const int n = g.range(2, 7), spread = g.pick({0, 3, 7, 15, 31, 63, 127, 300});
      const bool head = g.chance(2);
      for (int k = 0; k < n; ++k) px[head ? k : 7 - k] = base + g.range(0, spread);
      break;
    }
    case 5:  // extremes
      for (int i = 0; i < 8; ++i) px[i] = g.chance(2) ? 0 : 4095;
      break;
    case 6: {  // alternating extremes or alternating pair
      const int a = g.chance(2) ? 0 : base, b = g.chance(2) ? 4095 : g.range(0, 4095);
      for (int i = 0; i < 8; ++i) px[i] = (i & 1) ? a : b;
      break;
    }
    case 7:  // flat, maybe with one outlier
      for (int i = 0; i < 8; ++i) px[i] = base;
      if (!calm && g.chance(2)) px[g.below(8)] = g.range(0, 4095);
      break;
    default:  // values near interval edges of the truncations
      for (int i = 0; i < 8; ++i)
        px[i] = (g.range(0, 4095) & ~31) + g.pick({0, 1, 7, 8, 15, 16, 17, 31});
      break;
  }
  for (int i = 0; i < 8; ++i) px[i] = px[i] < 0 ? 0 : (px[i] > 4095 ? 4095 : px[i]);
}

// A code whose top byte favours every prefix and whose payload is random.
std::uint64_t randomCode(Rng& g) {
  const int tops[] = {0x00, 0x7F, 0xC0, 0xFF, 0x80, 0x8F, 0x90, 0x9F, 0xA0,
                      0xAF, 0xB0, 0xB7, 0xB8, 0xBB, 0xBC, 0xBD, 0xBE, 0xBF};
  std::uint64_t c = g.next();
  if (g.chance(2))
    c = (c & 0x00FFFFFFFFFFFFFFull) | (static_cast<std::uint64_t>(g.pick(tops)) << 56);
  if (g.chance(8)) c = g.chance(2) ? 0 : ~std::uint64_t{0};
  return c;
}

int highestDifferingBit(std::uint64_t a, std::uint64_t b) {
  return 63 - __builtin_clzll(a ^ b);
}

std::string hex64(std::uint64_t v) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "0x%016llx", static_cast<unsigned long long>(v));
  return buf;
}

std::string header(const std::string& check, std::uint64_t seed, long long cs, int block) {
  char buf[160];
  std::snprintf(buf, sizeof buf, "%s differs from scalar: seed 0x%llx, case %lld, block %d\n",
                check.c_str(), static_cast<unsigned long long>(seed), cs, block);
  return buf;
}

std::string hexSeed(std::uint64_t seed) {
  char buf[24];
  std::snprintf(buf, sizeof buf, "%llx", static_cast<unsigned long long>(seed));
  return buf;
}

// Every output row lies between guard elements, and row and guards are filled with a poison
// value before each call (no kernel output takes it: decoded samples have four zero low bits and
// are not negative, and only a curve code can carry MinMax's prefix with its reserved bits set).
// A skipped element keeps the poison and differs from the reference; a write past either end
// shows in a guard.
constexpr int kGuard = 16;
constexpr std::uint16_t kPoison16 = 0xA5A5;
constexpr std::int32_t kPoison32 = static_cast<std::int32_t>(0xA5A5A5A5u);
constexpr unsigned char kPoison8 = 0xA5;
constexpr BlockCode kPoisonCode = 0xBFFFFFFFFFFFFFFFull;

template <class T>
class Guarded {
 public:
  Guarded(int n, T poison)
      : poison_(poison), n_(n), buf_(static_cast<std::size_t>(n) + 2 * kGuard, poison) {}
  T* row() { return buf_.data() + kGuard; }
  const T& operator[](int i) const { return buf_[static_cast<std::size_t>(i + kGuard)]; }
  // "" when both guards hold the poison, else which element outside the row was written.
  std::string brokenGuard() const {
    for (int i = -kGuard; i < n_ + kGuard; i = i == -1 ? n_ : i + 1)
      if ((*this)[i] != poison_)
        return "writes element " + std::to_string(i) + " outside its row of " + std::to_string(n_);
    return "";
  }

 private:
  T poison_;
  int n_;
  std::vector<T> buf_;
};

// The range check and the byte moves between packed codes and 32-bit samples, against plain
// loops, on rows of every length up to a few vectors and values in and out of 0..4095.
std::string checkByteMoves(const CodecVariant& v, const SelfTestOptions& o) {
  for (long long cs = 0; cs < o.count; ++cs) {
    Rng g(o.seed ^ (0xD1B54A32D192ED03ULL * static_cast<std::uint64_t>(cs + 1)));
    const int n = g.range(0, 100);
    std::vector<std::int32_t> px(n);
    for (int& x : px) x = g.range(0, 4095);
    if (n > 0 && g.chance(2))
      px[g.below(n)] = g.chance(2) ? g.range(4096, 1 << 20) : -g.range(1, 5000);
    bool want = true;
    for (int x : px) want = want && x >= 0 && x <= 4095;
    const std::string at = "case " + std::to_string(cs) + ", " + std::to_string(n) + " samples: ";
    if (v.inRange(px.data(), n) != want)
      return at + "range check says " + (want ? "out of range" : "in range");
    std::vector<unsigned char> bytes(n);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(g.below(256));
    Guarded<std::int32_t> wide(n, kPoison32);
    Guarded<unsigned char> narrow(n, kPoison8);
    v.widenBytes(bytes.data(), n, wide.row());
    v.narrowBytes(px.data(), n, narrow.row());
    if (!wide.brokenGuard().empty()) return at + "widening " + wide.brokenGuard();
    if (!narrow.brokenGuard().empty()) return at + "narrowing " + narrow.brokenGuard();
    for (int i = 0; i < n; ++i) {
      if (wide[i] != bytes[i])
        return at + "byte " + std::to_string(i) + " widens to " + std::to_string(wide[i]);
      if (narrow[i] != static_cast<unsigned char>(px[i]))
        return at + "sample " + std::to_string(i) + " narrows to " + std::to_string(narrow[i]);
    }
  }
  return "";
}

// The frame drivers with a frame's rows split among threads, against the reference block by
// block: frames of odd sizes, as many threads as rows and more, through every frame entry (32-bit
// frames, 16-bit samples, code bytes with the row stride of the compressed frame and of the raw
// decoder), on whichever path the drivers take (the vector variant, or the reference itself under
// FBC_FORCE_SCALAR).
std::string checkThreadedFrames(const SelfTestOptions& o, long long& blocks) {
  const long long cases = std::max(1LL, o.count / 20);
  for (long long cs = 0; cs < cases; ++cs) {
    Rng g(o.seed ^ (0xA0761D6478BD642FULL * static_cast<std::uint64_t>(cs + 1)));
    Compression1x8 codec("FBC", false);
    randomRegisters(g, codec);
    codec.Enable = 1;
    const int width = g.range(1, 70), height = g.range(1, 9), cfa = g.range(0, 3),
              frameIndex = g.range(0, 3);
    codec.Threads = g.range(2, height + 3);
    const int padded = (width + 7) & ~7;
    const std::size_t pixels = static_cast<std::size_t>(width) * height,
                      bytes = static_cast<std::size_t>(padded) * height;
    char at[128];
    std::snprintf(at, sizeof at, "case %lld, %dx%d, %d threads, cfa %d, frame %d: ", cs, width,
                  height, codec.Threads, cfa, frameIndex);
    const auto differs = [&](const char* entry, std::size_t i, int stride) {
      return std::string(at) + entry + " differs at (" +
             std::to_string(i % static_cast<std::size_t>(stride)) + ", " +
             std::to_string(i / static_cast<std::size_t>(stride)) +
             "); registers differing from defaults: " + registersDifferingFromDefaults(codec);
    };

    Frame in(width, height, Frame::CS_RAW, 12);
    std::vector<unsigned short> in16(pixels);
    std::vector<int> rows(bytes, 0);  // zero-padded rows, as the reference codes them
    const bool calm = g.chance(4);
    for (int y = 0; y < height; ++y) {
      int* row = &rows[static_cast<std::size_t>(y) * padded];
      for (int x = 0; x < padded; x += 8) randomBlock(g, row + x, calm);
      for (int x = 0; x < padded; ++x) {
        if (x >= width) {
          row[x] = 0;
          continue;
        }
        in.data[static_cast<std::size_t>(y) * width + x] = row[x];
        in16[static_cast<std::size_t>(y) * width + x] = static_cast<unsigned short>(row[x]);
      }
    }
    Compression1x8 ref(codec);
    ref.Threads = 1;
    ref.startFrame(width, frameIndex);
    std::vector<unsigned char> want(bytes);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < padded; x += 8) {
        const std::size_t i = static_cast<std::size_t>(y) * padded + x;
        storeCode(ref.encodeBlock(&rows[i], Compression1x8::rowParity(y, cfa)), &want[i]);
      }
    Frame out(Frame::CS_RAW, CFA_RGGB, 8);
    codec.allocateCompressedFrame(width, height, out);
    codec.CompressFrame(in, out, cfa, frameIndex);
    std::vector<unsigned char> got(bytes);
    codec.CompressFrame(in16.data(), got.data(), width, height, cfa, frameIndex);
    for (std::size_t i = 0; i < bytes; ++i) {
      if (out.data[i] != want[i]) return differs("encode (frame)", i, padded);
      if (got[i] != want[i]) return differs("encode (16-bit samples)", i, padded);
    }

    // Decoding: the codes just made with arbitrary ones among them.
    for (std::size_t i = 0; i < bytes; i += 8)
      if (g.chance(3)) storeCode(randomCode(g), &want[i]);
    const auto decodeAt = [&](const unsigned char* codes, std::size_t stride,
                              std::vector<unsigned short>& px) {
      px.assign(pixels, 0);
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; x += 8) {
          int p[8];
          ref.decodeBlock(loadCode(codes + y * stride + x), p);
          for (int k = 0; k < 8 && x + k < width; ++k)
            px[static_cast<std::size_t>(y) * width + x + k] =
                static_cast<unsigned short>(p[k] << 4);
        }
    };
    std::vector<unsigned short> wantPx, gotPx(pixels);
    decodeAt(want.data(), static_cast<std::size_t>(padded), wantPx);
    Frame coded(padded, height, Frame::CS_RAW, 8), decoded(width, height, Frame::CS_RAW, 16);
    for (std::size_t i = 0; i < bytes; ++i) coded.data[i] = want[i];
    codec.DecompressFrame(coded, decoded, 0);
    codec.DecompressFrame(want.data(), padded, gotPx.data(), width, height);
    for (std::size_t i = 0; i < pixels; ++i) {
      if (decoded.data[i] != wantPx[i]) return differs("decode (frame)", i, width);
      if (gotPx[i] != wantPx[i])
        return differs("decode (16-bit, rows of the compressed frame)", i, width);
    }
    // The raw decoder's rows are `width` bytes apart, the last block reading on into the next.
    std::vector<unsigned char> raw(pixels + 7);
    for (std::size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<unsigned char>(g.below(256));
    decodeAt(raw.data(), static_cast<std::size_t>(width), wantPx);
    codec.DecompressFrame(raw.data(), gotPx.data(), width, height, 0);
    for (std::size_t i = 0; i < pixels; ++i)
      if (gotPx[i] != wantPx[i]) return differs("decode (raw rows)", i, width);
    blocks += static_cast<long long>(padded / 8) * height;
  }
  return "";
}

}  // namespace

SelfTestResult runSelfTest(const SelfTestOptions& o) {
  return runSelfTest(o, supportedVariants());
}

SelfTestResult runSelfTest(const SelfTestOptions& o, const std::vector<CodecVariant>& variants) {
  SelfTestResult res;
  const auto wanted = [&o](const std::string& name) {
    return o.filter.empty() || name.find(o.filter) != std::string::npos;
  };
  for (const CodecVariant& v : variants) {
    const std::string enc = std::string("encode[") + v.name + "]",
                      dec = std::string("decode[") + v.name + "]";
    const std::string io = std::string("bytes[") + v.name + "]";
    const bool doEnc = wanted(enc), doDec = wanted(dec);
    if (doEnc) res.checks.push_back(enc);
    if (doDec) res.checks.push_back(dec);
    if (wanted(io)) {
      res.checks.push_back(io);
      const std::string r = checkByteMoves(v, o);
      if (!r.empty()) {
        res.ok = false;
        res.report = io + " differs from scalar: seed 0x" + hexSeed(o.seed) + ", " + r + "\n";
        return res;
      }
    }
    if (!doEnc && !doDec) continue;
    for (long long cs = 0; cs < o.count; ++cs) {
      Rng g(o.seed ^ (0x9E3779B97F4A7C15ULL * static_cast<std::uint64_t>(cs + 1)));
      Compression1x8 codec("FBC", false);
      randomRegisters(g, codec);
      const int blocks = g.range(1, 40);
      const int width = 8 * blocks - (g.chance(4) ? g.range(1, 7) : 0);
      const bool parity = g.chance(2);
      std::vector<int> px(static_cast<std::size_t>(blocks) * 8, 0);
      const bool calm = g.chance(4);
      for (int b = 0; b < blocks; ++b) randomBlock(g, &px[8 * b], calm);
      for (int i = width; i < blocks * 8; ++i)
        px[i] = 0;  // the driver pads a short block with zeros
      std::vector<BlockCode> ref(blocks);
      if (doEnc) {
        for (int b = 0; b < blocks; ++b) ref[b] = codec.encodeBlock(&px[8 * b], parity);
        Guarded<BlockCode> got(blocks, kPoisonCode);
        FastEncoder(codec, &v).encodeRow(px.data(), width, parity, got.row());
        if (!got.brokenGuard().empty()) {
          res.ok = false;
          res.report = header(enc, o.seed, cs, blocks - 1) + "  " + got.brokenGuard() + " (" +
                       std::to_string(width) + " pixels)\n";
          return res;
        }
        for (int b = 0; b < blocks; ++b) {
          if (ref[b] == got[b]) continue;
          res.ok = false;
          res.report = header(enc, o.seed, cs, b) + "  pixels";
          for (int i = 0; i < 8; ++i) res.report += " " + std::to_string(px[8 * b + i]);
          res.report +=
              std::string("; parity ") + (parity ? "1" : "0") +
              "; registers differing from defaults: " + registersDifferingFromDefaults(codec) +
              "\n  scalar " + hex64(ref[b]) + "  " + v.name + " " + hex64(got[b]) +
              "  first differing bit " + std::to_string(highestDifferingBit(ref[b], got[b])) + "\n";
          return res;
        }
        res.blocks += blocks;
      }
      if (doDec) {
        // Codes the encoder produced, and arbitrary ones.
        std::vector<unsigned char> bytes(static_cast<std::size_t>(blocks) * 8);
        for (int b = 0; b < blocks; ++b) {
          const BlockCode c = g.chance(2) ? codec.encodeBlock(&px[8 * b], parity) : randomCode(g);
          storeCode(c, &bytes[8 * b]);
        }
        std::vector<std::uint16_t> want(width);
        for (int b = 0; b < blocks; ++b) {
          int out[8];
          codec.decodeBlock(loadCode(&bytes[8 * b]), out);
          for (int i = 0; i < 8 && 8 * b + i < width; ++i)
            want[8 * b + i] = static_cast<std::uint16_t>(out[i] << 4);
        }
        // Every output: 16-bit samples (the raw decoder), 32-bit ones (frames) from code
        // bytes, and from a compressed frame's samples, whose bits above the code byte
        // carry noise the decoder must ignore.
        std::vector<std::int32_t> samples(bytes.size());
        for (std::size_t i = 0; i < bytes.size(); ++i)
          samples[i] =
              static_cast<std::int32_t>(g.chance(4) ? (g.next() & ~0xFFull) | bytes[i] : bytes[i]);
        Guarded<std::uint16_t> have(width, kPoison16);
        Guarded<std::int32_t> have32(width, kPoison32), haveFrame(width, kPoison32);
        FastDecoder(codec, &v).decodeRow(bytes.data(), width, have.row());
        FastDecoder(codec, &v).decodeRow(bytes.data(), width, have32.row());
        FastDecoder(codec, &v).decodeRow(samples.data(), width, haveFrame.row());
        const std::string broken =
            !have.brokenGuard().empty()     ? "16-bit output " + have.brokenGuard()
            : !have32.brokenGuard().empty() ? "32-bit output " + have32.brokenGuard()
            : !haveFrame.brokenGuard().empty()
                ? "output from frame samples " + haveFrame.brokenGuard()
                : "";
        if (!broken.empty()) {
          res.ok = false;
          res.report = header(dec, o.seed, cs, blocks - 1) + "  " + broken + "\n";
          return res;
        }
        for (int i = 0; i < width; ++i) {
          if (want[i] == have[i] && want[i] == have32[i] && want[i] == haveFrame[i]) continue;
          // Report the output that differs: 16-bit, else 32-bit, else from samples.
          const bool wide = want[i] == have[i];
          const bool frame = wide && want[i] == have32[i];
          const auto shown = [&](int k) {
            return !wide ? have[k] : frame ? haveFrame[k] : have32[k];
          };
          const int b = i / 8;
          res.ok = false;
          res.report =
              header(dec, o.seed, cs, b) + "  code " + hex64(loadCode(&bytes[8 * b])) +
              "; registers differing from defaults: " + registersDifferingFromDefaults(codec) +
              "\n  scalar";
          for (int k = 8 * b; k < 8 * b + 8 && k < width; ++k)
            res.report += " " + std::to_string(want[k] >> 4);
          res.report += std::string("  ") + v.name +
                        (frame  ? " (frame samples)"
                         : wide ? " (32-bit)"
                                : "");
          for (int k = 8 * b; k < 8 * b + 8 && k < width; ++k)
            res.report += " " + std::to_string(shown(k) >> 4);
          res.report += "  first differing pixel " + std::to_string(i - 8 * b) + "\n";
          return res;
        }
        res.blocks += blocks;
      }
    }
  }
  const CodecVariant* active = activeVariant();
  const std::string threads = std::string("threads[") + (active ? active->name : "scalar") + "]";
  if (wanted(threads)) {
    res.checks.push_back(threads);
    const std::string r = checkThreadedFrames(o, res.blocks);
    if (!r.empty()) {
      res.ok = false;
      res.report =
          threads + " differs from one thread: seed 0x" + hexSeed(o.seed) + ", " + r + "\n";
    }
  }
  return res;
}

bool printSelfTest(const SelfTestResult& r, std::ostream& out, std::ostream& err) {
  if (!r.ok) {
    out << std::flush;
    err << r.report;
    return false;
  }
  for (const std::string& c : r.checks) out << c << " ";
  out << "agree with scalar on " << r.blocks << " blocks\n";
  return true;
}

}  // namespace fbc
