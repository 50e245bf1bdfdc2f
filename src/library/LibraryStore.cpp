#include "library/LibraryStore.h"

#include "library/BookAssets.h"
#include "library/BookIdPrefix.h"
#include "library/Thumbnailer.h"
#include "platform/Log.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

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

QString canonicalPath(const QString& path)
{
    const QFileInfo info(path);
    const QString canonical = info.canonicalFilePath();
    return canonical.isEmpty() ? info.absoluteFilePath() : canonical;
}

} // namespace

LibraryStore::LibraryStore(std::shared_ptr<LibraryPersistence> persistence, std::chrono::milliseconds autosaveDelay)
    : persistence_(std::move(persistence))
    , autosaveDelay_(autosaveDelay)
{
    worker_ = std::thread([this] { autosaveLoop(); });
}

LibraryStore::~LibraryStore()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    worker_.join();
    try {
        flush();
    } catch (const std::exception& e) {
        log(QStringLiteral("pending saves could not be written at exit: ") + QString::fromUtf8(e.what()));
    }
}

// ---- summaries

void LibraryStore::load(bool reconcile)
{
    std::lock_guard write(writeMutex_);
    IndexFile index = persistence_->readIndex();
    bool dirty = false;
    if (reconcile && !persistence_->indexIsNewer()) {
        const QList<QUuid> folders = persistence_->bookFolderIDs();
        const QSet<QUuid> onDisk(folders.begin(), folders.end());
        QSet<QUuid> listed;
        std::vector<LibraryBookSummary> kept;
        for (const LibraryBookSummary& s : index.books) {
            if (onDisk.contains(s.id) && !listed.contains(s.id)) {
                kept.push_back(s);
                listed.insert(s.id);
            } else {
                log(QStringLiteral("index entry %1 has no book folder; dropped").arg(idText(s.id)));
                dirty = true;
            }
        }
        for (const QUuid& id : folders) {
            if (listed.contains(id))
                continue;
            log(QStringLiteral("book folder %1 was not in the index; added").arg(idText(id)));
            kept.push_back(persistence_->summarizeFolder(id));
            dirty = true;
        }
        index.books = std::move(kept);
    }
    {
        std::lock_guard lock(mutex_);
        summaries_ = std::move(index.books);
    }
    if (dirty)
        saveIndexUnderWriteLock();
    changed();
}

std::vector<LibraryBookSummary> LibraryStore::summaries() const
{
    std::lock_guard lock(mutex_);
    return summaries_;
}

std::optional<LibraryBookSummary> LibraryStore::summary(const QUuid& id) const
{
    std::lock_guard lock(mutex_);
    const int i = indexOf(id);
    if (i < 0)
        return std::nullopt;
    return summaries_[static_cast<size_t>(i)];
}

quint64 LibraryStore::summariesRevision() const
{
    std::lock_guard lock(mutex_);
    return summariesRevision_;
}

std::optional<QUuid> LibraryStore::activeBookID() const
{
    std::lock_guard lock(mutex_);
    return activeBookID_;
}

void LibraryStore::setActiveBookID(const std::optional<QUuid>& id)
{
    std::lock_guard lock(mutex_);
    activeBookID_ = id;
}

QSet<QUuid> LibraryStore::removedIDs() const
{
    std::lock_guard lock(mutex_);
    return removedIDs_;
}

bool LibraryStore::hasPendingSave(const QUuid& id) const
{
    std::lock_guard lock(mutex_);
    return pendingSaves_.contains(id);
}

int LibraryStore::indexOf(const QUuid& id) const
{
    for (size_t i = 0; i < summaries_.size(); ++i)
        if (summaries_[i].id == id)
            return static_cast<int>(i);
    return -1;
}

void LibraryStore::setSummary(const LibraryBookSummary& summary, std::optional<int> at)
{
    {
        std::lock_guard lock(mutex_);
        const int i = indexOf(summary.id);
        if (i >= 0) {
            summaries_[static_cast<size_t>(i)] = summary;
        } else {
            const int place = std::clamp(at.value_or(static_cast<int>(summaries_.size())), 0,
                                         static_cast<int>(summaries_.size()));
            summaries_.insert(summaries_.begin() + place, summary);
        }
    }
    changed();
}

void LibraryStore::changed()
{
    {
        std::lock_guard lock(mutex_);
        ++summariesRevision_;
    }
    if (onSummariesChanged)
        onSummariesChanged();
}

void LibraryStore::markNeedsAttention(const QUuid& id)
{
    std::lock_guard write(writeMutex_);
    std::optional<LibraryBookSummary> s = summary(id);
    if (!s)
        s = LibraryBookSummary::unreadable(id, QDateTime::currentDateTimeUtc());
    if (s->needsAttention && summary(id))
        return;
    s->needsAttention = true;
    setSummary(*s);
    try {
        saveIndexUnderWriteLock();
    } catch (const Error& e) {
        log(QStringLiteral("index.json could not be saved: ") + e.description());
    }
}

void LibraryStore::refreshAttention(const QUuid& id, bool sourcesMissing)
{
    std::lock_guard write(writeMutex_);
    std::optional<LibraryBookSummary> s = summary(id);
    if (!s || s->needsAttention == sourcesMissing)
        return;
    s->needsAttention = sourcesMissing;
    setSummary(*s);
    saveIndexUnderWriteLock();
}

QUuid LibraryStore::resolve(const QString& text) const
{
    QList<QUuid> ids;
    QMap<QUuid, QString> titles;
    for (const LibraryBookSummary& s : summaries()) {
        ids << s.id;
        titles.insert(s.id, s.title);
    }
    return BookIdPrefix::resolve(text, ids, [&titles](const QUuid& id) {
        return BookIdPrefix::shortForm(id) + QStringLiteral(" ") + titles.value(id);
    });
}

std::optional<QUuid> LibraryStore::findBySource(const QString& sourcePath) const
{
    const QString wanted = canonicalPath(sourcePath);
    std::lock_guard lock(mutex_);
    for (const LibraryBookSummary& s : summaries_)
        if (!s.sourceHint.isEmpty() && s.sourceHint == wanted)
            return s.id;
    return std::nullopt;
}

// ---- states

BookStateDTO LibraryStore::loadState(const QUuid& id)
{
    {
        std::lock_guard lock(mutex_);
        if (pendingSaves_.contains(id))
            return pendingSaves_.value(id);
    }
    StoredBook book;
    try {
        book = persistence_->readBook(id);
    } catch (const LibraryPersistenceError& e) {
        if (e.kind() != LibraryPersistenceError::Kind::bookNotFound)
            markNeedsAttention(id);
        throw;
    }
    // A summary saved before the record was (a process stopped between
    // the two writes) is brought up to date now.
    const std::optional<LibraryBookSummary> listed = summary(id);
    if (listed && (listed->revision != book.state.revision || listed->editedAt != book.state.editedAt)) {
        std::lock_guard write(writeMutex_);
        setSummary(LibraryBookSummary::from(book.state, persistence_->hasThumbnail(id),
                                            LibraryBookSummary::sourcesMissing(book.state)));
        try {
            saveIndexUnderWriteLock();
        } catch (const Error& e) {
            log(QStringLiteral("index.json could not be saved: ") + e.description());
        }
    }
    return BookAssets::attach(book, [this, &id](const QString& name) {
        try {
            return persistence_->readAsset(id, name);
        } catch (const Error& e) {
            log(QStringLiteral("image of record %1 is missing: %2").arg(idText(id), e.description()));
            return QByteArray();
        }
    });
}

void LibraryStore::save(const BookStateDTO& state)
{
    {
        std::lock_guard lock(mutex_);
        if (removedIDs_.contains(state.id)) {
            log(QStringLiteral("save of removed record %1 dropped").arg(idText(state.id)));
            return;
        }
        pendingSaves_.insert(state.id, state);
        if (!autosaveTasks_.contains(state.id))
            autosaveTasks_.insert(state.id, Clock::now() + autosaveDelay_);
    }
    wake_.notify_all();
}

void LibraryStore::saveNow(const BookStateDTO& state, bool thenSaveIndex)
{
    std::lock_guard write(writeMutex_);
    {
        std::lock_guard lock(mutex_);
        if (removedIDs_.contains(state.id)) {
            log(QStringLiteral("save of removed record %1 dropped").arg(idText(state.id)));
            return;
        }
        pendingSaves_.remove(state.id);
        autosaveTasks_.remove(state.id);
    }
    writeState(state);
    if (thenSaveIndex)
        saveIndexUnderWriteLock();
}

void LibraryStore::writeState(const BookStateDTO& state)
{
    const BookAssets::Detached detached = BookAssets::detach(state);
    persistence_->writeBook(state.id, detached.book, detached.files);

    // The thumbnail follows the cover; .thumbsrc names the cover file it was made from.
    const QString cover = BookAssets::coverFile(detached.book);
    if (cover.isEmpty()) {
        if (persistence_->hasThumbnail(state.id))
            persistence_->removeThumbnail(state.id);
    } else if (!persistence_->hasThumbnail(state.id) || persistence_->thumbnailSource(state.id) != cover) {
        const QByteArray thumb = Thumbnailer::make(detached.files.value(cover));
        if (!thumb.isEmpty())
            persistence_->writeThumbnail(state.id, thumb, cover);
        else
            log(QStringLiteral("cover of record %1 can't be decoded; no thumbnail").arg(idText(state.id)));
    }
    setSummary(LibraryBookSummary::from(detached.book.state, persistence_->hasThumbnail(state.id),
                                        LibraryBookSummary::sourcesMissing(state)));
}

void LibraryStore::saveIndex()
{
    std::lock_guard write(writeMutex_);
    saveIndexUnderWriteLock();
}

void LibraryStore::saveIndexUnderWriteLock()
{
    IndexFile index;
    index.books = summaries();
    persistence_->saveIndex(index);
}

// ---- autosave

void LibraryStore::autosaveLoop()
{
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (autosaveTasks_.isEmpty()) {
            wake_.wait(lock);
            continue;
        }
        const auto earliest = *std::min_element(autosaveTasks_.cbegin(), autosaveTasks_.cend());
        if (Clock::now() < earliest) {
            wake_.wait_until(lock, earliest);
            continue;
        }
        QList<QUuid> due;
        const auto now = Clock::now();
        for (auto it = autosaveTasks_.cbegin(); it != autosaveTasks_.cend(); ++it)
            if (it.value() <= now)
                due << it.key();
        lock.unlock();
        try {
            writePending(due);
        } catch (const std::exception& e) {
            log(QStringLiteral("autosave failed: ") + QString::fromUtf8(e.what()));
        }
        lock.lock();
    }
}

void LibraryStore::writePending(const QList<QUuid>& ids)
{
    std::lock_guard write(writeMutex_);
    bool wrote = false;
    for (const QUuid& id : ids) {
        std::optional<BookStateDTO> state;
        {
            std::lock_guard lock(mutex_);
            autosaveTasks_.remove(id);
            if (pendingSaves_.contains(id))
                state = pendingSaves_.take(id);
            if (removedIDs_.contains(id))
                state.reset();
        }
        if (!state)
            continue;
        try {
            writeState(*state);
            wrote = true;
        } catch (const Error& e) {
            log(QStringLiteral("autosave of record %1 failed: %2").arg(idText(id), e.description()));
        }
    }
    if (wrote)
        saveIndexUnderWriteLock();
}

void LibraryStore::flush()
{
    QList<QUuid> ids;
    {
        std::lock_guard lock(mutex_);
        ids = pendingSaves_.keys();
    }
    writePending(ids);
}

void LibraryStore::flush(const QUuid& id)
{
    writePending({id});
}

// ---- removal

std::vector<RemovedBook> LibraryStore::remove(const QList<QUuid>& ids)
{
    std::lock_guard write(writeMutex_);
    std::vector<RemovedBook> out;
    for (const QUuid& id : ids) {
        RemovedBook removed;
        {
            std::lock_guard lock(mutex_);
            const int i = indexOf(id);
            if (i < 0)
                continue;
            removed.index = i;
            removed.summary = summaries_[static_cast<size_t>(i)];
            removedIDs_.insert(id);
            pendingSaves_.remove(id);
            autosaveTasks_.remove(id);
        }
        removed.restorable = true;
        try {
            persistence_->trashBook(id, removed.toJson());
        } catch (const Error&) {
            // Logged by the persistence; the book stays where it was.
            removed.restorable = false;
            std::lock_guard lock(mutex_);
            removedIDs_.remove(id);
        }
        if (removed.restorable) {
            {
                std::lock_guard lock(mutex_);
                summaries_.erase(summaries_.begin() + removed.index);
                if (activeBookID_ == id)
                    activeBookID_.reset();
            }
            changed();
        }
        out.push_back(removed);
    }
    saveIndexUnderWriteLock();
    return out;
}

void LibraryStore::restore(const RemovedBook& removed)
{
    std::lock_guard write(writeMutex_);
    const QUuid id = removed.summary.id;
    persistence_->restoreBook(id);
    {
        std::lock_guard lock(mutex_);
        removedIDs_.remove(id);
    }
    setSummary(persistence_->summarizeFolder(id), removed.index);
    saveIndexUnderWriteLock();
}

LibraryBookSummary LibraryStore::restoreFromTrash(const QUuid& id)
{
    std::lock_guard write(writeMutex_);
    const QJsonObject record = persistence_->restoreBook(id);
    std::optional<int> place;
    try {
        place = RemovedBook::fromJson(record).index;
    } catch (const Error&) {
        // No record: the book goes back at the end.
    }
    {
        std::lock_guard lock(mutex_);
        removedIDs_.remove(id);
    }
    const LibraryBookSummary s = persistence_->summarizeFolder(id);
    setSummary(s, place);
    saveIndexUnderWriteLock();
    return s;
}

QMap<QUuid, RemovedBook> LibraryStore::trash() const
{
    QMap<QUuid, RemovedBook> out;
    const QMap<QUuid, QJsonObject> trashed = persistence_->trashedBooks();
    for (auto it = trashed.cbegin(); it != trashed.cend(); ++it) {
        RemovedBook r;
        try {
            r = RemovedBook::fromJson(it.value());
        } catch (const Error&) {
            r.summary.id = it.key();
            r.index = -1;
        }
        r.summary.id = it.key();
        r.restorable = true;
        out.insert(it.key(), r);
    }
    return out;
}

int LibraryStore::emptyTrash()
{
    std::lock_guard write(writeMutex_);
    return persistence_->emptyTrash();
}

// ---- builds

void LibraryStore::recordBuild(const QUuid& id, const BuildRecord& record)
{
    std::lock_guard write(writeMutex_);
    BookStateDTO state = loadState(id);
    state.lastBuild = record;
    {
        std::lock_guard lock(mutex_);
        pendingSaves_.remove(id);
        autosaveTasks_.remove(id);
    }
    writeState(state);
    saveIndexUnderWriteLock();
}

BookBuildInputs LibraryStore::buildInputs(const QUuid& id)
{
    return BookBuildInputs::from(loadState(id));
}

} // namespace folivox
