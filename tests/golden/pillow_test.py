#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Filters beside Pillow's on photographs, shrinking and enlarging: the same but for one step of 255.

Usage: pillow_test.py RESIZE-RAW PHOTOGRAPH...
"""
import subprocess
import sys

from PIL import Image, ImageChops

RESAMPLE = {"nearest": 0, "lanczos": 1, "bilinear": 2, "bicubic": 3, "box": 4}  # as Pillow numbers them
SHRINKING = ((0.5, 0.5), (0.43, 0.37), (0.125, 0.2), (1.0, 0.6))
ENLARGING = ((2.0, 2.0), (1.37, 2.61), (3.0, 1.0))
WHOLE = ((0.5, 0.5), (0.2, 0.25), (2.0, 2.0), (3.0, 1.0))
# Our filter, Pillow's, and where they are to agree. Its box takes samples whole or not at all, as our mean does; our box
# weighs those that are cut: the same at whole factors alone. Its bilinear when shrinking is our triangle.
CASES = (
    (2, "bilinear", ENLARGING),
    (3, "box", WHOLE),
    (4, "bicubic", SHRINKING + ENLARGING),
    (5, "lanczos", SHRINKING + ENLARGING),
    (6, "bilinear", SHRINKING + ENLARGING),
    (7, "box", SHRINKING + ENLARGING),
)


def compare(resize_raw, image, number, name, factors):
    """The largest difference and the share of equal bytes."""
    size = tuple(max(1, round(side * factor)) for side, factor in zip(image.size, factors))
    numbers = map(str, (*image.size, *size, number))
    raw = subprocess.run([resize_raw, *numbers], input=image.tobytes(), stdout=subprocess.PIPE, check=True).stdout
    difference = ImageChops.difference(image.resize(size, RESAMPLE[name]), Image.frombytes("RGB", size, raw))
    counts = [sum(difference.histogram()[channel * 256 + step] for channel in range(3)) for step in range(256)]
    return max(step for step in range(256) if counts[step]), counts[0] / sum(counts)


def main():
    resize_raw, *photographs = sys.argv[1:]
    images = [Image.open(path).convert("RGB") for path in photographs]
    images = [image.crop((0, 0, image.width // 20 * 20, image.height // 20 * 20)) for image in images]
    worst = 0
    for number, name, all_factors in CASES:
        for direction in ("shrinking", "enlarging"):
            found = [
                compare(resize_raw, image, number, name, factors)
                for factors in all_factors
                if (direction == "shrinking") == (min(factors) < 1)
                for image in images
            ]
            if found:
                most, equal = max(step for step, _ in found), min(share for _, share in found)
                print(f"{number} {name:8} {direction}: differs by {most} at most, {100 * equal:.1f} % equal at least")
                worst = max(worst, most)
    sys.exit(worst > 1)


if __name__ == "__main__":
    main()
