"""Runs the verilated DPI testbench on one case: a parameter file, a picture, the golden set that
'fbc golden' writes for them, the register list of 'fbc regs' and the decoded frame of
'fbc decode' for the golden codes, one hex line per block.

usage: run_tb.py FBC TB CASE WORKDIR
  CASE  defaults | edge_first_off | random   the testbench must pass
        planted                              one golden code is wrong: the testbench must fail
"""
import os
import random
import shutil
import struct
import subprocess
import sys

WIDTH, HEIGHT = 128, 16
CASES = {  # name: (parameter file recipe, CFA layout)
    "defaults": ([], 0),
    "edge_first_off": (["--set", "reg_compress_edgefisrt_enable=0"], 1),
    "random": (["random"], 2),
    "planted": (["random"], 3),
}


def run(*args, cwd, stdout=None):
    return subprocess.run(list(args), cwd=cwd, check=True, stdout=stdout or subprocess.PIPE,
                          text=True).stdout


def picture():
    """Rows that draw different modes: flat, ramps, steps at every position, full-range and
    small noise, alternating extremes, a run of close pixels at one end of noise."""
    rng = random.Random(20261123)
    rows = []
    for y in range(HEIGHT):
        kind = y % 8
        row = []
        for x in range(WIDTH):
            if kind == 0:
                v = 1000 + 300 * (y // 8)
            elif kind == 1:
                v = (x * 32 + y) % 4096
            elif kind == 2:
                v = 3500 if (x % 8) >= (x // 8) % 8 else 200
            elif kind == 3:
                v = rng.randrange(4096)
            elif kind == 4:
                v = 2048 + rng.randrange(-6, 7)
            elif kind == 5:
                v = 4095 if x % 2 else 0
            elif kind == 6:
                # A run of n = 2..7 close pixels at the head or the tail, the rest anything.
                k, i = x // 8, x % 8
                n = 2 + k % 6
                in_run = i < n if (k // 6 + y // 8) % 2 else i >= 8 - n
                v = 1500 + 40 * k + rng.randrange(4) if in_run else rng.randrange(4096)
            else:
                v = int(2047 + 2047 * ((x % 16) / 15.0) ** 3)
            row.append(v)
        rows.append(row)
    return rows


def main():
    fbc, tb, case, work = sys.argv[1:5]
    recipe, cfa = CASES[case]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)

    if recipe == ["random"]:
        run(fbc, "params", "random", "--seed", "9", "--random-range", "drawn.ini", cwd=work)
        # The block stays enabled and in mode selection (not the tone curve for every block).
        recipe = ["--params", "drawn.ini", "--set", "reg_fbc_en=1", "--set", "reg_curve_mode_en=0"]
    with open(os.path.join(work, "p.ini"), "w") as f:
        run(fbc, "params", "show", *recipe, cwd=work, stdout=f)

    regs = run(fbc, "regs", "p.ini", cwd=work)
    with open(os.path.join(work, "regs.memh"), "w") as f:
        f.write(regs.replace("0x", ""))

    samples = [v for row in picture() for v in row]
    with open(os.path.join(work, "in.raw"), "wb") as f:
        f.write(struct.pack("<%dH" % len(samples), *samples))
    run(fbc, "golden", "--width", str(WIDTH), "--height", str(HEIGHT), "--cfa", str(cfa),
        "--frame-index", "0", "--params", "p.ini", "--outdir", "golden", "in.raw", cwd=work)

    with open(os.path.join(work, "golden", "fbc_golden_ref_com_0000.txt")) as f:
        codes = f.read().split()
    codes_file = "golden/fbc_golden_ref_com_0000.txt"
    if case == "planted":
        block = len(codes) // 3
        codes[block] = "%016x" % (int(codes[block], 16) ^ (1 << 17))
        codes_file = "planted_com_0000.txt"
        with open(os.path.join(work, codes_file), "w") as f:
            f.write("\n".join(codes) + "\n")

    # The same codes through the tool's decoder: a frame of little-endian codes, 12-bit values
    # times 16 back, one line per block, pixel 7 first.
    with open(os.path.join(work, "codes.bin"), "wb") as f:
        f.write(b"".join(struct.pack("<Q", int(c, 16)) for c in codes))
    run(fbc, "decode", "--width", str(WIDTH), "--height", str(HEIGHT), "--params", "p.ini",
        "codes.bin", "decoded.raw", cwd=work)
    with open(os.path.join(work, "decoded.raw"), "rb") as f:
        raw = f.read()
    values = struct.unpack("<%dH" % (len(raw) // 2), raw)
    with open(os.path.join(work, "decoded.memh"), "w") as f:
        for b in range(0, len(values), 8):
            f.write("_".join("%03x" % (v >> 4) for v in reversed(values[b:b + 8])) + "\n")

    result = subprocess.run(
        [tb, "+regs=regs.memh", "+inputs=golden/fbc_golden_ref_com_input_0000.txt",
         "+codes=" + codes_file, "+decoded=decoded.memh",
         "+dec_golden=golden/fbc_golden_ref_dec_0000.txt", "+blocks=%d" % len(codes),
         "+row_blocks=%d" % (WIDTH // 8), "+cfa=%d" % cfa],
        cwd=work, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    sys.stdout.write(result.stdout)
    summary = [l for l in result.stdout.splitlines() if l.startswith("fbc_dpi_tb: ")]
    if case == "planted":
        expected = "fbc_dpi_tb: %d blocks, 1 mismatches (encode 1, decode 0," % len(codes)
        if result.returncode == 0 or not summary or not summary[0].startswith(expected):
            sys.exit("run_tb: the planted wrong code was not caught (status %d)" % result.returncode)
        print("run_tb: the testbench failed on the planted code, as it must")
    elif result.returncode != 0:
        sys.exit("run_tb: the testbench failed (status %d)" % result.returncode)


if __name__ == "__main__":
    main()
