// The Python module `fbc`: the codec over numpy arrays. Frames are coded straight from and into
// the arrays' memory with the interpreter lock released; every argument is checked first, so a
// failed call raises before anything is written or any register changes.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "codec/BlockCode.h"
#include "codec/Compression1x8.h"
#include "python/RegisterBus.h"
#include "tools/cli.h"
#include "tools/codec_config.h"

namespace py = pybind11;

namespace fbc::python {

namespace {

constexpr int kMax12 = 4095;
constexpr long long kMaxSide = cli::kMaxSide;
constexpr long long kMaxPixels = cli::kMaxPixels;

[[noreturn]] void valueError(const std::string& message) {
  throw py::value_error(message);
}
[[noreturn]] void typeError(const std::string& message) {
  throw py::type_error(message);
}

std::string shapeText(const py::array& a) {
  std::string s = "(";
  for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.shape(i));
  return s + (a.ndim() == 1 ? ",)" : ")");
}

// A 2-D array of element type T named `name`, its rows at a stride of whole elements with the
// elements of a row adjacent: the caller's memory when it is laid out so (C order, or rows of a
// larger array), else a C-ordered copy.
template <class T>
py::array_t<T> rowsOf(const py::handle& obj, const char* name, const char* dtypeName) {
  if (!py::isinstance<py::array>(obj))
    typeError(std::string(name) + ": expected a numpy array of " + dtypeName);
  py::array a = py::reinterpret_borrow<py::array>(obj);
  if (!a.dtype().is(py::dtype::of<T>())) {
    typeError(std::string(name) + ": expected dtype " + dtypeName + ", got " +
              std::string(py::str(a.dtype())));
  }
  if (a.ndim() != 2)
    valueError(std::string(name) + ": expected a 2-D array, got shape " + shapeText(a));
  if (a.shape(0) < 1 || a.shape(1) < 1)
    valueError(std::string(name) + ": empty array of shape " + shapeText(a));
  const bool rows = a.strides(1) == static_cast<py::ssize_t>(sizeof(T)) &&
                    a.strides(0) % static_cast<py::ssize_t>(sizeof(T)) == 0 &&
                    reinterpret_cast<std::uintptr_t>(a.data()) % alignof(T) == 0;
  if (rows) return py::reinterpret_borrow<py::array_t<T>>(a);
  return py::array_t<T, py::array::c_style | py::array::forcecast>::ensure(a);
}

void checkSize(const char* name, py::ssize_t height, py::ssize_t width) {
  if (width > kMaxSide || height > kMaxSide ||
      static_cast<long long>(width) * height > kMaxPixels) {
    valueError(std::string(name) + ": " + std::to_string(height) + " x " + std::to_string(width) +
               " is too large (at most " + std::to_string(kMaxSide) + " per side and " +
               std::to_string(kMaxPixels) + " pixels)");
  }
}

// An integer in lo..hi named `name`; anything but an integer is a TypeError.
long long integerArg(const py::handle& obj, const char* name, long long lo, long long hi) {
  if (!PyIndex_Check(obj.ptr()) || py::isinstance<py::bool_>(obj)) {
    typeError(std::string(name) + ": expected an integer, got " +
              std::string(py::str(obj.get_type().attr("__name__"))));
  }
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(
      py::reinterpret_steal<py::object>(PyNumber_Index(obj.ptr())).ptr(), &overflow);
  if (overflow != 0 || v < lo || v > hi) {
    valueError(std::string(name) + ": " + std::string(py::str(obj)) + " is out of range " +
               std::to_string(lo) + ".." + std::to_string(hi));
  }
  return v;
}

class Codec {
 public:
  Codec(const std::optional<std::string>& params, const py::kwargs& registers) {
    std::vector<std::string> overrides;
    for (const auto& [key, value] : registers)
      overrides.push_back(overrideText(py::str(key), value));
    try {
      cli::loadRegisters(codec_, cli::builtinRegisters(), params.value_or(""), overrides);
    } catch (const cli::Error& e) {
      valueError(e.what());
    }
  }

  py::array_t<std::uint8_t> encode(const py::handle& img, int cfa, long long frameIndex) {
    const py::array_t<std::uint16_t> in = rowsOf<std::uint16_t>(img, "img", "uint16");
    const py::ssize_t height = in.shape(0), width = in.shape(1);
    checkSize("img", height, width);
    if (cfa < 0 || cfa > 3) valueError("cfa: " + std::to_string(cfa) + " is out of range 0..3");
    if (frameIndex < 0 || frameIndex > 0x7FFFFFFF) {
      valueError("frame_index: " + std::to_string(frameIndex) + " is out of range 0..2147483647");
    }
    const py::ssize_t rowBytes = (width + 7) & ~7;
    py::array_t<std::uint8_t> codes({height, rowBytes});
    const std::uint16_t* px = in.data();
    const std::ptrdiff_t stride = in.strides(0) / static_cast<py::ssize_t>(sizeof(std::uint16_t));
    std::uint8_t* out = codes.mutable_data();
    py::ssize_t badRow = -1, badColumn = 0;
    bool enabled = true;
    {
      py::gil_scoped_release unlocked;
      // Every pixel is checked before the first block is coded.
      for (py::ssize_t y = 0; y < height && badRow < 0; ++y) {
        const std::uint16_t* row = px + y * stride;
        std::uint16_t top = 0;
        for (py::ssize_t x = 0; x < width; ++x) top = row[x] > top ? row[x] : top;
        if (top <= kMax12) continue;
        badRow = y;
        while (row[badColumn] <= kMax12) ++badColumn;
      }
      if (badRow < 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        enabled = codec_.Enable == 1;
        if (enabled) {
          codec_.encodeFrame(px, stride, static_cast<int>(width), static_cast<int>(height), cfa,
                             static_cast<int>(frameIndex), out, rowBytes);
        }
      }
    }
    if (badRow >= 0) {
      valueError("img: value " + std::to_string(px[badRow * stride + badColumn]) + " at [" +
                 std::to_string(badRow) + ", " + std::to_string(badColumn) + "] is above 4095");
    }
    if (!enabled) valueError("the block is disabled (reg_fbc_en=0): it codes nothing");
    return codes;
  }

  py::array_t<std::uint16_t> decode(const py::handle& codesArg,
                                    const std::optional<long long>& widthArg) {
    const py::array_t<std::uint8_t> in = rowsOf<std::uint8_t>(codesArg, "codes", "uint8");
    const py::ssize_t height = in.shape(0), rowBytes = in.shape(1);
    if (rowBytes % 8 != 0) {
      valueError("codes: " + std::to_string(rowBytes) +
                 " columns, expected a multiple of 8 (one 8-byte code per block)");
    }
    const long long width = widthArg.value_or(rowBytes);
    if (width < 1 || ((width + 7) & ~7LL) != rowBytes) {
      valueError("width: " + std::to_string(width) + " does not fit codes of " +
                 std::to_string(rowBytes) + " columns (expected " + std::to_string(rowBytes - 7) +
                 ".." + std::to_string(rowBytes) + ")");
    }
    checkSize("codes", height, width);
    py::array_t<std::uint16_t> pixels({height, static_cast<py::ssize_t>(width)});
    const std::uint8_t* codes = in.data();
    const std::ptrdiff_t stride = in.strides(0);
    std::uint16_t* out = pixels.mutable_data();
    bool enabled = true;
    {
      py::gil_scoped_release unlocked;
      const std::lock_guard<std::mutex> lock(mutex_);
      enabled = codec_.Enable == 1;
      if (enabled)
        codec_.decodeFrame(codes, stride, static_cast<int>(width), static_cast<int>(height), out,
                           width);
    }
    if (!enabled) valueError("the block is disabled (reg_fbc_en=0): it decodes nothing");
    return pixels;
  }

  std::uint64_t encodeBlock(const py::handle& px8, int parity, long long frameIndex) {
    int pixels[8];
    readBlock(px8, pixels);
    if (parity != 0 && parity != 1)
      valueError("parity: " + std::to_string(parity) + " is not 0 or 1");
    if (frameIndex < 0 || frameIndex > 0x7FFFFFFF) {
      valueError("frame_index: " + std::to_string(frameIndex) + " is out of range 0..2147483647");
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    codec_.beginFrame(8, static_cast<int>(frameIndex));
    return codec_.encodeBlock(pixels, parity != 0);
  }

  py::array_t<std::uint16_t> decodeBlock(const py::handle& code) {
    if (!PyIndex_Check(code.ptr()) || py::isinstance<py::bool_>(code)) {
      typeError("code: expected an integer, got " +
                std::string(py::str(code.get_type().attr("__name__"))));
    }
    const py::int_ value = py::reinterpret_steal<py::int_>(PyNumber_Index(code.ptr()));
    const unsigned long long bits = PyLong_AsUnsignedLongLong(value.ptr());
    if (PyErr_Occurred() != nullptr) {
      PyErr_Clear();
      valueError("code: " + std::string(py::str(code)) + " is not a 64-bit code (0..2**64-1)");
    }
    int pixels[8];
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      codec_.decodeBlock(bits, pixels);
    }
    py::array_t<std::uint16_t> out(8);
    for (int k = 0; k < 8; ++k) out.mutable_at(k) = static_cast<std::uint16_t>(pixels[k]);
    return out;
  }

  // Every parameter by its key: an int, or a list for an array. Codec(**c.registers) is c again.
  py::dict registers() {
    const std::lock_guard<std::mutex> lock(mutex_);
    py::dict out;
    for (const auto& [var, info] : codec_.bindings()) {
      const int* values = static_cast<const int*>(var);
      if (info.count == 1) {
        out[py::str(info.name.second)] = values[0];
      } else {
        out[py::str(info.name.second)] = std::vector<int>(values, values + info.count);
      }
    }
    return out;
  }

  void writeRegister(const py::handle& address, const py::handle& value) {
    const auto a = static_cast<std::uint32_t>(integerArg(address, "address", 0, 0xFFFFFFFF));
    const auto v = static_cast<std::uint16_t>(integerArg(value, "value", 0, 0xFFFF));
    std::string error;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!python::writeRegister(codec_, cli::builtinRegisters(), a, v, error)) valueError(error);
  }

  int readRegister(const py::handle& address) {
    const auto a = static_cast<std::uint32_t>(integerArg(address, "address", 0, 0xFFFFFFFF));
    std::uint16_t v = 0;
    std::string error;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!python::readRegister(codec_, cli::builtinRegisters(), a, v, error)) valueError(error);
    return v;
  }

 private:
  // A keyword register as the tool's --set KEY=VALUE: an integer, or a sequence for an array.
  static std::string overrideText(const std::string& key, const py::handle& value) {
    if (PyIndex_Check(value.ptr()) && !py::isinstance<py::bool_>(value)) {
      return key + "=" +
             std::string(py::str(py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()))));
    }
    if (py::isinstance<py::sequence>(value) && !py::isinstance<py::str>(value)) {
      std::string text = key + "=";
      const py::sequence items = py::reinterpret_borrow<py::sequence>(value);
      for (std::size_t i = 0; i < items.size(); ++i) {
        const py::object item = items[i];
        if (!PyIndex_Check(item.ptr()) || py::isinstance<py::bool_>(item)) {
          typeError(key + ": element " + std::to_string(i) + " is not an integer");
        }
        text += (i ? "," : "") +
                std::string(py::str(py::reinterpret_steal<py::object>(PyNumber_Index(item.ptr()))));
      }
      return text;
    }
    typeError(key + ": expected an integer or a sequence of integers, got " +
              std::string(py::str(value.get_type().attr("__name__"))));
  }

  static void readBlock(const py::handle& px8, int pixels[8]) {
    if (py::isinstance<py::array>(px8)) {
      const py::array a = py::reinterpret_borrow<py::array>(px8);
      if (a.dtype().kind() != 'u' && a.dtype().kind() != 'i') {
        typeError("px8: expected integer pixels, got dtype " + std::string(py::str(a.dtype())));
      }
    } else if (!py::isinstance<py::sequence>(px8) || py::isinstance<py::str>(px8)) {
      typeError("px8: expected a sequence of 8 integers, got " +
                std::string(py::str(px8.get_type().attr("__name__"))));
    }
    const py::sequence items = py::reinterpret_borrow<py::sequence>(px8);
    if (items.size() != 8)
      valueError("px8: expected 8 pixels, got " + std::to_string(items.size()));
    for (std::size_t k = 0; k < 8; ++k) {
      const py::object item = items[k];
      if (!PyIndex_Check(item.ptr()) || py::isinstance<py::bool_>(item)) {
        typeError("px8: pixel " + std::to_string(k) + " is not an integer");
      }
      const long long v =
          py::reinterpret_steal<py::int_>(PyNumber_Index(item.ptr())).cast<long long>();
      if (v < 0 || v > kMax12)
        valueError("px8: pixel " + std::to_string(k) + " = " + std::to_string(v) +
                   " is out of range 0..4095");
      pixels[k] = static_cast<int>(v);
    }
  }

  std::mutex mutex_;  // one frame or block at a time: the codec keeps per-block working state
  Compression1x8 codec_{"FBC", false};
};

// The mode number of every block, told by its code's prefix (curve coding, chosen by a register,
// has none: its blocks read as whatever their top bits say).
py::array_t<std::uint8_t> modes(const py::handle& codesArg) {
  const py::array_t<std::uint8_t> in = rowsOf<std::uint8_t>(codesArg, "codes", "uint8");
  const py::ssize_t height = in.shape(0), rowBytes = in.shape(1);
  if (rowBytes % 8 != 0) {
    valueError("codes: " + std::to_string(rowBytes) +
               " columns, expected a multiple of 8 (one 8-byte code per block)");
  }
  py::array_t<std::uint8_t> out({height, rowBytes / 8});
  const std::uint8_t* codes = in.data();
  std::uint8_t* dst = out.mutable_data();
  for (py::ssize_t y = 0; y < height; ++y) {
    // The prefix sits in the top bits of each code: the last of its 8 bytes.
    for (py::ssize_t b = 0; b < rowBytes / 8; ++b) {
      dst[y * (rowBytes / 8) + b] =
          static_cast<std::uint8_t>(kPrefixTable.mode[codes[y * in.strides(0) + 8 * b + 7]]);
    }
  }
  return out;
}

}  // namespace

}  // namespace fbc::python

PYBIND11_MODULE(fbc, m) {
  using fbc::python::Codec;
  m.doc() =
      "Bit-exact model of a 1x8 frame-buffer compression block: 12-bit pixels, 64-bit block codes.";
  py::class_<Codec>(m, "Codec",
                    "A codec with its own registers: the block's defaults, then the parameter file "
                    "`params`, then\n"
                    "each keyword register (an integer, or a sequence for an array), as `fbc "
                    "--params --set` gives them.")
      .def(py::init<const std::optional<std::string>&, const py::kwargs&>(),
           py::arg("params") = py::none())
      .def("encode", &Codec::encode, py::arg("img"), py::arg("cfa") = 0, py::arg("frame_index") = 0,
           "uint16 H x W pixels 0..4095 -> uint8 H x ((W + 7) & ~7): each block's 64-bit code "
           "little-endian.")
      .def("decode", &Codec::decode, py::arg("codes"), py::arg("width") = py::none(),
           "uint8 H x ((W + 7) & ~7) codes -> uint16 H x W 12-bit pixels; width defaults to the "
           "codes' columns.")
      .def("encode_block", &Codec::encodeBlock, py::arg("px8"), py::arg("parity") = 0,
           py::arg("frame_index") = 0,
           "Eight pixels 0..4095 -> their 64-bit code (bit i is element i), coded as the frame "
           "driver codes a\n"
           "block of a row of that parity in a frame of that index.")
      .def("decode_block", &Codec::decodeBlock, py::arg("code"),
           "A 64-bit code -> uint16[8] 12-bit pixels.")
      .def_property_readonly("registers", &Codec::registers,
                             "Every parameter by key: an int, or a list for an array.")
      .def("write_register", &Codec::writeRegister, py::arg("address"), py::arg("value"),
           "A bus write of one 16-bit register of the register map.")
      .def("read_register", &Codec::readRegister, py::arg("address"),
           "One 16-bit register as the register map composes it.");
  m.def("modes", &fbc::python::modes, py::arg("codes"),
        "uint8 H x (8 * B) codes -> uint8 H x B: the mode number of each block, from its prefix.");
}
