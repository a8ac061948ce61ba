// fbc report: one self-contained HTML page about a picture through the block: the input, the
// decoded picture, the mode map and the error map side by side, the mode and error histograms,
// PSNR and largest error, the registers that differ from the defaults, and a click on a block
// shows its decision trace.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "codec/Compression1x8.h"
#include "image/Frame.h"
#include "image/Picture.h"
#include "tools/cli.h"
#include "tools/codec_config.h"
#include "tools/commands.h"
#include "tools/png_write.h"
#include "tools/report.h"
#include "tools/trace_out.h"

namespace fbc::cli {

namespace {

// Traces are embedded for the first kTracedBlocks blocks in coding order (rows from the top):
// about 1 kB of JSON each, about 90 bytes once compressed.
constexpr long long kTracedBlocks = 65536;

const CommandSpec kSpec{
    "report",
    "[--params F] [--set K=V ...] [--cfa N] [--out report.html] IN",
    "Writes one self-contained HTML page (no network; pictures inline as PNG) about the picture\n"
    "IN through the block: the input, the decoded picture, the mode map and the error map side\n"
    "by side at one zoom, the blocks per mode and the pixels per absolute error as charts, PSNR\n"
    "and largest error, and the registers that differ from the defaults. Clicking a block of a\n"
    "picture shows its decision trace (the JSON of 'fbc trace'), embedded for the first 65536\n"
    "blocks in coding order (every block of pictures up to 65536 blocks, e.g. 1024x512).\n"
    "Default output: report.html.\n\n" FBC_INPUT_PICTURE_HELP,
    {kOptWidth,
     kOptHeight,
     kOptCfa,
     kOptRawMode,
     kOptParams,
     kOptSet,
     kOptRegisters,
     kOptThreads,
     {"out", "FILE", "the page, default report.html"}},
    1,
    1};

std::string escape(const std::string& s) {
  std::string o;
  for (char c : s) {
    if (c == '<')
      o += "&lt;";
    else if (c == '>')
      o += "&gt;";
    else if (c == '&')
      o += "&amp;";
    else if (c == '"')
      o += "&quot;";
    else
      o += c;
  }
  return o;
}

std::string pngData(int w, int h, int channels, const std::vector<unsigned char>& samples) {
  return "data:image/png;base64," + base64(encodePng(w, h, channels, samples));
}

// A bar chart: one bar per label, heights on a linear or logarithmic scale.
std::string barChart(const std::string& title, const std::vector<std::string>& labels,
                     const std::vector<long long>& values, const std::vector<std::string>& colours,
                     bool logScale) {
  const int barW =
                std::max(6, std::min(40, 640 / std::max<int>(1, static_cast<int>(values.size())))),
            h = 160;
  const int w = barW * static_cast<int>(values.size()) + 60;
  const long long top = std::max<long long>(1, *std::max_element(values.begin(), values.end()));
  const auto scale = [&](long long v) {
    if (v <= 0) return 0.0;
    return logScale ? h * std::log10(1.0 + static_cast<double>(v)) /
                          std::log10(1.0 + static_cast<double>(top))
                    : h * static_cast<double>(v) / static_cast<double>(top);
  };
  std::ostringstream o;
  o << "<figure><svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << w << "\" height=\"" << h + 70
    << "\" role=\"img\"><title>" << escape(title) << "</title>";
  o << "<line x1=\"40\" y1=\"" << h + 10 << "\" x2=\"" << w << "\" y2=\"" << h + 10
    << "\" stroke=\"#444\"/>";
  for (std::size_t i = 0; i < values.size(); ++i) {
    const double bh = scale(values[i]);
    const int x = 40 + static_cast<int>(i) * barW;
    char rect[320];
    std::snprintf(rect, sizeof rect,
                  "<rect x=\"%d\" y=\"%.1f\" width=\"%d\" height=\"%.1f\" fill=\"%s\" "
                  "stroke=\"#333\"><title>%s: %lld</title></rect>",
                  x + 1, h + 10 - bh, barW - 2, bh, colours[i % colours.size()].c_str(),
                  escape(labels[i]).c_str(), values[i]);
    o << rect;
    if (values.size() <= 16 || i % (values.size() / 8) == 0) {
      o << "<text x=\"" << x + barW / 2 << "\" y=\"" << h + 22
        << "\" font-size=\"10\" text-anchor=\"end\" transform=\"rotate(-45 " << x + barW / 2 << ' '
        << h + 22 << ")\">" << escape(labels[i]) << "</text>";
    }
  }
  o << "<text x=\"0\" y=\"12\" font-size=\"10\">" << top << "</text><text x=\"0\" y=\"" << h + 10
    << "\" font-size=\"10\">0</text></svg><figcaption>" << escape(title)
    << (logScale ? " (logarithmic scale)" : "") << "</figcaption></figure>";
  return o.str();
}

std::string hexColour(const unsigned char* rgb) {
  char b[8];
  std::snprintf(b, sizeof b, "#%02x%02x%02x", rgb[0], rgb[1], rgb[2]);
  return b;
}

const char* const kScript = R"JS(
window.addEventListener('error', function (e) {
  document.getElementById('errors').textContent += 'script error: ' + e.message + '\n';
});
(function () {
  var info = JSON.parse(document.getElementById('info').textContent);
  var modes = Uint8Array.from(atob(document.getElementById('modes').textContent.trim()), function (c) { return c.charCodeAt(0); });
  var traces = null, shown = -1, zoom = info.zoom;
  var pictures = document.querySelectorAll('img.picture');
  function setZoom(z) {
    zoom = z;
    pictures.forEach(function (img) { img.style.width = (info.width * z) + 'px'; img.style.height = (info.height * z) + 'px'; });
  }
  function render() {
    if (shown < 0) return;
    var x = 8 * (shown % info.blocksPerRow), y = Math.floor(shown / info.blocksPerRow);
    var modeEl = document.getElementById('trace-mode'), pre = document.getElementById('trace');
    document.getElementById('trace-where').textContent = 'block x=' + x + ' y=' + y;
    var mode = modes[shown], text;
    if (shown >= info.traced) {
      text = 'no trace embedded: traces cover the first ' + info.traced + ' blocks (rows 0..' +
             (Math.ceil(info.traced / info.blocksPerRow) - 1) + '); run fbc trace --x ' + x + ' --y ' + y;
    } else if (!traces) {
      text = 'traces loading ...';
    } else {
      var t = JSON.parse(traces[shown]);
      mode = t.curve_forced ? 1 : t.mode;
      text = '{\n' + Object.keys(t).map(function (k) { return ' ' + JSON.stringify(k) + ': ' + JSON.stringify(t[k]); }).join(',\n') + '\n}';
    }
    modeEl.textContent = mode + ' ' + (info.modeNames[mode] || 'unknown number');
    modeEl.dataset.mode = String(mode);
    modeEl.dataset.block = String(shown);
    pre.textContent = text;
  }
  function show(x, y) {
    if (x < 0 || y < 0 || x >= info.width || y >= info.height) return;
    shown = y * info.blocksPerRow + (x >> 3);
    render();
  }
  pictures.forEach(function (img) {
    img.addEventListener('click', function (ev) {
      var r = img.getBoundingClientRect();
      // Mouse positions are whole CSS pixels.
      show(Math.floor((ev.clientX - Math.floor(r.left)) / zoom), Math.floor((ev.clientY - Math.floor(r.top)) / zoom));
    });
  });
  document.getElementById('zoom').addEventListener('change', function (ev) { setZoom(Number(ev.target.value)); });
  setZoom(zoom);
  function clickFromHash() {
    var m = /^#click=(\d+),(\d+)$/.exec(location.hash);
    if (!m) return;
    var img = document.getElementById('modemap'), r = img.getBoundingClientRect();
    img.dispatchEvent(new MouseEvent('click', { bubbles: true, clientX: Math.floor(r.left) + (Number(m[1]) + 0.5) * zoom,
                                                  clientY: Math.floor(r.top) + (Number(m[2]) + 0.5) * zoom }));
  }
  var packed = document.getElementById('traces').textContent.trim();
  var done = function () { document.body.dataset.ready = '1'; };
  clickFromHash();
  if (!packed) { done(); return; }
  var bytes = Uint8Array.from(atob(packed), function (c) { return c.charCodeAt(0); });
  new Response(new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'))).text().then(function (text) {
    traces = text.split('\n');
    render();
    done();
  }).catch(function (e) { document.getElementById('errors').textContent += 'traces: ' + e + '\n'; done(); });
})();
)JS";

}  // namespace

int runReport(const Words& argv) {
  Args args;
  if (!parseArgs(kSpec, argv, args)) return kExitOk;
  const int cfa = cfaOption(args);
  const std::string inPath = args.positional()[0];
  const std::string outPath = args.has("out") ? args.value("out") : std::string("report.html");
  const Frame image = readInputImage(inPath, args);
  Compression1x8 codec("FBC", false);
  configureCodec(codec, args);
  codec.Threads = threadsOption(args);
  requireEnabled(codec);
  const RegisterMap regs(args);
  const std::vector<std::string> changed = nonDefaultRegisters(codec, regs.table());
  Output page(outPath);
  const RoundTrip rt = runRoundTrip(codec, image, cfa);

  const int w = image.width, h = image.height, bpr = paddedWidth(w) / 8;
  const std::size_t n = image.size();
  std::vector<unsigned char> input(n), decoded(n), modes(3 * n), errors(3 * n);
  std::vector<long long> perError;
  const int bins = std::min(rt.maxError + 1, 64);
  perError.assign(static_cast<std::size_t>(bins), 0);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      input[i] = static_cast<unsigned char>(image.data[i] >> 4);
      decoded[i] = static_cast<unsigned char>(rt.decoded.data[i] >> 4);
      const unsigned char* c = modeColour(rt.blockModes[static_cast<std::size_t>(y) * bpr + x / 8]);
      std::copy(c, c + 3, &modes[3 * i]);
      const int e = std::abs(image.data[i] - rt.decoded.data[i]);
      int heat[3];
      heatColour(e, std::max(rt.maxError, 1), heat);
      for (int k = 0; k < 3; ++k) errors[3 * i + k] = static_cast<unsigned char>(heat[k]);
      ++perError[static_cast<std::size_t>(static_cast<long long>(e) * bins / (rt.maxError + 1))];
    }
  }

  // Traces of the first blocks in coding order, one JSON line each, as 'fbc trace --json' prints
  // them.
  const long long blocks = static_cast<long long>(bpr) * h;
  const long long traced = std::min(blocks, kTracedBlocks);
  std::string traceLines;
  codec.startFrame(w, 0);
  for (long long b = 0; b < traced; ++b) {
    const int y = static_cast<int>(b / bpr), x = static_cast<int>(8 * (b % bpr));
    int px[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    for (int k = 0; k < 8 && x + k < w; ++k) px[k] = image.GetPixel(x + k, y);
    traceLines += traceJson(codec, traceBlock(codec, px, Compression1x8::rowParity(y, cfa)), x, y);
    if (b + 1 < traced) traceLines += '\n';
  }

  std::vector<std::string> modeLabels, modeColours, errorLabels;
  std::vector<long long> perMode;
  for (int m = 0; m < kModeCount; ++m) {
    modeLabels.push_back(kModeNames[m]);
    modeColours.push_back(hexColour(modeColour(m)));
    perMode.push_back(rt.blocksPerMode[static_cast<std::size_t>(m)]);
  }
  for (int b = 0; b < bins; ++b) {
    const long long lo = static_cast<long long>(b) * (rt.maxError + 1) / bins;
    const long long hi = static_cast<long long>(b + 1) * (rt.maxError + 1) / bins - 1;
    errorLabels.push_back(lo == hi ? std::to_string(lo)
                                   : std::to_string(lo) + "-" + std::to_string(hi));
  }
  double zoom = 4;
  while (zoom > 0.25 && w * zoom > 720) zoom /= 2;

  std::ostringstream o;
  char psnr[64];
  if (std::isinf(rt.psnr))
    std::snprintf(psnr, sizeof psnr, "infinite (exact)");
  else
    std::snprintf(psnr, sizeof psnr, "%.2f dB", rt.psnr);
  const std::string name = escape(inPath);
  o << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>fbc report: "
    << name << "</title>\n"
    << "<style>body{font-family:sans-serif;margin:1em;background:#f4f4f4}"
       ".pictures{display:flex;flex-wrap:wrap;gap:12px}figure{margin:0}"
       "img.picture{image-rendering:pixelated;cursor:crosshair;border:1px solid #888;display:block}"
       "pre{background:#fff;border:1px solid "
       "#ccc;padding:6px;max-height:40em;overflow:auto;font-size:12px}"
       "#errors{color:#b00;white-space:pre}.legend "
       "span{display:inline-block;width:1em;height:1em;border:1px solid #333;"
       "vertical-align:middle;margin:0 3px 0 9px}</style></head>\n<body>\n";
  o << "<h1>fbc report: " << name << "</h1>\n<div id=\"errors\"></div>\n";
  o << "<p>" << w << "x" << h << " pixels, " << blocks << " blocks, Bayer layout " << cfa
    << "; PSNR " << psnr << "; largest error " << rt.maxError << "</p>\n";
  o << "<p><label>zoom <select id=\"zoom\">";
  for (double z : {0.25, 0.5, 1.0, 2.0, 4.0, 8.0})
    o << "<option value=\"" << z << "\"" << (z == zoom ? " selected" : "") << ">" << z
      << "x</option>";
  o << "</select></label> &mdash; click a block of any picture for its decision trace</p>\n<div "
       "class=\"legend\">modes:";
  for (int m = 0; m < kModeCount; ++m)
    o << "<span style=\"background:" << modeColours[static_cast<std::size_t>(m)] << "\"></span>"
      << kModeNames[m];
  o << "</div>\n<div class=\"pictures\">\n";
  const struct {
    const char* id;
    const char* caption;
    int channels;
    const std::vector<unsigned char>* samples;
  } pictures[] = {
      {"input", "input", 1, &input},
      {"decoded", "decoded", 1, &decoded},
      {"modemap", "mode map", 3, &modes},
      {"errormap", "error map (absolute error, top of the scale = largest error)", 3, &errors}};
  for (const auto& p : pictures) {
    o << "<figure><img class=\"picture\" id=\"" << p.id << "\" alt=\"" << p.caption << "\" src=\""
      << pngData(w, h, p.channels, *p.samples) << "\"><figcaption>" << p.caption
      << "</figcaption></figure>\n";
  }
  o << "</div>\n<h2>Block trace</h2>\n<p><span id=\"trace-where\">no block chosen</span>: mode <b "
       "id=\"trace-mode\" "
       "data-mode=\"\"></b></p>\n<pre id=\"trace\"></pre>\n";
  o << "<h2>Histograms</h2>\n<div class=\"pictures\">"
    << barChart("blocks per mode", modeLabels, perMode, modeColours, false)
    << barChart("pixels per absolute error", errorLabels, perError, {"#d04020"}, true)
    << "</div>\n";
  o << "<h2>Registers that differ from the defaults</h2>\n";
  if (changed.empty())
    o << "<p>none</p>\n";
  else {
    o << "<pre>";
    for (const std::string& r : changed) o << escape(r) << '\n';
    o << "</pre>\n";
  }
  o << "<p>Traces embedded for " << traced << " of " << blocks << " blocks (the first "
    << kTracedBlocks << " in coding order).</p>\n";
  o << "<script id=\"info\" type=\"application/json\">{\"width\":" << w << ",\"height\":" << h
    << ",\"blocksPerRow\":" << bpr << ",\"traced\":" << traced << ",\"zoom\":" << zoom
    << ",\"modeNames\":[";
  for (int m = 0; m < kModeCount; ++m) o << (m ? "," : "") << '"' << kModeNames[m] << '"';
  o << "]}</script>\n<script id=\"modes\" type=\"application/octet-stream\">"
    << base64(rt.blockModes) << "</script>\n<script id=\"traces\" type=\"application/gzip-base64\">"
    << base64(gzip(traceLines)) << "</script>\n<script>" << kScript
    << "</script>\n</body></html>\n";
  page.write(o.str());
  page.commit();
  return kExitOk;
}

}  // namespace fbc::cli
