"""The exported register map composes the registers 'fbc regs' prints.

For random parameter files, over the built-in map and over a map that uses every kind of field
(a field over two registers, a scalar split by src ranges, moved fields), the registers are
composed twice from the exports alone: by a C program built against the C header (compiled as C
and as C++) and here from the JSON. Both must give 'fbc regs' line for line.

usage: regs_export_test.py FBC CC CXX SOURCE_DIR
"""
import json
import os
import subprocess
import sys
import tempfile
import unittest

FBC, CC, CXX, SOURCE_DIR = sys.argv[1:5]
SEEDS = range(1, 9)


def run(*args, cwd):
    return subprocess.run(list(args), cwd=cwd, check=True, capture_output=True, text=True).stdout


def custom_map(text):
    """The built-in map with reg_compress_edgefisrt_finalth over registers 0x0100..0x0101 (20 bits)
    and reg_edge_diffmin_th split: its bits 5:0 in 0x0102 5:0, its bits 11:6 in 0x0103 15:10."""
    moves = {
        "  field 0x0002 11:0\n": "  field 0x0100..0x0101 19:0\n",
        "  field 0x0005 11:0\n": "  field 0x0102 5:0 src 5:0\n  field 0x0103 15:10 src 11:6\n",
    }
    for old, new in moves.items():
        assert text.count(old) == 1, old
        text = text.replace(old, new)
    return text


def compose_json(export, params_text):
    values, section = {}, ""
    for line in params_text.splitlines():
        if line.startswith("["):
            section = line.strip("[]")
        elif "=" in line:
            key, text = line.split("=", 1)
            values[(section, key)] = [int(v, 0) for v in text.split(",")]
    regs = {r["address"]: 0 for r in export["registers"]}
    for p in export["parameters"]:
        for f in p["fields"]:
            element = values[(p["section"], p["key"])][f["element"]]
            regs[f["address"]] |= ((element >> f["source"]) << f["shift"]) & f["mask"]
    return "".join("0x%04x 0x%04x\n" % (a, v) for a, v in sorted(regs.items()))


class RegsExport(unittest.TestCase):
    def check_map(self, registers):
        with tempfile.TemporaryDirectory() as d:
            opt = []
            if registers is not None:
                with open(os.path.join(d, "map.txt"), "w") as f:
                    f.write(registers)
                opt = ["--registers", "map.txt"]
            run(FBC, "regs", "export", "--format", "c", *opt, "fbc_regs.h", cwd=d)
            run(FBC, "regs", "export", "--format", "json", *opt, "regs.json", cwd=d)
            src = os.path.join(SOURCE_DIR, "tests/tools/regs_compose.c")
            strict = ["-Wall", "-Wextra", "-pedantic", "-Werror", "-I", d]
            run(CC, "-std=c99", *strict, src, "-o", "compose_c", cwd=d)
            run(CXX, "-x", "c++", "-std=c++17", *strict, src, "-o", "compose_cxx", cwd=d)
            with open(os.path.join(d, "regs.json")) as f:
                export = json.load(f)
            for seed in SEEDS:
                run(FBC, "params", "random", "--seed", str(seed), *opt, "p.ini", cwd=d)
                expected = run(FBC, "regs", *opt, "p.ini", cwd=d)
                with open(os.path.join(d, "p.ini")) as f:
                    params = f.read()
                for program in ("./compose_c", "./compose_cxx"):
                    self.assertEqual(run(program, "p.ini", cwd=d), expected, (program, seed))
                self.assertEqual(compose_json(export, params), expected, seed)
            return export

    def test_builtin_map(self):
        export = self.check_map(None)
        # reg_tr_ext_en is bit 9 of 0x0001; the slopes are signed 16-bit, reset 4096 = 0x1000.
        p = {p["key"]: p for p in export["parameters"]}
        self.assertEqual(p["reg_tr_ext_en"]["fields"],
                         [{"name": "REG_TR_EXT_EN", "element": 0, "address": 1, "shift": 9,
                           "width": 1, "mask": 512, "source": 0, "reset": 0}])
        slope = p["reg_comp_lut_slope"]
        self.assertEqual((slope["signed"], slope["min"], slope["count"]), (True, -32768, 16))
        self.assertEqual(slope["fields"][0]["reset"], 0x1000)
        self.assertNotIn("sw_dpcm_swing_en", p)  # a software switch, in no register

    def test_map_with_every_kind_of_field(self):
        with open(os.path.join(SOURCE_DIR, "data/fbc_registers.txt")) as f:
            export = self.check_map(custom_map(f.read()))
        p = {p["key"]: p for p in export["parameters"]}
        # 20 bits over two registers: 16 at 0x0100, then element bits 19:16 at 0x0101 3:0.
        self.assertEqual([(f["name"], f["address"], f["shift"], f["width"], f["source"])
                          for f in p["reg_compress_edgefisrt_finalth"]["fields"]],
                         [("REG_COMPRESS_EDGEFISRT_FINALTH_P0", 0x100, 0, 16, 0),
                          ("REG_COMPRESS_EDGEFISRT_FINALTH_P1", 0x101, 0, 4, 16)])
        # Reset 200 = 0b11_001000: bits 5:0 are 8, bits 11:6 are 3, placed at bit 10 (mask 0xfc00).
        self.assertEqual([(f["name"], f["address"], f["shift"], f["width"], f["mask"],
                           f["source"], f["reset"])
                          for f in p["reg_edge_diffmin_th"]["fields"]],
                         [("REG_EDGE_DIFFMIN_TH_P0", 0x102, 0, 6, 0x3f, 0, 8),
                          ("REG_EDGE_DIFFMIN_TH_P1", 0x103, 10, 6, 0xfc00, 6, 3)])
        self.assertIn({"address": 0x103, "reset": 3 << 10}, export["registers"])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
