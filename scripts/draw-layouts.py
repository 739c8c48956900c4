#!/usr/bin/env python3
"""Draws how the planes of a frame lie in memory: scripts/draw-layouts.py writes docs/images/frame-*.svg."""
import pathlib

CELL, LEFT, TOP = 22, 150, 34
COLOURS = {"Y": "#d9d9d9", "U": "#9ec5fe", "V": "#f1aeb5", "pad": "#ffffff", "A": "#e2d9f3", "R": "#f1aeb5",
           "G": "#a3cfbb", "B": "#9ec5fe"}


def cell(x, y, label, kind):
    dash = ' stroke-dasharray="2 2"' if kind == "pad" else ""
    return (f'<rect x="{LEFT + x * CELL}" y="{y}" width="{CELL}" height="{CELL}" fill="{COLOURS[kind]}" '
            f'stroke="#555"{dash}/>'
            f'<text x="{LEFT + (x + 0.5) * CELL}" y="{y + 15}" text-anchor="middle">{label}</text>')


def draw(name, title, planes, pitch):
    """A plane is (what the left says, rows of letters); rows are filled up to the pitch with padding."""
    parts, y = [], TOP
    for words, rows in planes:
        parts.append(f'<text x="4" y="{y + 15}" font-weight="bold">{words}</text>')
        for i, row in enumerate(rows):
            parts += [cell(x, y, letter, letter) for x, letter in enumerate(row)]
            last = i == len(rows) - 1
            parts += [] if last else [cell(x, y, "", "pad") for x in range(len(row), pitch)]
            y += CELL
        y += 12
    width, height = max(LEFT + pitch * CELL + 12, 8 + 7 * len(title)), y
    text = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
            f'font-family="sans-serif" font-size="12"><rect width="100%" height="100%" fill="#fff"/>'
            f'<text x="4" y="20">{title}</text>' + "".join(parts) + "</svg>\n")
    path = pathlib.Path(__file__).resolve().parent.parent / "docs" / "images" / f"frame-{name}.svg"
    path.write_text(text)


def main():
    w, h, pitch = 7, 5, 10
    luma = ["Y" * w] * h
    draw("nv12", "NV12, 7 x 5, pitch 10: chroma rounds up, 4 pairs in 3 rows; a cell is a byte, dashed ones are padding",
         [("plane[0]", luma), ("plane[1]", ["UV" * 4] * 3)], pitch)
    draw("nv12-down", "The same with chroma_rounding 1, as a tavi_image_t counts: 3 pairs in 2 rows",
         [("plane[0]", luma), ("plane[1]", ["UV" * 3] * 2)], pitch)
    draw("yu12", "YU12 (I420), 7 x 5: each plane has a pitch of its own; YV12 has V before U",
         [("plane[0]", luma), ("plane[1] U", ["U" * 4] * 3), ("plane[2] V", ["V" * 4] * 3)], pitch)
    draw("yuyv", "YUYV, 5 x 3, pitch 14: whole pairs of pixels; the last Y of an odd row belongs to no pixel",
         [("plane[0]", ["YUYV" * 3] * 3)], 14)
    draw("rgb", "RGB888, 4 x 3, pitch 14", [("plane[0]", ["RGB" * 4] * 3)], 14)


main()
