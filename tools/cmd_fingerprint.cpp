// fbc fingerprint: digests any implementation of the block can reproduce in seconds. A fixed
// stream of 64-bit codes (splitmix64 from a seed) is decoded, and the decoded pixels are coded
// again; SHA-256 of both results, under the given registers.
#if FBC_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/FastCodec.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"
#include "tools/trace_out.h"

namespace fbc::cli {

namespace {

const CommandSpec kSpec{
    "fingerprint",
    "[--params F] [--set K=V ...] [--seed S] [--count N] [--path NAME] [--json]",
    "Two SHA-256 digests of the block under the given registers, for checking another\n"
    "implementation (a model, an RTL simulation, an FPGA) in seconds. Codes: c_k is the k-th\n"
    "output of splitmix64 from state S (state += 0x9E3779B97F4A7C15; z = state;\n"
    "z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9; z = (z ^ (z >> 27)) * 0x94D049BB133111EB;\n"
    "output z ^ (z >> 31)), k = 0 .. N-1. decode: the 8 decoded 12-bit pixels of each c_k as\n"
    "little-endian uint16. encode: those pixels coded again with row parity k & 1, as the frame\n"
    "driver codes a block of frame index 0, each code as 8 little-endian bytes. Prints\n"
    "'decode <hex>', 'encode <hex>' and the registers that differ from the defaults; --json one\n"
    "object. --path runs 'reference' or a vector variant (see 'fbc selftest'); default the one "
    "the\n"
    "frame drivers use.",
    {kOptParams,
     kOptSet,
     kOptRegisters,
     {"seed", "S", "splitmix64 starting state, 0..2^64-1, default 0"},
     {"count", "N", "number of codes, 1..2^30, default 1048576"},
     {"path", "NAME", "'reference' or a vector variant, default the active one"},
     {"json", nullptr, "one JSON object on standard output"}},
    0,
    0};

#if FBC_HAVE_OPENSSL
struct Sha256 {
  std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> ctx{EVP_MD_CTX_new(), EVP_MD_CTX_free};
  Sha256() {
    if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1)
      failure("SHA-256 unavailable");
  }
  void update(const void* data, std::size_t n) {
    if (EVP_DigestUpdate(ctx.get(), data, n) != 1) failure("SHA-256 failed");
  }
  std::string hex() {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    if (EVP_DigestFinal_ex(ctx.get(), md, &n) != 1) failure("SHA-256 failed");
    std::string s;
    char b[3];
    for (unsigned int i = 0; i < n; ++i) {
      std::snprintf(b, sizeof b, "%02x", md[i]);
      s += b;
    }
    return s;
  }
};
#else
// A build without OpenSSL (a cross build for a target without it) has no SHA-256.
struct Sha256 {
  Sha256() { failure("SHA-256 needs OpenSSL, which this build of fbc was made without"); }
  void update(const void*, std::size_t) {}
  std::string hex() { return {}; }
};
#endif

std::uint64_t parseSeed(const Args& args) {
  return args.has("seed") ? args.seed(UINT64_MAX) : 0;
}

const CodecVariant* chosenPath(const Args& args) {
  if (!args.has("path")) return activeVariant();
  const std::string& name = args.value("path");
  if (name == "reference") return nullptr;
  std::string known = "reference";
  for (const CodecVariant& v : supportedVariants()) {
    if (name == v.name) return &v;
    known += std::string(", ") + v.name;
  }
  usageError("--path " + name + ": unknown on this machine (known: " + known + ")");
}

}  // namespace

int runFingerprint(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  std::uint64_t state = parseSeed(args);
  const long long count = args.integer("count", 1, 1LL << 30, 1048576);
  const CodecVariant* variant = chosenPath(args);

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  requireEnabled(codec);
  codec.startFrame(8, 0);
  FastDecoder decoder(codec, variant);
  FastEncoder encoder(codec, variant);

  // Chunks of codes: decoded as one row, then coded again as two rows, the even-numbered blocks
  // with parity 0 and the odd-numbered ones with parity 1.
  constexpr long long kChunk = 8192;
  std::vector<unsigned char> codeBytes(8 * kChunk);
  std::vector<std::uint16_t> decoded(8 * kChunk);
  std::vector<int> rows[2] = {std::vector<int>(4 * kChunk), std::vector<int>(4 * kChunk)};
  std::vector<BlockCode> coded[2] = {std::vector<BlockCode>(kChunk / 2),
                                     std::vector<BlockCode>(kChunk / 2)};
  std::vector<unsigned char> pixelBytes(16 * kChunk), encodedBytes(8 * kChunk);
  Sha256 decodeHash, encodeHash;
  for (long long done = 0; done < count; done += kChunk) {
    const int n = static_cast<int>(std::min(kChunk, count - done));
    for (int k = 0; k < n; ++k) {
      std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
      storeCode(z ^ (z >> 31), &codeBytes[8 * static_cast<std::size_t>(k)]);
    }
    decoder.decodeRow(codeBytes.data(), 8 * n, decoded.data());
    std::size_t counts[2] = {0, 0};
    for (int k = 0; k < n; ++k) {
      // k counts from the start of the stream; chunks are even in size, so its parity is k's.
      for (int i = 0; i < 8; ++i) {
        const int px = decoded[8 * static_cast<std::size_t>(k) + i] >> 4;
        pixelBytes[16 * static_cast<std::size_t>(k) + 2 * i] =
            static_cast<unsigned char>(px & 0xFF);
        pixelBytes[16 * static_cast<std::size_t>(k) + 2 * i + 1] =
            static_cast<unsigned char>(px >> 8);
        rows[k & 1][8 * counts[k & 1] + i] = px;
      }
      ++counts[k & 1];
    }
    decodeHash.update(pixelBytes.data(), 16 * static_cast<std::size_t>(n));
    for (int parity = 0; parity < 2; ++parity) {
      if (counts[parity] > 0)
        encoder.encodeRow(rows[parity].data(), static_cast<int>(8 * counts[parity]), parity == 1,
                          coded[parity].data());
    }
    for (int k = 0; k < n; ++k)
      storeCode(coded[k & 1][k / 2], &encodedBytes[8 * static_cast<std::size_t>(k)]);
    encodeHash.update(encodedBytes.data(), 8 * static_cast<std::size_t>(n));
  }
  const std::string decodeHex = decodeHash.hex(), encodeHex = encodeHash.hex();
  RegisterMap map(args);
  const std::vector<std::string> regs = nonDefaultRegisters(codec, map.table());
  if (args.has("json")) {
    std::cout << "{\"decode\":\"" << decodeHex << "\",\"encode\":\"" << encodeHex
              << "\",\"seed\":" << parseSeed(args) << ",\"count\":" << count << ",\"registers\":{";
    for (std::size_t i = 0; i < regs.size(); ++i) {
      const std::size_t eq = regs[i].find('=');
      std::cout << (i ? "," : "") << '"' << regs[i].substr(0, eq) << "\":\""
                << regs[i].substr(eq + 1) << '"';
    }
    std::cout << "}}\n";
  } else {
    std::cout << "decode " << decodeHex << "\nencode " << encodeHex << '\n';
    for (const std::string& r : regs) std::cout << "register " << r << '\n';
  }
  flushStandardOutput();
  return kExitOk;
}

}  // namespace fbc::cli
