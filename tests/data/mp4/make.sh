#!/usr/bin/env bash
# Makes the input file of every case in this folder: one small book from
# ffmpeg (3 s of tone, mono AAC, three chapters, a title and an artist), in
# both layouts ffmpeg writes (moov behind the media, and moov ahead of it),
# then rebuilt box by box into each damaged or unusual shape.
#
#   tests/data/mp4/make.sh          # rewrites every case's book.m4b
#
# The bytes are committed, so the expected results do not depend on the
# ffmpeg that happens to be installed; run this only to change or add a case
# and review the expected.json of every case it touched.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cat >"$work/chapters.txt" <<'META'
;FFMETADATA1
title=Corpus Book
artist=Folivox Tests
[CHAPTER]
TIMEBASE=1/1000
START=0
END=1000
title=Opening
[CHAPTER]
TIMEBASE=1/1000
START=1000
END=2000
title=Middle
[CHAPTER]
TIMEBASE=1/1000
START=2000
END=3000
title=Closing
META

for layout in tail front; do
  flags=()
  [ "$layout" = front ] && flags=(-movflags +faststart)
  ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i sine=frequency=440:sample_rate=22050:duration=3 -i "$work/chapters.txt" \
    -map 0:a -map_metadata 1 -map_chapters 1 -ac 1 -c:a aac -b:a 24k \
    -fflags +bitexact -flags:a +bitexact "${flags[@]}" -f ipod "$work/$layout.m4b"
done

python3 - "$work" "$here" <<'PY'
import os
import struct
import sys

work, here = sys.argv[1], sys.argv[2]

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"stbl", b"udta", b"edts", b"dinf"}


def read_boxes(data, start=0, end=None):
    """[type, payload, large] for each box in data[start:end]."""
    end = len(data) if end is None else end
    boxes = []
    while start + 8 <= end:
        size, kind = struct.unpack(">I4s", data[start:start + 8])
        header = 8
        if size == 1:
            size = struct.unpack(">Q", data[start + 8:start + 16])[0]
            header = 16
        elif size == 0:
            size = end - start
        boxes.append([kind, data[start + header:start + size], header == 16])
        start += size
    return boxes


def tree(box):
    kind, payload, large = box
    if kind in CONTAINERS:
        return [kind, [tree(b) for b in read_boxes(payload)], large]
    return box


def flat(node):
    kind, body, large = node
    if isinstance(body, list):
        body = b"".join(flat(child) for child in body)
    if large:
        return struct.pack(">I4sQ", 1, kind, len(body) + 16) + body
    return struct.pack(">I4s", len(body) + 8, kind) + body


def walk(node):
    yield node
    if isinstance(node[1], list):
        for child in node[1]:
            yield from walk(child)


def offsets(node):
    """The chunk offsets of every track: (box, kind, entries)."""
    for n in walk(node):
        if n[0] in (b"stco", b"co64"):
            count = struct.unpack(">I", n[1][4:8])[0]
            fmt = ">%d%s" % (count, "I" if n[0] == b"stco" else "Q")
            yield n, list(struct.unpack(fmt, n[1][8:]))


def set_offsets(box, entries, wide):
    box[0] = b"co64" if wide else b"stco"
    fmt = ">%d%s" % (len(entries), "Q" if wide else "I")
    box[1] = box[1][:4] + struct.pack(">I", len(entries)) + struct.pack(fmt, *entries)


def shift(moov, delta, wide=None):
    for box, entries in list(offsets(moov)):
        set_offsets(box, [e + delta for e in entries], box[0] == b"co64" if wide is None else wide)


def load(layout):
    with open(os.path.join(work, layout + ".m4b"), "rb") as f:
        data = f.read()
    return [tree(b) for b in read_boxes(data)]


def kinds(boxes):
    return [b[0] for b in boxes]


def write(case, data, note=""):
    folder = os.path.join(here, case)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "book.m4b"), "wb") as f:
        f.write(data)
    print("%-36s %6d bytes %s" % (case, len(data), note))


def joined(boxes):
    return b"".join(flat(b) for b in boxes)


# Both layouts as ffmpeg writes them.
tail = load("tail")   # ftyp free mdat moov
front = load("front")  # ftyp moov free mdat
assert kinds(tail) == [b"ftyp", b"free", b"mdat", b"moov"], kinds(tail)
assert kinds(front) == [b"ftyp", b"moov", b"free", b"mdat"], kinds(front)
FOUR_GIB = 1 << 32

# The media box with a 16-byte header where ffmpeg left an 8-byte free box
# for it: the audio does not move.
ftyp, free, mdat, moov = load("tail")
mdat[2] = True
write("largesize-mdat", joined([ftyp, mdat, moov]))

# 64-bit chunk offsets in every track, the moov behind the media.
ftyp, free, mdat, moov = load("tail")
shift(moov, 0, wide=True)
write("co64-chunk-offsets", joined([ftyp, free, mdat, moov]))

# The moov ahead of the media, with co64 offsets and a 16-byte mdat header:
# the moov grows by four bytes per offset, so every offset moves by that much.
ftyp, moov, free, mdat = load("front")
before = len(flat(moov))
shift(moov, 0, wide=True)
shift(moov, len(flat(moov)) - before)
mdat[2] = True
write("front-moov-co64-largesize-mdat", joined([ftyp, moov, mdat]))

# The last box's size written as 0: "runs to the end of the file".
ftyp, moov, free, mdat = load("front")
data = bytearray(joined([ftyp, moov, free, mdat]))
at = len(joined([ftyp, moov, free]))
data[at:at + 4] = b"\0\0\0\0"
write("mdat-size-zero", bytes(data))

# An empty media box (8 bytes, no payload) where the free box was, ahead of
# the real one.
ftyp, free, mdat, moov = load("tail")
write("empty-mdat-ahead", joined([ftyp, [b"mdat", b"", False], mdat, moov]))

# The media box is there but holds nothing: every sample lies past the end.
ftyp, moov, free, mdat = load("front")
write("zero-length-mdat", joined([ftyp, moov, free, [b"mdat", b"", False]]))

# Cut short, moov behind the media: inside mdat, inside moov, inside the
# moov's own header.
ftyp, free, mdat, moov = load("tail")
whole = joined([ftyp, free, mdat, moov])
moov_at = len(joined([ftyp, free, mdat]))
write("cut-mid-mdat", whole[:moov_at // 2])
write("cut-mid-moov", whole[:moov_at + len(flat(moov)) // 2])
write("cut-in-moov-header", whole[:moov_at + 4])

# Cut short, moov ahead of the media: the index lists samples that are gone.
ftyp, moov, free, mdat = load("front")
whole = joined([ftyp, moov, free, mdat])
mdat_at = len(joined([ftyp, moov, free]))
write("front-moov-cut-mid-mdat", whole[:mdat_at + len(flat(mdat)) // 2])

# A media box whose size claims twice the bytes the file holds, moov behind.
ftyp, free, mdat, moov = load("tail")
data = bytearray(joined([ftyp, free, mdat, moov]))
at = len(joined([ftyp, free]))
data[at:at + 4] = struct.pack(">I", 2 * len(data))
write("mdat-size-past-end", bytes(data))

# Bytes after the last box that are no box: a download tool's trailer.
ftyp, free, mdat, moov = load("tail")
write("junk-after-moov", joined([ftyp, free, mdat, moov]) + b"Downloaded with SomeTool 1.0\n")

# A free box of more than 4 GiB between the media and the moov, so that the
# moov starts past 4 GiB. The committed file holds the free box's header
# only: expected.json has the test insert the 4 GiB of zeros, written as a
# hole in a sparse file.
HOLE = FOUR_GIB + 4096
ftyp, free, mdat, moov = load("tail")
head = joined([ftyp, free, mdat])
big_free = struct.pack(">I4sQ", 1, b"free", 16 + HOLE)
write("moov-after-huge-free", head + big_free + flat(moov),
      "(insert %d zero bytes at %d)" % (HOLE, len(head) + 16))

# The moov first, then the same huge free box, then the media: chunk offsets
# past 4 GiB that only co64 can hold.
ftyp, moov, free, mdat = load("front")
before = len(flat(moov))
shift(moov, 0, wide=True)
grown = len(flat(moov)) - before
# The media moves by the moov's growth, by the free box (16-byte header plus
# the hole) replacing the 8-byte one, and by the mdat's longer header.
shift(moov, grown + (16 + HOLE - 8) + 8)
mdat[2] = True
head = joined([ftyp, moov])
write("front-moov-media-past-4gib", head + struct.pack(">I4sQ", 1, b"free", 16 + HOLE) + flat(mdat),
      "(insert %d zero bytes at %d)" % (HOLE, len(head) + 16))
PY
