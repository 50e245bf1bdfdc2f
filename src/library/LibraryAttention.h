#pragma once

#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

namespace folivox {

class LibraryStore;

// Why a book of the library needs attention, for the user: its record was
// set aside as unreadable, it was saved by a newer program, it can't be read
// for another reason, or some of its source files are gone.
struct LibraryAttention {
    enum class Kind { quarantined, newerLibrary, unreadable, sourcesGone };

    Kind kind = Kind::unreadable;
    QString file;           // quarantined: the file set aside; newerLibrary: the record
    int version = 0;        // newerLibrary: the record's schema version
    QString detail;         // unreadable: the error
    QStringList missing;    // sourcesGone: the files that are not there

    // One sentence or two that say what is wrong and what to do.
    QString text() const;

    // Looks at the book's record and sources now. A book that is fine again
    // (its sources came back) has its mark cleared in the store, and gives
    // nothing; so does a book that was never marked.
    static std::optional<LibraryAttention> find(LibraryStore& store, const QUuid& id);
};

} // namespace folivox
