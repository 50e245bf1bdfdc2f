#pragma once

#include "library/files/IndexFile.h"
#include "library/files/LibraryLock.h"
#include "library/files/LibraryPersistenceError.h"
#include "library/files/StagedFileWriter.h"
#include "library/StoredBook.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QUuid>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

namespace folivox {

// The only code that touches a library's files. Every operation holds one
// mutex, so all reading and writing is serial.
//
// Layout under the root:
//   index.json              summaries of all books (IndexFile)
//   index.json.bak          the previous good index
//   index.json.corrupt      an index that could not be read, set aside
//   books/<UUID>/book.json  one book (StoredBook); folder named by the upper-case UUID
//   books/<UUID>/book.json.corrupt   an unreadable book.json, set aside
//   books/<UUID>/assets/    the book's images; assets/thumb.jpg and assets/.thumbsrc
//   trash/<UUID>/           removed books' folders; trash/<UUID>.json their place in the list
//   library.lock            the lock file (flock), holding the holder's process id
//   .staging/               new files before they are renamed into place
//
// Opening takes the library's lock (LibraryLockError at once if another
// process has it) and removes whatever a killed process left in .staging.
// Every file is written whole or not at all (StagedFileWriter).
class LibraryPersistence {
public:
    using PersistenceError = LibraryPersistenceError;

    static constexpr int kSchemaVersion = 1;

    enum class IndexRecovery { none, fromBackup, rebuilt };

    struct Options {
        bool takeLock = true;
        bool useSecurityScope = false; // no scoped access off macOS
    };

    explicit LibraryPersistence(const QString& root);
    LibraryPersistence(const QString& root, Options options);
    ~LibraryPersistence();

    // Paths.
    const QString& rootURL() const { return rootURL_; }
    const QString& booksURL() const { return booksURL_; }
    const QString& trashURL() const { return trashURL_; }
    const QString& indexURL() const { return indexURL_; }
    const QString& indexBakURL() const { return indexBakURL_; }
    QString bookFolder(const QUuid& id) const;
    QString bookFile(const QUuid& id) const { return bookFolder(id) + QStringLiteral("/book.json"); }
    QString assetsFolder(const QUuid& id) const { return bookFolder(id) + QStringLiteral("/assets"); }
    static QString folderName(const QUuid& id);

    // Reads book.json: the schema envelope first (newer: newerLibrary, file
    // untouched; below 1: unsupportedSchema, file untouched), then the record
    // (undecodable: quarantined to book.json.corrupt, which a second
    // quarantine replaces). bookNotFound when there is no record; a book set
    // aside earlier is still `quarantined`.
    StoredBook readBook(const QUuid& id);
    // Creates assets/, writes each asset file that does not exist yet (files
    // already there are left alone), then book.json.
    void writeBook(const QUuid& id, const StoredBook& book, const QMap<QString, QByteArray>& assetFiles = {});
    QByteArray readAsset(const QUuid& id, const QString& name) const;
    // Replaces thumb.jpg and .thumbsrc (which names the image the thumbnail
    // was made from).
    void writeThumbnail(const QUuid& id, const QByteArray& jpeg, const QString& source);
    void removeThumbnail(const QUuid& id);
    bool hasThumbnail(const QUuid& id) const;
    QString thumbnailSource(const QUuid& id) const;

    // Reads index.json (schema envelope first; a newer one sets indexIsNewer
    // and newerLibraryVersion and gives no books). An index that is missing
    // while books exist, or can't be decoded, is set aside as
    // index.json.corrupt and recovered: from index.json.bak when that reads,
    // brought up to date with the book folders (books not in it are read and
    // added; entries without a folder are dropped; books changed since the
    // backup are read again), else rebuilt from the book folders alone. The
    // recovered index is saved at once. lastIndexRecovery() says what
    // happened.
    IndexFile readIndex();
    // Keeps the current index as index.json.bak (when it is known to be
    // good), then writes the new one. Refused (newerLibrary) in a newer library.
    void saveIndex(const IndexFile& index);
    IndexRecovery lastIndexRecovery() const { return lastIndexRecovery_; }

    // Moves books/<UUID> into the trash, with `record` (the book's place in
    // the list) beside it. Logs "[Library] could not trash record <UUID>: ..."
    // and rethrows on failure.
    void trashBook(const QUuid& id, const QJsonObject& record);
    // Moves a trashed book back and gives its record. Logs "[Library] could
    // not restore record <UUID>: ..." and rethrows on failure.
    QJsonObject restoreBook(const QUuid& id);
    // Books in the trash, with their records.
    QMap<QUuid, QJsonObject> trashedBooks() const;
    // Deletes everything in the trash; gives how many books went.
    int emptyTrash();

    // The ids of the book folders on disk.
    QList<QUuid> bookFolderIDs() const;

    std::optional<int> newerLibraryVersion() const;
    bool indexIsNewer() const;
    bool useSecurityScope() const { return options_.useSecurityScope; }
    int writeBookCallCount() const { return writeBookCallCount_.load(); }
    int saveIndexCallCount() const { return saveIndexCallCount_.load(); }

    // The one encoder of every library file.
    static QByteArray encode(const QJsonObject& object);

    // The summary of a book as its folder holds it (for index recovery and
    // the store): read, or marked unreadable.
    LibraryBookSummary summarizeFolder(const QUuid& id);

private:
    StoredBook readBookLocked(const QUuid& id);
    [[noreturn]] void quarantine(const QUuid& id, const QString& file, const QString& detail);
    IndexFile recoverIndexLocked(const QString& why);
    void saveIndexLocked(const IndexFile& index);
    QByteArray readWhole(const QString& path) const;

    QString rootURL_;
    QString booksURL_;
    QString trashURL_;
    QString indexURL_;
    QString indexBakURL_;
    Options options_;
    std::unique_ptr<LibraryLock> lock_;
    StagedFileWriter writer_;

    mutable std::recursive_mutex mutex_;
    std::optional<int> newerLibraryVersion_;
    bool indexIsNewer_ = false;
    bool indexKnownGood_ = false;
    IndexRecovery lastIndexRecovery_ = IndexRecovery::none;
    std::atomic<int> writeBookCallCount_{0};
    std::atomic<int> saveIndexCallCount_{0};
};

} // namespace folivox
