#pragma once

#include "build/ImportedBook.h"
#include "core/settings/ExportSettings.h"
#include "queue/records/OutputOrganization.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <memory>
#include <optional>

namespace folivox {

class LibraryController;
class LibraryStoreBookSource;
class QueueControlServer;
class QueueController;
class QueueLock;
class QueueService;
class QueueStore;

// The window's build queue: the queue's files in the application data
// folder, held for the window's life (the queue's run lock, so that a
// `folivox queue run` elsewhere can't run the same jobs; terminal commands
// reach this queue through its control channel), the service that builds
// jobs one at a time in this process, and the controller the views follow.
// A library book's job reads the book from the window's library when it
// runs, and its build is recorded on the book back on the main thread.
class QueueWorkspace : public QObject {
    Q_OBJECT
public:
    QueueWorkspace(LibraryController& library, std::optional<int> parallelJobs, QObject* parent = nullptr);
    // Cancels a running job (it ends cancelled) and waits for the run to end.
    ~QueueWorkspace() override;

    bool isAvailable() const { return controller_ != nullptr; }
    const QString& unavailableReason() const { return unavailableReason_; }
    QueueController* controller() const { return controller_; }
    QueueService* service() const { return service_.get(); }
    QueueStore* store() const { return store_.get(); }
    // A job is being built now.
    bool isBuilding() const;

    // Where queued books go and how they are laid out there.
    struct Destination {
        QString folder;
        OutputOrganization organization;
    };

    // What queuing gave: the jobs made, and for each book that could not be
    // queued why; `existing` are those whose planned output is already on
    // disk (they can be queued again to replace it).
    struct Queued {
        QList<QUuid> jobs;
        QStringList problems;
        QList<QUuid> existing;
    };

    // Queues library books (their own settings, read when the job runs).
    Queued enqueueBooks(const QList<QUuid>& bookIDs, const Destination& destination, bool replaceExisting);
    // Queues a book that is not in the library, as it stands in the window.
    Queued enqueueBook(const ImportedBook& book, const QStringList& inputs, const ExportSettings& settings,
                       const Destination& destination, bool replaceExisting);

private:
    LibraryController& library_;
    QString unavailableReason_;
    std::shared_ptr<QueueStore> store_;
    std::unique_ptr<QueueLock> runLock_;
    std::shared_ptr<LibraryStoreBookSource> books_;
    std::shared_ptr<QueueService> service_;
    QueueController* controller_ = nullptr;
    QueueControlServer* server_ = nullptr;
};

} // namespace folivox
