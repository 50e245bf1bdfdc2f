#!/usr/bin/env bash
# Writes the chapter file of every case in this folder, byte for byte (byte
# order marks, CR LF line ends and Windows-1252 bytes are spelt out here), and
# book.m4a: one minute of silence that the cases check their chapters against
# (`"use": ["../book.m4a"]` in expected.json).
#
#   tests/data/chapters/make.sh
#
# The files are committed; run this only to change or add a case, then review
# the expected.json of every case it touched.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
cd "$here"

BOM=$'\xEF\xBB\xBF'
# Each argument one line, ended by CR LF.
crlf() { printf '%s\r\n' "$@"; }
# Each argument one line, ended by LF.
lf() { printf '%s\n' "$@"; }
into() { mkdir -p "$1"; cat >"$1/$2"; }

ffmpeg -hide_banner -loglevel error -y -f lavfi -i anullsrc=r=8000:cl=mono -t 60 \
  -c:a aac -b:a 8k -fflags +bitexact -flags:a +bitexact -map_metadata -1 book.m4a

# A cue sheet from Windows: byte order mark, CR LF, a second FILE line.
{ printf '%s' "$BOM"; crlf 'REM GENRE Audiobook' 'PERFORMER "Folivox Tests"' 'TITLE "Corpus Book"' \
  'FILE "Corpus Book.mp3" MP3' \
  '  TRACK 01 AUDIO' '    TITLE "Opening"' '    INDEX 01 00:00:00' \
  '  TRACK 02 AUDIO' '    TITLE "Middle"' '    INDEX 01 00:20:00' \
  'FILE "Corpus Book part 2.mp3" MP3' \
  '  TRACK 03 AUDIO' '    TITLE "Closing"' '    INDEX 01 00:40:00'; } | into cue-bom-crlf book.cue

# Tracks out of time order, two at the same time, an empty title, one past
# the end of the minute of audio, one without INDEX 01.
lf 'FILE "book.m4a" WAVE' \
  '  TRACK 01 AUDIO' '    TITLE "Second"' '    INDEX 01 00:30:00' \
  '  TRACK 02 AUDIO' '    TITLE "First"' '    INDEX 01 00:10:00' \
  '  TRACK 03 AUDIO' '    TITLE "Also at ten"' '    INDEX 01 00:10:00' \
  '  TRACK 04 AUDIO' '    TITLE ""' '    INDEX 01 00:50:00' \
  '  TRACK 05 AUDIO' '    TITLE "After the end"' '    INDEX 01 01:30:00' \
  '  TRACK 06 AUDIO' '    TITLE "No index"' '    INDEX 00 00:55:00' \
  | into cue-out-of-order book.cue

# Windows-1252 titles (0xE9 e acute, 0x92 right single quote) and a last
# field of 80, which can only be hundredths of a second.
lf 'FILE "book.m4a" MP3' \
  '  TRACK 01 AUDIO' $'    TITLE "Pr\xE9face"' '    INDEX 01 00:00:00' \
  '  TRACK 02 AUDIO' $'    TITLE "The Author\x92s Note"' '    INDEX 01 00:12:80' \
  '  TRACK 03 AUDIO' '    TITLE "Chapter One"' '    INDEX 01 00:30:50' \
  | into cue-windows-1252-hundredths book.cue

# FFmetadata with a byte order mark and CR LF, chapters out of order, an odd
# time base, one without START, an escaped "=" in a title (kept as written)
# and an END past the end of the audio.
{ printf '%s' "$BOM"; crlf ';FFMETADATA1' 'title=Corpus Book' \
  '[CHAPTER]' 'TIMEBASE=1/44100' 'START=1323000' 'END=2646000' 'title=Part 2 \= the middle' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'START=0' 'END=30000' 'title=Part 1' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'END=50000' 'title=No start' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'START=60000' 'END=90000' 'title=Part 3'; } | into ffmetadata-bom-crlf-out-of-order book.ffmetadata

# FFmetadata without its header line: an empty title, two chapters at the
# same start, an END before its START.
lf '[CHAPTER]' 'TIMEBASE=1/1000' 'START=0' 'END=20000' 'title=' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'START=20000' 'END=40000' 'title=Twenty' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'START=20000' 'END=45000' 'title=Also twenty' \
  '[CHAPTER]' 'TIMEBASE=1/1000' 'START=45000' 'END=44000' 'title=Ends before it starts' \
  | into ffmetadata-no-header-duplicates chapters.txt

# Matroska XML with a byte order mark: an atom nested in another, a hidden
# one, an entity in a title, an atom without a title, a time with more than
# nine digits of fraction, and one start past the end.
{ printf '%s' "$BOM"; lf '<?xml version="1.0" encoding="UTF-8"?>' '<!DOCTYPE Chapters SYSTEM "matroskachapters.dtd">' \
  '<Chapters>' '  <EditionEntry>' \
  '    <ChapterAtom>' '      <ChapterTimeStart>00:00:00.000000000</ChapterTimeStart>' \
  '      <ChapterDisplay><ChapterString>Rock &amp; Roll</ChapterString><ChapterLanguage>eng</ChapterLanguage></ChapterDisplay>' \
  '      <ChapterAtom>' '        <ChapterTimeStart>00:00:05.000000000</ChapterTimeStart>' \
  '        <ChapterDisplay><ChapterString>Nested</ChapterString></ChapterDisplay>' '      </ChapterAtom>' \
  '    </ChapterAtom>' \
  '    <ChapterAtom>' '      <ChapterTimeStart>00:00:20.1234567891</ChapterTimeStart>' '      <ChapterFlagHidden>1</ChapterFlagHidden>' \
  '      <ChapterDisplay><ChapterString>Hidden</ChapterString></ChapterDisplay>' '    </ChapterAtom>' \
  '    <ChapterAtom>' '      <ChapterTimeStart>00:00:40.000000000</ChapterTimeStart>' '    </ChapterAtom>' \
  '    <ChapterAtom>' '      <ChapterTimeStart>00:01:10.000000000</ChapterTimeStart>' \
  '      <ChapterTimeEnd>00:01:20.000000000</ChapterTimeEnd>' \
  '      <ChapterDisplay><ChapterString>After the end</ChapterString></ChapterDisplay>' '    </ChapterAtom>' \
  '  </EditionEntry>' '</Chapters>'; } | into mkvxml-bom-nested book.xml

# The same kind of file saved as UTF-16 (as some Windows editors do).
printf '\xFF\xFE' | into mkvxml-utf16 book.xml
lf '<?xml version="1.0" encoding="UTF-16"?>' '<Chapters>' '  <EditionEntry>' \
  '    <ChapterAtom><ChapterTimeStart>00:00:00.000</ChapterTimeStart><ChapterDisplay><ChapterString>One</ChapterString></ChapterDisplay></ChapterAtom>' \
  '    <ChapterAtom><ChapterTimeStart>00:00:30.000</ChapterTimeStart><ChapterDisplay><ChapterString>Two</ChapterString></ChapterDisplay></ChapterAtom>' \
  '  </EditionEntry>' '</Chapters>' | iconv -f UTF-8 -t UTF-16LE >>mkvxml-utf16/book.xml

# OGM-style simple chapters with CR LF: numbers out of order, a number given
# twice (the later wins), a chapter without its NAME line, one past the end.
crlf 'CHAPTER03=00:00:40.000' 'CHAPTER03NAME=Third' \
  'CHAPTER01=00:00:00.000' 'CHAPTER01NAME=First' \
  'CHAPTER02=00:00:15.000' 'CHAPTER02=00:00:20.000' 'CHAPTER02NAME=Second' \
  'CHAPTER04=00:00:50.000' \
  'CHAPTER05=00:02:00.000' 'CHAPTER05NAME=After the end' | into mkvsimple-crlf-out-of-order chapters.txt

# mp4chaps text with a byte order mark and CR LF: a line without a title,
# two lines at the same time, the short m:ss.f form, a line that is no
# chapter, and one past the end.
{ printf '%s' "$BOM"; crlf '00:00:00.000 Intro' '00:00:15.000' '00:00:15.000 Same time' '0:30.5 Short form' \
  'Read by the author' '00:01:30.000 After the end'; } | into mp4chaps-bom-crlf book.chapters.txt

# Audacity labels with CR LF: regions and a point label, an empty label, a
# decimal comma, out of order, one region running past the end.
crlf $'0.000000\t10.000000\tOpening' $'25.000000\t25.000000\tPoint label' $'10.000000\t25.000000\t' \
  $'12,5\t20\tDecimal comma' $'40.000000\t75.000000\tRuns past the end' | into audacity-crlf-regions labels.txt

# Plain text with bracketed times (so the plain-text reader takes it), a
# byte order mark and CR LF: the strict rules hold and it passes.
{ printf '%s' "$BOM"; crlf '# Contents' '[00:00] Opening' '[00:12] Part one' '[00:25] Part two' '[00:38] Part three' \
  '[00:50] Closing'; } | into simpletext-bom-crlf contents.txt

# The same kind of file with a time repeated: the strict rules refuse it whole.
lf '[00:00] Opening' '[00:12] Part one' '[00:12] Part one again' '[00:25] Part two' '[00:38] Part three' \
  | into simpletext-repeated-time contents.txt

# A text file that is no chapter file at all.
lf 'Notes on the recording' 'Recorded in one take.' | into not-a-chapter-file notes.txt

# The list `mp4chaps -i` imports into book.m4a, as a Windows editor saves it:
# out of order, a decimal comma, two chapters at the same time, one without
# a title, a comment, one past the end.
{ printf '%s' "$BOM"; crlf '00:00:40.000 Third' '00:00:00.000 First' '0:00:20,5 Second' '00:00:20.500 Same time' \
  '00:00:50.000' '# comment' '00:01:30.000 After the end'; } | into mp4chaps-import-crlf-out-of-order book.chapters.txt

# An empty cue sheet.
: | into cue-empty book.cue

ls -l "$here"/*/* | awk '{print $5, $9}'
