#pragma once

#include "core/book/BuildRecord.h"
#include "library/BookBuildInputs.h"

#include <QString>
#include <QUuid>

namespace folivox {

// Builds of library books: what a book's build needs is read from the
// library, and the finished build is recorded on the book. The library is
// locked only while it is read or written, never for the length of a
// build, so that other commands can use it meanwhile.
class LibraryBookBuild {
public:
    // The book named by an id or a unique prefix of one, as saved. Throws
    // Error when the library is locked, the id matches no book or several,
    // or the book's record cannot be read.
    static BookBuildInputs inputs(const QString& libraryRoot, const QString& idText);

    // Puts a finished build's record on the book.
    static void record(const QString& libraryRoot, const QUuid& id, const BuildRecord& record);
};

} // namespace folivox
