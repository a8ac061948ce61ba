#include "codec/FBC_dll.h"

#include <cstdio>

#include "codec/Compression1x8.h"

extern "C" FBC_EXPORT int FBD_Execute(unsigned char* compressed, unsigned short* out, int width, int height) {
    Compression1x8 codec("FBC", false);
    std::puts("FBD start... r4_k9_v1.6");
    std::puts("FBD in process...");
    codec.Enable = 1;
    codec.m_dumpLevel = 0;
    codec.setSWinit();
    codec.DecompressFrame(compressed, out, width, height, 0);
    std::puts("FBD end!");
    return 1;
}
