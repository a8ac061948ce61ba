#include "image/PPM.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "image/ParsePPM.h"

void CPPM2::begin(const char* name, const char* magic, std::ios_base::openmode mode, int w, int h,
                  int levels) {
  open(name, mode | std::ios_base::out | std::ios_base::trunc);
  if (!is_open()) std::puts("ppm file open error!");
  width = w;
  height = h;
  maximum = levels - 1;
  column = 0;
  *this << magic << '\n' << w << ' ' << h << '\n' << maximum << '\n';
}

void CPPM2::newppm(const char* name, int w, int h, int levels) {
  begin(name, "P6", std::ios_base::binary, w, h, levels);
}

void CPPM2::newppm16b(const char* name, int w, int h, int levels) {
  begin(name, "P3", std::ios_base::openmode(), w, h, levels);
}

// No lower limit: -1 is written as its low byte 0xFF.
void CPPM2::appendpixel(int r, int g, int b) {
  const char bytes[3] = {static_cast<char>(std::min(r, maximum) & 0xFF),
                         static_cast<char>(std::min(g, maximum) & 0xFF),
                         static_cast<char>(std::min(b, maximum) & 0xFF)};
  write(bytes, 3);
}

void CPPM2::appendpixel16b(int r, int g, int b) {
  *this << std::min(r, maximum) << ' ' << std::min(g, maximum) << ' ' << std::min(b, maximum)
        << " \n";
  if (++column >= width) column = 0;
}

void CPPM2::closeppm() {
  close();
}

void StorePPM(const char* name, const unsigned char* rgb, int width, int height) {
  CPPM2 ppm;
  ppm.newppm(name, width, height, 256);
  const long long n = static_cast<long long>(width) * height;
  for (long long i = 0; i < n; ++i) ppm.appendpixel(rgb[3 * i], rgb[3 * i + 1], rgb[3 * i + 2]);
  ppm.closeppm();
}

// The channels are rotated on the way out (third value first) and scaled by 64; files written
// by this model have always carried this order.
void StorePPM16B(const char* name, const int* values, int width, int height) {
  CPPM2 ppm;
  ppm.newppm16b(name, width, height, 65536);
  const long long n = static_cast<long long>(width) * height;
  auto times64 = [](int v) { return static_cast<int>(static_cast<unsigned>(v) << 6); };
  for (long long i = 0; i < n; ++i) {
    const int* p = values + 3 * i;
    ppm.appendpixel16b(times64(p[2]), times64(p[0]), times64(p[1]));
  }
  ppm.closeppm();
}

void StorePPMField(const char* base, const unsigned int* values, int width, int height) {
  const std::string name = std::string(base) + ".ppm";
  CPPM2 ppm;
  ppm.newppm(name.c_str(), width, height, 256);
  const long long n = static_cast<long long>(width) * height;
  for (long long i = 0; i < n; ++i) {
    ppm.appendpixel(static_cast<int>(values[3 * i]), static_cast<int>(values[3 * i + 1]),
                    static_cast<int>(values[3 * i + 2]));
  }
  ppm.closeppm();
}

// Interlaced picture: picture row y comes from field row y >> 1; mode 1 blanks the odd rows,
// mode -1 the even rows.
void StorePPMFrame(const char* base, const unsigned int* field1, const unsigned int* field2,
                   int width, int height, int mode) {
  const std::string name = std::string(base) + ".ppm";
  CPPM2 ppm;
  ppm.newppm(name.c_str(), width, height, 256);
  for (int y = 0; y < height; ++y) {
    const bool odd = (y & 1) != 0;
    const unsigned int* field = odd ? field2 : field1;
    const bool black = (mode == 1 && odd) || (mode == -1 && !odd);
    const unsigned int* row = field + static_cast<long long>(y >> 1) * width * 3;
    for (int x = 0; x < width; ++x) {
      if (black) {
        ppm.appendpixel(0, 0, 0);
      } else {
        ppm.appendpixel(static_cast<int>(row[3 * x]), static_cast<int>(row[3 * x + 1]),
                        static_cast<int>(row[3 * x + 2]));
      }
    }
  }
  ppm.closeppm();
}
