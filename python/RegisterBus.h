// Bus access to the block's 16-bit registers by address: reads compose the register map from the
// bound parameters; writes are the exact inverse, derived from that same composition.
#pragma once

#include <cstdint>
#include <string>

class Compression1x8;
class RegisterTable;

namespace fbc::python {

// The value register `address` composes to. False with `error` when the map has no such register.
bool readRegister(Compression1x8& codec, RegisterTable& regs, std::uint32_t address,
                  std::uint16_t& value, std::string& error);

// A bus write: every parameter field in the register takes its bits from `value`, the element's
// bits outside the register keep theirs, and a signed parameter's element is sign-extended from
// its top field bit. False with `error`, the codec unchanged, when the map has no such register
// or a resulting element lies outside its parameter's range.
bool writeRegister(Compression1x8& codec, RegisterTable& regs, std::uint32_t address,
                   std::uint16_t value, std::string& error);

}  // namespace fbc::python
