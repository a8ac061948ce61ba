// The block decision trace as the tool prints it (text and one-line JSON), shared by
// 'fbc trace', 'fbc compare' and 'fbc report', and the register differences from the defaults.
#pragma once

#include <string>
#include <vector>

#include "codec/Trace.h"

class Compression1x8;
class RegisterTable;

namespace fbc::cli {

// Codes one block on the reference path with the codec's registers (and the frame state its
// last startFrame left) and decodes the code again: the block's full decision record.
BlockTrace traceBlock(Compression1x8& codec, const int* pixels, bool parity);

// The mode a code is read as by the decoder: Curve when the curve switch is on, else its prefix.
int decodedMode(const Compression1x8& codec, BlockCode code);

// "ac[3]" or "dc".
std::string fieldName(const CodeField& field);
// The fields of a code as the decoder reads it, "name=value" separated by blanks.
std::string fieldsText(const Compression1x8& codec, BlockCode code);

// Keys: x, y, parity, pixels, sad, maxerr, enabled, policy, policy_text, selected, mode, encoder,
// code, decoded, fields, and the details nonedge_best, edge_best, nonedge_winner, pmin, pmax,
// pminpos, edge_groups.
std::string traceJson(const Compression1x8& codec, const BlockTrace& t, int x, int y);
// The same for a person, several lines, each starting with `indent`.
std::string traceText(const Compression1x8& codec, const BlockTrace& t, int x, int y,
                      const std::string& indent = "");

// The 16 hex digits of a code as the golden files print it.
std::string hexCode(BlockCode code);

// "key=value" for every register whose value differs from the tool's defaults.
std::vector<std::string> nonDefaultRegisters(Compression1x8& codec, RegisterTable& regs);

}  // namespace fbc::cli
