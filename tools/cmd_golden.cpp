// fbc golden: one compress/decompress round trip with golden reference files enabled.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "golden",
    "--width W --height H [--cfa N] --frame-index N --outdir DIR IN.raw",
    "Compresses and decompresses IN.raw (W x H little-endian 16-bit samples, each 0..4095) at\n"
    "golden-dump level 1 and writes the five golden reference files of the frame into DIR\n"
    "(created if missing), e.g. for frame 7: fbc_golden_ref_com_input_0007.txt,\n"
    "fbc_com_input_0007.raw, fbc_golden_ref_com_0007.txt, fbc_golden_ref_dec_input_0007.txt\n"
    "and fbc_golden_ref_dec_0007.txt.",
    {kOptWidth, kOptHeight, kOptCfa, kOptFrameIndex, {"outdir", "DIR", "directory for the golden files"}},
    1,
    1};

// The block writes its files straight into its output directory; that directory is a private
// one inside DIR, removed again whatever happens, so DIR only ever receives complete files.
class ScratchDir {
 public:
  explicit ScratchDir(const fs::path& parent) {
    std::string pattern = (parent / ".fbc-golden-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
      failure(parent.string() + ": cannot create files there: " + std::strerror(errno));
    }
    path_ = pattern;
  }
  ~ScratchDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

}  // namespace

int runGolden(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const Size size = imageSize(args);
  const int cfa = cfaOption(args);
  args.value("frame-index");  // required here: it names the files
  const int frameIndex = frameIndexOption(args);
  const fs::path dir = args.value("outdir");
  if (dir.empty()) usageError("--outdir: empty directory name");
  const Frame image = readInputImage(args.positional()[0], size.width, size.height);

  ensureDirectory(dir.string());
  const ScratchDir scratch(dir);

  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  codec.m_dumpLevel = 1;
  codec.m_outputDir = scratch.path().string();
  Frame decoded(size.width, size.height, Frame::CS_RAW, 16);
  codec.compressDecompressFrame(image, decoded, cfa, frameIndex);

  char index[16];
  std::snprintf(index, sizeof index, "%0*d", 4, frameIndex);
  const std::string stem = codec.getNameLower();
  const std::string names[] = {
      stem + "_golden_ref_com_input_" + index + ".txt", stem + "_com_input_" + index + ".raw",
      stem + "_golden_ref_com_" + index + ".txt", stem + "_golden_ref_dec_input_" + index + ".txt",
      stem + "_golden_ref_dec_" + index + ".txt"};
  for (const std::string& name : names) {
    if (!fs::is_regular_file(scratch.path() / name)) failure((dir / name).string() + ": not written");
  }
  std::error_code ec;
  for (const std::string& name : names) {
    fs::rename(scratch.path() / name, dir / name, ec);
    if (ec) failure((dir / name).string() + ": cannot write: " + ec.message());
  }
  return kExitOk;
}

}  // namespace fbc::cli
