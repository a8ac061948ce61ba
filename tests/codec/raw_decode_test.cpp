#include <random>

#include "codec/FBC_dll.h"
#include "codec_fixture.h"

using namespace fbc;

using RawDecode = CodecTest;

TEST_F(RawDecode, DisabledBlockPassesBytesThrough) {
    codec.Enable = 0;
    unsigned char in[4] = {0xAB, 0x00, 0xFF, 0x12};
    unsigned short out[4] = {};
    codec.DecompressFrame(in, out, 2, 2, 0);
    EXPECT_EQ(out[0], 0x00AB);
    EXPECT_EQ(out[2], 0x00FF);
    EXPECT_EQ(out[3], 0x0012);
}

TEST_F(RawDecode, ShortRowsReadIntoTheNextRow) {
    // Width 12: the second block of each row is read from bytes 8..15 counted from the row's
    // start (4 bytes of the next row included) and keeps 4 pixels.
    const int width = 12, height = 3;
    std::vector<unsigned char> in(width * height + 7);
    std::mt19937 rng(1);
    for (auto& b : in) b = static_cast<unsigned char>(rng());
    std::vector<unsigned short> out(width * height, 0xDEAD);
    codec.DecompressFrame(in.data(), out.data(), width, height, 0);
    for (int r = 0; r < height; ++r) {
        for (int x : {0, 8}) {
            int px[8];
            codec.decodeBlock(loadCode(&in[r * width + x]), px);
            for (int i = 0; i < 8 && x + i < width; ++i) EXPECT_EQ(out[r * width + x + i], px[i] << 4) << r << "," << x + i;
        }
    }
}

TEST_F(RawDecode, NothingWrittenForEmptySizes) {
    unsigned char in[8] = {};
    unsigned short out[1] = {7};
    codec.DecompressFrame(in, out, 0, 5, 0);
    codec.DecompressFrame(in, out, 5, -1, 0);
    EXPECT_EQ(out[0], 7);
}

TEST(LibraryEntry, PrintsItsLinesAndDecodesWithDefaults) {
    // Two flat Hadamard blocks of 0x123 (shift 3, DC 0x123), then one all-zero block.
    unsigned char in[24 + 7] = {};
    for (int b = 0; b < 2; ++b) storeCode(0x6246000000000000ull, in + 8 * b);
    unsigned short out[24];
    testing::internal::CaptureStdout();
    const int rc = FBD_Execute(in, out, 8, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "FBD start... r4_k9_v1.6\nFBD in process...\nFBD end!\n");
    EXPECT_EQ(rc, 1);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(out[i], 0x1230);
    for (int i = 16; i < 24; ++i) EXPECT_EQ(out[i], 0);
}
