#pragma once

#include "core/book/BookMetadata.h"
#include "core/book/Bookmark.h"
#include "core/settings/ExportSettings.h"
#include "core/book/Track.h"

#include <QSet>
#include <QString>
#include <QUuid>

#include <vector>

namespace folivox {

// The snapshot of a book that a build starts from, made by the caller before
// the driver starts.
struct ExportPrologue {
    std::vector<Bookmark> bookmarks;
    BookMetadata metadata;
    ExportSettings settings;
    QUuid exportId = QUuid::createUuid();
    // The build's own temporary folder, <temp>/FolivoxWork/<exportId>; the
    // strategies keep their work folders beneath the work root.
    QString tempDir;
    // The identities of the book's source files (see identity()).
    QSet<QString> protectedSourceIdentities;

    // A snapshot of the book; the protected identities are those of every
    // track's file (the chapters' and the book's).
    static ExportPrologue make(std::vector<Bookmark> bookmarks, BookMetadata metadata, ExportSettings settings,
                               const std::vector<Track>& tracks);

    // What makes a file the same file whatever path names it: device and
    // inode ("dev:ino"); for a path that does not exist, its absolute clean
    // path. Two paths that are hard links of one file share an identity.
    static QString identity(const QString& path);

    // True when writing or removing `path` would touch one of the protected files.
    static bool isProtected(const QString& path, const QSet<QString>& identities);
};

} // namespace folivox
