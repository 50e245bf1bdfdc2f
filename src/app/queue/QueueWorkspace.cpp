#include "app/queue/QueueWorkspace.h"

#include "app/library/LibraryController.h"
#include "build/BuildFailure.h"
#include "process/ManualCancellationToken.h"
#include "library/LibraryStore.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "queue/run/InProcessJobBuilder.h"
#include "queue/run/LibraryStoreBookSource.h"
#include "queue/control/QueueControlServer.h"
#include "queue/run/QueueController.h"
#include "queue/store/QueueEnqueuer.h"
#include "queue/records/QueueError.h"
#include "queue/store/QueueLock.h"
#include "queue/run/QueueService.h"
#include "queue/store/QueueStore.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QPointer>

namespace folivox {

namespace {
void log(const QString& line)
{
    Log::write(QStringLiteral("[App] ") + line);
}
} // namespace

QueueWorkspace::QueueWorkspace(LibraryController& library, std::optional<int> parallelJobs, QObject* parent)
    : QObject(parent)
    , library_(library)
{
    if (!library_.isAvailable()) {
        unavailableReason_ = L10n::format(L10n::text("app.queue.noLibrary", "The queue needs the library, which can't be opened: %@"),
                                          {library_.unavailableReason()});
        return;
    }
    try {
        store_ = std::make_shared<QueueStore>();
        runLock_ = QueueLock::take(store_->runLockURL(), false, store_->baseURL());
        const auto editLock = QueueLock::take(store_->editLockURL(), true);
        books_ = std::make_shared<LibraryStoreBookSource>(*library_.store());
        QueueService::Config config;
        config.parallelJobs = parallelJobs;
        service_ = std::make_shared<QueueService>(store_, std::make_shared<InProcessJobBuilder>(), books_, config);
    } catch (const Error& e) {
        unavailableReason_ = e.description();
        service_.reset();
        runLock_.reset();
        log(QStringLiteral("the queue is not available: ") + e.description());
        return;
    }
    // The run thread tells of a finished library book; the library hears of
    // it on the main thread, where the open book lives.
    QPointer<LibraryController> libraryGuard(&library_);
    service_->onBookBuilt = [this, libraryGuard](const QUuid& bookID, int revision, const QString&, const QStringList& files,
                                                 const ExportSettings& settings) {
        QMetaObject::invokeMethod(
            this,
            [libraryGuard, bookID, revision, files, settings] {
                if (libraryGuard)
                    libraryGuard->recordBuild(bookID, revision, settings, files);
            },
            Qt::QueuedConnection);
    };
    controller_ = new QueueController(service_, this);
    server_ = new QueueControlServer(service_, this);
    if (!server_->listen())
        log(QStringLiteral("terminal commands cannot reach this queue: its control socket could not be opened"));
    if (const auto warning = service_->loadWarning())
        log(QStringLiteral("queue: ") + *warning);
}

QueueWorkspace::~QueueWorkspace()
{
    delete server_;
    delete controller_;
    controller_ = nullptr;
    // Cancels a running job and waits for the run loop; a build that ended
    // meanwhile has posted its record here, and the library still gets it.
    service_.reset();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

bool QueueWorkspace::isBuilding() const
{
    return service_ && service_->currentJobID().has_value();
}

QueueWorkspace::Queued QueueWorkspace::enqueueBooks(const QList<QUuid>& bookIDs, const Destination& destination,
                                                    bool replaceExisting)
{
    Queued out;
    if (!service_)
        return out;
    for (const QUuid& id : bookIDs) {
        const std::optional<LibraryBookSummary> summary = library_.summary(id);
        const QString title = summary && !summary->title.isEmpty() ? summary->title : L10n::text("app.library.untitled", "Untitled");
        try {
            if (library_.openBookID() == id)
                library_.saveOpenBook();
            QueueEnqueuer::Request request;
            request.libraryBook = library_.store()->buildInputs(id);
            request.build.settings = request.libraryBook->settings;
            request.build.output = destination.folder;
            request.build.replaceExisting = replaceExisting;
            request.settingsGiven = false;
            request.organization = destination.organization;
            QueueJob job = QueueEnqueuer::make(request, service_->jobs(), *store_, std::make_shared<ManualCancellationToken>());
            const QUuid jobID = job.id;
            service_->enqueue(std::move(job));
            out.jobs << jobID;
        } catch (const BuildFailure& f) {
            if (f.file() && QFileInfo::exists(*f.file()) && !replaceExisting)
                out.existing << id;
            else
                out.problems << QStringLiteral("“%1”: %2").arg(title, f.message());
        } catch (const Error& e) {
            out.problems << QStringLiteral("“%1”: %2").arg(title, e.description());
        }
    }
    return out;
}

QueueWorkspace::Queued QueueWorkspace::enqueueBook(const ImportedBook& book, const QStringList& inputs, const ExportSettings& settings,
                                                   const Destination& destination, bool replaceExisting)
{
    Queued out;
    if (!service_)
        return out;
    try {
        QueueEnqueuer::Request request;
        request.build.book = book;
        request.build.inputs = inputs;
        request.build.settings = settings;
        request.build.output = destination.folder;
        request.build.replaceExisting = replaceExisting;
        request.settingsGiven = true;
        request.organization = destination.organization;
        QueueJob job = QueueEnqueuer::make(request, service_->jobs(), *store_, std::make_shared<ManualCancellationToken>());
        const QUuid jobID = job.id;
        service_->enqueue(std::move(job));
        out.jobs << jobID;
    } catch (const BuildFailure& f) {
        if (f.file() && QFileInfo::exists(*f.file()) && !replaceExisting)
            out.existing << QUuid();
        else
            out.problems << f.message();
    } catch (const Error& e) {
        out.problems << e.description();
    }
    return out;
}

} // namespace folivox
