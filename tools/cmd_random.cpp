// fbc random: the random regression generator. Each test is a parameter file, an input picture
// and the golden reference files the block writes for it, plus the command that re-creates them.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "codec/Compression1x8.h"
#include "config/IniAccess.h"
#include "config/IniFileIO.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "random",
    "--count N --seed S --outdir DIR [--settings FILE.ini] [--images DIR] [--registers FILE]",
    "Generates N random regression tests into DIR/test_0000 ... Each test draws the block's\n"
    "parameters and an input picture (a random crop of a .ppm or .pgm picture from --images,\n"
    "else a generated one), runs the block on it for every frame at golden-dump level 1 and\n"
    "holds params.ini, input.raw, the golden files of each frame and run.sh, the 'fbc golden'\n"
    "command that writes the same golden files again. A disabled block passes frames through\n"
    "and has no golden files. The same seed and settings give byte-identical trees.\n\n"
    "Settings, section [GlobalControl] of --settings (every key optional):\n"
    "  width_min, width_max    picture width range, 1..4096, default 8..256\n"
    "  height_min, height_max  picture height range, 1..4096, default 1..32\n"
    "  cfa                     Bayer layouts to draw from, a list of 0..3, default 0,1,2,3\n"
    "  enable_percent          chance in percent that the block is enabled, default 90\n"
    "  use_random_range        1: draw registers from their random ranges, 0: from their\n"
    "                          checking ranges; default 1\n"
    "  frames                  frames per test, 1..64, default 1\n"
    "  picture_percent         with --images, chance in percent that a test crops a picture\n"
    "                          instead of generating one, default 100",
    {{"count", "N", "number of tests, 1..100000"},
     {"seed", "S", "master seed, 0..4294967295, decimal or 0x hexadecimal"},
     {"outdir", "DIR", "directory of the tests (created if missing)"},
     {"settings", "FILE.ini", "generator settings, section [GlobalControl]"},
     {"images", "DIR", "pictures (.ppm, .pgm) to crop inputs from"},
     kOptRegisters},
    0,
    0};

const char kSection[] = "GlobalControl";

// One integer setting of [GlobalControl].
struct SettingSpec {
  const char* key;
  int fallback;
  int lo;
  int hi;
};

const SettingSpec kSettings[] = {
    {"width_min", 8, 1, 4096},     {"width_max", 256, 1, 4096},   {"height_min", 1, 1, 4096},
    {"height_max", 32, 1, 4096},   {"enable_percent", 90, 0, 100}, {"use_random_range", 1, 0, 1},
    {"frames", 1, 1, 64},          {"picture_percent", 100, 0, 100},
};
const char kCfaKey[] = "cfa";

struct Settings {
  std::map<std::string, int> value;
  std::vector<int> cfa{0, 1, 2, 3};
  int operator[](const std::string& key) const { return value.at(key); }
};

Settings readSettings(const std::string& path) {
  Settings s;
  for (const SettingSpec& setting : kSettings) s.value[setting.key] = setting.fallback;
  if (path.empty()) return s;

  IniFileIO ini = readIniFile(path, {kSection});
  if (!ini.isSectionExist(kSection)) inputError(path + ": no section [" + std::string(kSection) + "]");
  std::vector<std::string> problems;
  std::vector<std::string> names{kCfaKey};
  for (const SettingSpec& setting : kSettings) names.push_back(setting.key);
  for (const std::string& key : ini.keys().at(kSection)) {
    if (std::find(names.begin(), names.end(), key) == names.end()) {
      problems.push_back("unknown setting \"" + printable(key) + "\" (nearest name: " + nearestName(key, names) +
                         ")");
      continue;
    }
    std::string text;
    ini.getVariable(kSection, key.c_str(), text, "");
    std::vector<long long> list;
    std::string error;
    if (!parseIntegerList(text, true, list, error)) {
      problems.push_back("setting \"" + key + "\": " + error);
      continue;
    }
    const bool isCfa = key == kCfaKey;
    const SettingSpec* setting = nullptr;
    for (const SettingSpec& candidate : kSettings) {
      if (key == candidate.key) setting = &candidate;
    }
    const long long lo = isCfa ? 0 : setting->lo, hi = isCfa ? 3 : setting->hi;
    if (!isCfa && list.size() != 1) {
      problems.push_back("setting \"" + key + "\" takes one value");
      continue;
    }
    bool inRange = true;
    for (long long v : list) inRange = inRange && v >= lo && v <= hi;
    if (!inRange) {
      problems.push_back("setting \"" + key + "\": " + text + " is out of range " + std::to_string(lo) + ".." +
                         std::to_string(hi));
      continue;
    }
    if (isCfa) {
      s.cfa.assign(list.begin(), list.end());
    } else {
      s.value[key] = static_cast<int>(list[0]);
    }
  }
  if (problems.empty()) {
    if (s["width_min"] > s["width_max"]) problems.push_back("width_min is above width_max");
    if (s["height_min"] > s["height_max"]) problems.push_back("height_min is above height_max");
  }
  throwProblems(path, problems);
  return s;
}

// The pictures of --images: .ppm and .pgm files, in name order so that draws are reproducible.
std::vector<std::string> listPictures(const std::string& dir) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) inputError(dir + ": not a directory");
  std::vector<std::string> pictures;
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    std::string ext = entry.path().extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
    if ((ext == ".ppm" || ext == ".pgm") && entry.is_regular_file(ec)) pictures.push_back(entry.path().string());
  }
  if (ec) inputError(dir + ": cannot list: " + ec.message());
  if (pictures.empty()) inputError(dir + ": no .ppm or .pgm pictures");
  std::sort(pictures.begin(), pictures.end());
  return pictures;
}

int clamp12(int v) { return std::min(4095, std::max(0, v)); }

// A synthetic 12-bit picture made to reach every mode: runs of 1..16 pixels that are flat,
// ramps, low or full-range noise, or alternating extremes, and rows that repeat the one above
// with a little noise, as neighbouring sensor rows do.
Frame generatePicture(int width, int height) {
  Frame f(width, height, Frame::CS_RAW, 12);
  for (int y = 0; y < height; ++y) {
    PIXEL* row = f.data + static_cast<std::size_t>(y) * width;
    if (y > 0 && randomVal(0, 3) == 0) {
      const int amplitude = randomVal(0, 8);
      for (int x = 0; x < width; ++x) row[x] = clamp12(row[x - width] + randomVal(-amplitude, amplitude));
      continue;
    }
    for (int x = 0; x < width;) {
      const int run = std::min(randomVal(1, 16), width - x);
      const int kind = randomVal(0, 4);
      const int base = randomVal(0, 4095);
      const int step = kind == 1 ? randomVal(-64, 64) : 0;
      const int amplitude = kind == 2 ? 1 << randomVal(0, 6) : 0;
      const int low = randomVal(0, 255), high = randomVal(3840, 4095);
      for (int k = 0; k < run; ++k, ++x) {
        switch (kind) {
          case 0: row[x] = base; break;
          case 1: row[x] = clamp12(base + step * k); break;
          case 2: row[x] = clamp12(base + randomVal(-amplitude, amplitude)); break;
          case 3: row[x] = randomVal(0, 4095); break;
          default: row[x] = (k & 1) != 0 ? high : low; break;
        }
      }
    }
  }
  return f;
}

std::string raw16(const Frame& f) {
  std::string bytes;
  bytes.reserve(f.size() * 2);
  for (std::size_t i = 0; i < f.size(); ++i) {
    bytes += static_cast<char>(f.data[i] & 0xFF);
    bytes += static_cast<char>((f.data[i] >> 8) & 0xFF);
  }
  return bytes;
}

struct TestCase {
  int index = 0;
  unsigned int seed = 0;
  bool enabled = false;
  int width = 0;
  int height = 0;
  int cfa = 0;
  std::string source;  // "generated" or "crop of NAME at (x, y)"
};

// `registers` is the absolute path of the --registers map, empty for the built-in one.
std::string runScript(const TestCase& t, unsigned int masterSeed, int frames, const std::string& registers) {
  char head[512];
  std::snprintf(head, sizeof head,
                "#!/bin/sh\n"
                "# fbc random --seed %u, test %04d (test seed %u): %dx%d pixels, CFA %d, block %s,\n"
                "# %d frame%s, input %s.\n"
                "# Writes the golden files of this test again into OUTDIR (default: rerun; a relative\n"
                "# OUTDIR is taken from this directory); they equal the ones here byte for byte.\n"
                "# FBC names the tool (default: fbc).\n"
                "set -e\n"
                "cd \"$(dirname \"$0\")\"\n"
                "out=\"${1:-rerun}\"\n",
                masterSeed, t.index, t.seed, t.width, t.height, t.cfa, t.enabled ? "enabled" : "disabled", frames,
                frames == 1 ? "" : "s", t.source.c_str());
  std::string text = head;
  std::string mapOption;
  if (!registers.empty()) {
    // Single-quoted for the shell: a quote inside the path closes, escapes and reopens.
    mapOption = " --registers '";
    for (char c : registers) mapOption += c == '\'' ? std::string("'\\''") : std::string(1, c);
    mapOption += "'";
  }
  for (int f = 0; f < frames; ++f) {
    char line[256];
    std::snprintf(line, sizeof line,
                  "\"${FBC:-fbc}\" golden --params params.ini --width %d --height %d --cfa %d --frame-index %d "
                  "--outdir \"$out\"",
                  t.width, t.height, t.cfa, f);
    text += line + mapOption + " input.raw\n";
  }
  return text;
}

class Progress {
 public:
  explicit Progress(int total) : total_(total), terminal_(::isatty(STDOUT_FILENO) == 1) {}
  void step(int done, const std::string& line) {
    if (!terminal_) {
      std::cout << line << '\n';
      return;
    }
    constexpr int kWidth = 40;
    const int filled = static_cast<int>(static_cast<long long>(done) * kWidth / total_);
    std::cout << "\r[" << std::string(static_cast<std::size_t>(filled), '#')
              << std::string(static_cast<std::size_t>(kWidth - filled), '.') << "] " << done << '/' << total_
              << std::flush;
    if (done == total_) std::cout << '\n';
  }

 private:
  int total_;
  bool terminal_;
};

}  // namespace

int runRandom(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int count = static_cast<int>(args.requiredInteger("count", 1, 100000));
  const auto masterSeed = static_cast<unsigned int>(args.seed(0xFFFFFFFFu));
  const std::string outdir = args.value("outdir");
  if (outdir.empty()) usageError("--outdir: empty directory name");
  const Settings settings = readSettings(args.has("settings") ? args.value("settings") : "");
  const RegisterMap registerMap(args);
  const std::string registersPath =
      args.has("registers") ? fs::absolute(args.value("registers")).string() : std::string();
  const std::vector<std::string> pictures =
      args.has("images") ? listPictures(args.value("images")) : std::vector<std::string>();
  const bool randomRange = settings["use_random_range"] != 0;
  const int frames = settings["frames"];

  ensureDirectory(outdir);
  std::cout << "seed " << masterSeed << '\n';
  RegisterTable& regs = registerMap.table();
  std::map<std::pair<std::string, int>, Frame> loaded;  // pictures by path and Bayer layout
  std::mt19937 master(masterSeed);
  Progress progress(count);
  int enabledTests = 0, cropped = 0;
  long long pixels = 0;

  for (int i = 0; i < count; ++i) {
    TestCase t;
    t.index = i;
    t.seed = static_cast<unsigned int>(master());
    setRandSeed(t.seed);

    // Parameters first, then the block's own rules, then the enable chance of the settings.
    Compression1x8 drawn("FBC", false);
    resetCodec(drawn);
    TGlobalParam global;
    global.seed = t.seed;
    global.testIndex = i;
    global.useRandomRange = randomRange;
    global.frameCount = frames;
    std::vector<std::string> errors;
    drawn.randomParam(regs, randomRange, errors);
    drawn.randomSpecificParam(regs, global, randomRange, errors);
    if (!errors.empty()) failure("register table: " + errors.front());
    t.enabled = randomVal(0, 99) < settings["enable_percent"];
    drawn.setEnable(t.enabled);

    t.width = randomVal(settings["width_min"], settings["width_max"]);
    t.height = randomVal(settings["height_min"], settings["height_max"]);
    t.cfa = settings.cfa[static_cast<std::size_t>(randomVal(0, static_cast<int>(settings.cfa.size()) - 1))];
    Frame input;
    if (!pictures.empty() && randomVal(0, 99) < settings["picture_percent"]) {
      const std::string& path = pictures[static_cast<std::size_t>(randomVal(0, static_cast<int>(pictures.size()) - 1))];
      auto it = loaded.find({path, t.cfa});
      if (it == loaded.end()) {
        PictureOptions options;
        options.cfa = t.cfa;
        Frame picture;
        std::string error;
        if (!loadPicture(path, options, picture, error)) inputError(error);
        it = loaded.emplace(std::make_pair(path, t.cfa), std::move(picture)).first;
      }
      const Frame& picture = it->second;
      t.width = std::min(t.width, picture.width);
      t.height = std::min(t.height, picture.height);
      const int x0 = randomVal(0, picture.width - t.width), y0 = randomVal(0, picture.height - t.height);
      input = Frame(t.width, t.height, Frame::CS_RAW, 12);
      for (int y = 0; y < t.height; ++y) {
        for (int x = 0; x < t.width; ++x) {
          input.data[static_cast<std::size_t>(y) * t.width + x] = picture.GetPixel(x0 + x, y0 + y);
        }
      }
      t.source = "crop of " + fs::path(path).filename().string() + " at (" + std::to_string(x0) + ", " +
                 std::to_string(y0) + ")";
      ++cropped;
    } else {
      input = generatePicture(t.width, t.height);
      t.source = "generated";
    }

    // The test is built in a private directory and renamed into place when complete. The block
    // that runs is loaded from the written parameter file, so the file reproduces the run
    // exactly (a drawn curve whose keys are bound twice keeps only what the file holds).
    char name[32];
    std::snprintf(name, sizeof name, "test_%04d", i);
    const fs::path target = fs::path(outdir) / name;
    {
      const ScratchDir scratch(outdir);
      writeParamFile(drawn, regs, scratch.file("params.ini"));
      writeFileAtomic(scratch.file("input.raw"), raw16(input));

      Compression1x8 codec("FBC", false);
      loadRegisters(codec, regs, scratch.file("params.ini"), {});
      codec.m_dumpLevel = 1;
      codec.m_outputDir = scratch.path();
      global.width = t.width;
      global.height = t.height;
      global.cfa = t.cfa;
      for (int f = 0; f < frames; ++f) {
        global.frameIndex = f;
        std::vector<Frame*> in{&input}, out;
        codec.allocateOutputFrame(in, out);
        const std::unique_ptr<Frame> output(out[0]);
        // Frame dumps of the run cycle stay off (index 0): the golden files are the block's own.
        if (!codec.run(in, out, global, scratch.path(), 0)) failure(std::string(name) + ": the block failed");
      }
      const std::string script = scratch.file("run.sh");
      writeFileAtomic(script, runScript(t, masterSeed, frames, registersPath));
      ::chmod(script.c_str(), 0755);

      // mkdtemp made the directory for its owner only; give it a normal directory's permissions.
      const mode_t mask = ::umask(0);
      ::umask(mask);
      ::chmod(scratch.path().c_str(), 0777 & ~mask);
      std::error_code ec;
      fs::remove_all(target, ec);
      fs::rename(scratch.path(), target, ec);
      if (ec) failure(target.string() + ": cannot write: " + ec.message());
    }
    enabledTests += t.enabled ? 1 : 0;
    pixels += static_cast<long long>(t.width) * t.height * frames;
    progress.step(i + 1, std::string(name) + ": " + std::to_string(t.width) + "x" + std::to_string(t.height) +
                             ", CFA " + std::to_string(t.cfa) + ", block " + (t.enabled ? "enabled" : "disabled") +
                             ", " + t.source);
  }
  std::cout << count << " test" << (count == 1 ? "" : "s") << " in " << outdir << ": " << enabledTests
            << " with the block enabled, " << count - enabledTests << " disabled; " << cropped
            << " cropped from pictures; " << pixels << " pixels over " << frames << " frame"
            << (frames == 1 ? "" : "s") << " each\n";
  return kExitOk;
}

}  // namespace fbc::cli
