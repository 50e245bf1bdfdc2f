#pragma once

#include "container/mp4/MP4LanguageAtomWriter.h"
#include "core/book/BookMetadata.h"
#include "export/engine/FilePlacement.h"
#include "export/metadata/MP4TagsService.h"
#include "export/metadata/MetadataItem.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// Turns a book's tags into iTunes items, and items into mp4tags options.
//
// Book field -> atom (-> mp4tags option). Empty and blank values are left out.
//
// | BookMetadata          | atom                 | option            |
// |-----------------------|----------------------|-------------------|
// | title                 | ©nam                 | -song             |
// | title (see album)     | ©alb                 | -album            |
// | author                | ©ART and aART        | -artist, -albumartist |
// | narrator              | ©wrt, ---- NARRATOR  | -writer, (freeform) |
// | seriesName            | ©grp, ---- SERIES    | -grouping, (freeform) |
// | seriesIndex           | ---- SERIES-PART     | (freeform)        |
// | year                  | ©day                 | -year             |
// | genre                 | ©gen                 | -genre            |
// | comment               | ©cmt                 | -comment          |
// | description           | desc                 | -description      |
// | summary               | ldes                 | -longdesc         |
// | copyright             | cprt                 | -copyright        |
// | publisher             | ---- PUBLISHER       | (freeform)        |
// | encodedBy             | ©enc                 | -encodedby        |
// | encodedWith           | ©too                 | -tool             |
// | sortTitle             | sonm                 | -sortname         |
// | sortAuthor            | soar                 | -sortartist       |
// | sortAlbum             | soal                 | -sortalbum        |
// | sortAlbumArtist       | soaa                 | -sortalbumartist  |
// | (media type)          | stik                 | -type audiobook   |
// | track number / count  | trkn                 | -track, -tracks   |
//
// The album is the title; with albumUsesSeriesPrefix and a series name it is
// "<series> <index>: <title>" ("Discworld 3: Equal Rites"), or
// "<series>: <title>" without an index. The language is not an item: it goes
// into `©lan`, the freeform "LANGUAGE" and the track headers through
// MP4LanguageAtomWriter. Freeform items are not mp4tags options either; they
// are written by MP4LanguageAtomWriter after the tools.
//
// Atom -> option, for every atom mp4tags carries:
//   ©nam -song, ©ART -artist, ©alb -album, aART -albumartist, ©day -year,
//   ©gen -genre, ©cmt -comment, ©wrt -writer, ©lyr -lyrics, ©grp -grouping,
//   ©enc -encodedby, ©too -tool, desc -description, ldes -longdesc,
//   cprt -copyright, stik -type, trkn -track/-tracks, disk -disk/-disks,
//   sonm -sortname, soar -sortartist, soal -sortalbum, soaa -sortalbumartist.
class MetadataItemBuilder {
public:
    // The items of a book's file; `placement` gives a per-chapter file or a
    // split part its own title and track or disc number.
    static QList<MetadataItem> items(const BookMetadata& metadata, const FilePlacement& placement = {},
                                     MP4TagsService::MediaType mediaType = MP4TagsService::MediaType::audiobook);

    // The album text for a book (see above).
    static QString albumTitle(const BookMetadata& metadata);

    // How players sort the album and the album artist (`soal`, `soaa`;
    // TSOA, TSO2). Without one of its own, the album sorts as the title does
    // when the album is the title, and the album artist (the author) as the
    // author does.
    static std::optional<QString> sortAlbum(const BookMetadata& metadata);
    static std::optional<QString> sortAlbumArtist(const BookMetadata& metadata);

    // The options that carry an atom (two for trkn and disk); empty for an
    // atom mp4tags does not carry.
    static QStringList optionsFor(const QString& atom);

    // The mp4tags arguments for the items that it carries, in item order.
    static QStringList mp4tagsArguments(const QList<MetadataItem>& items);

    // The freeform items, for MP4LanguageAtomWriter.
    static QList<MP4LanguageAtomWriter::FreeformTag> freeformTags(const QList<MetadataItem>& items);

    // The FFmpeg metadata key of an atom for the ipod muxer ("©nam" ->
    // "title"), empty when it has none.
    static QString ffmpegKey(const QString& atom);
};

} // namespace folivox
