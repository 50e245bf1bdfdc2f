#pragma once

#include "platform/Error.h"

#include <QString>
#include <QUuid>

namespace folivox {

// What reading or writing the library's files can fail with. Each case
// carries the book (or version) it is about and, where there is one, the
// file, so the message names what the user has on disk.
class LibraryPersistenceError : public Error {
public:
    enum class Kind {
        bookNotFound,      // no folder (or no book.json) for this id
        quarantined,       // book.json could not be decoded and was set aside as book.json.corrupt
        unsupportedSchema, // the file names a schema version this program never wrote (0 or below)
        newerLibrary,      // written by a newer program; the file is left untouched
        rootUnavailable,   // the library folder can't be made, read or written
    };

    static LibraryPersistenceError bookNotFound(const QUuid& id);
    static LibraryPersistenceError quarantined(const QUuid& id, const QString& file, const QString& detail);
    static LibraryPersistenceError unsupportedSchema(int version, const QString& file);
    static LibraryPersistenceError newerLibrary(int version, const QString& file);
    static LibraryPersistenceError rootUnavailable(const QString& root, const QString& detail);

    Kind kind() const { return kind_; }
    const QUuid& bookID() const { return bookID_; }
    int version() const { return version_; }
    const QString& file() const { return file_; }

    QString description() const override;

private:
    LibraryPersistenceError(Kind kind, QUuid id, int version, QString file, QString detail);

    Kind kind_;
    QUuid bookID_;
    int version_ = 0;
    QString file_;
    QString detail_;
};

} // namespace folivox
