#!/usr/bin/env python3
"""Draws the ribbon button pictures of the add-in and writes them as PNG
resources, multi-size .ico resources and a resource script fragment that
lists them.

Every picture is drawn from shapes at its own pixel size rather than scaled
from one bitmap, so thin strokes stay crisp at 16 px and smooth at 256 px.
The output is byte-identical from run to run (no timestamps, fixed zlib
level), so regenerating it never changes the built resources by itself.

Usage: python3 tools/make_ribbon_pictures.py OUT_DIR
"""
import argparse
import math
import pathlib
import struct
import zlib

# name, icon id, PNG ids at 32, 48, 64 and 96 px, background colour
BUTTONS = [
    ("translate_full", 110, (120, 130, 140, 150), (0x2B, 0x6C, 0xD8)),
    ("translate_slide", 187, (188, 189, 190, 191), (0x17, 0x8F, 0x8A)),
    ("translate_selection", 111, (121, 131, 141, 151), (0x6A, 0x4F, 0xC8)),
    ("pdf_translate", 192, (193, 194, 195, 196), (0xD2, 0x3F, 0x31)),
    ("glossary", 115, (125, 135, 145, 155), (0x2E, 0x8B, 0x47)),
    ("instruction", 116, (126, 136, 146, 156), (0xE0, 0x7A, 0x1F)),
    ("account", 117, (127, 137, 147, 157), (0x4A, 0x5A, 0x78)),
    ("support", 129, (160, 162, 164, 166), (0x1E, 0x88, 0xC7)),
    ("settings", 197, (198, 199, 200, 201), (0x5F, 0x6B, 0x7A)),
]
PNG_SIZES = (32, 48, 64, 96)
ICON_SIZES = (16, 20, 24, 32, 40, 48, 64, 128, 256)
ICON_SIZES_BY_ID = {197: (16, 24, 32, 48, 64, 96)}
WHITE = (255, 255, 255)
SS = 4  # supersampling grid per axis on edge pixels


# Shapes are signed distance functions in unit coordinates (0..1, y down):
# negative inside.  min/max combinations never overstate the distance, which
# is what lets the rasteriser skip whole tiles safely.
def _box(qx, qy, hx, hy, r):
    """Rounded box centred on the origin, for points already transformed."""
    dx = (qx if qx > 0 else -qx) - hx + r
    dy = (qy if qy > 0 else -qy) - hy + r
    if dx > 0:
        return (math.hypot(dx, dy) if dy > 0 else dx) - r
    if dy > 0:
        return dy - r
    return (dx if dx > dy else dy) - r


def box(x0, y0, x1, y1, r=0.0):
    cx, cy, hx, hy = (x0 + x1) / 2, (y0 + y1) / 2, (x1 - x0) / 2, (y1 - y0) / 2
    hx, hy = hx - r, hy - r

    def f(x, y):
        # _box written out with branches: boxes take most of the samples.
        dx = (x - cx if x > cx else cx - x) - hx
        dy = (y - cy if y > cy else cy - y) - hy
        if dx > 0:
            return (math.hypot(dx, dy) if dy > 0 else dx) - r
        if dy > 0:
            return dy - r
        return (dx if dx > dy else dy) - r
    return f


def circle(cx, cy, r):
    return lambda x, y: math.hypot(x - cx, y - cy) - r


def segment(ax, ay, bx, by, w):
    dx, dy = bx - ax, by - ay
    ll = dx * dx + dy * dy or 1.0

    def f(x, y):
        t = min(max(((x - ax) * dx + (y - ay) * dy) / ll, 0.0), 1.0)
        return math.hypot(x - ax - t * dx, y - ay - t * dy) - w / 2
    return f


def arc(cx, cy, r, start, sweep, w):
    """Round-capped ring arc from angle `start` turning clockwise on screen
    by `sweep` degrees (0 = right, 90 = down)."""
    ends = [(cx + r * math.cos(math.radians(a)), cy + r * math.sin(math.radians(a)))
            for a in (start, start + sweep)]

    def f(x, y):
        a = (math.degrees(math.atan2(y - cy, x - cx)) - start) % 360.0
        if a <= sweep:
            return abs(math.hypot(x - cx, y - cy) - r) - w / 2
        return min(math.hypot(x - ex, y - ey) for ex, ey in ends) - w / 2
    return f


def polygon(pts):
    edges = list(zip(pts, pts[1:] + pts[:1]))

    def f(x, y):
        best, inside = 1e9, False
        for (ax, ay), (bx, by) in edges:
            if (ay > y) != (by > y) and x < ax + (y - ay) * (bx - ax) / (by - ay):
                inside = not inside
            dx, dy = bx - ax, by - ay
            t = min(max(((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy), 0.0), 1.0)
            best = min(best, math.hypot(x - ax - t * dx, y - ay - t * dy))
        return -best if inside else best
    return f


def gear(cx, cy, r_body, r_tip, teeth, tooth_w, r_hole):
    sector = 2 * math.pi / teeth
    mid, half = (r_body + r_tip) / 2, (r_tip - r_body) / 2 + 0.02

    def f(x, y):
        dx, dy = x - cx, y - cy
        rho = math.hypot(dx, dy)
        # Fold the angle into one tooth's sector; by symmetry the nearest
        # tooth is always the one in the same sector.
        a = math.atan2(dy, dx) % sector - sector / 2
        tooth = _box(rho * math.cos(a) - mid, rho * math.sin(a), half, tooth_w / 2, 0.01)
        return max(min(rho - r_body, tooth), r_hole - rho)
    return f


def union(*fs):
    return lambda x, y: min(f(x, y) for f in fs)


def intersect(*fs):
    return lambda x, y: max(f(x, y) for f in fs)


def mix(c, other, t):
    return tuple(round(a + (b - a) * t) for a, b in zip(c, other))


# Glyphs: each returns (shape, colour) layers painted in order over the
# rounded square.  `px` is one pixel in unit coordinates, used to keep
# strokes at least a pixel wide at the small sizes.
def glyph_translate_full(c, px):
    line = max(0.045, px)
    layers = [(box(0.38, 0.18, 0.74, 0.66, 0.03), WHITE),
              (box(0.22, 0.28, 0.66, 0.86, 0.04), c),  # gap between the sheets
              (box(0.26, 0.32, 0.62, 0.82, 0.03), WHITE)]
    return layers + [(box(0.32, y, x1, y + line), c)
                     for y, x1 in ((0.44, 0.56), (0.55, 0.56), (0.66, 0.48))]


def glyph_translate_slide(c, px):
    line = max(0.045, px)
    return [(box(0.28, 0.2, 0.72, 0.8, 0.04), WHITE)] + [
        (box(0.36, y, x1, y + line), c)
        for y, x1 in ((0.34, 0.64), (0.46, 0.64), (0.58, 0.64), (0.70, 0.54))]


def glyph_translate_selection(c, px):
    w = max(0.055, px)
    x0, y0, x1, y1 = 0.22, 0.26, 0.78, 0.74
    layers = []
    # Odd pieces of each edge are dashes, so every corner starts with one.
    for (ax, ay), (bx, by), pieces in (((x0, y0), (x1, y0), 7), ((x0, y1), (x1, y1), 7),
                                       ((x0, y0), (x0, y1), 5), ((x1, y0), (x1, y1), 5)):
        for k in range(0, pieces, 2):
            sx, sy = ax + (bx - ax) * k / pieces, ay + (by - ay) * k / pieces
            ex, ey = ax + (bx - ax) * (k + 1) / pieces, ay + (by - ay) * (k + 1) / pieces
            layers.append((box(min(sx, ex) - w / 2, min(sy, ey) - w / 2,
                               max(sx, ex) + w / 2, max(sy, ey) + w / 2), WHITE))
    line = max(0.06, px)
    return layers + [(box(0.34, 0.41, 0.66, 0.41 + line, line / 2), WHITE),
                     (box(0.34, 0.53, 0.56, 0.53 + line, line / 2), WHITE)]


def glyph_pdf_translate(c, px):
    page = polygon([(0.3, 0.17), (0.6, 0.17), (0.74, 0.31), (0.74, 0.83), (0.3, 0.83)])
    return [(page, WHITE),
            (polygon([(0.6, 0.17), (0.6, 0.31), (0.74, 0.31)]), mix(c, WHITE, 0.55)),
            (box(0.2, 0.5, 0.64, 0.7, 0.03), mix(c, (0, 0, 0), 0.35))]


def glyph_glossary(c, px):
    gap = max(0.035, px)
    return [(box(0.28, 0.18, 0.72, 0.82, 0.04), WHITE),
            (box(0.36, 0.18, 0.36 + gap, 0.82), c),        # spine
            (box(0.36, 0.71, 0.72, 0.71 + gap), c),        # page edges
            (box(0.45, 0.3, 0.64, 0.3 + max(0.08, px)), c)]  # title label


def glyph_instruction(c, px):
    line = max(0.05, px)
    bubble = union(box(0.18, 0.22, 0.82, 0.66, 0.1),
                   polygon([(0.3, 0.6), (0.48, 0.6), (0.28, 0.82)]))
    return [(bubble, WHITE),
            (box(0.3, 0.36, 0.7, 0.36 + line, line / 2), c),
            (box(0.3, 0.48, 0.6, 0.48 + line, line / 2), c)]


def glyph_account(c, px):
    shoulders = intersect(box(0.24, 0.58, 0.76, 1.0, 0.22), box(0.0, 0.0, 1.0, 0.8))
    return [(shoulders, WHITE),
            (circle(0.5, 0.37, 0.14 + max(0.045, px)), c),  # keeps the head apart
            (circle(0.5, 0.37, 0.14), WHITE)]


def glyph_support(c, px):
    w = max(0.085, px)
    hook = union(arc(0.5, 0.36, 0.13, 180.0, 270.0, w),
                 segment(0.5, 0.49, 0.5, 0.6, w))
    return [(hook, WHITE), (circle(0.5, 0.73, w * 0.65), WHITE)]


def glyph_settings(c, px):
    return [(gear(0.5, 0.5, 0.24, 0.33, 8, 0.11, 0.1), WHITE)]


GLYPHS = {name[len("glyph_"):]: f for name, f in globals().items() if name.startswith("glyph_")}


def paint(img, n, sdf, colour):
    """Composites one shape over img (straight RGBA ints, n*n*4) with
    quadtree culling: a tile whose centre is farther from the edge than any
    of its sample points is uniform; only pixels the edge crosses are
    supersampled."""
    full = list(colour) + [255]
    offsets = [(i + 0.5) / SS for i in range(SS)]
    stack = [(0, 0, n, n)]
    while stack:
        x0, y0, x1, y1 = stack.pop()
        d = sdf((x0 + x1) / (2 * n), (y0 + y1) / (2 * n)) * n
        # Only the sample points matter, and they sit 1/(2*SS) px inside
        # the tile's border.
        reach = 0.5 * math.hypot(x1 - x0 - 1 / SS, y1 - y0 - 1 / SS) + 0.01
        if d >= reach:
            continue
        if d <= -reach:
            for y in range(y0, y1):
                img[(y * n + x0) * 4:(y * n + x1) * 4] = full * (x1 - x0)
            continue
        if x1 - x0 > 1 or y1 - y0 > 1:
            mx, my = (x0 + x1 + 1) // 2, (y0 + y1 + 1) // 2
            for sx0, sx1 in ((x0, mx), (mx, x1)) if x1 - x0 > 1 else ((x0, x1),):
                for sy0, sy1 in ((y0, my), (my, y1)) if y1 - y0 > 1 else ((y0, y1),):
                    stack.append((sx0, sy0, sx1, sy1))
            continue
        hits = 0
        for sy in [(y0 + o) / n for o in offsets]:
            for sx in [(x0 + o) / n for o in offsets]:
                if sdf(sx, sy) < 0:
                    hits += 1
        if hits == 0:
            continue
        o = (y0 * n + x0) * 4
        if hits == SS * SS:
            img[o:o + 4] = full
            continue
        cov = hits / (SS * SS)
        keep = img[o + 3] / 255 * (1 - cov)
        alpha = cov + keep
        for k in range(3):
            img[o + k] = round((colour[k] * cov + img[o + k] * keep) / alpha)
        img[o + 3] = round(alpha * 255)


def draw(name, colour, n):
    img = [0] * (n * n * 4)
    # Rounded square over ~90% of the box; the margin keeps it off the
    # ribbon's hover frame.
    paint(img, n, box(0.05, 0.05, 0.95, 0.95, 0.18), colour)
    for sdf, c in GLYPHS[name](colour, 1.0 / n):
        paint(img, n, sdf, c)
    return bytes(img)


def png_file(rgba, n):
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF))
    stride = n * 4
    raw = b"".join(b"\x00" + rgba[y * stride:(y + 1) * stride] for y in range(n))
    return (b"\x89PNG\r\n\x1a\n"
            + chunk(b"IHDR", struct.pack(">IIBBBBB", n, n, 8, 6, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(raw, 9))
            + chunk(b"IEND", b""))


def dib_frame(rgba, n):
    bgra = bytearray(rgba)
    bgra[0::4], bgra[2::4] = rgba[2::4], rgba[0::4]
    stride = n * 4
    pixels = b"".join(bytes(bgra[y * stride:(y + 1) * stride]) for y in reversed(range(n)))
    # The AND mask is ignored when the frame has alpha, but must be present.
    mask = bytes((n + 31) // 32 * 4 * n)
    header = struct.pack("<IiiHHIIiiII", 40, n, 2 * n, 1, 32, 0,
                         len(pixels) + len(mask), 0, 0, 0, 0)
    return header + pixels + mask


def ico_file(frames):
    out = [struct.pack("<HHH", 0, 1, len(frames))]
    offset = 6 + 16 * len(frames)
    for n, data in frames:
        side = 0 if n >= 256 else n
        out.append(struct.pack("<BBBBHHII", side, side, 0, 0, 1, 32, len(data), offset))
        offset += len(data)
    return b"".join(out + [data for _, data in frames])


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("out_dir", type=pathlib.Path)
    out = ap.parse_args().out_dir
    out.mkdir(parents=True, exist_ok=True)

    pngs, icons = [], []
    for name, icon_id, png_ids, colour in BUTTONS:
        cache = {}

        def picture(n):
            if n not in cache:
                cache[n] = draw(name, colour, n)
            return cache[n]

        for pid, n in zip(png_ids, PNG_SIZES):
            (out / f"png_{pid}.png").write_bytes(png_file(picture(n), n))
            pngs.append(pid)
        frames = [(n, png_file(picture(n), n) if n >= 256 else dib_frame(picture(n), n))
                  for n in ICON_SIZES_BY_ID.get(icon_id, ICON_SIZES)]
        (out / f"icon_{icon_id}.ico").write_bytes(ico_file(frames))
        icons.append(icon_id)

    lines = [f'{i} RCDATA "png_{i}.png"' for i in sorted(pngs)]
    lines += [f'{i} ICON "icon_{i}.ico"' for i in sorted(icons)]
    (out / "pictures.rc").write_bytes(("\n".join(lines) + "\n").encode("ascii"))


if __name__ == "__main__":
    main()
