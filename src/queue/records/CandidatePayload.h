#pragma once

#include "build/ImportedBook.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// A book that is not in the library, queued from files and folders: the
// whole imported book (tracks in order, chapters, tags), so that the job can
// run after a restart with nothing else. The enqueuer keeps the book and its
// cover as files in the job's own folder of the queue (book.json, cover.*),
// written once when the job is queued, so that the many saves of the queue
// file stay small; a payload may also hold the book inline.
//
// JSON: inputs (the files and folders as given, absolute), and book
// (ImportedBook, inline) or bookFile (its file name in the job's folder);
// coverFile (the cover's file name there) when the book has a cover.
struct CandidatePayload {
    QStringList inputs;
    std::optional<ImportedBook> book;
    std::optional<QString> bookFile;
    std::optional<QString> coverFile;

    QJsonObject toJson() const;
    static CandidatePayload fromJson(const QJsonObject& json);
};

} // namespace folivox
