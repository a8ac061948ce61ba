"""The fbc tool's PNG pictures against its Netpbm ones, with PNG files built and read here by a
plain writer and reader of the format (zlib and struct only), independent of the tool's."""
import os
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

FBC = None  # the tool's path, from the command line


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))


def png(width, height, colour_type, depth, rows, plte=b"", trns=b""):
    """rows: lists of samples per row, already in the file's channel layout."""
    raw = b""
    for row in rows:
        raw += b"\0" + (struct.pack(">%dH" % len(row), *row) if depth == 16 else packed(row, depth))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, depth, colour_type, 0, 0, 0))
            + (chunk(b"PLTE", plte) if plte else b"") + (chunk(b"tRNS", trns) if trns else b"")
            + chunk(b"IDAT", zlib.compress(raw)) + chunk(b"IEND", b""))


def packed(row, depth):
    bits = "".join(format(v, "0%db" % depth) for v in row)
    bits += "0" * (-len(bits) % 8)
    return bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8))


def read_png(data):
    """(width, height, channels, depth, samples, chunks) of a non-interlaced grey or RGB PNG."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    pos, chunks, idat = 8, {}, b""
    while pos < len(data):
        (n,), kind = struct.unpack(">I", data[pos:pos + 4]), data[pos + 4:pos + 8]
        body = data[pos + 8:pos + 8 + n]
        chunks[kind] = body
        idat += body if kind == b"IDAT" else b""
        pos += 12 + n
    width, height, depth, colour = struct.unpack(">IIBB", chunks[b"IHDR"][:10])
    channels = {0: 1, 2: 3}[colour]
    bpp = channels * depth // 8
    stride = width * bpp
    raw, out, prev = zlib.decompress(idat), bytearray(), bytearray(stride)
    for y in range(height):
        kind, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - bpp] if i >= bpp else 0
            b, c = prev[i], prev[i - bpp] if i >= bpp else 0
            p = a + b - c
            pred = [0, a, b, (a + b) // 2,
                    a if abs(p - a) <= abs(p - b) and abs(p - a) <= abs(p - c) else (b if abs(p - b) <= abs(p - c) else c)]
            line[i] = (line[i] + pred[kind]) & 0xFF
        out += line
        prev = line
    samples = list(struct.unpack(">%dH" % (len(out) // 2), out)) if depth == 16 else list(out)
    return width, height, channels, depth, samples, chunks


def pnm(magic, width, height, maxval, samples):
    header = b"%s\n%d %d\n%d\n" % (magic, width, height, maxval)
    return header + (struct.pack(">%dH" % len(samples), *samples) if maxval > 255 else bytes(samples))


def read_pnm(data):
    """(maxval, samples) of a binary PNM with a plain header."""
    fields = data.split(b"\n", 3)
    maxval = int(fields[2])
    body = fields[3]
    return maxval, list(struct.unpack(">%dH" % (len(body) // 2), body)) if maxval > 255 else list(body)


def noise(count, top, seed):
    values = []
    for _ in range(count):
        seed = (seed * 1103515245 + 12345) & 0xFFFFFFFF
        values.append((seed >> 8) % (top + 1))
    return values


W, H = 13, 3  # a width off the 8-pixel grid: the last block of each row is padded


class Tool(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.dir = self.tmp.name

    def tearDown(self):
        self.tmp.cleanup()

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)

    def read(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()

    def fbc(self, *args):
        return subprocess.run([FBC] + list(args), cwd=self.dir, capture_output=True, text=True)

    def ok(self, *args):
        r = self.fbc(*args)
        self.assertEqual(r.returncode, 0, r.stderr)
        return r


def rows(samples, per_row):
    return [samples[i:i + per_row] for i in range(0, len(samples), per_row)]


class PngInput(Tool):
    # Each PNG kind beside the Netpbm picture of the same values: both must code to the same frame.
    def cases(self):
        g8, g16 = noise(W * H, 255, 1), noise(W * H, 65535, 2)
        c8, c16 = noise(3 * W * H, 255, 3), noise(3 * W * H, 65535, 4)
        g8[:3], g16[:3] = [0, 255, 128], [0, 65535, 0x1238]
        palette = [(0, 0, 0), (255, 0, 7), (3, 200, 90), (255, 255, 255)]
        idx = noise(W * H, 3, 5)
        two_bit = noise(W * H, 3, 6)
        alpha = noise(W * H, 255, 7)
        return [
            ("grey8", png(W, H, 0, 8, rows(g8, W)), pnm(b"P5", W, H, 255, g8), []),
            ("grey16", png(W, H, 0, 16, rows(g16, W)), pnm(b"P5", W, H, 65535, g16), []),
            ("rgb8", png(W, H, 2, 8, rows(c8, 3 * W)), pnm(b"P6", W, H, 255, c8), ["--cfa", "2"]),
            ("rgb16", png(W, H, 2, 16, rows(c16, 3 * W)), pnm(b"P6", W, H, 65535, c16), ["--cfa", "3"]),
            # A palette reads as its colours; a 2-bit grey as 0, 85, 170, 255.
            ("palette", png(W, H, 3, 2, rows(idx, W), plte=bytes(sum(palette, ())), trns=b"\x00"),
             pnm(b"P6", W, H, 255, [c for i in idx for c in palette[i]]), ["--cfa", "1"]),
            ("grey2", png(W, H, 0, 2, rows(two_bit, W)), pnm(b"P5", W, H, 255, [85 * v for v in two_bit]), []),
            # Alpha is dropped: the grey values alone are coded.
            ("grey8alpha", png(W, H, 4, 8, rows([s for p in zip(g8, alpha) for s in p], 2 * W)),
             pnm(b"P5", W, H, 255, g8), []),
            ("rgb16alpha", png(W, H, 6, 16, rows([s for i in range(W * H) for s in c16[3 * i:3 * i + 3] + [7]], 4 * W)),
             pnm(b"P6", W, H, 65535, c16), ["--cfa", "3"]),
        ]

    def test_codes_as_the_netpbm_picture_of_the_same_values(self):
        for name, png_bytes, pnm_bytes, opts in self.cases():
            with self.subTest(name):
                ext = ".ppm" if pnm_bytes[:2] == b"P6" else ".pgm"
                self.write(name + ".png", png_bytes)
                self.write(name + ext, pnm_bytes)
                self.ok("encode", *opts, name + ".png", name + "-png.bin")
                self.ok("encode", *opts, name + ext, name + "-pnm.bin")
                self.assertEqual(self.read(name + "-png.bin"), self.read(name + "-pnm.bin"))

    def test_damaged_files_are_one_line_naming_the_file(self):
        good = png(W, H, 0, 8, rows(noise(W * H, 255, 8), W))
        crc = bytearray(good)
        crc[29] ^= 1  # last byte of IHDR's CRC
        idat = good.index(b"IDAT")
        cases = [
            ("notpng.png", b"P5\n1 1\n255\n\0", "not a PNG file"),
            ("short.png", good[:idat + 12], "damaged PNG file (it ends early)"),
            ("crc.png", bytes(crc), "damaged PNG file (IHDR: CRC error)"),
            ("wide.png", png(70000, 1, 0, 8, []), "width 70000 is out of range (1..65536)"),
        ]
        for name, data, reason in cases:
            with self.subTest(name):
                self.write(name, data)
                self.write("out.bin", b"kept")
                before = sorted(os.listdir(self.dir))
                r = self.fbc("encode", name, "out.bin")
                self.assertEqual((r.returncode, r.stderr, r.stdout), (2, "fbc encode: %s: %s\n" % (name, reason), ""))
                self.assertEqual(self.read("out.bin"), b"kept")
                self.assertEqual(sorted(os.listdir(self.dir)), before)


class PngOutput(Tool):
    def test_decode_png_holds_the_pgm_values(self):
        self.write("in.pgm", pnm(b"P5", W, H, 4095, noise(W * H, 4095, 9)))
        self.ok("encode", "in.pgm", "in.bin")
        self.ok("decode", "--width", str(W), "--height", str(H), "in.bin", "out.png")
        self.ok("decode", "--width", str(W), "--height", str(H), "in.bin", "out.pgm")
        width, height, channels, depth, samples, _ = read_png(self.read("out.png"))
        self.assertEqual((width, height, channels, depth), (W, H, 1, 16))
        self.assertEqual(samples, read_pnm(self.read("out.pgm"))[1])

    def test_roundtrip_pictures_match_the_netpbm_ones(self):
        # 4095, 1 and 0x123 widen to 0xFFFF, 0x0010 and 0x1231: the 12 bits, then their top 4 again.
        # With CFA 0 the first row samples R of pixel 0, G of pixel 1 and R of pixel 2.
        values = noise(3 * W * H, 4095, 10)
        values[0], values[4], values[6] = 4095, 1, 0x123
        self.write("in.ppm", pnm(b"P6", W, H, 4095, values))
        self.ok("roundtrip", "in.ppm", "--out", "png")
        self.ok("roundtrip", "in.ppm", "--out", "pnm", "--format", "pnm")
        self.assertEqual(sorted(os.listdir(self.path("png"))),
                         ["compare.png", "decoded.png", "errors.png", "input.png", "modes.png"])
        for name, ext, twelve in [("input", ".pgm", True), ("decoded", ".pgm", True), ("compare", ".ppm", True),
                                  ("modes", ".ppm", False), ("errors", ".ppm", False)]:
            with self.subTest(name):
                _, _, channels, depth, samples, chunks = read_png(self.read("png/%s.png" % name))
                maxval, expected = read_pnm(self.read("pnm/%s%s" % (name, ext)))
                self.assertEqual((channels, depth, maxval), (3 if ext == ".ppm" else 1, 16 if twelve else 8,
                                                             4095 if twelve else 255))
                if twelve:
                    self.assertEqual(chunks[b"sBIT"], bytes([12] * channels))
                    expected = [v << 4 | v >> 8 for v in expected]
                self.assertEqual(samples, expected)
        _, _, _, _, first, _ = read_png(self.read("png/input.png"))
        self.assertEqual(first[:3], [0xFFFF, 0x0010, 0x1231])

    def test_colour_png_input_is_a_bayer_mosaic_and_grey_is_not(self):
        self.write("colour.png", png(W, H, 2, 8, rows(noise(3 * W * H, 255, 11), 3 * W)))
        self.write("grey.png", png(W, H, 0, 8, rows(noise(W * H, 255, 12), W)))
        self.ok("roundtrip", "colour.png", "--out", "colour")
        self.ok("roundtrip", "grey.png", "--out", "grey")
        self.assertIn("compare.png", os.listdir(self.path("colour")))
        self.assertNotIn("compare.png", os.listdir(self.path("grey")))


if __name__ == "__main__":
    FBC = os.path.abspath(sys.argv.pop(1))
    unittest.main()
