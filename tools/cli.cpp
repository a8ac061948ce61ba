#include "tools/cli.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <thread>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "image/Png.h"

namespace fbc::cli {

void usageError(const std::string& message) {
  throw Error(kExitUsage, message);
}
void inputError(const std::string& message) {
  throw Error(kExitUsage, message);
}
void failure(const std::string& message) {
  throw Error(kExitFailure, message);
}

namespace {

const OptionSpec* findOption(const CommandSpec& cmd, const std::string& name) {
  for (const OptionSpec& o : cmd.options) {
    if (name == o.name) return &o;
  }
  return nullptr;
}

std::string plural(int n, const char* word) {
  return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string systemError() {
  return std::strerror(errno);
}

// After a failed write to standard output, with errno as the write left it.
[[noreturn]] void standardOutputFailed() {
  if (errno == EPIPE) throw StandardOutputClosed();
  failure("standard output: write failed" +
          (errno != 0 ? " (" + systemError() + ")" : std::string()));
}

}  // namespace

const OptionSpec kOptWidth{"width", "W", "image width in pixels, 1..65536"};
const OptionSpec kOptHeight{"height", "H",
                            "image height in pixels, 1..65536 (at most 2^28 pixels)"};
const OptionSpec kOptCfa{"cfa", "N",
                         "Bayer layout 0..3 (0 RGGB, 1 GRBG, 2 BGGR, 3 GBRG), default 0"};
const OptionSpec kOptFrameIndex{"frame-index", "N", "frame number, 0 or more, default 0"};
const OptionSpec kOptRawMode{"raw-mode", "N",
                             "packing 0..4 of a .raw input (see above); default plain samples"};

const OptionSpec kOptThreads{"threads", "N",
                             "threads coding the frame's rows, default: one per processor"};

int defaultThreads() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
  const unsigned n = std::thread::hardware_concurrency();
  return n > 0 ? static_cast<int>(std::min(n, 1024u)) : 1;
}

int threadsOption(const Args& args) {
  return static_cast<int>(args.integer("threads", 1, 1024, std::min(defaultThreads(), 1024)));
}

int cfaOption(const Args& args) {
  return static_cast<int>(args.integer("cfa", 0, 3, 0));
}
int frameIndexOption(const Args& args) {
  return static_cast<int>(args.integer("frame-index", 0, 0x7FFFFFFF, 0));
}

const std::string& Args::value(const std::string& name) const {
  const auto it = values_.find(name);
  if (it == values_.end()) usageError("missing required option --" + name);
  return it->second.front();
}

const std::vector<std::string>& Args::values(const std::string& name) const {
  static const std::vector<std::string> kNone;
  const auto it = values_.find(name);
  return it == values_.end() ? kNone : it->second;
}

long long Args::integer(const std::string& name, long long lo, long long hi,
                        long long fallback) const {
  return has(name) ? requiredInteger(name, lo, hi) : fallback;
}

long long Args::requiredInteger(const std::string& name, long long lo, long long hi) const {
  const std::string& text = value(name);
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(begin, &end, 10);
  // strtoll skips leading blanks and accepts a sign; require the word to be a plain integer.
  const bool digits = !text.empty() && (text[0] == '-' || (text[0] >= '0' && text[0] <= '9'));
  if (!digits || end == begin || *end != '\0') {
    usageError("--" + name + ": '" + text + "' is not an integer");
  }
  if (errno == ERANGE || v < lo || v > hi) {
    usageError("--" + name + ": " + text + " is out of range " + std::to_string(lo) + ".." +
               std::to_string(hi));
  }
  return v;
}

std::uint64_t Args::seed(std::uint64_t max) const {
  const std::string& text = value("seed");
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::size_t digits = hex ? 2 : 0;
  if (text.size() == digits || text.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789",
                                                      digits) != std::string::npos) {
    usageError("--seed: '" + text + "' is not a decimal or 0x hexadecimal integer");
  }
  errno = 0;
  const unsigned long long v = std::strtoull(text.c_str() + digits, nullptr, hex ? 16 : 10);
  if (errno == ERANGE || v > max)
    usageError("--seed: " + text + " is out of range 0.." + std::to_string(max));
  return v;
}

int runVerbs(const char* command, const char* about, const std::vector<Verb>& verbs,
             const std::vector<std::string>& argv) {
  const std::string verb = argv.empty() ? "" : argv[0];
  const std::string prefix = std::string(command) + " ";
  for (const Verb& v : verbs) {
    if (v.command->name == prefix + verb) {
      return v.run(std::vector<std::string>(argv.begin() + 1, argv.end()));
    }
  }
  if (verb == "--help" || verb == "-h") {
    const char* lead = "usage: ";
    for (const Verb& v : verbs) {
      std::cout << lead << "fbc " << v.command->name << ' ' << v.command->synopsis << '\n';
      lead = "       ";
    }
    std::cout << lead << "fbc " << command << " <verb> --help\n\n" << about << '\n';
    return kExitOk;
  }
  const std::string hint = " (try 'fbc " + std::string(command) + " --help')";
  usageError(verb.empty() ? "missing verb" + hint : "unknown verb '" + verb + "'" + hint);
}

bool parseArgs(const CommandSpec& cmd, const std::vector<std::string>& argv, Args& args) {
  bool optionsDone = false;
  for (std::size_t i = 0; i < argv.size(); ++i) {
    const std::string& word = argv[i];
    if (!optionsDone && word == "-h") {
      printHelp(cmd);
      return false;
    }
    if (optionsDone || word.size() < 2 || word.compare(0, 2, "--") != 0) {
      if (!optionsDone && word.size() > 1 && word[0] == '-') {
        usageError("unknown option '" + word + "' (try 'fbc " + cmd.name + " --help')");
      }
      args.positional_.push_back(word);
      continue;
    }
    if (word == "--") {
      optionsDone = true;
      continue;
    }
    if (word == "--help") {
      printHelp(cmd);
      return false;
    }
    const std::size_t eq = word.find('=');
    const std::string name = word.substr(2, eq == std::string::npos ? std::string::npos : eq - 2);
    const OptionSpec* opt = findOption(cmd, name);
    if (opt == nullptr) {
      usageError("unknown option '--" + name + "' (try 'fbc " + cmd.name + " --help')");
    }
    if (args.has(name) && !opt->repeatable) usageError("option --" + name + " given twice");
    std::vector<std::string>& slot = args.values_[name];
    if (opt->valueName == nullptr) {
      if (eq != std::string::npos) usageError("option --" + name + " takes no value");
      slot.emplace_back();
    } else if (eq != std::string::npos) {
      slot.push_back(word.substr(eq + 1));
    } else {
      if (i + 1 >= argv.size()) usageError("option --" + name + " needs a value");
      slot.push_back(argv[++i]);
    }
  }
  const int n = static_cast<int>(args.positional_.size());
  if (n < cmd.minPositional || n > cmd.maxPositional) {
    const std::string expected =
        cmd.minPositional == cmd.maxPositional
            ? plural(cmd.minPositional, "argument")
            : std::to_string(cmd.minPositional) + " to " + plural(cmd.maxPositional, "argument");
    usageError("expected " + expected + ", got " + std::to_string(n) + " (usage: fbc " + cmd.name +
               " " + cmd.synopsis + ")");
  }
  return true;
}

void printHelp(const CommandSpec& cmd) {
  std::cout << "usage: fbc " << cmd.name << ' ' << cmd.synopsis << "\n\n"
            << cmd.description << "\n";
  if (cmd.options.empty()) return;
  std::cout << "\noptions:\n";
  for (const OptionSpec& o : cmd.options) {
    std::string left = std::string("--") + o.name;
    if (o.valueName != nullptr) left += std::string(" ") + o.valueName;
    if (o.repeatable) left += " ...";
    std::cout << "  " << left;
    for (std::size_t pad = left.size(); pad < 18; ++pad) std::cout << ' ';
    std::cout << ' ' << o.help << '\n';
  }
  std::cout << "  --help, -h         show this help\n";
}

Size imageSize(const Args& args) {
  const long long w = args.requiredInteger("width", 1, kMaxSide);
  const long long h = args.requiredInteger("height", 1, kMaxSide);
  if (w * h > kMaxPixels) {
    usageError("image of " + std::to_string(w) + "x" + std::to_string(h) +
               " pixels is too large (at most " + std::to_string(kMaxPixels) + " pixels)");
  }
  return Size{static_cast<int>(w), static_cast<int>(h)};
}

std::vector<unsigned char> readFile(const std::string& path, std::uint64_t expected,
                                    const std::string& layout) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) inputError(path + ": cannot open: " + systemError());
  checkInputFile(path);
  const std::streamoff size = in.tellg();
  if (size < 0) inputError(path + ": cannot read: " + systemError());
  if (static_cast<std::uint64_t>(size) != expected) {
    inputError(path + ": size " + std::to_string(size) + " bytes, expected " +
               std::to_string(expected) + " (" + layout + ")");
  }
  std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
  in.seekg(0);
  if (!in.read(reinterpret_cast<char*>(bytes.data()), size)) inputError(path + ": read error");
  return bytes;
}

InputMap::InputMap(const std::string& path, std::uint64_t expected, const std::string& layout) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) inputError(path + ": cannot open: " + systemError());
  if (!S_ISREG(st.st_mode)) inputError(path + ": not a regular file");
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) inputError(path + ": cannot open: " + systemError());
  struct Closer {
    int fd;
    ~Closer() { ::close(fd); }
  } closer{fd};
  if (::fstat(fd, &st) != 0) inputError(path + ": cannot read: " + systemError());
  if (static_cast<std::uint64_t>(st.st_size) != expected) {
    inputError(path + ": size " + std::to_string(st.st_size) + " bytes, expected " +
               std::to_string(expected) + " (" + layout + ")");
  }
  size_ = static_cast<std::size_t>(expected);
  if (size_ == 0) return;
  void* at = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  if (at != MAP_FAILED) {
    data_ = static_cast<const unsigned char*>(at);
    mapped_ = true;
    return;
  }
  copy_.resize(size_);
  for (std::size_t done = 0; done < size_;) {
    const ssize_t n = ::read(fd, copy_.data() + done, size_ - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) inputError(path + ": read error" + (n < 0 ? ": " + systemError() : std::string()));
    done += static_cast<std::size_t>(n);
  }
  data_ = copy_.data();
}

InputMap::~InputMap() {
  if (mapped_) ::munmap(const_cast<unsigned char*>(data_), size_);
}

Output::Output(const std::string& path) : path_(path) {
  if (path_ == "-") return;
  std::string error;
  const SignalsHeld held;
  if (!file_.open(path, error)) failure(error);
  if (!file_.temporaryPath().empty()) onSignal_.add(file_.temporaryPath(), false);
}

void Output::write(const void* data, std::size_t size) {
  if (path_ == "-") {
    errno = 0;
    if (!std::cout.write(static_cast<const char*>(data), static_cast<std::streamsize>(size))) {
      standardOutputFailed();
    }
    return;
  }
  std::string error;
  if (!file_.write(data, size, error)) failure(error);
}

void Output::commit() {
  std::string error;
  if (path_ == "-") {
    flushStandardOutput();
  } else if (!file_.commit(error)) {
    failure(error);
  }
}

void writeFileAtomic(const std::string& path, const void* data, std::size_t size) {
  Output out(path);
  out.write(data, size);
  out.commit();
}

void flushStandardOutput() {
  errno = 0;
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::cout.good() && std::ferror(stdout) == 0) return;
  standardOutputFailed();
}

ScratchDir::ScratchDir(const std::string& parent) {
  const std::string base =
      parent.empty() ? std::filesystem::temp_directory_path().string() : parent;
  std::string pattern = base + "/.fbc-XXXXXX";
  const SignalsHeld held;
  if (::mkdtemp(pattern.data()) == nullptr) {
    failure(base + ": cannot create files there: " + systemError());
  }
  path_ = pattern;
  onSignal_.add(path_, true);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
  onSignal_.release();
}

void checkOutputDirectory(const std::string& dir) {
  namespace fs = std::filesystem;
  fs::path at = dir;
  std::error_code ec;
  while (!fs::exists(at, ec) && at.has_relative_path()) {
    const fs::path parent = at.parent_path();
    at = parent.empty() ? fs::path(".") : parent;
  }
  if (fs::exists(at, ec) && !fs::is_directory(at, ec)) {
    usageError(at.string() + ": not a directory" +
               (at == dir ? "" : " (in the way of " + dir + ")"));
  }
}

void ensureDirectory(const std::string& dir) {
  checkOutputDirectory(dir);
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec || !std::filesystem::is_directory(dir)) {
    failure(dir + ": cannot create directory" + (ec ? ": " + ec.message() : ""));
  }
}

void refuseOverwritingInputs(const std::vector<std::string>& inputs,
                             const std::vector<std::string>& outputs) {
  for (const std::string& out : outputs) {
    struct stat o {};
    if (out == "-" || ::stat(out.c_str(), &o) != 0) continue;
    for (const std::string& in : inputs) {
      struct stat i {};
      if (::stat(in.c_str(), &i) == 0 && i.st_dev == o.st_dev && i.st_ino == o.st_ino) {
        usageError(out + ": is the input " + in + "; refusing to overwrite it");
      }
    }
  }
}

std::vector<std::string> inputFiles(const Args& args, const std::string& in) {
  std::vector<std::string> files{in};
  for (const char* option : {"params", "registers"}) {
    if (args.has(option)) files.push_back(args.value(option));
  }
  return files;
}

void requireEnabled(const Compression1x8& codec) {
  if (codec.Enable == 0) {
    usageError("the block is disabled (" + codec.getEnableKey() +
               "=0): it passes frames through and codes nothing");
  }
}

void checkInputFile(const std::string& path) {
  if (!std::ifstream(path, std::ios::binary)) inputError(path + ": cannot open: " + systemError());
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) inputError(path + ": not a regular file");
}

Frame readInputImage(const std::string& path, const Args& args) {
  PictureOptions options;
  options.cfa = cfaOption(args);
  options.rawMode = static_cast<int>(args.integer("raw-mode", 0, 4, kRawPlain16));
  const bool headerless = pictureExtension(path) == ".raw";
  if (headerless) {
    const Size size = imageSize(args);
    options.width = size.width;
    options.height = size.height;
  } else if (args.has("raw-mode")) {
    usageError("--raw-mode applies to .raw input only, not " + path);
  }
  // For a picture with a header the options only confirm its size; 0 stands for "not given".
  const int width = static_cast<int>(args.integer("width", 1, kMaxSide, 0));
  const int height = static_cast<int>(args.integer("height", 1, kMaxSide, 0));
  checkInputFile(path);
  Frame frame(Frame::CS_RAW, CFA_RGGB, 12, RGBIR_NONE);
  std::string error;
  if (!loadPictureOrPng(path, options, frame, error)) inputError(error);
  if ((width != 0 && width != frame.width) || (height != 0 && height != frame.height)) {
    inputError(path + ": picture is " + std::to_string(frame.width) + "x" +
               std::to_string(frame.height) + ", but --width/--height give " +
               std::to_string(width != 0 ? width : frame.width) + "x" +
               std::to_string(height != 0 ? height : frame.height));
  }
  return frame;
}

Frame compressImage(Compression1x8& codec, const Frame& image, int cfa, int frameIndex) {
  Frame compressed(Frame::CS_RAW, CFA_RGGB, 16, RGBIR_NONE);
  codec.allocateCompressedFrame(image.width, image.height, compressed);
  codec.CompressFrame(image, compressed, cfa, frameIndex);
  return compressed;
}

}  // namespace fbc::cli
