#!/usr/bin/python3
"""Decoding a JPEG to a quarter of its sides, from memory: ours beside TurboJPEG and Pillow's draft mode, in turn.

bench/decode.py LIBTAVI_IMAGE [JPEG]     needs python3-pil and libturbojpeg; without a JPEG one of 4000 x 3000 is made.
"""
import ctypes
import io
import sys
import time

from PIL import Image

RGB888 = 1
TJPF_RGB = 0


class Plane(ctypes.Structure):
    _fields_ = [("data", ctypes.c_void_p), ("fd", ctypes.c_int32), ("offset", ctypes.c_uint32),
                ("pitch", ctypes.c_uint32)]


class Frame(ctypes.Structure):
    _fields_ = [("format", ctypes.c_uint32), ("width", ctypes.c_uint32), ("height", ctypes.c_uint32),
                ("plane", Plane * 3), ("color", ctypes.c_int32 * 3), ("chroma_rounding", ctypes.c_int32),
                ("reserved", ctypes.c_uint32 * 8)]


def synthetic():
    photo = Image.effect_mandelbrot((4000, 3000), (-2, -1.5, 1, 1.5), 80)
    picture = Image.merge("RGB", (photo, photo.transpose(Image.Transpose.FLIP_LEFT_RIGHT), photo))
    out = io.BytesIO()
    picture.save(out, "JPEG", quality=90)
    return out.getvalue()


def main():
    ours = ctypes.CDLL(sys.argv[1])
    turbo = ctypes.CDLL("libturbojpeg.so.0")
    turbo.tjInitDecompress.restype = ctypes.c_void_p
    jpeg = open(sys.argv[2], "rb").read() if len(sys.argv) > 2 else synthetic()
    full = Image.open(io.BytesIO(jpeg)).size
    width, height = -(-full[0] // 4), -(-full[1] // 4)
    pixels = ctypes.create_string_buffer(3 * width * height)
    frame = Frame(RGB888, width, height)
    frame.plane[0] = Plane(ctypes.addressof(pixels), 0, 0, 3 * width)
    handle = ctypes.c_void_p(turbo.tjInitDecompress())

    def by_ours():
        if ours.tavi_frame_decode(jpeg, ctypes.c_size_t(len(jpeg)), ctypes.byref(frame), None):
            sys.exit("tavi_frame_decode refuses")

    def by_turbojpeg():
        if turbo.tjDecompress2(handle, jpeg, ctypes.c_ulong(len(jpeg)), pixels, width, 3 * width, height, TJPF_RGB, 0):
            sys.exit("tjDecompress2 fails")

    def by_pillow():
        picture = Image.open(io.BytesIO(jpeg))
        picture.draft("RGB", (width, height))
        picture.load()

    best = {}
    for _ in range(15):
        for name, run in (("ours", by_ours), ("turbojpeg", by_turbojpeg), ("pillow draft", by_pillow)):
            start = time.perf_counter()
            run()
            best[name] = min(best.get(name, 1e9), time.perf_counter() - start)
    print(f"{full[0]}x{full[1]} to {width}x{height}: " +
          ", ".join(f"{name} {1000 * seconds:.2f} ms" for name, seconds in best.items()))


main()
