#pragma once

#include "core/book/BookSession.h"
#include "library/ActiveBookCoordinator.h"
#include "library/LibraryAdder.h"
#include "library/LibraryBookSummary.h"
#include "library/RemovedBook.h"

#include <QObject>
#include <QStringList>
#include <QUuid>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

class LibraryPersistence;
class LibraryStore;
class ManualCancellationToken;
class OpenBook;

// The window's library: the store on disk, the coordinator that ties the
// open book to its record, adding folders in the background, and removing
// books to the trash with undo. Everything here runs on the main thread;
// the store's own changes (its autosave, an add on the worker) arrive as
// summariesChanged, once per turn of the event loop however many there were.
//
// The open book's edits reach the library through the coordinator: each
// change of the book (tracks, chapters, tags, settings) is noted once the
// event loop turns, so a run of changes makes one revision. While a switch
// fills or empties the stores nothing is noted.
class LibraryController : public QObject {
    Q_OBJECT
public:
    // Opens the library at `root`; when it can't be opened (another process
    // holds it, the folder can't be made) the controller is unavailable and
    // says why.
    LibraryController(OpenBook& book, const QString& root, QObject* parent = nullptr);
    // Stops an add and waits for it, and writes what is pending.
    ~LibraryController() override;

    bool isAvailable() const { return store_ != nullptr; }
    const QString& unavailableReason() const { return unavailableReason_; }
    const QString& root() const { return root_; }
    LibraryStore* store() const { return store_.get(); }
    LibraryPersistence* persistence() const { return persistence_.get(); }
    ActiveBookCoordinator* coordinator() const { return coordinator_.get(); }
    // The library was written by a newer program and is read-only here.
    std::optional<int> newerLibraryVersion() const;

    // The store's summaries as they are now, in list order.
    std::vector<LibraryBookSummary> summaries() const;
    std::optional<LibraryBookSummary> summary(const QUuid& id) const;
    // The thumbnail file of a book ("" when it has none).
    QString thumbnailPath(const QUuid& id) const;

    // The library book open in the window, if the open book is one.
    std::optional<QUuid> openBookID() const;
    // Switches the window to a library book. busy and loadFailed leave the
    // open book as it was; the caller shows them.
    ActiveBookCoordinator::SwitchResult open(const QUuid& id);
    // Closes the open library book (written first); false when refused
    // because an exclusive operation runs.
    bool closeOpenBook(const BookSession::TearDownReason& reason);
    // Keeps the open book (opened from files) in the library and makes it
    // the open library book. An error text when it can't.
    QString keepOpenBook();
    // Writes the open library book now.
    void saveOpenBook();
    // Records a finished build of a library book: on the open book through
    // the coordinator (so its own state learns it), else on the record.
    void recordBuild(const QUuid& id, int revision, const ExportSettings& settings, const QStringList& files);
    // The same with the record made already (an update in place renews the last one).
    void recordBuild(const QUuid& id, int revision, const BuildRecord& record);

    // Adding folders, one book per folder of audio, in the background while
    // the exclusive operation addingBooks holds. False when another
    // exclusive operation runs or an add is running.
    bool addFolders(const QStringList& paths);
    bool isAdding() const { return adding_; }
    void cancelAdding();

    // Moves books to the trash; the batch can be undone.
    std::vector<RemovedBook> remove(const QList<QUuid>& ids);
    bool canUndoRemove() const { return !removals_.empty(); }
    // What an undo would put back ("“Dune”", "3 books").
    QString undoRemoveText() const;
    // Puts the last batch back at its places; how many came back.
    int undoRemove();

    // "Adding books is running." and the like.
    static QString operationText(ActiveBookCoordinator::ExclusiveOperation operation);

Q_SIGNALS:
    void summariesChanged();
    void openBookChanged();
    void addStarted();
    void addProgress(int done, int total, const QString& current);
    void addOutcome(const folivox::LibraryAdder::Outcome& outcome);
    void addFinished(bool cancelled);
    void removalsChanged();

private:
    void scheduleEdit();
    void noteEdit();
    void finishAdd(bool cancelled);

    OpenBook& book_;
    QString root_;
    QString unavailableReason_;
    std::shared_ptr<LibraryPersistence> persistence_;
    std::unique_ptr<LibraryStore> store_;
    std::unique_ptr<ActiveBookCoordinator> coordinator_;
    std::atomic<bool> changeQueued_{false};
    bool switching_ = false;
    bool editQueued_ = false;

    bool adding_ = false;
    std::shared_ptr<ManualCancellationToken> addToken_;
    std::thread addThread_;

    std::vector<std::vector<RemovedBook>> removals_;
};

} // namespace folivox

Q_DECLARE_METATYPE(folivox::LibraryAdder::Outcome)
