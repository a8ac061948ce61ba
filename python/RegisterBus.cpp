#include "python/RegisterBus.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "codec/Compression1x8.h"
#include "framework/RegisterTable.h"

namespace fbc::python {

namespace {

// One bound element: where it lives in a codec, its width, and its parameter's range.
struct Element {
  std::ptrdiff_t offset;  // of the element, from the codec's address
  int size;               // bytes: 1, 2 or 4
  bool isSigned;          // the parameter's range reaches below 0
  int topBit;             // highest element bit any register holds; -1 when none
  int minVal, maxVal;
  std::string name;  // "key" or "key[i]"
};

// One element bit held by a register bit.
struct BitLink {
  std::size_t element;
  int elementBit;
  int registerBit;
};

// Which element bits every register's bits hold, found by composing the registers with one
// element bit set at a time: the composition stays the one definition of the layout.
struct BitMap {
  std::vector<Element> elements;
  std::map<std::uint32_t, std::vector<BitLink>> links;
};

long long readElement(const Compression1x8& codec, const Element& e) {
  const char* p = reinterpret_cast<const char*>(&codec) + e.offset;
  if (e.size == 1) return *reinterpret_cast<const std::uint8_t*>(p);
  if (e.size == 2) {
    return e.isSigned ? *reinterpret_cast<const std::int16_t*>(p)
                      : *reinterpret_cast<const std::uint16_t*>(p);
  }
  return *reinterpret_cast<const std::int32_t*>(p);
}

void writeElement(Compression1x8& codec, const Element& e, long long v) {
  char* p = reinterpret_cast<char*>(&codec) + e.offset;
  if (e.size == 1) {
    *reinterpret_cast<std::uint8_t*>(p) = static_cast<std::uint8_t>(v);
  } else if (e.size == 2) {
    *reinterpret_cast<std::uint16_t*>(p) = static_cast<std::uint16_t>(v);
  } else {
    *reinterpret_cast<std::int32_t*>(p) = static_cast<std::int32_t>(v);
  }
}

std::unique_ptr<BitMap> probe(RegisterTable& regs, std::string& error) {
  auto map = std::make_unique<BitMap>();
  Compression1x8 scratch("FBC", false);
  std::vector<std::string> errors;
  for (const auto& [var, info] : scratch.bindings()) {
    const TParamInfo* param = scratch.getParamInfo(regs, var, errors);
    if (param == nullptr) continue;
    const int size = info.size == 1 || info.size == 2 ? info.size : 4;
    for (int i = 0; i < info.count; ++i) {
      const std::string name =
          info.name.second + (info.count > 1 ? "[" + std::to_string(i) + "]" : "");
      map->elements.push_back(
          {static_cast<const char*>(var) - reinterpret_cast<const char*>(&scratch) + i * size, size,
           param->minVal < 0, -1, param->minVal, param->maxVal, name});
    }
  }
  for (const Element& e : map->elements) writeElement(scratch, e, 0);
  std::map<int, int> base;
  if (!scratch.getRegisterValue(regs, base, errors)) {
    error = errors.empty() ? "the register map is incomplete" : errors.front();
    return nullptr;
  }
  for (std::size_t k = 0; k < map->elements.size(); ++k) {
    Element& e = map->elements[k];
    for (int bit = 0; bit < 8 * e.size; ++bit) {
      writeElement(scratch, e, static_cast<long long>(1ULL << bit));
      std::map<int, int> values;
      scratch.getRegisterValue(regs, values, errors);
      for (const auto& [address, value] : values) {
        const int changed = (value ^ base[address]) & 0xFFFF;
        for (int r = 0; r < 16; ++r) {
          if ((changed >> r & 1) == 0) continue;
          map->links[static_cast<std::uint32_t>(address)].push_back({k, bit, r});
          e.topBit = std::max(e.topBit, bit);
        }
      }
    }
    writeElement(scratch, e, 0);
  }
  // Registers that hold no parameter bit are still registers of the map.
  for (const auto& [address, value] : base) map->links[static_cast<std::uint32_t>(address)];
  return map;
}

const BitMap* bitMap(RegisterTable& regs, std::string& error) {
  static std::mutex mutex;
  static std::map<const RegisterTable*, std::unique_ptr<BitMap>> maps;
  const std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<BitMap>& slot = maps[&regs];
  if (!slot) slot = probe(regs, error);
  return slot.get();
}

std::string hex(std::uint32_t v) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04x", v);
  return text;
}

}  // namespace

bool readRegister(Compression1x8& codec, RegisterTable& regs, std::uint32_t address,
                  std::uint16_t& value, std::string& error) {
  std::map<int, int> values;
  std::vector<std::string> errors;
  if (!codec.getRegisterValue(regs, values, errors)) {
    error = errors.empty() ? "the register map is incomplete" : errors.front();
    return false;
  }
  const auto it = address <= 0x7FFFFFFFu ? values.find(static_cast<int>(address)) : values.end();
  if (it == values.end()) {
    error = "address " + hex(address) + " is not a register of the map";
    return false;
  }
  value = static_cast<std::uint16_t>(it->second & 0xFFFF);
  return true;
}

bool writeRegister(Compression1x8& codec, RegisterTable& regs, std::uint32_t address,
                   std::uint16_t value, std::string& error) {
  const BitMap* map = bitMap(regs, error);
  if (map == nullptr) return false;
  const auto links = map->links.find(address);
  if (links == map->links.end()) {
    error = "address " + hex(address) + " is not a register of the map";
    return false;
  }
  // New values of the elements the register holds bits of, checked before any is stored.
  std::map<std::size_t, long long> updated;
  for (const BitLink& link : links->second) {
    auto it = updated.find(link.element);
    if (it == updated.end())
      it = updated.emplace(link.element, readElement(codec, map->elements[link.element])).first;
    const long long bit = 1LL << link.elementBit;
    it->second = (value >> link.registerBit & 1) != 0 ? it->second | bit : it->second & ~bit;
  }
  for (auto& [k, v] : updated) {
    const Element& e = map->elements[k];
    const long long span = 1LL << (e.topBit + 1);
    v &= span - 1;
    if (e.isSigned && (v & (span >> 1)) != 0) v -= span;
    if (v < e.minVal || v > e.maxVal) {
      error = "register " + hex(address) + " = " + hex(value) + " gives " + e.name + " = " +
              std::to_string(v) + ", out of range " + std::to_string(e.minVal) + ".." +
              std::to_string(e.maxVal);
      return false;
    }
  }
  for (const auto& [k, v] : updated) writeElement(codec, map->elements[k], v);
  return true;
}

}  // namespace fbc::python
