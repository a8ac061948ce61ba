#include <gtest/gtest.h>

#include "codec/BlockCode.h"
#include "codec/Compression1x8.h"

using namespace fbc;

// The top byte alone names the mode; the other seven bytes are zero.
TEST(BlockCode, PrefixOfLastByteNamesTheMode) {
    struct Case {
        unsigned char last;
        int mode;
    } cases[] = {
        {0x00, kModeHadamard}, {0x7F, kModeHadamard}, {0xBF, kModeMinMax}, {0xBE, kModeEdge7},
        {0xBC, kModeEdge6},    {0xB8, kModeEdge5},    {0xB0, kModeEdge4},  {0xA0, kModeEdge2},
        {0x90, kModeDpcm},     {0x80, kModeEdge3},    {0xC0, kModeTruncate},
        // Eight 0xFF bytes: prefix 11 is Truncate; MinMax needs the 0 in second place.
        {0xFF, kModeTruncate},
    };
    for (const Case& c : cases) {
        unsigned char bytes[8] = {0, 0, 0, 0, 0, 0, 0, c.last};
        EXPECT_EQ(modeOfCode(loadCode(bytes)), c.mode) << std::hex << int(c.last);
    }
}

TEST(BlockCode, BytesAreLittleEndianAndElementsAreBits) {
    const unsigned char bytes[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    const BlockCode code = loadCode(bytes);
    EXPECT_EQ(code, 0xEFCDAB8967452301ull);
    unsigned char back[8];
    storeCode(code, back);
    EXPECT_EQ(0, std::memcmp(bytes, back, 8));

    bool elements[64];
    unpackCode(code, elements);
    EXPECT_TRUE(elements[0]);    // byte 0 bit 0
    EXPECT_FALSE(elements[1]);
    EXPECT_TRUE(elements[63]);   // first prefix bit: top bit of byte 7 (0xEF)
    EXPECT_FALSE(elements[60]);  // 0xEF = 1110 1111: bit 4 of byte 7 is 0
    EXPECT_EQ(packCode(elements), code);
}

TEST(BlockCode, FieldsAreLeastSignificantBitFirst) {
    EXPECT_EQ(putField(-64, 42, 7), BlockCode{0x40} << 42);
    EXPECT_EQ(getSignedField(BlockCode{0x40} << 42, 42, 7), -64);
    EXPECT_EQ(getSignedField(BlockCode{0x3F} << 42, 42, 7), 63);
    EXPECT_EQ(getField(~BlockCode{0}, 49, 12), 4095u);
    EXPECT_EQ(putField(0x1FFF, 0, 12), BlockCode{0xFFF});
}

TEST(BlockCode, Log2IsTheLowestSetBitAmongSeven) {
    const int cases[][2] = {{1, 0}, {2, 1}, {4, 2}, {8, 3}, {16, 4}, {32, 5}, {64, 6},
                            {12, 2}, {128, 0}, {0, 0}, {3, 0}, {96, 5}};
    for (const auto& c : cases) EXPECT_EQ(Compression1x8::log2(c[0]), c[1]) << c[0];
}
