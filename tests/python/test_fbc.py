"""The Python module against the fbc tool: the same picture and registers give the same bytes."""
import concurrent.futures
import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np

import fbc

TOOL = os.environ["FBC_TOOL"]
SAMPLE_PARAMS = os.environ["FBC_SAMPLE_PARAMS"]
SOURCE_DIR = os.environ["FBC_SOURCE_DIR"]


def picture(height, width, seed):
    """Noise, flat runs and ramps: every mode family has blocks to win."""
    rng = np.random.default_rng(seed)
    img = rng.integers(0, 4096, (height, width), dtype=np.uint16)
    img[1::4] = 1000
    img[2::4] = (np.arange(width) * 37 % 4096).astype(np.uint16)
    return img


def set_options(regs):
    """The tool's --set options for registers given as keyword arguments of fbc.Codec."""
    return [a for k, v in regs.items() for a in ("--set", "%s=%s" % (k, ",".join(map(str, np.atleast_1d(v)))))]


class ToolRun(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()

    def tearDown(self):
        self.tmp.cleanup()

    def path(self, name):
        return os.path.join(self.tmp.name, name)

    def tool(self, *args):
        r = subprocess.run([TOOL] + list(args), cwd=self.tmp.name, capture_output=True, text=True)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r.stdout

    def tool_encode(self, img, *options):
        img.astype("<u2").tofile(self.path("in.raw"))
        height, width = img.shape
        self.tool("encode", "--width", str(width), "--height", str(height), *options, "in.raw", "out.bin")
        return np.fromfile(self.path("out.bin"), np.uint8).reshape(height, (width + 7) & ~7)


class SameBytesAsTheTool(ToolRun):
    # (cfa, frame index, --set overrides): row parity, the software DPCM swing row, a parameter file.
    CASES = [
        (0, 0, {}),
        (1, 3, {"reg_tr_ext_en": 1}),
        (3, 1, {"sw_dpcm_swing_en": 1, "reg_dpcm_swing_rounder_en": 1}),
        (2, 0, {"reg_curve_mode_en": 1}),
        (2, 2, {"reg_mode_en": [1, 0, 1, 1, 1, 0, 1, 1, 1, 1, 1], "reg_compress_edgefisrt_enable": 2}),
    ]

    def test_encode_and_decode(self):
        img = picture(9, 37, 1)  # 37 columns: each row ends in a block of 5 pixels
        for cfa, frame, regs in self.CASES:
            for params in (None, SAMPLE_PARAMS):
                with self.subTest(cfa=cfa, frame=frame, regs=regs, params=params):
                    opts = set_options(regs) + (["--params", params] if params else [])
                    expected = self.tool_encode(img, "--cfa", str(cfa), "--frame-index", str(frame), *opts)
                    codec = fbc.Codec(params=params, **regs)
                    self.tool("decode", "--width", "37", "--height", "9", *opts, "out.bin", "out.raw")
                    # The rows split among threads, as many as the rows and more: the same bytes.
                    for threads in (1, 4, 12):
                        codec.threads = threads
                        codes = codec.encode(img, cfa=cfa, frame_index=frame)
                        self.assertEqual((codes.dtype, codes.shape), (np.uint8, (9, 40)))
                        np.testing.assert_array_equal(codes, expected)
                        decoded = codec.decode(codes, width=37)
                        self.assertEqual((decoded.dtype, decoded.shape), (np.uint16, (9, 37)))
                        np.testing.assert_array_equal(decoded, np.fromfile(self.path("out.raw"), "<u2").reshape(9, 37) >> 4)

    def test_strided_and_reordered_arrays_code_as_their_values(self):
        big = picture(20, 80, 2)
        codec = fbc.Codec()
        for view in (big[::2, 3:40], big[::-1], big[:, ::2], np.asfortranarray(big[:7, :30]), big[::-1, ::-1],
                     np.frombuffer(b"\0" + big.tobytes(), np.uint16, big.size, 1).reshape(big.shape)[:4]):
            with self.subTest(strides=view.strides):
                np.testing.assert_array_equal(codec.encode(view), self.tool_encode(np.ascontiguousarray(view)))
        codes = codec.encode(big)
        np.testing.assert_array_equal(codec.decode(codes[::2], width=80), codec.decode(codes.copy())[::2])

    def test_blocks_are_coded_as_in_frame_zero(self):
        # Rows of every band of the demo chart, where each mode wins somewhere, in pairs of both parities.
        self.tool("demo", "--out", "demo", "--format", "pnm")
        with open(self.path("demo/chart.pgm"), "rb") as f:
            chart = np.frombuffer(f.read()[-640 * 480 * 2:], ">u2").reshape(480, 640).astype(np.uint16)
        rows = [0, 1, 60, 61, 120, 121, 240, 241, 300, 301, 360, 361, 420, 421]
        for regs in ({}, {"reg_dpcm_swing_rounder_en": 1}, {"sw_dpcm_swing_en": 1, "reg_dpcm_swing_rounder_en": 1},
                     {"reg_tr_ext_en": 1}):
            with self.subTest(regs=regs):
                codec = fbc.Codec(**regs)
                expected = self.tool_encode(chart, "--cfa", "0", *set_options(regs))
                pixels = codec.decode(expected)
                for y in rows:  # CFA 0: even rows have parity 0, odd rows parity 1
                    for b in range(80):
                        code = codec.encode_block(chart[y, 8 * b:8 * b + 8], parity=y & 1)
                        self.assertEqual(code, int(expected[y, 8 * b:8 * b + 8].view("<u8")[0]), (y, b))
                        np.testing.assert_array_equal(codec.decode_block(code), pixels[y, 8 * b:8 * b + 8])



class ModesAndRegisters(ToolRun):
    def test_mode_of_each_prefix(self):
        # Top byte of a code -> its mode: 0 Hadamard, 11 Truncate, 1000 Edge3, 1001 DPCM, 1010 Edge2,
        # 10110 Edge4, 101110 Edge5, 1011110 Edge6, 10111110 Edge7, 10111111 MinMax.
        top = [0x7F, 0xC0, 0x80, 0x90, 0xA0, 0xB0, 0xB8, 0xBC, 0xBE, 0xBF]
        codes = np.zeros((1, 80), np.uint8)
        codes[0, 7::8] = top
        self.assertEqual(fbc.modes(codes).tolist(), [[0, 4, 6, 3, 5, 7, 8, 9, 10, 2]])

    def test_writing_every_register_of_a_parameter_file_gives_its_codec(self):
        loaded = fbc.Codec(params=SAMPLE_PARAMS)
        written = fbc.Codec()
        self.assertNotEqual(written.registers, loaded.registers)
        lines = self.tool("regs", SAMPLE_PARAMS).split()
        pairs = [(int(lines[i], 16), int(lines[i + 1], 16)) for i in range(0, len(lines), 2)]
        for address, value in pairs:
            written.write_register(address, value)
        for address, value in pairs:
            self.assertEqual(written.read_register(address), value)
        # sw_dpcm_swing_en is a software switch with no register.
        self.assertEqual(written.registers, loaded.registers)
        self.assertEqual(fbc.Codec(**loaded.registers).registers, loaded.registers)

    def test_bus_writes_take_field_bits_and_sign_extend(self):
        c = fbc.Codec()
        c.write_register(0x0030, 0xFFFF)  # reg_comp_lut_slope[0], signed 16-bit
        c.write_register(0x0010, 0xF123)  # reg_comp_lut_in[0], 12 bits: the top 4 hold nothing
        c.write_register(0x0001, 0x0002)  # the control register: edge-first policy 2, every switch off
        regs = c.registers
        self.assertEqual(regs["reg_comp_lut_slope"][0], -1)
        self.assertEqual(regs["reg_comp_lut_in"][0], 0x123)
        self.assertEqual((regs["reg_compress_edgefisrt_enable"], regs["reg_tr_ext_en"]), (2, 0))
        self.assertEqual(c.read_register(0x0010), 0x0123)


class Errors(unittest.TestCase):
    def test_bad_arguments_name_themselves_and_change_nothing(self):
        c = fbc.Codec(reg_tr_ext_en=1)
        img = np.zeros((4, 16), np.uint16)
        hot = img.copy()
        hot[2, 5] = 4096
        codes = c.encode(img)
        cases = [
            (TypeError, "img: expected dtype uint16, got int32", lambda: c.encode(img.astype(np.int32))),
            (TypeError, "img: expected a numpy array of uint16", lambda: c.encode(img.tolist())),
            (ValueError, "img: expected a 2-D array, got shape (64,)", lambda: c.encode(img.ravel())),
            (ValueError, "img: empty array of shape (0, 16)", lambda: c.encode(img[:0])),
            (ValueError, "img: pixel (5, 2) is 4096, above 4095", lambda: c.encode(hot)),
            (ValueError, "cfa: 4 is out of range 0..3", lambda: c.encode(img, cfa=4)),
            (ValueError, "frame_index: -1 is out of range", lambda: c.encode(img, frame_index=-1)),
            (ValueError, "threads: 0 is out of range 1..1024", lambda: setattr(c, "threads", 0)),
            (TypeError, "codes: expected dtype uint8, got uint16", lambda: c.decode(img)),
            (ValueError, "codes: 12 columns, expected a multiple of 8", lambda: c.decode(codes[:, :12])),
            (ValueError, "width: 8 does not fit codes of 16 columns (expected 9..16)", lambda: c.decode(codes, width=8)),
            (ValueError, "px8: expected 8 pixels, got 7", lambda: c.encode_block([0] * 7)),
            (TypeError, "px8: expected integer pixels, got dtype float64", lambda: c.encode_block(np.zeros(8))),
            (ValueError, "px8: pixel 3 = 4096 is out of range 0..4095", lambda: c.encode_block([0, 0, 0, 4096, 0, 0, 0, 0])),
            (ValueError, "parity: 2 is not 0 or 1", lambda: c.encode_block([0] * 8, parity=2)),
            (ValueError, "code: -1 is not a 64-bit code", lambda: c.decode_block(-1)),
            (ValueError, "code: 18446744073709551616 is not a 64-bit code", lambda: c.decode_block(1 << 64)),
            (ValueError, "address: register 0x000a is not mapped", lambda: c.write_register(0x000A, 1)),
            (ValueError, "value: 65536 is out of range 0..65535", lambda: c.write_register(1, 0x10000)),
            (ValueError, "address: register 0x000a is not mapped", lambda: c.read_register(0x000A)),
            (ValueError, 'unknown parameter "reg_tr_ext"', lambda: fbc.Codec(reg_tr_ext=1)),
            (ValueError, "reg_tr_ext_en", lambda: fbc.Codec(reg_tr_ext_en=2)),
            (TypeError, "reg_tr_ext_en: expected an integer or a sequence of integers, got float",
             lambda: fbc.Codec(reg_tr_ext_en=1.0)),
            (ValueError, "nothere.ini: cannot open", lambda: fbc.Codec(params="nothere.ini")),
            (ValueError, "disabled (reg_fbc_en=0)", lambda: fbc.Codec(reg_fbc_en=0).encode(img)),
        ]
        before = c.registers
        for error, message, call in cases:
            with self.subTest(message):
                with self.assertRaises(error) as caught:
                    call()
                self.assertIn(message, str(caught.exception))
                self.assertEqual(c.registers, before)
        np.testing.assert_array_equal(c.encode(img), codes)


class Threads(unittest.TestCase):
    def test_codecs_in_several_threads_give_the_serial_results(self):
        images = [picture(64, 200, 10 + i) for i in range(6)]
        own = [fbc.Codec(reg_tr_ext_en=i & 1) for i in range(6)]
        expected = [c.encode(img, cfa=i & 3) for i, (c, img) in enumerate(zip(own, images))]
        shared = fbc.Codec()
        shared_expected = [shared.encode(img) for img in images]

        def work(i):
            for _ in range(20):
                np.testing.assert_array_equal(own[i].encode(images[i], cfa=i & 3), expected[i])
                np.testing.assert_array_equal(shared.encode(images[i]), shared_expected[i])
                np.testing.assert_array_equal(shared.decode(shared_expected[i], width=200), shared.decode(shared_expected[i]))

        with concurrent.futures.ThreadPoolExecutor(6) as pool:
            list(pool.map(work, range(6)))  # raises the first failure of any thread


class Readme(unittest.TestCase):
    def test_the_readme_snippet_runs_from_the_source_tree(self):
        with open(os.path.join(SOURCE_DIR, "README.md")) as f:
            text = f.read()
        snippet = text.split("```python\n", 1)[1].split("```", 1)[0]
        r = subprocess.run([sys.executable, "-c", snippet], cwd=SOURCE_DIR, capture_output=True, text=True)
        self.assertEqual(r.returncode, 0, r.stderr)


if __name__ == "__main__":
    unittest.main()
