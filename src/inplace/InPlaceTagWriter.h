#pragma once

#include "core/book/BookMetadata.h"
#include "export/engine/FilePlacement.h"
#include "inplace/InPlaceSourceFormat.h"

#include <QByteArray>
#include <QString>

#include <optional>

namespace folivox {

// Rewrites the tags of an MP3, FLAC, Ogg Vorbis or AIFF file through TagLib,
// touching only what the update gives: a field without a value keeps the
// tag the file has. MP3 and AIFF get an ID3v2.4 tag, FLAC and Ogg Vorbis
// Vorbis comments; the cover is an APIC frame or a FLAC picture block.
//
// | BookMetadata   | ID3v2          | Vorbis comment |
// |----------------|----------------|----------------|
// | title / file title | TIT2       | TITLE          |
// | album (the book title) | TALB   | ALBUM          |
// | author         | TPE1, TPE2     | ARTIST, ALBUMARTIST |
// | narrator       | TCOM, TXXX NARRATOR | COMPOSER, NARRATOR |
// | seriesName     | TXXX SERIES    | SERIES         |
// | seriesIndex    | TXXX SERIES-PART | SERIES-PART  |
// | year           | TDRC           | DATE           |
// | genre          | TCON           | GENRE          |
// | comment        | COMM           | COMMENT        |
// | description    | TXXX DESCRIPTION | DESCRIPTION  |
// | summary        | TXXX SUMMARY   | SUMMARY        |
// | copyright      | TCOP           | COPYRIGHT      |
// | publisher      | TPUB           | LABEL          |
// | language       | TLAN           | LANGUAGE       |
// | encodedBy      | TENC           | ENCODEDBY      |
// | sortTitle / sortAuthor | TSOT / TSOP | TITLESORT / ARTISTSORT |
// | track / count  | TRCK "n/N"     | TRACKNUMBER "n/N" |
//
// The file is written where it lies: callers hand it a working copy.
class InPlaceTagWriter {
public:
    struct Change {
        BookMetadata metadata; // fields with a value are written
        bool titleGiven = false; // metadata.title holds a new title
        FilePlacement placement; // a per-chapter file's title and number
        std::optional<QByteArray> cover;
        bool removeCover = false;
    };

    // Throws GenericError when TagLib can't open or save the file.
    static void write(const QString& path, InPlaceSourceFormat format, const Change& change);
};

} // namespace folivox
