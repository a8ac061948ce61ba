// Shared pieces of the fuzz targets: drawing typed values from the fuzzer's bytes, register
// contents inside the register table's ranges, a private scratch directory, and the check that
// ends the run on a broken property.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class Compression1x8;
class RegisterTable;

namespace fbc::fuzz {

// Consumes the input from the front; an exhausted reader yields zeros.
class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

  std::uint8_t byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
  std::uint16_t u16() {
    const unsigned lo = byte();
    return static_cast<std::uint16_t>(lo | (unsigned{byte()} << 8));
  }
  std::uint32_t u32() {
    const std::uint32_t lo = u16();
    return lo | (std::uint32_t{u16()} << 16);
  }
  // A value in lo..hi (inclusive), lo <= hi.
  int inRange(int lo, int hi);

  bool empty() const { return m_pos >= m_size; }
  const std::uint8_t* rest() const { return m_data + m_pos; }
  std::size_t restSize() const { return m_size - (m_pos < m_size ? m_pos : m_size); }

 private:
  const std::uint8_t* m_data;
  std::size_t m_size;
  std::size_t m_pos = 0;
};

// The shipped register map, read once.
const RegisterTable& shippedRegisters();

// Sets every bound register of the codec (the enable excepted) to a value drawn from the reader
// inside the parameter's checking range, and the DPCM rounder row to 0 or 1.
void drawRegisters(Compression1x8& codec, ByteReader& in);

// Writes the bytes to `name` inside a directory private to this process and returns its path.
std::string writeScratchFile(const std::string& name, const std::uint8_t* data, std::size_t size);

// Prints the broken property on standard error and aborts, which the fuzz engine records as a
// finding and the replay test reports as a failure.
[[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));
inline void require(bool ok, const char* what) {
  if (!ok) fail("%s", what);
}

}  // namespace fbc::fuzz
