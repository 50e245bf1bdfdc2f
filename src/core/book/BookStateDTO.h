#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/Bookmark.h"
#include "core/book/BuildRecord.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>
#include <vector>

namespace folivox {

// The whole working state of one book as one record: where it came from, its
// tracks and chapters, its tags and export settings, the revision it is at
// and its last build. A library stores one per book (inside book.json), and
// the open book is saved and restored through it.
//
// JSON keys (docs/LIBRARY.md describes each): id, revision, createdAt,
// editedAt, sources, tracks, bookmarks, metadata, settings (all required),
// coverRef, artworkRefs, lastBuild (optional, left out when empty).
//
// A chapter's tracks are nearly always copies of the book's own tracks, and
// a chapter of a long M4B holds that whole file with every mark in it; so a
// bookmark whose tracks are all equal to book tracks is written with
// "trackIDs" (the ids of those tracks) in place of "tracks". Any other
// bookmark is written in full. Decoding gives back exactly the same values.
struct BookStateDTO {
    QUuid id = QUuid::createUuid();
    int revision = 1;
    QDateTime createdAt;
    QDateTime editedAt;
    QList<QUrl> sources;              // what the book was added from: folders or files
    std::vector<Track> tracks;        // the source files, in book order
    std::vector<Bookmark> bookmarks;  // the chapters as the user edits them
    BookMetadata metadata;
    ExportSettings settings;
    // The key of the cover among the stored book's assets, when the cover's
    // bytes are kept as a file beside the record rather than inside it.
    std::optional<QString> coverRef;
    // The same for chapter images: bookmark id -> asset key.
    QMap<QUuid, QString> artworkRefs;
    std::optional<BuildRecord> lastBuild;

    // A new book: fresh id, revision 1, created and edited now.
    static BookStateDTO makeNew();

    // A fingerprint of what the user edits (tracks, chapters, tags, cover,
    // settings), leaving out id, revision, dates, sources and the last build:
    // equal states give equal values, so an unchanged save need not raise
    // the revision.
    quint64 contentFingerprint() const;

    QJsonObject toJson() const;
    static BookStateDTO fromJson(const QJsonObject& json);

    bool operator==(const BookStateDTO&) const = default;
};

} // namespace folivox
