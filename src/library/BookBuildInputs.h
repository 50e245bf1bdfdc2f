#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/BookStateDTO.h"
#include "core/book/Bookmark.h"
#include "core/book/BuildRecord.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"

#include <QDateTime>
#include <QStringList>
#include <QUuid>

#include <vector>

namespace folivox {

// What a build of a library book needs, taken from the book's state: the
// tracks, chapters, tags (cover included) and settings, with the book and
// revision the build is of. A build use-case turns these into its request,
// and when it has written its files hands their paths to record(), whose
// BuildRecord goes back onto the book (LibraryStore::recordBuild).
struct BookBuildInputs {
    QUuid bookID;
    int revision = 0;
    std::vector<Track> tracks;
    std::vector<Bookmark> bookmarks;
    BookMetadata metadata;
    ExportSettings settings;

    static BookBuildInputs from(const BookStateDTO& state);

    // The record of a finished build of these inputs: each output's size and
    // modification time as the disk has them now, and the chapters built.
    BuildRecord record(const QStringList& outputPaths, const QDateTime& builtAt = QDateTime::currentDateTimeUtc()) const;
};

} // namespace folivox
