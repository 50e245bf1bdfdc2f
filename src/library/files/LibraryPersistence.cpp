#include "library/files/LibraryPersistence.h"

#include "core/json/DecodingError.h"
#include "core/json/JsonReader.h"
#include "library/files/SchemaEnvelope.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace folivox {

namespace {

void log(const QString& line)
{
    Log::write(QStringLiteral("[Library] ") + line);
}

QString idText(const QUuid& id)
{
    return LibraryPersistence::folderName(id);
}

// rename(2): atomic, and replaces an existing file of the target name.
void renameOrThrow(const QString& from, const QString& to)
{
    if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) != 0)
        throw GenericError(QStringLiteral("Could not move %1 to %2: %3")
                               .arg(from, to, QString::fromLocal8Bit(std::strerror(errno))));
}

} // namespace

LibraryPersistence::LibraryPersistence(const QString& root)
    : LibraryPersistence(root, Options())
{
}

LibraryPersistence::LibraryPersistence(const QString& root, Options options)
    : rootURL_(QFileInfo(root).absoluteFilePath())
    , booksURL_(rootURL_ + QStringLiteral("/books"))
    , trashURL_(rootURL_ + QStringLiteral("/trash"))
    , indexURL_(rootURL_ + QStringLiteral("/index.json"))
    , indexBakURL_(rootURL_ + QStringLiteral("/index.json.bak"))
    , options_(options)
    , writer_(rootURL_ + QStringLiteral("/.staging"))
{
    const QFileInfo info(rootURL_);
    if (info.exists() && !info.isDir())
        throw PersistenceError::rootUnavailable(rootURL_, QStringLiteral("it is a file, not a folder"));
    if (!QDir().mkpath(booksURL_) || !QDir().mkpath(trashURL_) || !QDir().mkpath(writer_.stagingFolder()))
        throw PersistenceError::rootUnavailable(rootURL_, QStringLiteral("its folders can't be created"));
    if (!QFileInfo(rootURL_).isWritable())
        throw PersistenceError::rootUnavailable(rootURL_, QStringLiteral("it is not writable"));
    if (options_.takeLock)
        lock_ = std::make_unique<LibraryLock>(rootURL_, rootURL_ + u'/' + QLatin1String(LibraryLock::kFileName));
    // Under the lock, anything in the staging folder is what a killed
    // process left behind.
    writer_.clearStaging();
}

LibraryPersistence::~LibraryPersistence() = default;

QString LibraryPersistence::folderName(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QString LibraryPersistence::bookFolder(const QUuid& id) const
{
    return booksURL_ + u'/' + folderName(id);
}

QByteArray LibraryPersistence::encode(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray LibraryPersistence::readWhole(const QString& path) const
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        throw GenericError(QStringLiteral("Could not read %1: %2").arg(path, f.errorString()));
    return f.readAll();
}

std::optional<int> LibraryPersistence::newerLibraryVersion() const
{
    std::lock_guard lock(mutex_);
    return newerLibraryVersion_;
}

bool LibraryPersistence::indexIsNewer() const
{
    std::lock_guard lock(mutex_);
    return indexIsNewer_;
}

// ---- books

StoredBook LibraryPersistence::readBook(const QUuid& id)
{
    std::lock_guard lock(mutex_);
    return readBookLocked(id);
}

StoredBook LibraryPersistence::readBookLocked(const QUuid& id)
{
    const QString file = bookFile(id);
    const QString corrupt = file + QStringLiteral(".corrupt");
    if (!QFileInfo::exists(file)) {
        if (QFileInfo::exists(corrupt))
            throw PersistenceError::quarantined(id, corrupt, QStringLiteral("it was set aside earlier"));
        throw PersistenceError::bookNotFound(id);
    }
    const QByteArray bytes = readWhole(file);
    QJsonObject document;
    SchemaEnvelope envelope;
    try {
        document = JsonReader::parseObject(bytes);
        envelope = SchemaEnvelope::decode(document);
    } catch (const DecodingError& e) {
        quarantine(id, file, e.description());
    }
    if (envelope.schemaVersion && *envelope.schemaVersion > kSchemaVersion) {
        newerLibraryVersion_ = std::max(newerLibraryVersion_.value_or(0), *envelope.schemaVersion);
        log(QStringLiteral("record %1 has schema %2, newer than this program's %3; left untouched")
                .arg(idText(id))
                .arg(*envelope.schemaVersion)
                .arg(kSchemaVersion));
        throw PersistenceError::newerLibrary(*envelope.schemaVersion, file);
    }
    if (envelope.schemaVersion && *envelope.schemaVersion < 1)
        throw PersistenceError::unsupportedSchema(*envelope.schemaVersion, file);
    StoredBook book;
    try {
        book = StoredBook::fromJson(document);
    } catch (const DecodingError& e) {
        quarantine(id, file, e.description());
    }
    if (book.state.id != id) {
        log(QStringLiteral("record in folder %1 carries id %2; the folder's id is used")
                .arg(idText(id), idText(book.state.id)));
        book.state.id = id;
    }
    return book;
}

void LibraryPersistence::quarantine(const QUuid& id, const QString& file, const QString& detail)
{
    const QString corrupt = file + QStringLiteral(".corrupt");
    if (QFileInfo::exists(corrupt))
        QFile::remove(corrupt);
    renameOrThrow(file, corrupt);
    log(QStringLiteral("record %1 could not be decoded (%2); set aside as %3").arg(idText(id), detail, corrupt));
    throw PersistenceError::quarantined(id, corrupt, detail);
}

void LibraryPersistence::writeBook(const QUuid& id, const StoredBook& book, const QMap<QString, QByteArray>& assetFiles)
{
    std::lock_guard lock(mutex_);
    if (indexIsNewer_)
        throw PersistenceError::newerLibrary(newerLibraryVersion_.value_or(kSchemaVersion + 1), indexURL_);
    const QString assets = assetsFolder(id);
    if (!QDir().mkpath(assets))
        throw PersistenceError::rootUnavailable(rootURL_, QStringLiteral("the folder %1 can't be created").arg(assets));
    for (auto it = assetFiles.constBegin(); it != assetFiles.constEnd(); ++it) {
        const QString target = assets + u'/' + it.key();
        if (!QFileInfo::exists(target))
            writer_.write(target, it.value(), "library.asset");
    }
    writer_.write(bookFile(id), encode(book.toJson()), "library.book");
    ++writeBookCallCount_;
}

QByteArray LibraryPersistence::readAsset(const QUuid& id, const QString& name) const
{
    std::lock_guard lock(mutex_);
    return readWhole(assetsFolder(id) + u'/' + name);
}

void LibraryPersistence::writeThumbnail(const QUuid& id, const QByteArray& jpeg, const QString& source)
{
    std::lock_guard lock(mutex_);
    const QString assets = assetsFolder(id);
    if (!QDir().mkpath(assets))
        throw PersistenceError::rootUnavailable(rootURL_, QStringLiteral("the folder %1 can't be created").arg(assets));
    writer_.write(assets + QStringLiteral("/thumb.jpg"), jpeg, "library.thumb");
    writer_.write(assets + QStringLiteral("/.thumbsrc"), source.toUtf8(), "library.thumbsrc");
}

void LibraryPersistence::removeThumbnail(const QUuid& id)
{
    std::lock_guard lock(mutex_);
    QFile::remove(assetsFolder(id) + QStringLiteral("/thumb.jpg"));
    QFile::remove(assetsFolder(id) + QStringLiteral("/.thumbsrc"));
}

bool LibraryPersistence::hasThumbnail(const QUuid& id) const
{
    return QFileInfo::exists(assetsFolder(id) + QStringLiteral("/thumb.jpg"));
}

QString LibraryPersistence::thumbnailSource(const QUuid& id) const
{
    QFile f(assetsFolder(id) + QStringLiteral("/.thumbsrc"));
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll());
}

LibraryBookSummary LibraryPersistence::summarizeFolder(const QUuid& id)
{
    std::lock_guard lock(mutex_);
    try {
        const StoredBook book = readBookLocked(id);
        return LibraryBookSummary::from(book.state, hasThumbnail(id), LibraryBookSummary::sourcesMissing(book.state));
    } catch (const Error& e) {
        log(QStringLiteral("record %1 is listed as needing attention: %2").arg(idText(id), e.description()));
        return LibraryBookSummary::unreadable(id, QFileInfo(bookFolder(id)).lastModified().toUTC());
    }
}

QList<QUuid> LibraryPersistence::bookFolderIDs() const
{
    QList<QUuid> ids;
    const QStringList names = QDir(booksURL_).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& name : names) {
        const QUuid id = QUuid::fromString(name);
        if (!id.isNull() && folderName(id) == name)
            ids << id;
    }
    return ids;
}

// ---- the index

IndexFile LibraryPersistence::readIndex()
{
    std::lock_guard lock(mutex_);
    lastIndexRecovery_ = IndexRecovery::none;
    if (!QFileInfo::exists(indexURL_)) {
        if (QFileInfo::exists(indexBakURL_) || !bookFolderIDs().isEmpty())
            return recoverIndexLocked(QStringLiteral("index.json is missing"));
        indexKnownGood_ = false;
        return IndexFile{};
    }
    QByteArray bytes;
    try {
        bytes = readWhole(indexURL_);
    } catch (const Error& e) {
        return recoverIndexLocked(e.description());
    }
    QJsonObject document;
    SchemaEnvelope envelope;
    try {
        document = JsonReader::parseObject(bytes);
        envelope = SchemaEnvelope::decode(document);
    } catch (const DecodingError& e) {
        return recoverIndexLocked(e.description());
    }
    if (envelope.schemaVersion && *envelope.schemaVersion > kSchemaVersion) {
        indexIsNewer_ = true;
        newerLibraryVersion_ = std::max(newerLibraryVersion_.value_or(0), *envelope.schemaVersion);
        log(QStringLiteral("index.json has schema %1, newer than this program's %2; the library is read-only")
                .arg(*envelope.schemaVersion)
                .arg(kSchemaVersion));
        IndexFile newer;
        newer.schemaVersion = *envelope.schemaVersion;
        return newer;
    }
    try {
        IndexFile index = IndexFile::fromJson(document);
        if (index.schemaVersion < 1)
            return recoverIndexLocked(QStringLiteral("schemaVersion %1").arg(index.schemaVersion));
        indexKnownGood_ = true;
        return index;
    } catch (const DecodingError& e) {
        return recoverIndexLocked(e.description());
    }
}

IndexFile LibraryPersistence::recoverIndexLocked(const QString& why)
{
    if (QFileInfo::exists(indexURL_)) {
        const QString corrupt = indexURL_ + QStringLiteral(".corrupt");
        QFile::remove(corrupt);
        renameOrThrow(indexURL_, corrupt);
        log(QStringLiteral("index.json could not be read (%1); set aside as %2").arg(why, corrupt));
    } else {
        log(QStringLiteral("index.json could not be read (%1)").arg(why));
    }

    // The backup, when it reads.
    std::optional<IndexFile> backup;
    QDateTime backupTime;
    if (QFileInfo::exists(indexBakURL_)) {
        try {
            const QByteArray bytes = readWhole(indexBakURL_);
            const SchemaEnvelope envelope = SchemaEnvelope::decode(bytes);
            if (envelope.schemaVersion.value_or(0) == kSchemaVersion) {
                backup = IndexFile::fromJson(JsonReader::parseObject(bytes));
                backupTime = QFileInfo(indexBakURL_).lastModified();
            }
        } catch (const Error& e) {
            log(QStringLiteral("index.json.bak can't be used either: ") + e.description());
        }
    }

    // Brought up to date with the folders on disk.
    const QList<QUuid> folders = bookFolderIDs();
    const QSet<QUuid> onDisk(folders.begin(), folders.end());
    IndexFile index;
    QSet<QUuid> covered;
    int refreshed = 0;
    if (backup) {
        for (LibraryBookSummary& s : backup->books) {
            if (!onDisk.contains(s.id) || covered.contains(s.id))
                continue;
            covered.insert(s.id);
            const QFileInfo record(bookFile(s.id));
            if (!record.exists() || record.lastModified() >= backupTime) {
                s = summarizeFolder(s.id);
                ++refreshed;
            }
            index.books.push_back(s);
        }
    }
    std::vector<LibraryBookSummary> found;
    for (const QUuid& id : folders)
        if (!covered.contains(id))
            found.push_back(summarizeFolder(id));
    std::stable_sort(found.begin(), found.end(),
                     [](const LibraryBookSummary& a, const LibraryBookSummary& b) { return a.createdAt < b.createdAt; });
    index.books.insert(index.books.end(), found.begin(), found.end());

    lastIndexRecovery_ = backup ? IndexRecovery::fromBackup : IndexRecovery::rebuilt;
    if (backup)
        log(QStringLiteral("index restored from index.json.bak: %1 book(s), %2 read again, %3 found only in book folders")
                .arg(index.books.size())
                .arg(refreshed)
                .arg(found.size()));
    else
        log(QStringLiteral("index rebuilt from %1 book folder(s)").arg(found.size()));
    indexKnownGood_ = false; // the backup is kept as it is
    saveIndexLocked(index);
    return index;
}

void LibraryPersistence::saveIndex(const IndexFile& index)
{
    std::lock_guard lock(mutex_);
    saveIndexLocked(index);
}

void LibraryPersistence::saveIndexLocked(const IndexFile& index)
{
    if (indexIsNewer_)
        throw PersistenceError::newerLibrary(newerLibraryVersion_.value_or(kSchemaVersion + 1), indexURL_);
    if (indexKnownGood_ && QFileInfo::exists(indexURL_))
        writer_.preserve(indexURL_, indexBakURL_, "library.indexBackup");
    IndexFile out = index;
    out.schemaVersion = kSchemaVersion;
    writer_.write(indexURL_, encode(out.toJson()), "library.index");
    indexKnownGood_ = true;
    ++saveIndexCallCount_;
}

// ---- trash

void LibraryPersistence::trashBook(const QUuid& id, const QJsonObject& record)
{
    std::lock_guard lock(mutex_);
    const QString folder = bookFolder(id);
    const QString target = trashURL_ + u'/' + folderName(id);
    const QString recordFile = target + QStringLiteral(".json");
    try {
        if (!QFileInfo(folder).isDir())
            throw PersistenceError::bookNotFound(id);
        if (QFileInfo::exists(target))
            QDir(target).removeRecursively();
        writer_.write(recordFile, encode(record), "library.trashRecord");
        try {
            renameOrThrow(folder, target);
        } catch (...) {
            QFile::remove(recordFile);
            throw;
        }
    } catch (const Error& e) {
        log(QStringLiteral("could not trash record ") + idText(id) + QStringLiteral(": ") + e.description());
        throw;
    }
    log(QStringLiteral("moved record %1 to the trash").arg(idText(id)));
}

QJsonObject LibraryPersistence::restoreBook(const QUuid& id)
{
    std::lock_guard lock(mutex_);
    const QString source = trashURL_ + u'/' + folderName(id);
    const QString recordFile = source + QStringLiteral(".json");
    QJsonObject record;
    try {
        if (!QFileInfo(source).isDir())
            throw PersistenceError::bookNotFound(id);
        if (QFileInfo::exists(bookFolder(id)))
            throw GenericError(QStringLiteral("a book folder %1 already exists").arg(bookFolder(id)));
        if (QFileInfo::exists(recordFile)) {
            try {
                record = JsonReader::parseObject(readWhole(recordFile));
            } catch (const Error&) {
                // Without its record the book goes back at the end of the list.
            }
        }
        renameOrThrow(source, bookFolder(id));
    } catch (const Error& e) {
        log(QStringLiteral("could not restore record ") + idText(id) + QStringLiteral(": ") + e.description());
        throw;
    }
    QFile::remove(recordFile);
    log(QStringLiteral("restored record %1 from the trash").arg(idText(id)));
    return record;
}

QMap<QUuid, QJsonObject> LibraryPersistence::trashedBooks() const
{
    std::lock_guard lock(mutex_);
    QMap<QUuid, QJsonObject> out;
    for (const QString& name : QDir(trashURL_).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QUuid id = QUuid::fromString(name);
        if (id.isNull())
            continue;
        QJsonObject record;
        try {
            record = JsonReader::parseObject(readWhole(trashURL_ + u'/' + name + QStringLiteral(".json")));
        } catch (const Error&) {
        }
        out.insert(id, record);
    }
    return out;
}

int LibraryPersistence::emptyTrash()
{
    std::lock_guard lock(mutex_);
    int books = 0;
    QDir trash(trashURL_);
    for (const QString& name : trash.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (QDir(trash.filePath(name)).removeRecursively())
            ++books;
        else
            log(QStringLiteral("could not delete %1 from the trash").arg(trash.filePath(name)));
    }
    for (const QString& name : trash.entryList(QDir::Files | QDir::Hidden))
        trash.remove(name);
    log(QStringLiteral("emptied the trash: %1 book(s) deleted").arg(books));
    return books;
}

} // namespace folivox
