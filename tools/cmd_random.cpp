// fbc random: the random regression generator. Each test is a parameter file, an input picture
// and the golden reference files the block writes for it, plus the command that re-creates them.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "codec/Compression1x8.h"
#include "codec/Coverage.h"
#include "config/IniAccess.h"
#include "config/IniFileIO.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "image/Png.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"
#include "tools/coverage_file.h"
#include "tools/random_tests.h"

namespace fbc::cli {

namespace {

namespace fs = std::filesystem;

const CommandSpec kSpec{
    "random",
    "--count N --seed S --outdir DIR [--shard K/N] [--jobs N] [--coverage] [--settings FILE.ini]\n"
    "       [--images DIR] [--registers FILE]\n"
    "       fbc random report DIR [--count N]\n"
    "       fbc random check DIR [--fbc-like CMD]",
    "Generates N random regression tests into DIR/test_0000 ... Each test draws the block's\n"
    "parameters and an input picture (a random crop of a .png, .ppm or .pgm picture from "
    "--images,\n"
    "else a generated one), runs the block on it for every frame at golden-dump level 1 and\n"
    "holds params.ini, input.raw, the golden files of each frame and run.sh, the 'fbc golden'\n"
    "command that writes the same golden files again. A disabled block passes frames through\n"
    "and has no golden files. The same seed and settings give byte-identical trees. DIR may\n"
    "hold other files, but none of the test directories this run writes: a run never mixes its\n"
    "tests with older ones. A test appears only when complete; an interrupted run removes the\n"
    "one it was writing, and a closed standard output ends the run there (status 0).\n\n"
    "A test's seed, size and registers depend only on --seed and its index i: --shard K/N\n"
    "writes only the tests with i mod N = K, so N shards written into one DIR (at the same\n"
    "time, on as many machines) make the same tree as one run. --coverage writes each test's\n"
    "cover-point counts to coverage.json. --jobs N writes up to N tests at once (default 1, as\n"
    "'make'); the tree and the output are those of one job, progress lines in test order.\n"
    "'fbc random report' summarises a tree, 'fbc random\n"
    "check' re-runs its tests (see 'fbc random report --help', 'fbc random check --help').\n\n"
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
     {"shard", "K/N", "write only the tests whose index i has i mod N = K"},
     {"jobs", "N", "tests written at once, 1..256, default 1"},
     {"coverage", nullptr, "write each test's cover-point counts to coverage.json"},
     {"settings", "FILE.ini", "generator settings, section [GlobalControl]"},
     {"images", "DIR", "pictures (.png, .ppm, .pgm) to crop inputs from"},
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
    {"width_min", 8, 1, 4096},   {"width_max", 256, 1, 4096},      {"height_min", 1, 1, 4096},
    {"height_max", 32, 1, 4096}, {"enable_percent", 90, 0, 100},   {"use_random_range", 1, 0, 1},
    {"frames", 1, 1, 64},        {"picture_percent", 100, 0, 100},
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
  if (!ini.isSectionExist(kSection))
    inputError(path + ": no section [" + std::string(kSection) + "]");
  std::vector<std::string> problems;
  std::vector<std::string> names{kCfaKey};
  for (const SettingSpec& setting : kSettings) names.push_back(setting.key);
  for (const std::string& key : ini.keys().at(kSection)) {
    if (std::find(names.begin(), names.end(), key) == names.end()) {
      problems.push_back("unknown setting \"" + printable(key) +
                         "\" (nearest name: " + nearestName(key, names) + ")");
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
      problems.push_back("setting \"" + key + "\": " + text + " is out of range " +
                         std::to_string(lo) + ".." + std::to_string(hi));
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

// The pictures of --images: .png, .ppm and .pgm files, in name order so that draws are
// reproducible.
std::vector<std::string> listPictures(const std::string& dir) {
  std::error_code ec;
  if (!fs::is_directory(dir, ec)) inputError(dir + ": not a directory");
  std::vector<std::string> pictures;
  for (const auto& entry : fs::directory_iterator(dir, ec)) {
    std::string ext = entry.path().extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    if ((ext == ".png" || ext == ".ppm" || ext == ".pgm") && entry.is_regular_file(ec))
      pictures.push_back(entry.path().string());
  }
  if (ec) inputError(dir + ": cannot list: " + ec.message());
  if (pictures.empty()) inputError(dir + ": no .png, .ppm or .pgm pictures");
  std::sort(pictures.begin(), pictures.end());
  return pictures;
}

int clamp12(int v) {
  return std::min(4095, std::max(0, v));
}

}  // namespace

// A synthetic 12-bit picture made to reach every mode: runs of 1..16 pixels that are flat,
// ramps, low or full-range noise, or alternating extremes, and rows that repeat the one above
// with a little noise, as neighbouring sensor rows do.
Frame generatePicture(int width, int height) {
  Frame f(width, height, Frame::CS_RAW, 12);
  for (int y = 0; y < height; ++y) {
    PIXEL* row = f.data + static_cast<std::size_t>(y) * width;
    if (y > 0 && randomVal(0, 3) == 0) {
      const int amplitude = randomVal(0, 8);
      for (int x = 0; x < width; ++x)
        row[x] = clamp12(row[x - width] + randomVal(-amplitude, amplitude));
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
          case 0:
            row[x] = base;
            break;
          case 1:
            row[x] = clamp12(base + step * k);
            break;
          case 2:
            row[x] = clamp12(base + randomVal(-amplitude, amplitude));
            break;
          case 3:
            row[x] = randomVal(0, 4095);
            break;
          default:
            row[x] = (k & 1) != 0 ? high : low;
            break;
        }
      }
    }
  }
  return f;
}

namespace {

std::string raw16(const Frame& f) {
  std::string bytes;
  bytes.reserve(f.size() * 2);
  for (std::size_t i = 0; i < f.size(); ++i) {
    bytes += static_cast<char>(f.data[i] & 0xFF);
    bytes += static_cast<char>((f.data[i] >> 8) & 0xFF);
  }
  return bytes;
}

// `registers` is the absolute path of the --registers map, empty for the built-in one.
std::string runScript(const TestCase& t, int frames, const std::string& registers) {
  char head[512];
  std::snprintf(
      head, sizeof head,
      "#!/bin/sh\n"
      "# %s: %dx%d pixels, CFA %d, block %s,\n"
      "# %d frame%s, input %s.\n"
      "# Writes the golden files of this test again into OUTDIR (default: rerun; a relative\n"
      "# OUTDIR is taken from this directory); they equal the ones here byte for byte.\n"
      "# FBC names the tool (default: fbc).\n"
      "set -e\n"
      "cd \"$(dirname \"$0\")\"\n"
      "out=\"${1:-rerun}\"\n",
      t.origin.c_str(), t.width, t.height, t.cfa, t.enabled ? "enabled" : "disabled", frames,
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
                  "\"${FBC:-fbc}\" golden --params params.ini --width %d --height %d --cfa %d "
                  "--frame-index %d "
                  "--outdir \"$out\"",
                  t.width, t.height, t.cfa, f);
    text += line + mapOption + " input.raw\n";
  }
  return text;
}

std::string testName(int index) {
  char name[32];
  std::snprintf(name, sizeof name, "test_%04d", index);
  return name;
}

// The tests a run writes must not exist yet, so that an output directory never holds tests of
// two runs. Only this run's own test directories are looked at (indices first, first + step, ...
// below end): the shards of one set of tests share an output directory.
void refuseExistingTests(const std::string& outdir, int first, int end, int step) {
  std::error_code ec;
  if (!fs::exists(outdir, ec)) return;
  for (int i = first; i < end; i += step) {
    const fs::path test = fs::path(outdir) / testName(i);
    if (fs::exists(fs::symlink_status(test, ec))) {
      usageError(
          test.string() +
          ": already exists; a run writes only new tests (remove it or choose another --outdir)");
    }
  }
}

// Moves a complete test directory into place; a test directory that appeared meanwhile is an
// error, never replaced.
void placeTest(const std::string& from, const fs::path& to) {
  int rc = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (rc != 0 && (errno == EINVAL || errno == ENOSYS)) {
    std::error_code ec;
    rc = fs::exists(fs::symlink_status(to, ec)) ? (errno = EEXIST, -1)
                                                : std::rename(from.c_str(), to.c_str());
  }
  if (rc != 0) failure(to.string() + ": cannot write: " + std::strerror(errno));
}

class Progress {
 public:
  explicit Progress(int total) : total_(total), terminal_(::isatty(STDOUT_FILENO) == 1) {}
  void step(int done, const std::string& line) {
    if (!terminal_) {
      std::cout << line << '\n';
      flushStandardOutput();
      return;
    }
    constexpr int kWidth = 40;
    const int filled = static_cast<int>(static_cast<long long>(done) * kWidth / total_);
    std::cout << "\r[" << std::string(static_cast<std::size_t>(filled), '#')
              << std::string(static_cast<std::size_t>(kWidth - filled), '.') << "] " << done << '/'
              << total_ << std::flush;
    if (done == total_) std::cout << '\n';
  }

 private:
  int total_;
  bool terminal_;
};

// --shard K/N: this run writes the tests with index i mod N = K; N = 1 (K = 0) when absent.
struct Shard {
  int index = 0;
  int count = 1;
};

Shard shardOption(const Args& args) {
  Shard shard;
  if (!args.has("shard")) return shard;
  const std::string& text = args.value("shard");
  const std::size_t slash = text.find('/');
  const auto number = [&](const std::string& word, long long& v) {
    if (word.empty() || word.size() > 6 ||
        word.find_first_not_of("0123456789") != std::string::npos)
      return false;
    v = std::stoll(word);
    return true;
  };
  long long k = 0, n = 0;
  if (slash == std::string::npos || !number(text.substr(0, slash), k) ||
      !number(text.substr(slash + 1), n)) {
    usageError("--shard: '" + text + "' is not K/N (two integers, 0 <= K < N)");
  }
  if (n < 1 || n > 100000 || k >= n) {
    usageError("--shard: " + text + " is out of range (0 <= K < N <= 100000)");
  }
  shard.index = static_cast<int>(k);
  shard.count = static_cast<int>(n);
  return shard;
}

}  // namespace

void writeTest(const std::string& outdir, const TestCase& t, Compression1x8& drawn,
               RegisterTable& regs, Frame& input, TGlobalParam& global,
               const std::string& registersPath, bool wantCoverage) {
  // The test is built in a private directory and renamed into place when complete. The block
  // that runs is loaded from the written parameter file, so the file reproduces the run
  // exactly (a drawn curve whose keys are bound twice keeps only what the file holds).
  const std::string name = testName(t.index);
  const fs::path target = fs::path(outdir) / name;
  const ScratchDir scratch(outdir);
  writeParamFile(drawn, regs, scratch.file("params.ini"));
  writeFileAtomic(scratch.file("input.raw"), raw16(input));

  Compression1x8 codec("FBC", false);
  loadRegisters(codec, regs, scratch.file("params.ini"), {});
  codec.m_dumpLevel = 1;
  codec.m_outputDir = scratch.path();
  fbc::Coverage coverage;
  if (wantCoverage) codec.coverage = &coverage;
  global.width = t.width;
  global.height = t.height;
  global.cfa = t.cfa;
  const int frames = global.frameCount;
  for (int f = 0; f < frames; ++f) {
    global.frameIndex = f;
    std::vector<Frame*> in{&input}, out;
    codec.allocateOutputFrame(in, out);
    const std::unique_ptr<Frame> output(out[0]);
    // Frame dumps of the run cycle stay off (index 0): the golden files are the block's own.
    if (!codec.run(in, out, global, scratch.path(), 0)) failure(name + ": the block failed");
  }
  if (wantCoverage) writeFileAtomic(scratch.file("coverage.json"), coverageJson(coverage));
  const std::string script = scratch.file("run.sh");
  writeFileAtomic(script, runScript(t, frames, registersPath));
  ::chmod(script.c_str(), 0755);

  // mkdtemp made the directory for its owner only; give it a normal directory's permissions.
  const mode_t mask = ::umask(0);
  ::umask(mask);
  ::chmod(scratch.path().c_str(), 0777 & ~mask);
  placeTest(scratch.path(), target);
}

int runRandom(const Words& argv) {
  if (!argv.empty() && argv[0] == "report")
    return runRandomReport(Words(argv.begin() + 1, argv.end()));
  if (!argv.empty() && argv[0] == "check")
    return runRandomCheck(Words(argv.begin() + 1, argv.end()));
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int count = static_cast<int>(args.requiredInteger("count", 1, 100000));
  const Shard shard = shardOption(args);
  const bool wantCoverage = args.has("coverage");
  const int jobs = static_cast<int>(args.integer("jobs", 1, 256, 1));
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

  checkOutputDirectory(outdir);
  refuseExistingTests(outdir, shard.index, count, shard.count);
  ensureDirectory(outdir);
  std::cout << "seed " << masterSeed << '\n';
  flushStandardOutput();
  RegisterTable& regs = registerMap.table();
  std::map<std::pair<std::string, int>, Frame> loaded;  // pictures by path and Bayer layout
  std::mt19937 master(masterSeed);
  const int shardTests = count / shard.count + (shard.index < count % shard.count ? 1 : 0);
  Progress progress(shardTests);
  int written = 0, enabledTests = 0, cropped = 0;
  long long pixels = 0;

  // Tests are drawn one after another (the library's generator is one), then written up to
  // `jobs` at a time; their lines follow in test order. A failed test ends the run as it would
  // with one job: the tests after it are taken away again.
  struct Drawn {
    TestCase t;
    std::unique_ptr<Compression1x8> codec;
    Frame input;
    TGlobalParam global;
  };
  std::vector<Drawn> batch;
  const auto writeBatch = [&] {
    std::vector<std::exception_ptr> errors(batch.size());
    const auto write = [&](std::size_t k) {
      try {
        Drawn& d = batch[k];
        writeTest(outdir, d.t, *d.codec, regs, d.input, d.global, registersPath, wantCoverage);
      } catch (...) {
        errors[k] = std::current_exception();
      }
    };
    std::vector<std::thread> workers;
    {
      // The workers start with the cleanup signals blocked: the main thread takes them.
      const SignalsHeld held;
      for (std::size_t k = 1; k < batch.size(); ++k) workers.emplace_back(write, k);
    }
    write(0);
    for (std::thread& w : workers) w.join();
    for (std::size_t k = 0; k < batch.size(); ++k) {
      if (errors[k]) {
        std::error_code ignored;
        for (std::size_t later = k + 1; later < batch.size(); ++later)
          if (!errors[later])
            fs::remove_all(fs::path(outdir) / testName(batch[later].t.index), ignored);
        batch.clear();
        std::rethrow_exception(errors[k]);
      }
      const TestCase& t = batch[k].t;
      enabledTests += t.enabled ? 1 : 0;
      pixels += static_cast<long long>(t.width) * t.height * frames;
      progress.step(++written, testName(t.index) + ": " + std::to_string(t.width) + "x" +
                                   std::to_string(t.height) + ", CFA " + std::to_string(t.cfa) +
                                   ", block " + (t.enabled ? "enabled" : "disabled") + ", " +
                                   t.source);
    }
    batch.clear();
  };

  for (int i = 0; i < count; ++i) {
    TestCase t;
    t.index = i;
    t.seed = static_cast<unsigned int>(master());
    if (i % shard.count != shard.index) continue;
    setRandSeed(t.seed);

    // Parameters first, then the block's own rules, then the enable chance of the settings.
    auto drawnCodec = std::make_unique<Compression1x8>("FBC", false);
    Compression1x8& drawn = *drawnCodec;
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
    t.cfa =
        settings
            .cfa[static_cast<std::size_t>(randomVal(0, static_cast<int>(settings.cfa.size()) - 1))];
    Frame input;
    if (!pictures.empty() && randomVal(0, 99) < settings["picture_percent"]) {
      const std::string& path =
          pictures[static_cast<std::size_t>(randomVal(0, static_cast<int>(pictures.size()) - 1))];
      auto it = loaded.find({path, t.cfa});
      if (it == loaded.end()) {
        PictureOptions options;
        options.cfa = t.cfa;
        Frame picture;
        std::string error;
        if (!loadPictureOrPng(path, options, picture, error)) inputError(error);
        it = loaded.emplace(std::make_pair(path, t.cfa), std::move(picture)).first;
      }
      const Frame& picture = it->second;
      t.width = std::min(t.width, picture.width);
      t.height = std::min(t.height, picture.height);
      const int x0 = randomVal(0, picture.width - t.width),
                y0 = randomVal(0, picture.height - t.height);
      input = Frame(t.width, t.height, Frame::CS_RAW, 12);
      for (int y = 0; y < t.height; ++y) {
        for (int x = 0; x < t.width; ++x) {
          input.data[static_cast<std::size_t>(y) * t.width + x] = picture.GetPixel(x0 + x, y0 + y);
        }
      }
      t.source = "crop of " + fs::path(path).filename().string() + " at (" + std::to_string(x0) +
                 ", " + std::to_string(y0) + ")";
      ++cropped;
    } else {
      input = generatePicture(t.width, t.height);
      t.source = "generated";
    }

    char origin[96];
    std::snprintf(origin, sizeof origin, "fbc random --seed %u, test %04d (test seed %u)",
                  masterSeed, i, t.seed);
    t.origin = origin;
    batch.push_back(Drawn{std::move(t), std::move(drawnCodec), std::move(input), global});
    if (static_cast<int>(batch.size()) == jobs) writeBatch();
  }
  if (!batch.empty()) writeBatch();
  std::cout << written << " test" << (written == 1 ? "" : "s");
  if (shard.count > 1) std::cout << " of shard " << shard.index << '/' << shard.count;
  std::cout << " in " << outdir << ": " << enabledTests << " with the block enabled, "
            << written - enabledTests << " disabled; " << cropped << " cropped from pictures; "
            << pixels << " pixels over " << frames << " frame" << (frames == 1 ? "" : "s")
            << " each\n";
  return kExitOk;
}

}  // namespace fbc::cli
