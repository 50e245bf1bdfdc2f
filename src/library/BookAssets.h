#pragma once

#include "core/book/BookStateDTO.h"
#include "library/StoredBook.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <functional>

namespace folivox {

// Moves a book's images out of its record into files under assets/, and
// back. The cover goes under the key "cover", a chapter's image under
// "artwork/<bookmark UUID>". A file is named by its content
// ("cover-<16 hex digits of its SHA-256>.jpg"), so an asset file that exists
// already holds exactly those bytes and is never written twice.
class BookAssets {
public:
    struct Detached {
        StoredBook book;                  // the record without image bytes
        QMap<QString, QByteArray> files;  // file name under assets/ -> bytes
    };

    static Detached detach(const BookStateDTO& state);
    // The state with its images read back (readFile: file name -> bytes;
    // an empty result leaves that image out).
    static BookStateDTO attach(const StoredBook& book, const std::function<QByteArray(const QString&)>& readFile);

    static QString fileName(const QString& kind, const QByteArray& bytes);
    // The cover's file name in a stored book, or empty.
    static QString coverFile(const StoredBook& book);
};

} // namespace folivox
