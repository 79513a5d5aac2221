#!/usr/bin/env python3
"""Writes a minimal audio file of one container with a picture embedded by mutagen.

make_tagged_audio.py KIND OUT [PICTURE]   KIND: mp3, m4a, flac, ogg
The audio is the least each container needs to be read (silent frames, header packets); without
PICTURE the file carries a title and no art. The picture goes in as the front cover, after a
picture of another type, so that readers must prefer the front cover."""

import struct
import sys

from mutagen import flac, id3, mp4, oggvorbis
from mutagen.ogg import OggPage


def atom(kind, payload):
    return struct.pack(">I", 8 + len(payload)) + kind + payload


def full_atom(kind, payload):
    return atom(kind, b"\0\0\0\0" + payload)


def write_mp3(path):
    # MPEG-1 Layer III, 128 kbit/s, 44.1 kHz: 417-byte frames of silence.
    frame = b"\xff\xfb\x90\x64" + bytes(413)
    with open(path, "wb") as out:
        out.write(frame * 8)


def write_m4a(path):
    mvhd = full_atom(b"mvhd", struct.pack(">IIII", 0, 0, 1000, 1000) + struct.pack(">IH", 0x10000, 0x100) + bytes(10)
                     + struct.pack(">9I", 0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000) + bytes(24) + struct.pack(">I", 2))
    tkhd = full_atom(b"tkhd", struct.pack(">IIIII", 0, 0, 1, 0, 1000) + bytes(8) + struct.pack(">HHHH", 0, 0, 0x100, 0)
                     + struct.pack(">9I", 0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000) + struct.pack(">II", 0, 0))
    mdhd = full_atom(b"mdhd", struct.pack(">IIII", 0, 0, 44100, 44100) + struct.pack(">HH", 0x55C4, 0))
    hdlr = full_atom(b"hdlr", struct.pack(">I", 0) + b"soun" + bytes(12) + b"\0")
    esds = full_atom(b"esds", bytes.fromhex("03190000000411401500000000000000000000000502121006010200"))
    mp4a = atom(b"mp4a", bytes(6) + struct.pack(">H", 1) + bytes(8) + struct.pack(">HHHHI", 2, 16, 0, 0, 44100 << 16) + esds)
    stsd = full_atom(b"stsd", struct.pack(">I", 1) + mp4a)
    empty_table = struct.pack(">I", 0)
    stbl = atom(b"stbl", stsd + full_atom(b"stts", empty_table) + full_atom(b"stsc", empty_table)
                + full_atom(b"stsz", struct.pack(">II", 0, 0)) + full_atom(b"stco", empty_table))
    minf = atom(b"minf", full_atom(b"smhd", bytes(4)) + stbl)
    trak = atom(b"trak", tkhd + atom(b"mdia", mdhd + hdlr + minf))
    with open(path, "wb") as out:
        out.write(atom(b"ftyp", b"M4A \0\0\0\0M4A mp42isom") + atom(b"moov", mvhd + trak) + atom(b"mdat", b""))


def write_flac(path):
    # STREAMINFO only: 44.1 kHz, mono, 16 bits, no samples.
    info = struct.pack(">HH", 4096, 4096) + bytes(6) + (44100 << 44 | 0 << 41 | 15 << 36).to_bytes(8, "big") + bytes(16)
    with open(path, "wb") as out:
        out.write(b"fLaC" + bytes([0x80]) + len(info).to_bytes(3, "big") + info)


def write_ogg(path):
    ident = b"\x01vorbis" + struct.pack("<IBIiiiBB", 0, 1, 44100, 0, 128000, 0, 0xB8, 1)
    comment = b"\x03vorbis" + struct.pack("<I", 4) + b"test" + struct.pack("<I", 0) + b"\x01"
    setup = b"\x05vorbis" + bytes(32)
    first = OggPage()
    first.packets, first.first, first.serial, first.sequence = [ident], True, 1, 0
    second = OggPage()
    second.packets, second.serial, second.sequence = [comment, setup], 1, 1
    with open(path, "wb") as out:
        out.write(first.write() + second.write())


def flac_picture(data, kind):
    picture = flac.Picture()
    picture.type, picture.mime, picture.data = kind, "image/png" if data.startswith(b"\x89PNG") else "image/jpeg", data
    return picture


def tag(kind, path, art):
    decoy = bytes(art[:0]) + b"not the cover"
    if kind == "mp3":
        tags = id3.ID3()
        tags.add(id3.TIT2(encoding=3, text="Tune"))
        if art:
            tags.add(id3.APIC(encoding=3, mime="image/png", type=4, desc="back", data=decoy))
            tags.add(id3.APIC(encoding=3, mime="image/png", type=3, desc="front", data=art))
        tags.save(path)
    elif kind == "m4a":
        tags = mp4.MP4(path)
        tags["\xa9nam"] = ["Tune"]
        if art:
            tags["covr"] = [mp4.MP4Cover(art, mp4.MP4Cover.FORMAT_PNG)]
        tags.save()
    elif kind == "flac":
        tags = flac.FLAC(path)
        tags["title"] = "Tune"
        if art:
            tags.add_picture(flac_picture(decoy, 4))
            tags.add_picture(flac_picture(art, 3))
        tags.save()
    elif kind == "ogg":
        import base64
        tags = oggvorbis.OggVorbis(path)
        tags["title"] = "Tune"
        if art:
            tags["metadata_block_picture"] = [base64.b64encode(flac_picture(p, t).write()).decode()
                                              for p, t in ((decoy, 4), (art, 3))]
        tags.save()


def main():
    kind, path = sys.argv[1], sys.argv[2]
    art = open(sys.argv[3], "rb").read() if len(sys.argv) > 3 else b""
    {"mp3": write_mp3, "m4a": write_m4a, "flac": write_flac, "ogg": write_ogg}[kind](path)
    tag(kind, path, art)


if __name__ == "__main__":
    main()
