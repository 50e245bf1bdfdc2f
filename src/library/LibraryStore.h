#pragma once

#include "core/book/BookStateDTO.h"
#include "library/BookBuildInputs.h"
#include "library/LibraryBookSummary.h"
#include "library/files/LibraryPersistence.h"
#include "library/RemovedBook.h"

#include <QList>
#include <QMap>
#include <QSet>
#include <QUuid>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

// The front of a library: the book summaries in list order, saving book
// states (at once, or later through autosave), removing books to the trash
// and putting them back.
//
// Autosave: save() keeps the state in pendingSaves and, for a book that has
// none yet, starts a task that writes it autosaveDelay later. Saves that
// arrive meanwhile replace the pending state, so any number of changes
// within the delay make one write of book.json, followed by one index save.
// flush() writes everything pending at once (before a switch, at exit).
//
// A removed book's id stays in removedIDs until it is restored: a save that
// arrives later is dropped, and a pending one is discarded, so a late
// autosave can't write the book back into books/. Writes and removals take
// one write lock, so a removal never overlaps a write of the same book.
//
// Thread-safe. onSummariesChanged runs on the thread that made the change
// (the autosave thread for autosaves).
class LibraryStore {
public:
    static constexpr std::chrono::milliseconds kDefaultAutosaveDelay{1500};

    explicit LibraryStore(std::shared_ptr<LibraryPersistence> persistence,
                          std::chrono::milliseconds autosaveDelay = kDefaultAutosaveDelay);
    // Writes what is pending, then stops the autosave thread.
    ~LibraryStore();
    LibraryStore(const LibraryStore&) = delete;
    LibraryStore& operator=(const LibraryStore&) = delete;

    // Reads index.json. With reconcile, book folders the index does not list
    // (books written just before a crash, before their index save) are read
    // and added, and entries whose folder is gone are dropped.
    void load(bool reconcile = false);

    std::vector<LibraryBookSummary> summaries() const;
    std::optional<LibraryBookSummary> summary(const QUuid& id) const;
    quint64 summariesRevision() const;
    std::optional<int> newerLibraryVersion() const { return persistence_->newerLibraryVersion(); }
    std::optional<QUuid> activeBookID() const;
    void setActiveBookID(const std::optional<QUuid>& id);
    std::function<void()> onSummariesChanged;

    // An id or a unique prefix of one (BookIdPrefix).
    QUuid resolve(const QString& text) const;
    // The book added from this folder or file, if any.
    std::optional<QUuid> findBySource(const QString& sourcePath) const;

    // The state of a book as saved (a pending autosave included), with its
    // images read back from assets/. A record that can't be read marks the
    // book as needing attention and rethrows.
    BookStateDTO loadState(const QUuid& id);

    // Sets whether the book's sources are gone, as just found on disk, in
    // its summary (and index.json) when that changed.
    void refreshAttention(const QUuid& id, bool sourcesMissing);

    // Autosave: written autosaveDelay after the first of a run of saves.
    void save(const BookStateDTO& state);
    // Writes the state now (images to assets/, the thumbnail, book.json),
    // then the index unless told not to.
    void saveNow(const BookStateDTO& state, bool thenSaveIndex = true);
    void flush();
    void flush(const QUuid& id);
    void saveIndex();

    // Moves books to the trash, each at the place it had when it went.
    std::vector<RemovedBook> remove(const QList<QUuid>& ids);
    // Puts a removed book back at its place in the list.
    void restore(const RemovedBook& removed);
    // The same for a book found in the trash (by a later process).
    LibraryBookSummary restoreFromTrash(const QUuid& id);
    // Books in the trash, by id.
    QMap<QUuid, RemovedBook> trash() const;
    int emptyTrash();

    // Records a finished build on the book (a pending save of the book
    // included), and saves at once.
    void recordBuild(const QUuid& id, const BuildRecord& record);
    // What a build of the book needs, pending edits included.
    BookBuildInputs buildInputs(const QUuid& id);

    LibraryPersistence& persistence() { return *persistence_; }
    std::chrono::milliseconds autosaveDelay() const { return autosaveDelay_; }
    QSet<QUuid> removedIDs() const;
    bool hasPendingSave(const QUuid& id) const;

private:
    using Clock = std::chrono::steady_clock;

    void autosaveLoop();
    void writePending(const QList<QUuid>& ids);
    void writeState(const BookStateDTO& state);
    void saveIndexUnderWriteLock();
    void setSummary(const LibraryBookSummary& summary, std::optional<int> at = std::nullopt);
    void markNeedsAttention(const QUuid& id);
    void changed();
    int indexOf(const QUuid& id) const;

    std::shared_ptr<LibraryPersistence> persistence_;
    const std::chrono::milliseconds autosaveDelay_;

    mutable std::mutex mutex_;         // everything below
    std::vector<LibraryBookSummary> summaries_;
    quint64 summariesRevision_ = 0;
    std::optional<QUuid> activeBookID_;
    QSet<QUuid> removedIDs_;
    QMap<QUuid, BookStateDTO> pendingSaves_;
    QMap<QUuid, Clock::time_point> autosaveTasks_;
    bool stopping_ = false;
    std::condition_variable wake_;

    std::recursive_mutex writeMutex_; // one write or removal at a time
    std::thread worker_;
};

} // namespace folivox
