// The C interface from C++: one codec per thread, owned by a unique_ptr.
#include <fbc/fbc.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

using Codec = std::unique_ptr<fbc_codec, decltype(&fbc_free)>;

int main() {
  const int width = 64, height = 16;
  std::vector<std::uint16_t> pixels(width * height);
  for (int i = 0; i < width * height; ++i)
    pixels[i] = static_cast<std::uint16_t>((i * 7919) % 4096);

  std::vector<std::vector<std::uint8_t>> codes(4, std::vector<std::uint8_t>(width * height));
  std::vector<std::thread> threads;
  for (auto& out : codes) {
    threads.emplace_back([&pixels, &out] {
      Codec c(fbc_new(), fbc_free);
      if (!c || fbc_encode_frame(c.get(), pixels.data(), width, width, height, 0, 0, out.data(),
                                 width) != FBC_OK)
        out.clear();
    });
  }
  for (auto& t : threads) t.join();
  for (const auto& out : codes) {
    if (out != codes.front() || out.empty()) {
      std::cerr << "threads disagree\n";
      return 1;
    }
  }
  std::cout << "fbc " << fbc_version() << ": 4 threads, identical codes, first block mode "
            << fbc_code_mode(nullptr, *reinterpret_cast<const std::uint64_t*>(codes.front().data()))
            << "\n";
  return 0;
}
