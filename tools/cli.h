// Shared machinery of the fbc command-line tool: the long-option parser, typed integer options,
// the error/exit-status convention, whole-file reading with a size check, and output files
// written through a temporary name so that a failed run never leaves a partial file behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/Picture.h"
#include "tools/cleanup.h"

class Compression1x8;
class Frame;

namespace fbc::cli {

// Exit statuses of every subcommand.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // internal error, failed write
constexpr int kExitUsage = 2;    // bad usage or bad input

// The one error type of the tool. The message names the object and the reason
// ("in.raw: size 120 bytes, expected 128 ..."); the dispatcher prefixes "fbc <command>: ".
class Error : public std::runtime_error {
 public:
  Error(int status, const std::string& message) : std::runtime_error(message), status_(status) {}
  int status() const { return status_; }

 private:
  int status_;
};
[[noreturn]] void usageError(const std::string& message);
[[noreturn]] void inputError(const std::string& message);
[[noreturn]] void failure(const std::string& message);

// One long option of a subcommand. A null valueName makes it a flag without a value.
struct OptionSpec {
  const char* name;       // without the leading "--"
  const char* valueName;  // e.g. "W", shown in the help
  const char* help;
  bool repeatable = false;  // may be given several times; Args::values lists them in order
};

struct CommandSpec {
  const char* name;
  const char* synopsis;     // the usage line after "fbc <name> "
  const char* description;  // one paragraph, printed by --help
  std::vector<OptionSpec> options;
  int minPositional;
  int maxPositional;
};

// The parsed command line of one subcommand.
class Args {
 public:
  bool has(const std::string& name) const { return values_.count(name) != 0; }
  const std::string& value(const std::string& name) const;
  // Every value of a repeatable option in command-line order; empty when absent.
  const std::vector<std::string>& values(const std::string& name) const;
  const std::vector<std::string>& positional() const { return positional_; }

  // An integer option in [lo, hi]; `fallback` when absent.
  long long integer(const std::string& name, long long lo, long long hi, long long fallback) const;
  // The same for an option that must be given.
  long long requiredInteger(const std::string& name, long long lo, long long hi) const;
  // --seed, which must be given: decimal or "0x" hexadecimal, 0..max. The one reading of a seed.
  std::uint64_t seed(std::uint64_t max) const;

 private:
  friend bool parseArgs(const CommandSpec&, const std::vector<std::string>&, Args&);
  std::map<std::string, std::vector<std::string>> values_;
  std::vector<std::string> positional_;
};

// Parses `argv` (the words after the subcommand name). Accepts "--opt value", "--opt=value"
// and "--" before positional arguments that start with a dash; "-" alone is an argument. On
// --help or -h prints the help to standard output and returns false: the command then ends
// with kExitOk. Throws a usage Error
// for an unknown option, a missing value, a repeated option or a wrong argument count.
bool parseArgs(const CommandSpec& cmd, const std::vector<std::string>& argv, Args& args);
void printHelp(const CommandSpec& cmd);

// A command made of verbs ("fbc params show ..."): each verb a CommandSpec named "<command>
// <verb>" and its run function. runVerbs picks the verb by the first word and hands it the rest;
// "--help" lists every verb's usage line; a missing or unknown verb is a usage Error.
struct Verb {
  const CommandSpec* command;  // its usage, options and argument counts
  int (*run)(const std::vector<std::string>& argv);
};
int runVerbs(const char* command, const char* about, const std::vector<Verb>& verbs,
             const std::vector<std::string>& argv);

// Options several subcommands share.
extern const OptionSpec kOptWidth;
extern const OptionSpec kOptHeight;
extern const OptionSpec kOptCfa;
extern const OptionSpec kOptFrameIndex;
extern const OptionSpec kOptRawMode;

extern const OptionSpec kOptThreads;
// --threads: 1..1024 threads that split a frame's rows; by default one per processor the process
// may run on (the same bytes come out for every count).
int threadsOption(const Args& args);
int defaultThreads();

// --cfa: the Bayer layout 0..3 (0 when absent); --frame-index: 0 or more (0 when absent).
int cfaOption(const Args& args);
int frameIndexOption(const Args& args);

// Image size from --width and --height: positive, at most kMaxSide each and kMaxPixels together.
constexpr long long kMaxSide = 65536;
constexpr long long kMaxPixels = 1LL << 28;
struct Size {
  int width;
  int height;
};
Size imageSize(const Args& args);

// The compressed frame's row length: the width rounded up to a whole number of 8-pixel blocks.
inline int paddedWidth(int width) {
  return (width + 7) & ~7;
}

// The whole file, which must be exactly `expected` bytes long; `layout` says what those bytes
// are and ends up in the error ("128 (8x8 samples of 2 bytes)").
std::vector<unsigned char> readFile(const std::string& path, std::uint64_t expected,
                                    const std::string& layout);

// The same file mapped read-only (read into memory where it cannot be mapped), for inputs that
// are read once from start to end: nothing is copied out of the page cache.
class InputMap {
 public:
  InputMap(const std::string& path, std::uint64_t expected, const std::string& layout);
  ~InputMap();
  InputMap(const InputMap&) = delete;
  InputMap& operator=(const InputMap&) = delete;
  const unsigned char* data() const { return data_; }
  std::size_t size() const { return size_; }

 private:
  const unsigned char* data_ = nullptr;
  std::size_t size_ = 0;
  bool mapped_ = false;
  std::vector<unsigned char> copy_;
};

// A buffer of `n` elements left uninitialised, for results about to be written over in full.
template <class T>
struct UninitBuffer {
  explicit UninitBuffer(std::size_t n) : data(new T[n]), size(n) {}
  std::unique_ptr<T[]> data;
  std::size_t size;
};

// One output file of the tool through fbc::OutputFile (complete or absent, links followed,
// devices written directly), its temporary file removed should a signal end the run; "-" is
// standard output. Opened before the work that fills it, a place that cannot take the file
// fails at once. A failure is the tool's error with exit status 1.
class Output {
 public:
  explicit Output(const std::string& path);
  void write(const void* data, std::size_t size);
  void write(const std::vector<unsigned char>& bytes) { write(bytes.data(), bytes.size()); }
  void write(const std::string& bytes) { write(bytes.data(), bytes.size()); }
  // Puts the complete file in place. An Output that goes without it leaves nothing.
  void commit();

 private:
  std::string path_;
  RemovedOnSignal onSignal_;  // released after file_ has removed an uncommitted temporary
  OutputFile file_;
};

// The same in one call.
void writeFileAtomic(const std::string& path, const void* data, std::size_t size);
inline void writeFileAtomic(const std::string& path, const std::vector<unsigned char>& bytes) {
  writeFileAtomic(path, bytes.data(), bytes.size());
}
inline void writeFileAtomic(const std::string& path, const std::string& bytes) {
  writeFileAtomic(path, bytes.data(), bytes.size());
}

// Standard output was closed by its reader (a pipe into `head`): the run ends quietly with
// status 0, every file already written complete. Thrown by flushStandardOutput.
struct StandardOutputClosed {};
// Flushes standard output; a reader gone is StandardOutputClosed, any other failure an Error.
void flushStandardOutput();

// Checks, before any work, that `dir` can become an output directory: it is one, or the nearest
// of its parents that exists is one. A file in the way is a usage Error.
void checkOutputDirectory(const std::string& dir);

// Creates `dir` and its parents when missing.
void ensureDirectory(const std::string& dir);

// An output that is the same file as one of the inputs (same device and inode, by any path or
// link) is a usage Error, raised before anything is read. Names that do not exist yet pass.
void refuseOverwritingInputs(const std::vector<std::string>& inputs,
                             const std::vector<std::string>& outputs);
// The files a coding command reads: the picture or frame `in`, --params and --registers.
std::vector<std::string> inputFiles(const Args& args, const std::string& in);

// A private directory inside `parent` (the system's temporary directory when empty), removed
// with everything in it when the object goes, or by a signal that ends the run. Files made
// there are renamed into place only once complete.
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& parent = "");
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
  RemovedOnSignal onSignal_;
};

// The input pictures readInputImage takes, for the help of the commands that read one.
#define FBC_INPUT_PICTURE_HELP                                                                     \
  "IN is a .png (grey as a .pgm, colour as a .ppm; 8 or 16 bits), a .ppm (colour, sampled into\n"  \
  "the Bayer mosaic of --cfa), a .pgm (grey) or a .raw (W x H little-endian 16-bit words: plain\n" \
  "samples 0..4095, or by --raw-mode 0 nibble-rotated, 1 upper 12 bits, 2 byte-swapped upper\n"    \
  "12 bits, 3 as stored, 4 packed 10-bit).\n"                                                      \
  "Pictures are scaled to 12 bits and take their size from their header; --width and\n"            \
  "--height are then optional and must agree with it. A picture holds at most 2^28 samples\n"      \
  "and 65536 on a side: 2^28 pixels of a .pgm or .raw, a third as many of a .ppm (three\n"         \
  "samples per pixel)."

// Fails with an input Error unless `path` opens and is a regular file.
void checkInputFile(const std::string& path);

// The one reader of input images, by extension; returns a 12-bit CS_RAW frame.
//   .png  grey as .pgm, colour (RGB or palette; alpha ignored) as .ppm
//   .ppm  colour picture scaled to 12 bits and sampled into the Bayer mosaic of --cfa
//   .pgm  grey picture scaled to 12 bits
//   .raw  --width x --height 16-bit little-endian words unpacked by --raw-mode; without it
//         plain samples 0..4095
// Pictures with a header take their size from it; --width/--height, when given, must agree.
Frame readInputImage(const std::string& path, const Args& args);

// One frame through the codec's compression driver: the compressed frame, H rows of the width
// rounded up to 8, one block-code byte per sample.
Frame compressImage(Compression1x8& codec, const Frame& image, int cfa, int frameIndex);

// --params FILE.ini and the repeatable --set KEY=VALUE of every command that codes.
extern const OptionSpec kOptParams;
extern const OptionSpec kOptSet;
// --registers FILE: the register map parameters are checked against (tools/codec_config.h).
extern const OptionSpec kOptRegisters;

// Registers of the codec for every subcommand: the block's software defaults with the block
// enabled, then the parameter file of --params, then each --set in order, checked against the
// register map of --registers (the built-in one when absent). Any problem of the map, the file
// or an override is a usage Error listing every message (tools/codec_config.cpp).
void configureCodec(Compression1x8& codec, const Args& args);

// A disabled block (reg_fbc_en=0) passes frames through and codes nothing: a usage Error for the
// commands whose output would be a coded frame or a report of one.
void requireEnabled(const Compression1x8& codec);

}  // namespace fbc::cli
