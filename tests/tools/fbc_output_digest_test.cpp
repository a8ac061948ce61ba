// The demo chart's compressed frame, decoded frame and golden files, reduced to digests recorded
// with the scalar reference codec. The fast path must reproduce them byte for byte, and so must
// the reference itself (FBC_FORCE_SCALAR=1) after any change.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/tools/RunFbc.h"

namespace {

using fbc::test::readBytes;
using fbc::test::runFbc;
using fbc::test::TempDir;
using fbc::test::fnv1a;

struct Digests {
    std::uint64_t compressed, decoded, golden;
};

Digests chartDigests(const std::string& env) {
    TempDir dir;
    const auto run = [&](const std::string& args) {
        const auto r = runFbc(dir, args, env);
        EXPECT_EQ(r.status, 0) << args << ": " << r.err;
    };
    run("demo --out demo");
    // The chart goes back in through the 16-bit PNG the demo wrote: its 12-bit values return exactly.
    run("encode demo/chart.png chart.bin");
    run("decode --width 640 --height 480 chart.bin decoded.raw");
    run("golden --frame-index 3 --outdir golden demo/chart.png");
    std::string golden;
    for (const char* name : {"fbc_golden_ref_com_input_0003.txt", "fbc_com_input_0003.raw", "fbc_golden_ref_com_0003.txt",
                             "fbc_golden_ref_dec_input_0003.txt", "fbc_golden_ref_dec_0003.txt"})
        golden += readBytes(dir.path() + "/golden/" + name);
    return {fnv1a(readBytes(dir.path() + "/chart.bin")), fnv1a(readBytes(dir.path() + "/decoded.raw")), fnv1a(golden)};
}

}  // namespace

TEST(OutputDigests, DemoChartAsRecordedOnBothPaths) {
    const auto recorded = fbc::test::readDigests(FBC_SOURCE_DIR "/tests/tools/data/digests.txt");
    for (const std::string env : {"", "FBC_FORCE_SCALAR=1"}) {
        const Digests d = chartDigests(env);
        EXPECT_EQ(d.compressed, recorded.at("compressed")) << env << std::hex << " compressed 0x" << d.compressed;
        EXPECT_EQ(d.decoded, recorded.at("decoded")) << env << std::hex << " decoded 0x" << d.decoded;
        EXPECT_EQ(d.golden, recorded.at("golden")) << env << std::hex << " golden 0x" << d.golden;
    }
}
