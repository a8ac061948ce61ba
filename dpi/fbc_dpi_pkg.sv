// The frame-buffer compression model for SystemVerilog testbenches, through DPI-C. The functions
// live in libfbc.so (link it into the simulation); a chandle is one codec with its own registers.
//
// A block's eight 12-bit pixels travel packed, pixel i in bits [12i+11:12i], as a line of
// fbc_golden_ref_com_input_NNNN.txt reads with $readmemh; a code is the 64-bit block code, as a
// line of fbc_golden_ref_com_NNNN.txt reads. fbc_dpi_encode codes a block as the frame driver
// does in frame 0 (parity: the row parity of the block, 0 on even rows of CFA layouts 0 and 2).
// fbc_dpi_new returns null when the parameter file cannot be loaded, after printing one line
// naming it; fbc_dpi_write_reg and fbc_dpi_read_reg return 0, or non-zero for an address the
// register map does not hold. fbc_dpi_mode gives the mode number a code's prefix names.
package fbc_dpi_pkg;
  import "DPI-C" function chandle fbc_dpi_new(input string params_ini);     // "" = register defaults
  import "DPI-C" function void    fbc_dpi_free(input chandle h);
  import "DPI-C" function int     fbc_dpi_write_reg(input chandle h, input int unsigned addr,
                                                    input shortint unsigned data);
  import "DPI-C" function int     fbc_dpi_read_reg(input chandle h, input int unsigned addr,
                                                   output shortint unsigned data);
  import "DPI-C" function longint unsigned fbc_dpi_encode(input chandle h, input bit [95:0] pixels,
                                                          input bit parity);
  import "DPI-C" function void    fbc_dpi_decode(input chandle h, input longint unsigned code,
                                                 output bit [95:0] pixels);
  import "DPI-C" function int     fbc_dpi_mode(input longint unsigned code);  // mode number of a code
endpackage
