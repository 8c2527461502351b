#!/usr/bin/env python3
"""Draws the SDK's button artwork and the sandbox's demo creatives.

Everything is drawn here from geometric shapes (signed distance functions with one pixel of
anti-aliasing) and written as PNG with zlib, or as baseline JPEG with a small encoder below,
so the images are original and need nothing beyond the Python standard library.

Usage: scripts/make_artwork.py [--out-root DIR]   (default: the repository root)
"""

import argparse
import math
import os
import struct
import zlib

# ---------------------------------------------------------------------------------------------
# Canvas


class Canvas:
    def __init__(self, width, height, color=(0, 0, 0, 0)):
        self.w = width
        self.h = height
        r, g, b, a = color
        self.px = [[r, g, b, a] for _ in range(width * height)]

    def blend(self, x, y, color, coverage):
        """Source-over compositing of a straight-alpha colour at one pixel."""
        sa = color[3] * coverage
        if sa <= 0.0:
            return
        p = self.px[y * self.w + x]
        da = p[3]
        oa = sa + da * (1.0 - sa)
        if oa <= 0.0:
            return
        k = da * (1.0 - sa)
        p[0] = (color[0] * sa + p[0] * k) / oa
        p[1] = (color[1] * sa + p[1] * k) / oa
        p[2] = (color[2] * sa + p[2] * k) / oa
        p[3] = oa

    def shade(self, color_at, box=None):
        """Paints every pixel of `box` with color_at(x, y) (centre coordinates)."""
        x0, y0, x1, y1 = box or (0, 0, self.w, self.h)
        for y in range(max(0, y0), min(self.h, y1)):
            for x in range(max(0, x0), min(self.w, x1)):
                self.blend(x, y, color_at(x + 0.5, y + 0.5), 1.0)

    def fill_sdf(self, sdf, color, box):
        """Fills the area where sdf < 0; the one-pixel edge band is anti-aliased."""
        x0, y0, x1, y1 = (int(math.floor(v)) for v in box)
        for y in range(max(0, y0 - 1), min(self.h, y1 + 2)):
            cy = y + 0.5
            for x in range(max(0, x0 - 1), min(self.w, x1 + 2)):
                d = sdf(x + 0.5, cy)
                cov = 0.5 - d
                if cov <= 0.0:
                    continue
                self.blend(x, y, color, 1.0 if cov >= 1.0 else cov)

    # Shapes -----------------------------------------------------------------------------

    def circle(self, cx, cy, r, color):
        self.fill_sdf(lambda x, y: math.hypot(x - cx, y - cy) - r, color,
                      (cx - r, cy - r, cx + r, cy + r))

    def ring(self, cx, cy, r, width, color, keep=None):
        """A circle outline; `keep(x, y)` may clip it (e.g. to one side for sound waves)."""
        half = width / 2.0

        def sdf(x, y):
            d = abs(math.hypot(x - cx, y - cy) - r) - half
            if keep is not None and not keep(x, y):
                return 1.0
            return d

        self.fill_sdf(sdf, color, (cx - r - half, cy - r - half, cx + r + half, cy + r + half))

    def rounded_rect(self, x0, y0, x1, y1, radius, color):
        cx, cy = (x0 + x1) / 2.0, (y0 + y1) / 2.0
        hx, hy = (x1 - x0) / 2.0 - radius, (y1 - y0) / 2.0 - radius

        def sdf(x, y):
            qx, qy = abs(x - cx) - hx, abs(y - cy) - hy
            outside = math.hypot(max(qx, 0.0), max(qy, 0.0))
            return outside + min(max(qx, qy), 0.0) - radius

        self.fill_sdf(sdf, color, (x0, y0, x1, y1))

    def segment(self, ax, ay, bx, by, width, color):
        """A stroke with round caps."""
        half = width / 2.0
        dx, dy = bx - ax, by - ay
        length2 = dx * dx + dy * dy or 1e-9

        def sdf(x, y):
            t = max(0.0, min(1.0, ((x - ax) * dx + (y - ay) * dy) / length2))
            return math.hypot(x - (ax + t * dx), y - (ay + t * dy)) - half

        self.fill_sdf(sdf, color, (min(ax, bx) - half, min(ay, by) - half,
                                   max(ax, bx) + half, max(ay, by) + half))

    def polyline(self, points, width, color):
        for (ax, ay), (bx, by) in zip(points, points[1:]):
            self.segment(ax, ay, bx, by, width, color)

    def polygon(self, points, color):
        """A filled simple polygon (exact signed distance, even-odd inside test)."""
        n = len(points)

        def sdf(x, y):
            best = float("inf")
            inside = False
            for i in range(n):
                ax, ay = points[i]
                bx, by = points[(i + 1) % n]
                ex, ey = bx - ax, by - ay
                t = max(0.0, min(1.0, ((x - ax) * ex + (y - ay) * ey) / ((ex * ex + ey * ey) or 1e-9)))
                best = min(best, math.hypot(x - (ax + t * ex), y - (ay + t * ey)))
                if (ay > y) != (by > y) and x < ax + (y - ay) * ex / (ey or 1e-9):
                    inside = not inside
            return -best if inside else best

        xs = [p[0] for p in points]
        ys = [p[1] for p in points]
        self.fill_sdf(sdf, color, (min(xs), min(ys), max(xs), max(ys)))

    def text(self, text, x, y, height, width, color, spacing=0.35):
        """Stroke lettering with the small font below; (x, y) is the top-left corner."""
        scale = height / 6.0
        for ch in text:
            if ch == " ":
                x += scale * 3.0
                continue
            for stroke in GLYPHS[ch]:
                self.polyline([(x + gx * scale, y + gy * scale) for gx, gy in stroke], width, color)
            x += scale * (4.0 + spacing * 4.0)

    @staticmethod
    def text_width(text, height, spacing=0.35):
        scale = height / 6.0
        total = 0.0
        for ch in text:
            total += scale * 3.0 if ch == " " else scale * (4.0 + spacing * 4.0)
        return total - scale * spacing * 4.0

    def rgba8(self):
        out = bytearray()
        for r, g, b, a in self.px:
            out += bytes((_u8(r), _u8(g), _u8(b), _u8(a)))
        return bytes(out)


def _u8(v):
    return max(0, min(255, int(round(v * 255.0))))


def _arc(cx, cy, rx, ry, start, end, steps=10):
    return [(cx + rx * math.cos(math.radians(start + (end - start) * i / steps)),
             cy + ry * math.sin(math.radians(start + (end - start) * i / steps)))
            for i in range(steps + 1)]


# A stroke font on a 4 x 6 grid, only the characters the artwork needs.
GLYPHS = {
    "A": [[(0, 6), (2, 0), (4, 6)], [(0.7, 4), (3.3, 4)]],
    "B": [[(0, 0), (0, 6), (3, 6)] + _arc(3, 4.5, 1, 1.5, 90, -90, 6) + [(0, 3)],
          [(0, 3), (2.8, 3)] + _arc(2.8, 1.5, 1, 1.5, 90, -90, 6) + [(0, 0)]],
    "C": [_arc(2.2, 3, 2, 3, -50, -310, 14)],
    "D": [[(0, 0), (0, 6), (2, 6)] + _arc(2, 3, 2, 3, 90, -90, 10) + [(0, 0)]],
    "E": [[(4, 0), (0, 0), (0, 6), (4, 6)], [(0, 3), (3, 3)]],
    "I": [[(2, 0), (2, 6)], [(1, 0), (3, 0)], [(1, 6), (3, 6)]],
    "K": [[(0, 0), (0, 6)], [(4, 0), (0, 3.6)], [(1.3, 2.6), (4, 6)]],
    "L": [[(0, 0), (0, 6), (4, 6)]],
    "N": [[(0, 6), (0, 0), (4, 6), (4, 0)]],
    "O": [_arc(2, 3, 2, 3, 0, 360, 20)],
    "P": [[(0, 6), (0, 0), (2.6, 0)] + _arc(2.6, 1.6, 1.4, 1.6, -90, 90, 8) + [(0, 3.2)]],
    "R": [[(0, 6), (0, 0), (2.6, 0)] + _arc(2.6, 1.6, 1.4, 1.6, -90, 90, 8) + [(0, 3.2)],
          [(1.8, 3.2), (4, 6)]],
    "S": [_arc(2, 1.5, 1.9, 1.5, -20, -270, 10) + _arc(2, 4.5, 1.9, 1.5, -90, 160, 10)],
    "T": [[(0, 0), (4, 0)], [(2, 0), (2, 6)]],
    "X": [[(0, 0), (4, 6)], [(4, 0), (0, 6)]],
    "1": [[(0.8, 1.2), (2.2, 0), (2.2, 6)], [(0.8, 6), (3.6, 6)]],
    "2": [_arc(2, 1.8, 1.9, 1.8, 200, 360, 8) + [(3.9, 1.8), (0, 6), (4, 6)]],
    "3": [_arc(2, 1.5, 1.8, 1.5, 200, 450, 10) + _arc(2, 4.5, 1.9, 1.5, -90, 160, 10)],
    "4": [[(3, 6), (3, 0), (0, 4.2), (4, 4.2)]],
    "5": [[(3.8, 0), (0.4, 0), (0.2, 2.8)] + _arc(2, 4.2, 1.9, 1.8, -120, 150, 12)],
}

# ---------------------------------------------------------------------------------------------
# Encoders


def write_png(path, canvas):
    raw = canvas.rgba8()
    stride = canvas.w * 4
    rows = b"".join(b"\x00" + raw[y * stride:(y + 1) * stride] for y in range(canvas.h))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    png = b"\x89PNG\r\n\x1a\n"
    png += chunk(b"IHDR", struct.pack(">IIBBBBB", canvas.w, canvas.h, 8, 6, 0, 0, 0))
    png += chunk(b"IDAT", zlib.compress(rows, 9))
    png += chunk(b"IEND", b"")
    with open(path, "wb") as f:
        f.write(png)


_ZIGZAG = [0, 1, 8, 16, 9, 2, 3, 10, 17, 24, 32, 25, 18, 11, 4, 5, 12, 19, 26, 33, 40, 48, 41, 34,
           27, 20, 13, 6, 7, 14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44,
           51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63]
_Q_LUMA = [16, 11, 10, 16, 24, 40, 51, 61, 12, 12, 14, 19, 26, 58, 60, 55, 14, 13, 16, 24, 40, 57,
           69, 56, 14, 17, 22, 29, 51, 87, 80, 62, 18, 22, 37, 56, 68, 109, 103, 77, 24, 35, 55, 64,
           81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99]
_Q_CHROMA = [17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99,
             99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99] + [99] * 32
# The standard Huffman tables (bit counts per length, then symbols).
_DC_LUMA = ([0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0], list(range(12)))
_DC_CHROMA = ([0, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0], list(range(12)))
_AC_LUMA = ([0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 0x7D], bytes.fromhex(
    "01020300041105122131410613516107227114328191a1082342b1c11552d1f02433627282090a161718191a25262728"
    "292a3435363738393a434445464748494a535455565758595a636465666768696a737475767778797a83848586878889"
    "8a92939495969798999aa2a3a4a5a6a7a8a9aab2b3b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9dae1e2"
    "e3e4e5e6e7e8e9eaf1f2f3f4f5f6f7f8f9fa"))
_AC_CHROMA = ([0, 2, 1, 2, 4, 4, 3, 4, 7, 5, 4, 4, 0, 1, 2, 0x77], bytes.fromhex(
    "000102031104052131061241510761711322328108144291a1b1c109233352f0156272d10a162434e125f11718191a26"
    "2728292a35363738393a434445464748494a535455565758595a636465666768696a737475767778797a828384858687"
    "88898a92939495969798999aa2a3a4a5a6a7a8a9aab2b3b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9da"
    "e2e3e4e5e6e7e8e9eaf2f3f4f5f6f7f8f9fa"))


def _huffman_codes(table):
    counts, symbols = table
    codes, code, k = {}, 0, 0
    for length in range(1, 17):
        for _ in range(counts[length - 1]):
            codes[symbols[k]] = (code, length)
            code += 1
            k += 1
        code <<= 1
    return codes


class _BitWriter:
    def __init__(self):
        self.out = bytearray()
        self.acc = 0
        self.n = 0

    def write(self, value, length):
        self.acc = (self.acc << length) | (value & ((1 << length) - 1))
        self.n += length
        while self.n >= 8:
            byte = (self.acc >> (self.n - 8)) & 0xFF
            self.out.append(byte)
            if byte == 0xFF:
                self.out.append(0)  # byte stuffing
            self.n -= 8
        self.acc &= (1 << self.n) - 1

    def flush(self):
        if self.n:
            self.write((1 << (8 - self.n)) - 1, 8 - self.n)


_COS = [[math.cos((2 * x + 1) * u * math.pi / 16) for x in range(8)] for u in range(8)]


def _fdct(block):
    out = [0.0] * 64
    for v in range(8):
        for u in range(8):
            s = 0.0
            for y in range(8):
                cy = _COS[v][y]
                row = block[y * 8:(y + 1) * 8]
                cu = _COS[u]
                s += cy * (row[0] * cu[0] + row[1] * cu[1] + row[2] * cu[2] + row[3] * cu[3] +
                           row[4] * cu[4] + row[5] * cu[5] + row[6] * cu[6] + row[7] * cu[7])
            cu_ = 1 / math.sqrt(2) if u == 0 else 1.0
            cv_ = 1 / math.sqrt(2) if v == 0 else 1.0
            out[v * 8 + u] = 0.25 * cu_ * cv_ * s
    return out


def _magnitude(v):
    n = abs(v).bit_length()
    return n, (v if v >= 0 else v + (1 << n) - 1)


def write_jpeg(path, canvas, quality=85):
    """Baseline JPEG, 4:4:4, the standard tables scaled for `quality`; alpha is dropped
    over white."""
    scale = 5000 / quality if quality < 50 else 200 - quality * 2
    ql = [max(1, min(255, (q * scale + 50) // 100)) for q in _Q_LUMA]
    qc = [max(1, min(255, (q * scale + 50) // 100)) for q in _Q_CHROMA]
    w, h = canvas.w, canvas.h
    ycc = []
    for r, g, b, a in canvas.px:
        r, g, b = (255 * (c * a + (1 - a)) for c in (r, g, b))
        ycc.append((0.299 * r + 0.587 * g + 0.114 * b - 128,
                    -0.168736 * r - 0.331264 * g + 0.5 * b,
                    0.5 * r - 0.418688 * g - 0.081312 * b))
    tables = [(_huffman_codes(_DC_LUMA), _huffman_codes(_AC_LUMA), ql),
              (_huffman_codes(_DC_CHROMA), _huffman_codes(_AC_CHROMA), qc),
              (_huffman_codes(_DC_CHROMA), _huffman_codes(_AC_CHROMA), qc)]
    bits = _BitWriter()
    previous_dc = [0, 0, 0]
    for by in range(0, h, 8):
        for bx in range(0, w, 8):
            for comp in range(3):
                block = [ycc[min(h - 1, by + y) * w + min(w - 1, bx + x)][comp]
                         for y in range(8) for x in range(8)]
                dc_codes, ac_codes, q = tables[comp]
                coeffs = _fdct(block)
                zz = [int(round(coeffs[_ZIGZAG[i]] / q[_ZIGZAG[i]])) for i in range(64)]
                diff = zz[0] - previous_dc[comp]
                previous_dc[comp] = zz[0]
                n, v = _magnitude(diff)
                bits.write(*dc_codes[n])
                if n:
                    bits.write(v, n)
                run = 0
                for i in range(1, 64):
                    if zz[i] == 0:
                        run += 1
                        continue
                    while run > 15:
                        bits.write(*ac_codes[0xF0])
                        run -= 16
                    n, v = _magnitude(zz[i])
                    bits.write(*ac_codes[(run << 4) | n])
                    bits.write(v, n)
                    run = 0
                if run:
                    bits.write(*ac_codes[0x00])
    bits.flush()

    def segment(marker, data):
        return struct.pack(">BBH", 0xFF, marker, len(data) + 2) + data

    out = b"\xff\xd8"
    out += segment(0xE0, b"JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00")
    out += segment(0xDB, b"\x00" + bytes(ql[_ZIGZAG[i]] for i in range(64)) +
                   b"\x01" + bytes(qc[_ZIGZAG[i]] for i in range(64)))
    out += segment(0xC0, struct.pack(">BHHB", 8, h, w, 3) +
                   b"\x01\x11\x00" + b"\x02\x11\x01" + b"\x03\x11\x01")
    for cls_id, (counts, symbols) in ((0x00, _DC_LUMA), (0x10, _AC_LUMA),
                                      (0x01, _DC_CHROMA), (0x11, _AC_CHROMA)):
        out += segment(0xC4, bytes([cls_id]) + bytes(counts) + bytes(symbols))
    out += segment(0xDA, b"\x03" + b"\x01\x00" + b"\x02\x11" + b"\x03\x11" + b"\x00\x3f\x00")
    out += bytes(bits.out) + b"\xff\xd9"
    with open(path, "wb") as f:
        f.write(out)


# ---------------------------------------------------------------------------------------------
# The SDK's buttons. Sizes are in points; each image is drawn at 2x and 3x.

WHITE = (1, 1, 1, 1)
SHADE = (0, 0, 0, 0.45)


def button_play(c, s):
    c.circle(15 * s, 15 * s, 14.5 * s, SHADE)
    c.ring(15 * s, 15 * s, 13.5 * s, 1.2 * s, (1, 1, 1, 0.9))
    c.polygon([(11.5 * s, 8.5 * s), (22 * s, 15 * s), (11.5 * s, 21.5 * s)], WHITE)


def _speaker(c, s):
    c.rounded_rect(5 * s, 11.5 * s, 10 * s, 18.5 * s, 1 * s, WHITE)
    c.polygon([(9 * s, 11.5 * s), (15 * s, 6.5 * s), (15 * s, 23.5 * s), (9 * s, 18.5 * s)], WHITE)


def button_voice(c, s):
    c.circle(15 * s, 15 * s, 14.5 * s, SHADE)
    _speaker(c, s)
    right = lambda x, y: x > 16.5 * s
    c.ring(15 * s, 15 * s, 5.5 * s, 1.6 * s, WHITE, keep=right)
    c.ring(15 * s, 15 * s, 9.5 * s, 1.6 * s, WHITE, keep=right)


def button_voice_silent(c, s):
    c.circle(15 * s, 15 * s, 14.5 * s, SHADE)
    _speaker(c, s)
    c.segment(18.5 * s, 11.5 * s, 25 * s, 18.5 * s, 1.8 * s, WHITE)
    c.segment(25 * s, 11.5 * s, 18.5 * s, 18.5 * s, 1.8 * s, WHITE)


def button_close(c, s):
    c.circle(15 * s, 15 * s, 14.5 * s, SHADE)
    c.segment(10 * s, 10 * s, 20 * s, 20 * s, 2 * s, WHITE)
    c.segment(20 * s, 10 * s, 10 * s, 20 * s, 2 * s, WHITE)


def button_skip(c, s):
    # A 60 x 30 pt capsule: "SKIP" and a next-track mark.
    c.rounded_rect(0.5 * s, 0.5 * s, 59.5 * s, 29.5 * s, 14.5 * s, SHADE)
    c.text("SKIP", 9 * s, 10 * s, 10 * s, 1.6 * s, WHITE, spacing=0.25)
    c.polygon([(42 * s, 10 * s), (48.5 * s, 15 * s), (42 * s, 20 * s)], WHITE)
    c.segment(50.5 * s, 10.5 * s, 50.5 * s, 19.5 * s, 1.8 * s, WHITE)


BUTTONS = [
    ("bu_play", (30, 30), button_play),
    ("bu_voice", (30, 30), button_voice),
    ("bu_voice_silent", (30, 30), button_voice_silent),
    ("bu_splashClose", (30, 30), button_close),
    ("bu_skip", (60, 30), button_skip),
]

# ---------------------------------------------------------------------------------------------
# Sandbox creatives


def _mix(a, b, t):
    return tuple(a[i] + (b[i] - a[i]) * t for i in range(len(a)))


def splash_creative():
    w, h = 540, 960
    c = Canvas(w, h)
    top, bottom = (0.07, 0.11, 0.30, 1), (0.98, 0.62, 0.38, 1)
    c.shade(lambda x, y: _mix(top, bottom, y / h))
    c.circle(w * 0.68, h * 0.42, 70, (1.0, 0.86, 0.55, 1))
    # Sea, then two hills.
    c.shade(lambda x, y: _mix((0.10, 0.28, 0.45, 1), (0.04, 0.12, 0.25, 1), (y - 600) / 360),
            (0, 600, w, h))
    c.polygon([(0, 640), (130, 560), (280, 620), (280, 960), (0, 960)], (0.08, 0.20, 0.16, 1))
    c.polygon([(200, 660), (380, 590), (540, 650), (540, 960), (200, 960)], (0.05, 0.15, 0.12, 1))
    # A lighthouse with its beam.
    c.polygon([(105, 560), (125, 380), (155, 380), (175, 560)], (0.95, 0.95, 0.92, 1))
    c.polygon([(110, 520), (115, 480), (165, 480), (170, 520)], (0.80, 0.16, 0.18, 1))
    c.polygon([(119, 430), (122, 405), (158, 405), (161, 430)], (0.80, 0.16, 0.18, 1))
    c.rounded_rect(118, 350, 162, 382, 6, (1.0, 0.92, 0.55, 1))
    c.polygon([(114, 352), (140, 325), (166, 352)], (0.25, 0.25, 0.30, 1))
    c.polygon([(162, 358), (540, 250), (540, 420), (162, 374)], (1.0, 0.95, 0.70, 0.25))
    title = "PELORA"
    tw = Canvas.text_width(title, 54)
    c.text(title, (w - tw) / 2, 120, 54, 7, WHITE)
    sub = "SANDBOX AD"
    sw = Canvas.text_width(sub, 26)
    c.text(sub, (w - sw) / 2, 200, 26, 4, (1, 1, 1, 0.85))
    return c


NATIVE_COLORS = [
    ((0.13, 0.42, 0.70, 1), (0.55, 0.82, 0.95, 1)),
    ((0.25, 0.45, 0.20, 1), (0.78, 0.88, 0.55, 1)),
    ((0.10, 0.08, 0.28, 1), (0.40, 0.30, 0.70, 1)),
    ((0.40, 0.22, 0.12, 1), (0.90, 0.70, 0.45, 1)),
    ((0.55, 0.15, 0.35, 1), (0.98, 0.70, 0.75, 1)),
]


def native_image(i):
    w, h = 640, 360
    c = Canvas(w, h)
    a, b = NATIVE_COLORS[i - 1]
    c.shade(lambda x, y: _mix(a, b, (x / w + y / h) / 2))
    for k in range(5):
        c.circle(80 + k * 120, 300 - (k % 2) * 60, 40 + 10 * ((k + i) % 3), (1, 1, 1, 0.18))
    c.rounded_rect(40, 40, 250, 140, 18, (0, 0, 0, 0.35))
    c.text("AD " + str(i), 70, 66, 48, 7, WHITE)
    return c


def native_icon(i):
    s = 128
    c = Canvas(s, s)
    a, b = NATIVE_COLORS[i - 1]
    c.rounded_rect(2, 2, s - 2, s - 2, 28, b)
    c.rounded_rect(10, 10, s - 10, s - 10, 22, a)
    c.text(str(i), s / 2 - 15, 34, 60, 9, WHITE)
    return c


# ---------------------------------------------------------------------------------------------


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--out-root", default=root)
    args = parser.parse_args()

    bundle = os.path.join(args.out_root, "resources", "PeloraSDKBundle.bundle")
    creatives = os.path.join(args.out_root, "tools", "sandbox", "creatives")
    os.makedirs(bundle, exist_ok=True)
    os.makedirs(creatives, exist_ok=True)

    for name, (pw, ph), draw in BUTTONS:
        for scale in (2, 3):
            c = Canvas(pw * scale, ph * scale)
            draw(c, scale)
            write_png(os.path.join(bundle, "%s@%dx.png" % (name, scale)), c)

    write_png(os.path.join(creatives, "splash-demo.png"), splash_creative())
    for i in range(1, 6):
        image = native_image(i)
        if i == 2:
            write_jpeg(os.path.join(creatives, "native-image-%d.jpg" % i), image)
        else:
            write_png(os.path.join(creatives, "native-image-%d.png" % i), image)
        write_png(os.path.join(creatives, "native-icon-%d.png" % i), native_icon(i))


if __name__ == "__main__":
    main()
