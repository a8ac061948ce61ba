// The Python module `fbc`: the C interface <fbc/fbc.h> over numpy arrays. Frames are coded
// straight from and into the arrays' memory with the interpreter lock released; every argument is
// checked first, and a failed call of the interface changes nothing, so a call that raises has
// written nothing and changed no register.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <fbc/fbc.h>

namespace py = pybind11;

namespace fbc::python {

namespace {

constexpr int kMax12 = 4095;
// The tool's limits on a picture.
constexpr long long kMaxSide = 65536;
constexpr long long kMaxPixels = 1LL << 28;

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

// The C interface's failure on `c` as the exception of its kind, prefixed with the argument it
// concerns.
[[noreturn]] void raise(const fbc_codec* c, int rc, const std::string& argument) {
  const std::string message = (argument.empty() ? "" : argument + ": ") + fbc_error(c);
  if (rc == FBC_ERR_NOMEM) throw std::bad_alloc();
  valueError(message);
}

class Codec {
 public:
  Codec(const std::optional<std::string>& params, const py::kwargs& registers)
      : codec_(fbc_new(), fbc_free) {
    if (!codec_) throw std::bad_alloc();
    if (params) {
      if (const int rc = fbc_load_params(codec_.get(), params->c_str()); rc != FBC_OK)
        raise(codec_.get(), rc, "params");
    }
    for (const auto& [key, value] : registers) {
      const std::string name = py::str(key);
      const std::string text = valueText(name, value);
      if (const int rc = fbc_set(codec_.get(), name.c_str(), text.c_str()); rc != FBC_OK)
        raise(codec_.get(), rc, name);
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
    int rc = FBC_OK;
    {
      py::gil_scoped_release unlocked;
      const std::lock_guard<std::mutex> lock(mutex_);
      rc = fbc_encode_frame(codec_.get(), px, stride, static_cast<int>(width),
                            static_cast<int>(height), cfa, static_cast<int>(frameIndex), out,
                            rowBytes);
    }
    if (rc != FBC_OK) raise(codec_.get(), rc, rc == FBC_ERR_PIXEL ? "img" : "");
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
    int rc = FBC_OK;
    {
      py::gil_scoped_release unlocked;
      const std::lock_guard<std::mutex> lock(mutex_);
      rc = fbc_decode_frame(codec_.get(), codes, stride, static_cast<int>(width),
                            static_cast<int>(height), out, static_cast<std::ptrdiff_t>(width));
    }
    if (rc != FBC_OK) raise(codec_.get(), rc, "");
    return pixels;
  }

  int threads() const { return threads_; }
  void setThreads(const py::handle& n) {
    const int v = static_cast<int>(integerArg(n, "threads", 1, 1024));
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int rc = fbc_set_threads(codec_.get(), v); rc != FBC_OK)
      raise(codec_.get(), rc, "threads");
    threads_ = v;
  }

  std::uint64_t encodeBlock(const py::handle& px8, int parity, long long frameIndex) {
    std::uint16_t pixels[8];
    readBlock(px8, pixels);
    if (parity != 0 && parity != 1)
      valueError("parity: " + std::to_string(parity) + " is not 0 or 1");
    if (frameIndex < 0 || frameIndex > 0x7FFFFFFF) {
      valueError("frame_index: " + std::to_string(frameIndex) + " is out of range 0..2147483647");
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    std::uint64_t code = 0;
    int rc = fbc_set_frame_index(codec_.get(), static_cast<std::int32_t>(frameIndex));
    if (rc == FBC_OK) rc = fbc_encode_block_checked(codec_.get(), pixels, parity, &code);
    if (rc != FBC_OK) raise(codec_.get(), rc, "px8");
    return code;
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
    py::array_t<std::uint16_t> out(8);
    const std::lock_guard<std::mutex> lock(mutex_);
    fbc_decode_block(codec_.get(), bits, out.mutable_data());
    return out;
  }

  // Every parameter by its key: an int, or a list for an array. Codec(**c.registers) is c again.
  py::dict registers() {
    const std::lock_guard<std::mutex> lock(mutex_);
    py::dict out;
    for (std::size_t i = 0; const char* key = fbc_param_key(i); ++i) {
      std::size_t count = 0;
      int rc = fbc_get(codec_.get(), key, nullptr, 0, &count);
      std::vector<std::int32_t> values(count);
      if (rc == FBC_OK) rc = fbc_get(codec_.get(), key, values.data(), values.size(), &count);
      if (rc != FBC_OK) raise(codec_.get(), rc, key);
      if (count == 1) {
        out[py::str(key)] = values[0];
      } else {
        out[py::str(key)] = values;
      }
    }
    return out;
  }

  void writeRegister(const py::handle& address, const py::handle& value) {
    const auto a = static_cast<std::uint32_t>(integerArg(address, "address", 0, 0xFFFFFFFF));
    const auto v = static_cast<std::uint16_t>(integerArg(value, "value", 0, 0xFFFF));
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int rc = fbc_write_register(codec_.get(), a, v); rc != FBC_OK) {
      raise(codec_.get(), rc, rc == FBC_ERR_ADDRESS ? "address" : "value");
    }
  }

  int readRegister(const py::handle& address) {
    const auto a = static_cast<std::uint32_t>(integerArg(address, "address", 0, 0xFFFFFFFF));
    std::uint16_t v = 0;
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const int rc = fbc_read_register(codec_.get(), a, &v); rc != FBC_OK)
      raise(codec_.get(), rc, "address");
    return v;
  }

 private:
  // A keyword register as fbc_set takes it: an integer, or a sequence of them for an array.
  static std::string valueText(const std::string& key, const py::handle& value) {
    if (PyIndex_Check(value.ptr()) && !py::isinstance<py::bool_>(value)) {
      return py::str(py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr())));
    }
    if (py::isinstance<py::sequence>(value) && !py::isinstance<py::str>(value)) {
      std::string text;
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

  static void readBlock(const py::handle& px8, std::uint16_t pixels[8]) {
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
      if (v < 0 || v > kMax12) {
        valueError("px8: pixel " + std::to_string(k) + " = " + std::to_string(v) +
                   " is out of range 0..4095");
      }
      pixels[k] = static_cast<std::uint16_t>(v);
    }
  }

  std::mutex mutex_;  // one call at a time: a codec object is used by one thread at a time
  std::unique_ptr<fbc_codec, void (*)(fbc_codec*)> codec_;
  int threads_ = 1;
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
  const py::ssize_t blocks = rowBytes / 8;
  py::array_t<std::uint8_t> out({height, blocks});
  std::uint8_t* dst = out.mutable_data();
  for (py::ssize_t y = 0; y < height; ++y) {
    const std::uint8_t* row = in.data() + y * in.strides(0);
    for (py::ssize_t b = 0; b < blocks; ++b) {
      std::uint64_t code = 0;
      for (int k = 7; k >= 0; --k) code = code << 8 | row[8 * b + k];  // little-endian
      dst[y * blocks + b] = static_cast<std::uint8_t>(fbc_code_mode(nullptr, code));
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
      .def_property("threads", &Codec::threads, &Codec::setThreads,
                    "Threads encode and decode split a frame's rows among, 1..1024 (default 1); "
                    "every count gives\n"
                    "the same result.")
      .def_property_readonly("registers", &Codec::registers,
                             "Every parameter by key: an int, or a list for an array.")
      .def("write_register", &Codec::writeRegister, py::arg("address"), py::arg("value"),
           "A bus write of one 16-bit register of the register map.")
      .def("read_register", &Codec::readRegister, py::arg("address"),
           "One 16-bit register as the register map composes it.");
  m.def("modes", &fbc::python::modes, py::arg("codes"),
        "uint8 H x (8 * B) codes -> uint8 H x B: the mode number of each block, from its prefix.");
}
