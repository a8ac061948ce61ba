// Cost of each piece of the block coder, per block, on a fixed set of mixed blocks.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"

namespace {

constexpr int kBlocks = 4096;

// Ramps, two levels, narrow ranges, end runs and noise in turn (a fixed LCG: same every run).
std::vector<int> mixedBlocks() {
  std::vector<int> px(kBlocks * 8);
  std::uint32_t s = 2024;
  const auto next = [&s] { return (s = s * 1664525u + 1013904223u) >> 8; };
  for (int b = 0; b < kBlocks; ++b) {
    const int base = static_cast<int>(next() % 3500);
    for (int i = 0; i < 8; ++i) {
      int v;
      switch (b % 5) {
        case 0:
          v = base + 40 * i;
          break;
        case 1:
          v = (next() & 1) ? base : base + 500;
          break;
        case 2:
          v = base + static_cast<int>(next() % 60);
          break;
        case 3:
          v = i < 3 ? base + static_cast<int>(next() % 8) : static_cast<int>(next() % 4096);
          break;
        default:
          v = static_cast<int>(next() % 4096);
      }
      px[b * 8 + i] = v > 4095 ? 4095 : v;
    }
  }
  return px;
}

// Rows the fast encoder sees: mixed blocks; calm ones (gentle ramps DPCM codes exactly, no lane
// needing the edge members' trial); full-range noise (every group trying them).
std::vector<int> contentBlocks(int content) {
  if (content == 0) return mixedBlocks();
  std::vector<int> px(kBlocks * 8);
  std::uint32_t s = 77;
  const auto next = [&s] { return (s = s * 1664525u + 1013904223u) >> 8; };
  for (int b = 0; b < kBlocks; ++b) {
    const int base = static_cast<int>(next() % 3900);
    for (int i = 0; i < 8; ++i)
      px[b * 8 + i] = content == 1 ? base + 3 * i : static_cast<int>(next() % 4096);
  }
  return px;
}

// The codec as the C entry sets it up: software defaults, enabled.
struct DefaultCodec : Compression1x8 {
  DefaultCodec() : Compression1x8("FBC", false) {
    setSWinit();
    setEnable(true);
  }
};

// Runs `fn(codec, block)` over every block with its statistics in place.
template <class Fn>
void perBlock(benchmark::State& state, Fn fn) {
  const std::vector<int> px = mixedBlocks();
  DefaultCodec c;
  for (auto _ : state) {
    for (int b = 0; b < kBlocks; ++b) {
      c.EncodeCalculateSAD(const_cast<int*>(&px[b * 8]), false);
      fn(c, &px[b * 8]);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
}

void statistics(benchmark::State& state) {
  perBlock(state, [](Compression1x8&, const int*) {});
}
BENCHMARK(statistics);  // every cost: the baseline the other entries add to

void costHadamard(benchmark::State& state) {
  perBlock(state, [](Compression1x8& c, const int* p) { c.CalculateHadama(p); });
}
void costMinMax(benchmark::State& state) {
  perBlock(state, [](Compression1x8& c, const int* p) { c.CalculateMinMaxSAD(p); });
}
void costDpcm(benchmark::State& state) {
  perBlock(state, [](Compression1x8& c, const int* p) { c.CalculateDPCMSAD(p); });
}
void costTruncate(benchmark::State& state) {
  perBlock(state, [](Compression1x8& c, const int* p) { c.CalculateTruncateSAD(p, false); });
}
void costEdge(benchmark::State& state) {
  const int member = static_cast<int>(state.range(0));
  perBlock(state, [member](Compression1x8& c, const int* p) { c.CalculateEdgeSAD(member, p); });
}
BENCHMARK(costHadamard);
BENCHMARK(costMinMax);
BENCHMARK(costDpcm);
BENCHMARK(costTruncate);
BENCHMARK(costEdge)->DenseRange(2, 7);

void modeSelection(benchmark::State& state) {
  perBlock(state, [](Compression1x8& c, const int*) { c.Encode_modeselect(); });
}
BENCHMARK(modeSelection);

void encodeMode(benchmark::State& state) {
  const int mode = static_cast<int>(state.range(0));
  perBlock(state, [mode](Compression1x8& c, const int* p) {
    c.SelectedMode = mode;
    benchmark::DoNotOptimize(c.encodeSelected(p, false));
  });
}
BENCHMARK(encodeMode)->DenseRange(0, fbc::kModeCount - 1);

// Decoding codes of one mode, made by that mode's encoder.
void decodeMode(benchmark::State& state) {
  const int mode = static_cast<int>(state.range(0));
  const std::vector<int> px = mixedBlocks();
  DefaultCodec c;
  c.reg_curve_mode_en = mode == fbc::kModeCurve;
  std::vector<fbc::BlockCode> codes(kBlocks);
  for (int b = 0; b < kBlocks; ++b) {
    c.EncodeCalculateSAD(const_cast<int*>(&px[b * 8]), false);
    c.SelectedMode = mode;
    codes[b] = c.encodeSelected(&px[b * 8], false);
  }
  int out[8];
  for (auto _ : state) {
    for (int b = 0; b < kBlocks; ++b) {
      c.decodeBlock(codes[b], out);
      benchmark::DoNotOptimize(out);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
}
BENCHMARK(decodeMode)->DenseRange(0, fbc::kModeCount - 1);

void referenceEncodeBlock(benchmark::State& state) {
  const std::vector<int> px = mixedBlocks();
  DefaultCodec c;
  for (auto _ : state)
    for (int b = 0; b < kBlocks; ++b) benchmark::DoNotOptimize(c.encodeBlock(&px[b * 8], false));
  state.SetItemsProcessed(state.iterations() * kBlocks);
}
BENCHMARK(referenceEncodeBlock);

// The fast path's row kernels, per variant the CPU runs; items are blocks. The encoder also per
// content: mixed (0), calm (1), noise (2).
void fastEncodeRow(benchmark::State& state) {
  const fbc::CodecVariant& v =
      fbc::supportedVariants().at(static_cast<std::size_t>(state.range(0)));
  static const char* const kContent[] = {"mixed", "calm", "noise"};
  state.SetLabel(std::string(v.name) + " " + kContent[state.range(1)]);
  const std::vector<int> px = contentBlocks(static_cast<int>(state.range(1)));
  DefaultCodec c;
  fbc::FastEncoder enc(c, &v);
  std::vector<fbc::BlockCode> codes(kBlocks);
  for (auto _ : state) {
    enc.encodeRow(px.data(), kBlocks * 8, false, codes.data());
    benchmark::DoNotOptimize(codes.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
}

// Codes read as bytes (the raw path) or as a compressed frame's 32-bit samples (the frame path),
// decoded into 16-bit pixels (raw) or 32-bit samples (frame).
template <class In, class Out>
void fastDecodeRow(benchmark::State& state) {
  const fbc::CodecVariant& v =
      fbc::supportedVariants().at(static_cast<std::size_t>(state.range(0)));
  state.SetLabel(v.name);
  const std::vector<int> px = mixedBlocks();
  DefaultCodec c;
  std::vector<unsigned char> bytes(kBlocks * 8);
  for (int b = 0; b < kBlocks; ++b) fbc::storeCode(c.encodeBlock(&px[b * 8], false), &bytes[b * 8]);
  const std::vector<In> in(bytes.begin(), bytes.end());
  fbc::FastDecoder dec(c, &v);
  std::vector<Out> out(kBlocks * 8);
  for (auto _ : state) {
    dec.decodeRow(in.data(), kBlocks * 8, out.data());
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(state.iterations() * kBlocks);
}

// The frame drivers' byte moves and the encoder's range check; items are samples.
void fastByteMoves(benchmark::State& state) {
  const fbc::CodecVariant& v =
      fbc::supportedVariants().at(static_cast<std::size_t>(state.range(0)));
  state.SetLabel(v.name);
  const std::vector<int> px = mixedBlocks();
  std::vector<unsigned char> bytes(px.size());
  std::vector<std::int32_t> wide(px.size());
  const int n = static_cast<int>(px.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(v.inRange(px.data(), n));
    v.narrowBytes(px.data(), n, bytes.data());
    v.widenBytes(bytes.data(), n, wide.data());
    benchmark::DoNotOptimize(wide.data());
  }
  state.SetItemsProcessed(state.iterations() * n);
}

void variantArgs(benchmark::internal::Benchmark* b) {
  for (std::size_t i = 0; i < fbc::supportedVariants().size(); ++i) b->Arg(static_cast<int>(i));
}
void variantContentArgs(benchmark::internal::Benchmark* b) {
  for (std::size_t i = 0; i < fbc::supportedVariants().size(); ++i)
    for (int content = 0; content < 3; ++content) b->Args({static_cast<int>(i), content});
}
BENCHMARK(fastEncodeRow)->Apply(variantContentArgs);
BENCHMARK_TEMPLATE(fastDecodeRow, unsigned char, std::uint16_t)->Apply(variantArgs);
BENCHMARK_TEMPLATE(fastDecodeRow, unsigned char, std::int32_t)->Apply(variantArgs);
BENCHMARK_TEMPLATE(fastDecodeRow, std::int32_t, std::int32_t)->Apply(variantArgs);
BENCHMARK(fastByteMoves)->Apply(variantArgs);

}  // namespace
