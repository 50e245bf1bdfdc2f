#!/usr/bin/env bash
# Makes the input file of every case in this folder from two small MP3s by
# ffmpeg (4 s of tone, mono, 22.05 kHz, with an ID3v2 tag): one at a constant
# 32 kb/s with its "Info" frame, one VBR with a "Xing" frame. Damage is then
# laid in at known frames, so that each case's expected holes can be worked
# out by hand: at 32 kb/s and 22.05 kHz (MPEG 2, 576 samples a frame) a
# frame is 104 or 105 bytes and lasts 576/22050 s.
#
#   tests/data/mp3/make.sh          # rewrites every case's book.mp3
#
# The bytes are committed, so the expected results do not depend on the
# installed ffmpeg; run this only to change or add a case, then review the
# expected.json of every case it touched.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

tone=(-f lavfi -i sine=frequency=440:sample_rate=22050:duration=4 -ac 1 -c:a libmp3lame)
tags=(-id3v2_version 3 -metadata "title=Corpus Tone" -metadata "artist=Folivox Tests" -fflags +bitexact -flags:a +bitexact)
ffmpeg -hide_banner -loglevel error -y "${tone[@]}" -b:a 32k "${tags[@]}" "$work/cbr.mp3"
ffmpeg -hide_banner -loglevel error -y "${tone[@]}" -q:a 9 "${tags[@]}" "$work/vbr.mp3"
# Twice as long, for a repaired copy above the repair's 16 KiB minimum.
ffmpeg -hide_banner -loglevel error -y "${tone[@]/duration=4/duration=8}" -b:a 32k "${tags[@]}" "$work/long.mp3"

python3 - "$work" "$here" <<'PY'
import os
import struct
import sys

work, here = sys.argv[1], sys.argv[2]


def load(name):
    with open(os.path.join(work, name), "rb") as f:
        return f.read()


def id3v2_end(data):
    if not data.startswith(b"ID3"):
        return 0
    size = (data[6] << 21) | (data[7] << 14) | (data[8] << 7) | data[9]
    return 10 + size + (10 if data[5] & 0x10 else 0)


def frames(data):
    """(offset, length) of every frame after the ID3v2 tag, the Info/Xing frame first."""
    v1 = [0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320]
    v2 = [0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160]
    rates = {3: (44100, 48000, 32000), 2: (22050, 24000, 16000), 0: (11025, 12000, 8000)}
    pos, out = id3v2_end(data), []
    while pos + 4 <= len(data) and data[pos] == 0xFF and data[pos + 1] & 0xE0 == 0xE0:
        version = (data[pos + 1] >> 3) & 3
        rate = rates[version][(data[pos + 2] >> 2) & 3]
        kbps = (v1 if version == 3 else v2)[data[pos + 2] >> 4]
        length = (144 if version == 3 else 72) * kbps * 1000 // rate + ((data[pos + 2] >> 1) & 1)
        if pos + length > len(data):
            break
        out.append((pos, length))
        pos += length
    return out


def garbage(n, seed):
    """Bytes that hold no 0xFF and none of the letters a tag starts with."""
    out, x = bytearray(), seed * 2654435761 % 2**32 + 1
    while len(out) < n:
        x = (x * 1664525 + 1013904223) % 2**32
        b = (x >> 24) % 0xFF
        out.append(ord("x") if b in b"ITA" else b)
    return bytes(out)


def ape_tag(items, header=True):
    body = b"".join(struct.pack("<II", len(v), 0) + k + b"\0" + v for k, v in items)
    size = len(body) + 32
    footer = b"APETAGEX" + struct.pack("<IIII", 2000, size, len(items), 0x80000000 if header else 0) + bytes(8)
    head = b"APETAGEX" + struct.pack("<IIII", 2000, size, len(items), 0xA0000000) + bytes(8)
    return (head if header else b"") + body + footer


def id3v1(title, artist):
    pad = lambda s, n: s.encode("latin-1")[:n].ljust(n, b"\0")
    return b"TAG" + pad(title, 30) + pad(artist, 30) + pad("Corpus", 30) + b"2024" + pad("", 30) + bytes([12])


def write(case, data, note=""):
    folder = os.path.join(here, case)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "book.mp3"), "wb") as f:
        f.write(data)
    print("%-32s %6d bytes %s" % (case, len(data), note))


cbr = load("cbr.mp3")
f = frames(cbr)
print("cbr: %d bytes, ID3v2 %d bytes, %d frames (Info frame included), audio ends at %d"
      % (len(cbr), id3v2_end(cbr), len(f), f[-1][0] + f[-1][1]))
assert f[-1][0] + f[-1][1] == len(cbr)

write("clean-cbr", cbr)

# Frames 40-42 and 100-139 overwritten with bytes that are no audio: a hole
# of 3 frames and one of 40 (more than a second).
data = bytearray(cbr)
for first, count, seed in ((40, 3, 1), (100, 40, 2)):
    start, end = f[first][0], f[first + count - 1][0] + f[first + count - 1][1]
    data[start:end] = garbage(end - start, seed)
    print("  garbage over frames %d-%d: bytes %d-%d (%d bytes)" % (first, first + count - 1, start, end, end - start))
write("garbage-over-frames", bytes(data))

# 2000 bytes of garbage put in between frames 60 and 61: no audio is lost,
# but the scan can't tell and prices the hole at the frames it could hold.
at = f[61][0]
write("garbage-between-frames", cbr[:at] + garbage(2000, 3) + cbr[at:], "(at %d)" % at)

# The same between frames 60 and 61, with frame headers scattered in it
# that lead nowhere: the scan must lock on none of them.
junk = bytearray(garbage(2000, 4))
for p in range(50, 1950, 170):
    junk[p:p + 4] = cbr[f[10][0]:f[10][0] + 4]
write("false-sync-between-frames", cbr[:at] + bytes(junk) + cbr[at:], "(at %d)" % at)

# A run of zeros over 4096 bytes from a 4 KiB boundary (a block a download
# never filled), starting and ending inside frames.
data = bytearray(cbr)
data[8192:12288] = bytes(4096)
write("zero-block-mid-frame", bytes(data))

# ID3v2 ahead, an APEv2 tag (with header and footer) and an ID3v1 tag behind.
ape = ape_tag([(b"Title", b"Corpus Tone (APE)"), (b"Artist", b"Folivox Tests")])
write("id3v2-apev2-id3v1", cbr + ape + id3v1("Corpus Tone (v1)", "Folivox Tests"), "(APE %d bytes)" % len(ape))

# An APEv2 tag with a footer only, found from its end, then ID3v1.
ape = ape_tag([(b"Title", b"Corpus Tone (APE)")], header=False)
write("apev2-footer-only-id3v1", cbr + ape + id3v1("Corpus Tone (v1)", "Folivox Tests"), "(APE %d bytes)" % len(ape))

# Junk between the ID3v2 tag and the first frame: no frame before it, so no hole.
end = id3v2_end(cbr)
write("junk-after-id3v2", cbr[:end] + garbage(300, 5) + cbr[end:])

# Cut 50 bytes into frame 120 (the Info frame counted as frame 0).
cut = f[120][0] + 50
write("cut-mid-frame", cbr[:cut], "(cut at %d)" % cut)

# The zero block again, in a file long enough to be repaired.
long = load("long.mp3")
data = bytearray(long)
data[16384:20480] = bytes(4096)
write("zero-block-repaired", bytes(data))

# Nothing but the ID3v2 tag.
write("id3v2-only", cbr[:id3v2_end(cbr)])

# A VBR file whose Xing frame promises all 4 s, cut after 60 % of its bytes.
vbr = load("vbr.mp3")
v = frames(vbr)
cut = v[len(v) * 6 // 10][0]
write("vbr-cut-short", vbr[:cut], "(%d frames of %d, cut at %d)" % (len(v) * 6 // 10, len(v), cut))
PY
