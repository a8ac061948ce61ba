// The codec keeps all of its state in its objects: decoding and encoding on separate objects from
// several threads at once gives exactly the single-threaded results. Run under ThreadSanitizer
// this also catches any hidden shared state (lazily filled tables, static buffers).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FBC_dll.h"
#include "image/Frame.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 20;

// One thread's work: a buffer of block codes for the raw entries, and a 12-bit picture that is
// compressed and decompressed through the frame drivers with a register set of its own.
struct Workload {
  int width = 0, height = 0;
  std::vector<unsigned char>
      compressed;  // width * height + 7 bytes, the entry's over-read included
  Frame picture;
  int cfa = 0;
  int variant = 0;
};

struct Results {
  std::vector<unsigned short> checked;
  std::vector<unsigned short> plain;
  std::vector<int> codes;
  std::vector<int> decoded;
  bool operator==(const Results& o) const {
    return checked == o.checked && plain == o.plain && codes == o.codes && decoded == o.decoded;
  }
};

Workload makeWorkload(int k) {
  std::mt19937 rng(0x5eed0000u + static_cast<unsigned>(k));
  Workload w;
  w.width = 29 + 8 * k;  // never a multiple of 8: the last block of each row reads ahead
  w.height = 13 + k;
  w.compressed.resize(static_cast<std::size_t>(w.width) * w.height + 7);
  for (auto& b : w.compressed) b = static_cast<unsigned char>(rng());
  w.picture = Frame(45 + k, 9 + 2 * k, Frame::CS_RAW, 12);
  for (std::size_t i = 0; i < w.picture.size(); ++i) {
    // Smooth ramps with noise and a few hard edges, so that every mode family is chosen.
    const int x = static_cast<int>(i % static_cast<std::size_t>(w.picture.width));
    const int base =
        (x * 91 + static_cast<int>(i / static_cast<std::size_t>(w.picture.width)) * 37) % 4096;
    w.picture.data[i] = (x % 13 == 0) ? static_cast<int>(rng() % 4096)
                                      : std::min(4095, base + static_cast<int>(rng() % 24));
  }
  w.cfa = k & 3;
  w.variant = k;
  return w;
}

void configure(Compression1x8& codec, int variant) {
  codec.setSWinit();
  codec.setEnable(true);
  codec.m_dumpLevel = 0;
  codec.reg_tr_ext_en = variant & 1;
  codec.reg_dpcm_swing_rounder_en = (variant >> 1) & 1;
  codec.reg_dpcm_pmin_lsb_update_en = (variant >> 1) & 1;
  codec.reg_comp_de_tr_round_md = variant == 3;
}

Results run(const Workload& w) {
  Results r;
  const std::size_t pixels = static_cast<std::size_t>(w.width) * w.height;
  r.checked.assign(pixels, 0);
  EXPECT_EQ(FBD_ExecuteChecked(w.compressed.data(), w.compressed.size(), r.checked.data(), pixels,
                               w.width, w.height),
            FBD_OK);
  std::vector<unsigned char> copy = w.compressed;
  r.plain.assign(pixels, 0);
  FBD_Execute(copy.data(), r.plain.data(), w.width, w.height);

  Compression1x8 codec("FBC", false);
  configure(codec, w.variant);
  Frame codes(Frame::CS_RAW, CFA_RGGB, 16, RGBIR_NONE);
  codec.allocateCompressedFrame(w.picture.width, w.picture.height, codes);
  codec.CompressFrame(w.picture, codes, w.cfa, -1);
  Frame decoded(w.picture.width, w.picture.height, Frame::CS_RAW, 16);
  codec.DecompressFrame(codes, decoded, -1);
  r.codes.assign(codes.data, codes.data + codes.size());
  r.decoded.assign(decoded.data, decoded.data + decoded.size());
  return r;
}

TEST(Concurrency, SeparateObjectsMatchSingleThreadedResults) {
  std::vector<Workload> work;
  for (int k = 0; k < kThreads; ++k) work.push_back(makeWorkload(k));

  // The threads start before any single-threaded call, so that anything the library sets up
  // on first use is set up under contention.
  testing::internal::CaptureStdout();
  std::vector<std::vector<Results>> got(kThreads);
  std::vector<std::thread> threads;
  for (int k = 0; k < kThreads; ++k) {
    threads.emplace_back([&, k] {
      for (int round = 0; round < kRounds; ++round) got[k].push_back(run(work[k]));
    });
  }
  for (std::thread& t : threads) t.join();
  std::vector<Results> expected;
  for (const Workload& w : work) expected.push_back(run(w));
  const std::string console = testing::internal::GetCapturedStdout();

  // The workloads differ from each other, so a mix-up between threads cannot go unseen.
  for (int k = 1; k < kThreads; ++k) EXPECT_FALSE(expected[k] == expected[0]) << k;
  for (int k = 0; k < kThreads; ++k) {
    ASSERT_EQ(got[k].size(), static_cast<std::size_t>(kRounds));
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(got[k][round] == expected[k]) << "thread " << k << " round " << round;
    }
  }

  // Every FBD_Execute call printed its three lines whole; calls from different threads may
  // interleave line by line.
  const int calls = kThreads * (kRounds + 1);
  int start = 0, middle = 0, end = 0, other = 0;
  std::istringstream lines(console);
  for (std::string line; std::getline(lines, line);) {
    if (line == "FBD start... r4_k9_v1.6")
      ++start;
    else if (line == "FBD in process...")
      ++middle;
    else if (line == "FBD end!")
      ++end;
    else
      ++other;
  }
  EXPECT_EQ(start, calls);
  EXPECT_EQ(middle, calls);
  EXPECT_EQ(end, calls);
  EXPECT_EQ(other, 0);
}

}  // namespace
