#pragma once

#include "build/ImportedBook.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// A book that is not in the library, queued from files and folders: the
// whole imported book (tracks in order, chapters, tags), so that the job can
// run after a restart with nothing else. The cover is kept as a file in the
// job's folder rather than in the queue file, so that each save of the queue
// stays small.
//
// JSON: inputs (the files and folders as given, absolute), book
// (ImportedBook, without its cover bytes), coverFile (the cover's file name
// in the job's folder) when the book has a cover.
struct CandidatePayload {
    QStringList inputs;
    ImportedBook book;
    std::optional<QString> coverFile;

    QJsonObject toJson() const;
    static CandidatePayload fromJson(const QJsonObject& json);
};

} // namespace folivox
