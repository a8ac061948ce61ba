// The model as a hardware testbench's scoreboard uses it: programmed by register writes through
// DPI-C at the addresses of the exported register package, then checked block by block against
// a golden set. One build serves every case; the files come as plusargs:
//   +regs=FILE      "fbc regs" of the parameter file, one "AAAA VVVV" line per register
//   +inputs=FILE    fbc_golden_ref_com_input_NNNN.txt   (8 pixels per line, pixel 7 first)
//   +codes=FILE     fbc_golden_ref_com_NNNN.txt         (one 64-bit code per line)
//   +decoded=FILE   the decoded frame, one block per line packed as the inputs (12-bit pixels)
//   +dec_golden=FILE  fbc_golden_ref_dec_NNNN.txt (of a frame whose width is a multiple of 8)
//   +blocks=N +row_blocks=N [+cfa=N]   frame size in blocks, Bayer layout of the frame
// Ends with one summary line, and $fatal on any mismatch.
module fbc_dpi_tb;
  import fbc_dpi_pkg::*;
  import fbc_regs_pkg::*;

  localparam int MaxBlocks = 1 << 16;
  localparam int ShownMismatches = 5;

  bit [95:0] inputs[MaxBlocks];
  bit [63:0] codes[MaxBlocks];
  bit [95:0] decoded[MaxBlocks];
  bit [95:0] dec_golden[MaxBlocks];
  bit [15:0] regs[2 * REGISTER_COUNT];

  string regs_file, inputs_file, codes_file, decoded_file, dec_golden_file;
  int blocks, row_blocks, cfa;
  chandle h;
  int encode_errors, decode_errors, dec_golden_errors, register_errors, interface_errors;
  int mode_blocks[11];

  function automatic string arg(string name);
    string value;
    if (!$value$plusargs({name, "=%s"}, value)) $fatal(1, "fbc_dpi_tb: missing +%s=...", name);
    return value;
  endfunction

  // A block's decoded pixels as a line of fbc_golden_ref_dec_NNNN.txt holds them: the dumper packs
  // each pixel times 16 into 12 bits, so every even pixel keeps its 12 bits above 4 zero bits and
  // every odd pixel only its low 8 bits.
  function automatic bit [95:0] dec_golden_line(bit [95:0] pixels);
    bit [95:0] line;
    for (int j = 0; j < 4; j++) line[24*j+:24] = {pixels[24*j+12+:8], pixels[24*j+:12], 4'h0};
    return line;
  endfunction

  function automatic int count_arg(string name, int lo, int hi);
    int value;
    if (!$value$plusargs({name, "=%d"}, value) || value < lo || value > hi)
      $fatal(1, "fbc_dpi_tb: +%s must be %0d..%0d", name, lo, hi);
    return value;
  endfunction

  // A bad parameter file gives null (after one line naming it), an unmapped address non-zero.
  task automatic check_interface();
    shortint unsigned value;
    if (fbc_dpi_new("fbc_dpi_tb_no_such_file.ini") != null) begin
      $display("fbc_dpi_new of a missing file returned a codec");
      interface_errors++;
    end
    if (fbc_dpi_write_reg(h, REGISTER_ADDR[REGISTER_COUNT - 1] + 1, 16'h0001) == 0 ||
        fbc_dpi_read_reg(h, 32'hffff_ffff, value) == 0) begin
      $display("an unmapped register address was accepted");
      interface_errors++;
    end
  endtask

  // Every register fbc regs lists, at the address the register package gives, read back.
  task automatic program_registers();
    for (int i = 0; i < REGISTER_COUNT; i++) begin
      shortint unsigned value = 0;
      int written = fbc_dpi_write_reg(h, REGISTER_ADDR[i], regs[2 * i + 1]);
      int read = fbc_dpi_read_reg(h, REGISTER_ADDR[i], value);
      if (32'(regs[2 * i]) != REGISTER_ADDR[i] || written != 0 || read != 0 ||
          value != regs[2 * i + 1]) begin
        $display("register %0d: listed %h = %h, package address %h, write %0d, read %0d: %h", i,
                 regs[2 * i], regs[2 * i + 1], REGISTER_ADDR[i], written, read, value);
        register_errors++;
      end
    end
  endtask

  initial begin
    int modes_seen, errors;
    regs_file = arg("regs");
    inputs_file = arg("inputs");
    codes_file = arg("codes");
    decoded_file = arg("decoded");
    dec_golden_file = arg("dec_golden");
    blocks = count_arg("blocks", 1, MaxBlocks);
    row_blocks = count_arg("row_blocks", 1, MaxBlocks);
    if (!$value$plusargs("cfa=%d", cfa)) cfa = 0;
    $readmemh(regs_file, regs);
    $readmemh(inputs_file, inputs, 0, blocks - 1);
    $readmemh(codes_file, codes, 0, blocks - 1);
    $readmemh(decoded_file, decoded, 0, blocks - 1);
    $readmemh(dec_golden_file, dec_golden, 0, blocks - 1);

    h = fbc_dpi_new("");
    if (h == null) $fatal(1, "fbc_dpi_tb: fbc_dpi_new(\"\") failed");
    check_interface();
    program_registers();

    for (int b = 0; b < blocks; b++) begin
      // Row parity as the frame driver derives it: CFA layouts 1 and 3 start rows at parity 1.
      bit parity = 1'((b / row_blocks) % 2) ^ (cfa == 1 || cfa == 3);
      longint unsigned code = fbc_dpi_encode(h, inputs[b], parity);
      bit [95:0] pixels, round_trip;
      fbc_dpi_decode(h, codes[b], pixels);
      fbc_dpi_decode(h, code, round_trip);
      mode_blocks[fbc_dpi_mode(codes[b])]++;
      if (code != codes[b]) begin
        if (encode_errors < ShownMismatches)
          $display("block %0d (row %0d): input %h encodes to %h, golden %h", b, b / row_blocks,
                   inputs[b], code, codes[b]);
        encode_errors++;
      end
      if (pixels != decoded[b]) begin
        if (decode_errors < ShownMismatches)
          $display("block %0d (row %0d): code %h decodes to %h, fbc decode %h", b, b / row_blocks,
                   codes[b], pixels, decoded[b]);
        decode_errors++;
      end
      if (dec_golden_line(round_trip) != dec_golden[b]) begin
        if (dec_golden_errors < ShownMismatches)
          $display("block %0d (row %0d): decoded %h packs to %h, golden decoded file %h", b,
                   b / row_blocks, round_trip, dec_golden_line(round_trip), dec_golden[b]);
        dec_golden_errors++;
      end
    end
    fbc_dpi_free(h);

    foreach (mode_blocks[m]) modes_seen += int'(mode_blocks[m] != 0);
    errors = encode_errors + decode_errors + dec_golden_errors + register_errors + interface_errors;
    $display(
        "fbc_dpi_tb: %0d blocks, %0d mismatches (encode %0d, decode %0d, decoded file %0d, registers %0d, interface %0d), %0d modes seen",
        blocks, errors, encode_errors, decode_errors, dec_golden_errors, register_errors,
        interface_errors, modes_seen);
    if (errors != 0) $fatal(1, "fbc_dpi_tb: the model differs from the golden set");
    $finish;
  end
endmodule
