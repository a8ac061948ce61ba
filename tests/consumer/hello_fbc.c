/* Code a small 12-bit frame through the C interface and decode it again. */
#include <fbc/fbc.h>
#include <stdio.h>
#include <stdlib.h>

int main(void) {
  enum { W = 20, H = 4, CODE_W = (W + 7) & ~7 };
  uint16_t pixels[H][W], decoded[H][W];
  uint8_t codes[H][CODE_W];
  int worst = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) pixels[y][x] = (uint16_t)((x * 211 + y * 37) % 4096);

  fbc_codec* c = fbc_new();
  if (c == NULL) return 1;
  if (fbc_set(c, "reg_tr_ext_en", "1") != FBC_OK ||
      fbc_encode_frame(c, &pixels[0][0], W, W, H, 0, 0, &codes[0][0], CODE_W) != FBC_OK ||
      fbc_decode_frame(c, &codes[0][0], CODE_W, W, H, &decoded[0][0], W) != FBC_OK) {
    fprintf(stderr, "fbc: %s\n", fbc_error(c));
    fbc_free(c);
    return 1;
  }
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int e = abs(pixels[y][x] - decoded[y][x]);
      if (e > worst) worst = e;
    }
  printf("fbc %s: %dx%d frame, largest error %d\n", fbc_version(), W, H, worst);
  if (fbc_set(c, "reg_tr_ext_en", "2") == FBC_ERR_VALUE) printf("rejected: %s\n", fbc_error(c));
  fbc_free(c);
  return worst <= 4095 ? 0 : 1;
}
