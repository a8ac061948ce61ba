// fbc golden: one compress/decompress round trip with golden reference files enabled.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "tools/cli.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "golden",
    "[--width W --height H] [--cfa N] [--raw-mode N] --frame-index N --outdir DIR IN",
    "Compresses and decompresses the picture IN at golden-dump level 1 and writes the five\n"
    "golden reference files of the frame into DIR (created if missing), e.g. for frame 7:\n"
    "fbc_golden_ref_com_input_0007.txt, fbc_com_input_0007.raw, fbc_golden_ref_com_0007.txt,\n"
    "fbc_golden_ref_dec_input_0007.txt and fbc_golden_ref_dec_0007.txt. Registers as in 'fbc "
    "encode'; a parameter file that\n"
    "disables the block (reg_fbc_en=0) writes no golden files and says so on standard "
    "error.\n\n" FBC_INPUT_PICTURE_HELP,
    {kOptWidth,
     kOptHeight,
     kOptCfa,
     kOptRawMode,
     {"frame-index", "N", "frame number, 0 or more; required: it names the files"},
     {"outdir", "DIR", "directory for the golden files"},
     kOptParams,
     kOptSet,
     kOptRegisters,
     kOptThreads},
    1,
    1};

}  // namespace

int runGolden(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int cfa = cfaOption(args);
  args.value("frame-index");  // required here: it names the files
  const int frameIndex = frameIndexOption(args);
  const fs::path dir = args.value("outdir");
  if (dir.empty()) usageError("--outdir: empty directory name");

  Compression1x8 codec("FBC", false);
  char index[16];
  std::snprintf(index, sizeof index, "%0*d", 4, frameIndex);
  const std::string stem = codec.getNameLower();
  const std::string names[] = {
      stem + "_golden_ref_com_input_" + index + ".txt", stem + "_com_input_" + index + ".raw",
      stem + "_golden_ref_com_" + index + ".txt", stem + "_golden_ref_dec_input_" + index + ".txt",
      stem + "_golden_ref_dec_" + index + ".txt"};
  std::vector<std::string> outputs;
  for (const std::string& name : names) outputs.push_back((dir / name).string());
  refuseOverwritingInputs(inputFiles(args, args.positional()[0]), outputs);
  checkOutputDirectory(dir.string());
  configureCodec(codec, args);
  codec.Threads = threadsOption(args);
  const Frame image = readInputImage(args.positional()[0], args);
  if (codec.Enable == 0) {
    // A disabled block passes the frame through untouched: there is nothing to check a
    // hardware implementation against, so no golden file is written.
    std::cerr << "fbc golden: block disabled (" << codec.getEnableKey()
              << "=0): no golden files written\n";
    return kExitOk;
  }
  ensureDirectory(dir.string());
  // The block writes its files straight into its output directory; that directory is a private
  // one inside DIR, removed again whatever happens, so DIR only ever receives complete files.
  const ScratchDir scratchDir(dir.string());
  const fs::path scratch = scratchDir.path();
  codec.m_dumpLevel = 1;
  codec.m_outputDir = scratch.string();
  Frame decoded(image.width, image.height, Frame::CS_RAW, 16);
  codec.compressDecompressFrame(image, decoded, cfa, frameIndex);

  for (const std::string& name : names) {
    if (!fs::is_regular_file(scratch / name)) failure((dir / name).string() + ": not written");
  }
  std::error_code ec;
  for (const std::string& name : names) {
    fs::rename(scratch / name, dir / name, ec);
    if (ec) failure((dir / name).string() + ": cannot write: " + ec.message());
  }
  return kExitOk;
}

}  // namespace fbc::cli
