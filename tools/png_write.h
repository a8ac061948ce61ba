// PNG pictures in memory (through libpng) and the text encodings a self-contained web page
// carries them in.
#pragma once

#include <string>
#include <vector>

namespace fbc::cli {

// An 8-bit PNG of `width` x `height` pixels of `channels` samples each (1 grey, 3 RGB), rows
// top to bottom.
std::vector<unsigned char> encodePng(int width, int height, int channels,
                                     const std::vector<unsigned char>& samples);

std::string base64(const std::vector<unsigned char>& bytes);

// `text` compressed in the gzip format (zlib), for a page to inflate with DecompressionStream.
std::vector<unsigned char> gzip(const std::string& text);

}  // namespace fbc::cli
