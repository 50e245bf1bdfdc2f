#pragma once

#include "core/book/BookMetadata.h"
#include "export/engine/FilePlacement.h"

#include <QByteArray>
#include <QString>

namespace folivox {

// Tags an MP3 output file through TagLib: an ID3v2.4 tag (other tags are
// stripped), the cover as an APIC front-cover frame, and the track number.
// MP3 output carries no chapters.
//
// | BookMetadata      | frame                        |
// |-------------------|------------------------------|
// | title             | TIT2                         |
// | album (see MetadataItemBuilder::albumTitle) | TALB |
// | author            | TPE1, TPE2                   |
// | narrator          | TCOM, TXXX NARRATOR          |
// | seriesName        | TIT1, TXXX SERIES            |
// | seriesIndex       | TXXX SERIES-PART             |
// | year              | TDRC                         |
// | genre             | TCON                         |
// | comment           | COMM                         |
// | description       | TXXX DESCRIPTION             |
// | summary           | TXXX SUMMARY                 |
// | copyright         | TCOP                         |
// | publisher         | TPUB                         |
// | language          | TLAN (ISO 639-2 when it converts) |
// | encodedBy         | TENC                         |
// | encodedWith       | TSSE                         |
// | sortTitle         | TSOT                         |
// | sortAuthor        | TSOP                         |
// | sortAlbum         | TSOA                         |
// | sortAlbumArtist   | TSO2                         |
// | track / count     | TRCK "n/N"                   |
// | cover             | APIC (front cover)           |
//
// The file is tagged as a copy in the work folder and put back in one step,
// so a failure leaves it as it was.
class Mp3TagWriter {
public:
    // Throws ExportError::underlying naming the file when it cannot be
    // read or written.
    static void write(const QString& path, const BookMetadata& metadata, const QByteArray& cover,
                      const FilePlacement& placement = {});
};

} // namespace folivox
