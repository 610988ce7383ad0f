#!/usr/bin/env python3
"""Draws the library's "Wirelane" image: a 32x32 RGBA picture of two cable
ends joined by a lane, written as an uncompressed baseline TIFF (little
endian, one strip). Run it to remake Wirelane.tiff beside it."""
import os
import struct

SIZE = 32
INK = (0x2e, 0x34, 0x36, 0xff)
CLEAR = (0, 0, 0, 0)


def pixel(x, y):
    if 13 <= y <= 18 and 8 <= x <= 23:          # the lane between the ends
        return INK
    for left in (2, 24):                          # two plugs
        if left <= x < left + 6 and 9 <= y <= 22:
            return INK
    for x0 in (4, 26):                            # their pins
        if x0 <= x < x0 + 2 and (5 <= y <= 8 or 23 <= y <= 26):
            return INK
    return CLEAR


def tiff():
    data = bytes(c for y in range(SIZE) for x in range(SIZE) for c in pixel(x, y))
    entries = []
    extra = b""
    header = 8
    ifd_size = 2 + 12 * 11 + 4
    extra_at = header + ifd_size
    bits_at = extra_at
    extra += struct.pack("<4H", 8, 8, 8, 8)
    data_at = extra_at + len(extra)

    def entry(tag, kind, count, value):
        entries.append(struct.pack("<HHII", tag, kind, count, value))

    short, long_ = 3, 4
    entry(256, short, 1, SIZE)          # width
    entry(257, short, 1, SIZE)          # height
    entry(258, short, 4, bits_at)       # bits per sample
    entry(259, short, 1, 1)             # no compression
    entry(262, short, 1, 2)             # RGB
    entry(273, long_, 1, data_at)       # strip offset
    entry(277, short, 1, 4)             # samples per pixel
    entry(278, short, 1, SIZE)          # rows per strip
    entry(279, long_, 1, len(data))     # strip byte count
    entry(284, short, 1, 1)             # chunky
    entry(338, short, 1, 2)             # unassociated alpha
    ifd = struct.pack("<H", len(entries)) + b"".join(entries) + struct.pack("<I", 0)
    return b"II*\0" + struct.pack("<I", header) + ifd + extra + data


if __name__ == "__main__":
    out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "Wirelane.tiff")
    with open(out, "wb") as f:
        f.write(tiff())
