"""Throughput of the Python module against the C++ figures of `fbc bench`, on the same picture: the
demo chart tiled to 3840x2160, one thread, median of N runs after a warm-up.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_bench.py build/fbc [--repeat N] [--rounds R]
"""
import argparse
import json
import os
import subprocess
import tempfile
import time

import numpy as np

import fbc

WIDTH, HEIGHT = 3840, 2160


def median_seconds(repeat, fn):
    fn()
    times = []
    for _ in range(repeat):
        start = time.perf_counter()
        fn()
        times.append(time.perf_counter() - start)
    return sorted(times)[len(times) // 2]


def best(table, figures):
    for path, value in figures.items():
        table[path] = max(table.get(path, 0.0), value)


def chart(tool):
    with tempfile.TemporaryDirectory() as tmp:
        subprocess.run([tool, "demo", "--out", tmp, "--format", "pnm"], check=True, capture_output=True)
        with open(os.path.join(tmp, "chart.pgm"), "rb") as f:
            small = np.frombuffer(f.read()[-640 * 480 * 2:], ">u2").reshape(480, 640)
    return np.ascontiguousarray(np.tile(small, (HEIGHT // 480 + 1, WIDTH // 640))[:HEIGHT, :WIDTH].astype(np.uint16))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("tool", help="the fbc binary")
    parser.add_argument("--repeat", type=int, default=20, help="timed runs per round and path")
    parser.add_argument("--rounds", type=int, default=3, help="turns of Python and fbc bench")
    args = parser.parse_args()

    img = chart(args.tool)
    codec = fbc.Codec()
    codes = codec.encode(img)
    pixels = WIDTH * HEIGHT / 1e6
    # Python and C++ take turns, and each keeps its best round: on a shared machine the load of
    # the moment then weighs on both alike.
    python, cpp = {}, {}
    for _ in range(args.rounds):
        best(python, {
            "encode": pixels / median_seconds(args.repeat, lambda: codec.encode(img)),
            "decode": pixels / median_seconds(args.repeat, lambda: codec.decode(codes, width=WIDTH)),
        })
        bench = json.loads(subprocess.run([args.tool, "bench", "--json", "--repeat", str(args.repeat)], check=True,
                                          capture_output=True, text=True).stdout)
        # The frame decoder writes 32-bit samples; the raw decoder behind FBD_Execute writes
        # 16-bit ones, as the module does.
        best(cpp, {"encode": bench["encode_mpix_s"], "decode": bench["decode_mpix_s"],
                   "decode/raw": bench["fbd_mpix_s"]})
    python["decode/raw"] = python["decode"]
    print("frame %dx%d, best of %d rounds of the median of %d runs after a warm-up" %
          (WIDTH, HEIGHT, args.rounds, args.repeat))
    print("  %-10s %14s %14s %10s" % ("path", "Python", "fbc bench", "overhead"))
    for path in ("encode", "decode", "decode/raw"):
        # Overhead: the extra time per frame, relative to the C++ time.
        print("  %-10s %8.1f Mpx/s %8.1f Mpx/s %9.1f%%" % (path, python[path], cpp[path],
                                                         100.0 * (cpp[path] / python[path] - 1)))


if __name__ == "__main__":
    main()
