// The frame-buffer compression block: 1x8 blocks of 12-bit pixels, each coded into 64 bits by
// one of eleven modes, with the registers that steer mode selection and reconstruction.
//
// Inside the codec a block code is a 64-bit integer (fbc::BlockCode, bit i = element i). The
// bool* entry points keep the block's 64-element interface and are thin adapters over it.
// Each mode lives in one source file with its layout, cost, encoder and decoder together:
// Hadamard.cpp, MinMaxDpcm.cpp, Truncate.cpp, Curve.cpp, Edge.cpp; selection in ModeSelect.cpp,
// frame drivers and golden files in FrameDriver.cpp. The numbers a layout or selection order
// consists of are constexpr tables (ModeLayout.h, EdgeLayout.h) that the vector kernels read too.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "codec/BlockCode.h"
#include "codec/Coverage.h"
#include "codec/Trace.h"
#include "framework/IPBase.h"

class Frame;

namespace fbc {

// A mode's errors over a block: their sum (the SAD the block keeps for reports) and the largest,
// which is the cost selection reads.
struct ErrorTally {
  int sad = 0;
  int maxErr = 0;
  void add(int e) {
    sad += e;
    maxErr = e > maxErr ? e : maxErr;
  }
};

}  // namespace fbc

class Compression1x8 : public IPBase {
 public:
  Compression1x8(const std::string& name, bool noExecute);
  // A second codec for the same frames: the same registers, frame state and thread count,
  // its own per-block working state, no instrumentation and no parameter snapshots. The
  // frame drivers give one to each thread that codes a share of the rows.
  Compression1x8(const Compression1x8& other);
  // Every bound register (and the enable) of `other`; working state is left alone.
  void copyRegistersFrom(const Compression1x8& other);
  Compression1x8& operator=(const Compression1x8&) = delete;
  ~Compression1x8() override = default;

  // --- block interface --------------------------------------------------------------------
  int setSWinit();
  bool init(IniFileIO& ini, RegisterTable& regs, TGlobalParam& g,
            std::vector<std::string>& names) override;
  bool execute(std::vector<Frame*>& in, std::vector<Frame*>& out, TGlobalParam& g) override;
  void setEnable(bool on) override;
  bool isEnabled() override;
  bool randomSpecificParam(RegisterTable& regs, TGlobalParam& g, bool useRandomRange,
                           std::vector<std::string>& errors) override;

  // --- per-block coding -------------------------------------------------------------------
  // Codes one block: every mode's cost, selection, then the chosen encoder. `parity` is the
  // row parity the frame driver derives from the row and the CFA layout.
  fbc::BlockCode encodeBlock(const int* pixels, bool parity);
  void EncodePixel8(int* pixels, bool* code, bool parity);
  void EncodeCalculateSAD(int* pixels, bool parity);
  void Encode_modeselect();
  fbc::BlockCode encodeSelected(const int* pixels, bool parity);
  void Encode_bitstream(int* pixels, bool* code, bool parity);
  // Writes the block's costs, code and encoder into `trace` and counts the mode that ran.
  void record(const int* pixels, bool parity, fbc::BlockCode code);
  // Decodes one block code into eight 12-bit pixels.
  void decodeBlock(fbc::BlockCode code, int* pixels);
  void Decode_bitstream(bool* code, int* pixels);

  // --- Hadamard ---------------------------------------------------------------------------
  void CalculateHadama(const int* p);
  fbc::BlockCode encodeHadama() const;
  void encodeHadama(int* p, bool* code);
  static void decodeHadama(fbc::BlockCode code, int* out, fbc::Coverage* cov = nullptr);
  void decodeHadama(bool* code, int* out);

  // --- MinMax and DPCM --------------------------------------------------------------------
  void CalculateMinMaxSAD(const int* p);
  fbc::BlockCode encodeMinMax() const;
  void encodeMinMax(int* p, bool* code);
  static void decodeMinMax(fbc::BlockCode code, int* out);
  void decodeMinMax(bool* code, int* out);

  void CalculateDPCMSAD(const int* p);
  fbc::BlockCode encodeDPCM() const;
  void encodeDPCM(int* p, bool* code);
  static void decodeDPCM(fbc::BlockCode code, int* out, fbc::Coverage* cov = nullptr);
  void decodeDPCM(bool* code, int* out);
  // The largest step exponent DPCM may use, the rounder row (0 or 1) and its rounder for a
  // step exponent.
  int dpcmMaxShift() const;
  int dpcmRounderRow() const;
  int dpcmRounder(int shift) const;

  // --- Truncate ---------------------------------------------------------------------------
  void CalculateTruncateSAD(const int* p, bool parity);
  fbc::BlockCode encodeTruncate(const int* p, bool parity) const;
  void encodeTruncate(int* p, bool* code, bool parity);
  void decodeTruncate(fbc::BlockCode code, int* out) const;
  void decodeTruncate(bool* code, int* out);
  // The truncation shared with the edge members' coarse pixels, for a pixel that drops `drop`
  // low bits: which pixels of a row keep one bit more, the encoder's rounding, the cost of a
  // mid-interval reconstruction, and the reconstruction of a kept field t (its offset within
  // the interval depends on t only through t == 0).
  int truncationSelect(bool parity) const;
  bool truncationFine(int pixel, int sel) const;
  int truncationRounded(int v, int drop) const;
  static int truncationError(int v, int drop);
  int truncationOffset(int t, int drop) const;
  int untruncate(int t, int drop) const;

  // --- Curve ------------------------------------------------------------------------------
  int curveCompress(int x) const;
  int curveUncompress(int y) const;
  fbc::BlockCode encodeCurve(const int* p) const;
  // The code of eight curve values: byte i is pixel i's.
  static fbc::BlockCode packCurve(const std::uint8_t* values);
  void encodeCurve(int* p, bool* code);
  void decodeCurve(fbc::BlockCode code, int* out) const;
  void decodeCurve(bool* code, int* out);

  // --- Edge2 .. Edge7 ---------------------------------------------------------------------
  // `member` is the group size n = 2..7 (mode number n + 3).
  void CalculateEdgeSAD(int member, const int* p);
  fbc::BlockCode encodeEdge(int member, const int* p) const;
  void decodeEdge(int member, fbc::BlockCode code, int* out) const;

  void CalculateEdge2SAD(int* p) { CalculateEdgeSAD(2, p); }
  void CalculateEdge3SAD(int* p) { CalculateEdgeSAD(3, p); }
  void CalculateEdge4SAD(int* p) { CalculateEdgeSAD(4, p); }
  void CalculateEdge5SAD(int* p) { CalculateEdgeSAD(5, p); }
  void CalculateEdge6SAD(int* p) { CalculateEdgeSAD(6, p); }
  void CalculateEdge7SAD(int* p) { CalculateEdgeSAD(7, p); }
  void encodeEdge2(int* p, bool* code) { fbc::unpackCode(encodeEdge(2, p), code); }
  void encodeEdge3(int* p, bool* code) { fbc::unpackCode(encodeEdge(3, p), code); }
  void encodeEdge4(int* p, bool* code) { fbc::unpackCode(encodeEdge(4, p), code); }
  void encodeEdge5(int* p, bool* code) { fbc::unpackCode(encodeEdge(5, p), code); }
  void encodeEdge6(int* p, bool* code) { fbc::unpackCode(encodeEdge(6, p), code); }
  void encodeEdge7(int* p, bool* code) { fbc::unpackCode(encodeEdge(7, p), code); }
  void decodeEdge2(bool* code, int* out) { decodeEdge(2, fbc::packCode(code), out); }
  void decodeEdge3(bool* code, int* out) { decodeEdge(3, fbc::packCode(code), out); }
  void decodeEdge4(bool* code, int* out) { decodeEdge(4, fbc::packCode(code), out); }
  void decodeEdge5(bool* code, int* out) { decodeEdge(5, fbc::packCode(code), out); }
  void decodeEdge6(bool* code, int* out) { decodeEdge(6, fbc::packCode(code), out); }
  void decodeEdge7(bool* code, int* out) { decodeEdge(7, fbc::packCode(code), out); }

  // --- frame drivers ----------------------------------------------------------------------
  // Row parity of row y under the Bayer layout `cfa`: layouts 1 and 3 start with the other
  // colour pair (Truncate's extension follows it).
  static bool rowParity(int y, int cfa) { return (cfa & ~2) == 1 ? (y & 1) == 0 : (y & 1) == 1; }
  // What the compression driver sets once per frame before coding its blocks: the frame width
  // and the DPCM rounder row.
  void startFrame(int width, int frameIndex);
  void allocateCompressedFrame(int width, int height, Frame& f);
  void compressDecompressFrame(const Frame& in, Frame& out, int cfa, int frameIndex);
  void CompressFrame(const Frame& in, Frame& out, int cfa, int frameIndex);
  void DecompressFrame(const Frame& in, Frame& out, int frameIndex);
  // The host-facing decoder: `height` rows of `width` bytes of block codes into 16-bit pixels.
  void DecompressFrame(unsigned char* in, unsigned short* out, int width, int height, int reserved);
  // Decodes rows [rowBegin, rowEnd) of such a buffer; the whole-buffer call is one range.
  void decompressRows(const unsigned char* in, unsigned short* out, int width, int rowBegin,
                      int rowEnd);
  // Runs work(codec, rowBegin, rowEnd) over runs of rows covering [0, rows) once, on at most
  // Threads threads and one per row: the caller's thread with this codec, every other thread
  // with a copy of it, each taking the next run when done with one. An instrumented codec
  // keeps every row on the caller's thread. Returns once all are done; the first exception
  // of any run is rethrown.
  void splitRows(int rows, const std::function<void(Compression1x8&, int, int)>& work);
  // The compression driver on 16-bit samples, without golden files: `height` rows of `width`
  // samples at `in` into rows of (width + 7) & ~7 code bytes at `out`, each block's code
  // little-endian, exactly the bytes CompressFrame stores in its output frame.
  void CompressFrame(const unsigned short* in, unsigned char* out, int width, int height, int cfa,
                     int frameIndex);
  // The decompressor on rows `inStride` bytes apart (at least the width rounded up to 8):
  // `height` rows of `width` pixels, 12-bit values shifted left by 4, at `out`.
  void DecompressFrame(const unsigned char* in, int inStride, unsigned short* out, int width,
                       int height);

  // The lowest set bit of v among bits 0..6 (0 when none): log2 of the step sizes 1..64.
  static int log2(int v);

  // --- bound registers, in binding order --------------------------------------------------
  int Enable = 0;
  int reg_compress_edgefisrt_enable = 0;
  int reg_compress_edgefisrt_finalth = 0;
  int reg_compress_edgemin_th = 0;
  int reg_compress_edgemin_ratio = 0;
  int reg_edge_diffmin_th = 0;
  int reg_comp_enc_trun_rnd = 0;
  int reg_comp_de_tr_round_md = 0;
  int reg_comp_de_tr_round_zero = 0;
  int reg_dpcm_swing_rounder_en = 0;
  int reg_dpcm_pmin_lsb_update_en = 0;
  int reg_dpcm_stepsize_expansion_en = 0;
  int reg_tr_ext_en = 0;
  int reg_tr_ext_rb = 0;
  int reg_mode_en[fbc::kModeCount] = {};
  int reg_mode_definition[fbc::kModeCount] = {};
  int reg_curve_mode_en = 0;
  int reg_comp_lut_in[15] = {};
  int reg_comp_lut_out[15] = {};
  int reg_comp_lut_slope[16] = {};
  // The decompression curve is the compression curve read backwards: its inputs are bound to
  // the key reg_comp_lut_out and its outputs to reg_comp_lut_in.
  int reg_uncomp_lut_in[15] = {};
  int reg_uncomp_lut_out[15] = {};
  int reg_uncomp_lut_slope[16] = {};
  int sw_dpcm_swing_en = 0;

  // --- instrumentation --------------------------------------------------------------------
  // When either is set, the frame drivers take the reference path for every block and the
  // reference encoder and decoder record into them: `trace` the last block coded or decoded,
  // `coverage` the cover points hit. Null (the default) records nothing.
  fbc::BlockTrace* trace = nullptr;
  fbc::Coverage* coverage = nullptr;
  bool instrumented() const { return trace != nullptr || coverage != nullptr; }

  // --- software switches ------------------------------------------------------------------
  bool noExecute = false;
  // Threads the frame drivers split a frame's rows among, each with its own copy of the codec;
  // every count gives the same bytes. 1 (the default) codes on the caller's thread and starts
  // none; the instrumented and golden-file paths always run on the caller's thread.
  int Threads = 1;
  int SwingRowSelect = 0;  // DPCM rounder row, set once per frame by CompressFrame
  int SelectedMode = 0;
  int FrameWidth = 0;

  // --- per-block working state ------------------------------------------------------------
  int Pmin = 0, Pmax = 0, Pminpos = 0;

  int HadamaShift = 0, HadamaDC = 0;
  int HadamaCoef[7] = {};
  int HadamaSAD = 0, HadamaMaxErr = 0;

  int MinMaxIdx[8] = {};
  int MinMaxSAD = 0, MinMaxMaxErr = 0;

  int DPCMShift = 0, DPCMStep = 1, DPCMRounder = 0, DPCMBase = 0;
  int Diffmin[8] = {};
  int DPCMSAD = 0, DPCMMaxErr = 0;

  int TruncateSAD = 0, TruncateMaxErr = 0;

  // Results of each edge member's cost function, indexed by group size n - 2 (Edge2 .. Edge7).
  struct EdgeResult {
    int SAD = 32767;
    int MaxErr = 4095;
    int Step = 1;
    int Dir = 0;  // 1: edge group at the start of the block, 0: at the end
    int TailRange = 0;
    int HeadRange = 0;
  };
  EdgeResult Edge[6];
  EdgeResult& edge(int member) { return Edge[member - 2]; }
  const EdgeResult& edge(int member) const { return Edge[member - 2]; }

  // The number selection reports for a winning mode under reg_mode_definition (curve aside),
  // and the encoder encodeSelected runs for a selected number.
  int remapMode(int mode) const;
  static int encoderOf(int selected);

  // The cost that mode selection sees for a mode (4095 for curve and for numbers that name no
  // mode, which have none).
  int modeCost(int mode) const;
};
