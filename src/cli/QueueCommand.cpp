#include "cli/QueueCommand.h"

#include "build/BuildFailure.h"
#include "build/LibraryBookBuild.h"
#include "cli/BuildOptionParser.h"
#include "cli/BuildResultPrinter.h"
#include "cli/CancelOnSignal.h"
#include "cli/Console.h"
#include "cli/ProgressReporter.h"
#include "cli/SignalCancellation.h"
#include "process/ManualCancellationToken.h"
#include "library/files/LibraryLocation.h"
#include "platform/Log.h"
#include "queue/run/LibraryQueueBookSource.h"
#include "queue/control/QueueControlChannel.h"
#include "queue/control/QueueControlServer.h"
#include "queue/run/QueueController.h"
#include "queue/store/QueueEnqueuer.h"
#include "queue/records/QueueError.h"
#include "queue/store/QueueLock.h"
#include "queue/run/QueueService.h"
#include "queue/store/QueueStore.h"
#include "queue/run/QueueWorker.h"
#include "queue/run/WorkerProcessJobBuilder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QThread>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <mutex>

namespace folivox::cli {

namespace {

// Options every subcommand but add reads.
struct Common {
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    std::optional<QString> library;
    std::optional<int> jobs;
    QStringList positional;
};

QString shortID(const QUuid& id)
{
    return id.toString(QUuid::WithoutBraces).toUpper().left(8);
}

void printJson(const QJsonObject& doc)
{
    Console::out(QString::fromUtf8(QJsonDocument(doc).toJson(QJsonDocument::Indented)));
}

int fail(const QString& subcommand, const QString& message, bool json, int status = ExitFailure)
{
    if (json)
        printJson({{QStringLiteral("status"), status == ExitUsage ? QStringLiteral("usage") : QStringLiteral("failed")},
                   {QStringLiteral("message"), message}});
    Console::err(QStringLiteral("folivox queue %1: %2\n").arg(subcommand, message));
    return status;
}

std::variant<Common, QString> parseCommon(const QStringList& args, bool allowJobs)
{
    Common c;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& a = args[i];
        if (a == u"--json")
            c.json = true;
        else if (a == u"-q" || a == u"--quiet")
            c.quiet = true;
        else if (a == u"-v" || a == u"--verbose")
            c.verbose = true;
        else if (a == u"--library" && i + 1 < args.size())
            c.library = args[++i];
        else if (allowJobs && (a == u"-j" || a == u"--jobs") && i + 1 < args.size()) {
            bool ok = false;
            const int n = args[++i].toInt(&ok);
            if (!ok || n <= 0)
                return QStringLiteral("invalid value for -j: '%1'").arg(args[i]);
            c.jobs = n;
        } else if (a.startsWith(u'-') && a.size() > 1)
            return QStringLiteral("unknown option '%1'").arg(a);
        else
            c.positional << a;
    }
    return c;
}

// The jobs of a list answer, with their live progress.
std::vector<QueueJob> jobsOf(const QJsonObject& listing)
{
    std::vector<QueueJob> jobs;
    for (const QJsonValue& v : listing.value(QStringLiteral("jobs")).toArray()) {
        const QJsonObject o = v.toObject();
        QueueJob job = QueueJob::fromJson(o);
        job.progress = o.value(QStringLiteral("progress")).toDouble();
        if (o.contains(QStringLiteral("progressPhase")))
            job.progressPhase = o.value(QStringLiteral("progressPhase")).toString();
        jobs.push_back(std::move(job));
    }
    return jobs;
}

// A request to the queue: answered by the running `queue run` through its
// channel, or, when no run is active, here on the queue's file under its
// edit lock. A run that starts meanwhile waits for the edit lock before it
// reads the file, so the two never both write it.
QJsonObject ask(const QJsonObject& request)
{
    auto store = std::make_shared<QueueStore>();
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        {
            const auto editLock = QueueLock::take(store->editLockURL(), true);
            if (!QueueLock::holder(store->runLockURL())) {
                QueueService service(store, nullptr, nullptr);
                if (service.loadWarning())
                    Console::err(QStringLiteral("folivox queue: warning: ") + *service.loadWarning() + u'\n');
                return QueueControlServer::answer(service, request, false);
            }
        }
        try {
            return QueueControlChannel::send(store->baseURL(), request, 5000);
        } catch (const QueueError&) {
            // The run may have just ended: look again, for a while.
            if (timer.elapsed() > 20000)
                throw;
        }
    }
}

int answerStatus(const QJsonObject& reply)
{
    if (reply.value(QStringLiteral("ok")).toBool())
        return ExitSuccess;
    const QString kind = reply.value(QStringLiteral("kind")).toString();
    return kind == u"usage" || kind == u"jobNotFound" || kind == u"ambiguousJob" ? ExitUsage : ExitFailure;
}

QString percentText(double fraction)
{
    return QStringLiteral("%1%").arg(qRound(fraction * 100.0), 3);
}

QJsonObject jobListing(const QueueJob& job)
{
    QJsonObject o{{QStringLiteral("id"), job.id.toString(QUuid::WithoutBraces).toUpper()},
                  {QStringLiteral("shortID"), shortID(job.id)},
                  {QStringLiteral("status"), enumName(job.status)},
                  {QStringLiteral("statusLabel"), QueueJobStatusLabel::text(job.status)},
                  {QStringLiteral("title"), job.displayTitle},
                  {QStringLiteral("output"), job.plannedOutputPath()},
                  {QStringLiteral("progress"), job.status == QueueJobStatus::completed ? 1.0 : job.progress},
                  {QStringLiteral("attempts"), static_cast<int>(job.attempts.size())},
                  {QStringLiteral("origin"), job.origin.bookID ? QStringLiteral("book") : QStringLiteral("candidate")},
                  {QStringLiteral("createdAt"), job.createdAt.toString(Qt::ISODateWithMs)}};
    if (job.displayAuthor)
        o.insert(QStringLiteral("author"), *job.displayAuthor);
    if (job.progressPhase)
        o.insert(QStringLiteral("progressPhase"), *job.progressPhase);
    if (job.origin.bookID)
        o.insert(QStringLiteral("bookID"), job.origin.bookID->toString(QUuid::WithoutBraces).toUpper());
    if (const auto error = job.lastErrorMessage()) {
        o.insert(QStringLiteral("lastError"), *error);
        o.insert(QStringLiteral("lastErrorClass"), enumName(job.attempts.back().outcome->errorClass));
    }
    if (!job.attempts.empty() && job.attempts.back().logPath)
        o.insert(QStringLiteral("logFile"), *job.attempts.back().logPath);
    return o;
}

QJsonObject haltListing(const QJsonObject& haltJson)
{
    const QueueHalt halt = QueueHalt::fromJson(haltJson);
    return {{QStringLiteral("key"), QueueHalt::key(halt.reason)},
            {QStringLiteral("message"), halt.message},
            {QStringLiteral("since"), halt.haltedAt.toString(Qt::ISODateWithMs)}};
}

void printListing(const QJsonObject& reply, bool json)
{
    const std::vector<QueueJob> jobs = jobsOf(reply);
    const bool running = reply.value(QStringLiteral("isProcessing")).toBool();
    if (json) {
        QJsonArray list;
        for (const QueueJob& job : jobs)
            list.append(jobListing(job));
        QJsonObject doc{{QStringLiteral("jobs"), list}, {QStringLiteral("running"), running}};
        if (running)
            doc.insert(QStringLiteral("pid"), reply.value(QStringLiteral("pid")));
        if (reply.contains(QStringLiteral("halt")))
            doc.insert(QStringLiteral("halt"), haltListing(reply.value(QStringLiteral("halt")).toObject()));
        printJson(doc);
        return;
    }
    QString text;
    if (jobs.empty())
        text += QStringLiteral("The queue is empty.\n");
    for (const QueueJob& job : jobs) {
        text += QStringLiteral("%1  %2 %3  %4 %5  %6\n")
                    .arg(shortID(job.id), QueueJobStatusLabel::text(job.status).leftJustified(11),
                         percentText(job.status == QueueJobStatus::completed ? 1.0 : job.progress))
                    .arg(job.attempts.size(), 2)
                    .arg(job.attempts.size() == 1 ? QStringLiteral("try  ") : QStringLiteral("tries"),
                         job.displayTitle + (job.displayAuthor ? QStringLiteral(" — ") + *job.displayAuthor : QString()));
        text += QStringLiteral("          → %1\n").arg(job.plannedOutputPath());
        if (job.status == QueueJobStatus::running && job.progressPhase)
            text += QStringLiteral("          %1\n").arg(*job.progressPhase);
        if (const auto error = job.lastErrorMessage())
            text += QStringLiteral("          last error: %1\n").arg(QString(*error).replace(u'\n', QStringLiteral("\n          ")));
    }
    if (running)
        text += QStringLiteral("Running in process %1.\n").arg(reply.value(QStringLiteral("pid")).toInteger());
    if (reply.contains(QStringLiteral("halt"))) {
        const QJsonObject halt = haltListing(reply.value(QStringLiteral("halt")).toObject());
        text += QStringLiteral("Halted: %1\n  (%2; 'folivox queue retry ID' clears it)\n")
                    .arg(halt.value(QStringLiteral("message")).toString(), halt.value(QStringLiteral("key")).toString());
    }
    Console::out(text);
}

// Shows a run on stderr: a line and a bar per job, and how each ended.
class RunDisplay {
public:
    explicit RunDisplay(bool quiet) : quiet_(quiet) {}

    void onEvent(const QueueServiceEvent& event)
    {
        std::lock_guard lock(mutex_);
        switch (event.kind) {
        case QueueServiceEvent::Kind::stateChanged:
            for (const QueueJob& job : event.jobs) {
                if (job.status == QueueJobStatus::running && current_ != job.id)
                    begin(job);
                else if (current_ == job.id && job.status != QueueJobStatus::running)
                    end(job);
            }
            if (current_ && std::none_of(event.jobs.begin(), event.jobs.end(), [this](const QueueJob& j) { return j.id == *current_; })) {
                finishBar();
                Console::err(QStringLiteral("  removed from the queue\n"));
                current_.reset();
            }
            break;
        case QueueServiceEvent::Kind::progress:
            if (bar_ && current_ == event.jobID)
                bar_->update(event.phase, event.fraction);
            break;
        case QueueServiceEvent::Kind::halted:
            finishBar();
            Console::err(QStringLiteral("Queue halted: %1\n").arg(event.message));
            break;
        case QueueServiceEvent::Kind::runFinished:
            finishBar();
            break;
        }
    }

private:
    void begin(const QueueJob& job)
    {
        finishBar();
        current_ = job.id;
        ++started_;
        if (!quiet_)
            Console::err(QStringLiteral("[%1] %2 → %3\n").arg(shortID(job.id), job.displayTitle, job.plannedOutputPath()));
        bar_ = std::make_unique<ProgressReporter>(quiet_                         ? ProgressReporter::Style::Quiet
                                                  : Console::stderrIsTerminal() ? ProgressReporter::Style::Bar
                                                                                : ProgressReporter::Style::Lines);
    }

    void end(const QueueJob& job)
    {
        finishBar();
        current_.reset();
        const QString error = job.lastErrorMessage().value_or(QString());
        switch (job.status) {
        case QueueJobStatus::completed:
            if (!quiet_)
                Console::err(QStringLiteral("  ✓ built: %1\n").arg(job.attempts.back().outcome->outputPath));
            break;
        case QueueJobStatus::cancelled: Console::err(QStringLiteral("  cancelled\n")); break;
        case QueueJobStatus::skipped: Console::err(QStringLiteral("  skipped: %1\n").arg(error)); break;
        case QueueJobStatus::pending: Console::err(QStringLiteral("  failed, will try again: %1\n").arg(error)); break;
        default: Console::err(QStringLiteral("  ✗ failed: %1\n").arg(error)); break;
        }
    }

    void finishBar()
    {
        if (bar_)
            bar_->finish();
        bar_.reset();
    }

    bool quiet_;
    std::mutex mutex_;
    std::optional<QUuid> current_;
    std::unique_ptr<ProgressReporter> bar_;
    int started_ = 0;
};

QStringList workerArguments(bool verbose)
{
    QStringList args{QStringLiteral("queue"), QStringLiteral("worker")};
    if (verbose)
        args << QStringLiteral("-v");
    return args;
}

int runQueue(const Common& c, bool resume)
{
    const QString sub = resume ? QStringLiteral("resume") : QStringLiteral("run");
    auto store = std::make_shared<QueueStore>();
    std::unique_ptr<QueueLock> runLock;
    try {
        runLock = QueueLock::take(store->runLockURL(), false, store->baseURL());
    } catch (const QueueError& e) {
        if (resume && e.kind() == QueueError::Kind::alreadyRunning) {
            // The run in the other terminal takes the jobs back.
            const QJsonObject reply = QueueControlChannel::send(store->baseURL(), {{QStringLiteral("command"), QStringLiteral("resume")}});
            if (!reply.value(QStringLiteral("ok")).toBool())
                return fail(sub, reply.value(QStringLiteral("error")).toString(), c.json);
            Console::err(QStringLiteral("%1 job(s) back to pending in the run of process %2\n")
                             .arg(reply.value(QStringLiteral("resumed")).toInt())
                             .arg(e.subject()));
            return ExitSuccess;
        }
        return fail(sub, e.description(), c.json);
    }

    std::shared_ptr<QueueService> service;
    std::shared_ptr<LibraryQueueBookSource> books;
    try {
        const auto editLock = QueueLock::take(store->editLockURL(), true);
        QueueService::Config config;
        config.parallelJobs = c.jobs;
        books = std::make_shared<LibraryQueueBookSource>(LibraryLocation::root(c.library.value_or(QString())));
        service = std::make_shared<QueueService>(
            store, std::make_shared<WorkerProcessJobBuilder>(QCoreApplication::applicationFilePath(), workerArguments(c.verbose)),
            books, config);
    } catch (const QueueError& e) {
        return fail(sub, e.description(), c.json);
    }
    service->onBookBuilt = [books](const QUuid& bookID, int revision, const QString&, const QStringList& files,
                                   const ExportSettings& settings) { books->recordBuild(bookID, revision, files, settings); };
    if (service->loadWarning())
        Console::err(QStringLiteral("folivox queue: warning: ") + *service->loadWarning() + u'\n');

    QueueController controller(service);
    QueueControlServer server(service);
    if (!server.listen())
        Console::err(QStringLiteral("folivox queue: warning: other terminals cannot reach this run (the control socket "
                                    "could not be opened)\n"));
    RunDisplay display(c.quiet);
    const int subscription = service->subscribe([&display](const QueueServiceEvent& e) { display.onEvent(e); });

    std::atomic<bool> interrupted{false};
    const int signalHook = SignalCancellation::onCancel([service, &interrupted] {
        // Ctrl-C: the running job is cancelled and the run stops.
        interrupted = true;
        service->stopAfterCurrent();
        if (const auto current = service->currentJobID()) {
            try {
                service->cancel(*current);
            } catch (const QueueError&) {
            }
        }
    });
    const auto cleanup = [&] {
        SignalCancellation::removeCallback(signalHook);
        service->unsubscribe(subscription);
    };

    bool started = false;
    if (resume) {
        const int resumed = service->resume();
        if (resumed == 0)
            Console::err(QStringLiteral("No interrupted jobs to resume.\n"));
        started = service->isProcessing();
    } else {
        started = controller.start();
    }
    if (!started) {
        cleanup();
        if (const auto halt = service->halt())
            return fail(sub, QStringLiteral("%1\nThe queue stays halted until a failed job is retried: folivox queue retry ID")
                                 .arg(halt->message),
                        c.json);
        const auto jobs = service->jobs();
        const auto interruptedJobs = std::count_if(jobs.begin(), jobs.end(), [](const QueueJob& j) { return j.status == QueueJobStatus::interrupted; });
        if (c.json)
            printJson({{QStringLiteral("status"), QStringLiteral("nothingToRun")}, {QStringLiteral("summary"), QueueRunSummary().toJson()}});
        if (!resume || interruptedJobs > 0)
            Console::err(interruptedJobs > 0
                             ? QStringLiteral("Nothing to run: %1 interrupted job(s) wait for 'folivox queue resume'.\n").arg(interruptedJobs)
                             : QStringLiteral("Nothing to run: no job is pending.\n"));
        return ExitSuccess;
    }

    QEventLoop loop;
    QObject::connect(&controller, &QueueController::runFinished, &loop, [&loop, &service] {
        // A job added at the very end starts the loop again.
        if (!service->isProcessing())
            loop.quit();
    });
    if (service->isProcessing())
        loop.exec();
    cleanup();

    const QueueRunSummary summary = service->lastRunSummary().value_or(QueueRunSummary());
    const auto halt = service->halt();
    if (c.json) {
        QJsonArray list;
        for (const QueueJob& job : service->jobs())
            list.append(jobListing(job));
        QJsonObject doc{{QStringLiteral("status"), interrupted ? QStringLiteral("cancelled")
                                                   : halt      ? QStringLiteral("halted")
                                                               : QStringLiteral("finished")},
                        {QStringLiteral("summary"), summary.toJson()},
                        {QStringLiteral("jobs"), list}};
        if (halt)
            doc.insert(QStringLiteral("halt"), haltListing(halt->toJson()));
        printJson(doc);
    }
    if (!c.quiet || !summary.allBuilt())
        Console::err(QStringLiteral("Queue: %1 built, %2 failed, %3 skipped, %4 cancelled.\n")
                         .arg(summary.built)
                         .arg(summary.failed)
                         .arg(summary.skipped)
                         .arg(summary.cancelled));
    if (interrupted)
        return ExitCancelled;
    return summary.allBuilt() && !halt ? ExitSuccess : ExitFailure;
}

int runWorker(const Common& c)
{
    Log::setVerbose(c.verbose);
    // The queue's process may die in any way; every signal that says so is
    // a request to cancel and clean up, however many arrive.
    SignalCancellation::setRepeatsEndProgram(false);
    SignalCancellation::install();
    // With the queue gone, a write to the pipe must not kill the worker
    // before it has stopped its children and removed its work: it fails,
    // and the build is cancelled.
    ::signal(SIGPIPE, SIG_IGN);
    std::shared_ptr<QueueWorker> worker;
    worker = std::make_shared<QueueWorker>([&worker](const QByteArray& line) {
        const bool written = std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stdout)
                                 == static_cast<size_t>(line.size());
        if (std::fflush(stdout) != 0 || !written)
            worker->stop();
    });
    const int hook = SignalCancellation::onCancel([worker] { worker->stop(); });
    const int status = worker->serve(STDIN_FILENO);
    SignalCancellation::removeCallback(hook);
    return status;
}

// One request to the queue, with its answer printed.
int simple(const QString& sub, const Common& c, const QString& idText)
{
    if (sub != u"stop" && idText.isEmpty())
        return fail(sub, QStringLiteral("give the job's id (or the start of it): folivox queue %1 ID").arg(sub), c.json, ExitUsage);
    QJsonObject request{{QStringLiteral("command"), sub}};
    if (!idText.isEmpty())
        request.insert(QStringLiteral("id"), idText);
    QJsonObject reply;
    try {
        reply = ask(request);
    } catch (const QueueError& e) {
        return fail(sub, e.description(), c.json);
    }
    if (!reply.value(QStringLiteral("ok")).toBool())
        return fail(sub, reply.value(QStringLiteral("error")).toString(), c.json, answerStatus(reply));
    const QString id = reply.value(QStringLiteral("id")).toString();
    if (sub == u"cancel" && reply.value(QStringLiteral("wasRunning")).toBool()) {
        // Wait until the run has stopped the build, so that the command
        // returns when the job is over.
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            const QJsonObject listing = ask({{QStringLiteral("command"), QStringLiteral("list")}});
            const std::vector<QueueJob> jobs = jobsOf(listing);
            const auto it = std::find_if(jobs.begin(), jobs.end(), [&id](const QueueJob& j) {
                return j.id.toString(QUuid::WithoutBraces).toUpper() == id;
            });
            if (it == jobs.end() || it->status != QueueJobStatus::running)
                break;
            if (timer.elapsed() > 60000)
                return fail(sub, QStringLiteral("the running job %1 has not stopped yet").arg(id.left(8)), c.json);
            QThread::msleep(50);
        }
    }
    const QString done = sub == u"cancel" ? QStringLiteral("cancelled")
                         : sub == u"retry" ? QStringLiteral("back to pending")
                         : sub == u"remove" ? QStringLiteral("removed")
                                            : QStringLiteral("the run stops after the current job");
    if (c.json) {
        QJsonObject doc{{QStringLiteral("status"), QStringLiteral("ok")}};
        if (!id.isEmpty())
            doc.insert(QStringLiteral("id"), id);
        printJson(doc);
    } else if (!c.quiet) {
        Console::err(id.isEmpty() ? done + u'\n' : QStringLiteral("%1 %2\n").arg(id.left(8), done));
    }
    return ExitSuccess;
}

int showLog(const Common& c)
{
    if (c.positional.isEmpty())
        return fail(QStringLiteral("log"), QStringLiteral("give the job's id: folivox queue log ID"), c.json, ExitUsage);
    QJsonObject listing;
    try {
        listing = ask({{QStringLiteral("command"), QStringLiteral("list")}});
    } catch (const QueueError& e) {
        return fail(QStringLiteral("log"), e.description(), c.json);
    }
    const QString wanted = c.positional.first().toUpper();
    std::vector<QueueJob> matches;
    for (const QueueJob& job : jobsOf(listing))
        if (job.id.toString(QUuid::WithoutBraces).toUpper().startsWith(wanted))
            matches.push_back(job);
    if (matches.size() != 1)
        return fail(QStringLiteral("log"),
                    matches.empty() ? QueueError::jobNotFound(c.positional.first()).description()
                                    : QueueError::ambiguousJob(c.positional.first(), QString()).description(),
                    c.json, ExitUsage);
    const QueueJob& job = matches.front();
    QFile file(QueueStore().logURL(job.id));
    if (!file.exists() || !file.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("log"), QStringLiteral("the job %1 has no log yet (it has not run)").arg(shortID(job.id)), c.json);
    const QString text = QString::fromUtf8(file.readAll());
    if (c.json)
        printJson({{QStringLiteral("id"), job.id.toString(QUuid::WithoutBraces).toUpper()},
                   {QStringLiteral("logFile"), file.fileName()},
                   {QStringLiteral("log"), text}});
    else
        Console::out(text);
    return ExitSuccess;
}

// ---- queue add

struct AddOptions {
    BuildOptions build;
    QStringList books;
    std::optional<QString> organize;
};

std::variant<AddOptions, QString> parseAdd(const QStringList& args)
{
    AddOptions a;
    QStringList rest;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args[i];
        if ((arg == u"--book" || arg == u"--organize") && i + 1 < args.size()) {
            (arg == u"--book" ? a.books : rest) << args[i + 1];
            if (arg == u"--organize") {
                rest.removeLast();
                a.organize = args[i + 1];
            }
            ++i;
        } else if (arg.startsWith(QStringLiteral("--book="))) {
            a.books << arg.mid(7);
        } else if (arg.startsWith(QStringLiteral("--organize="))) {
            a.organize = arg.mid(11);
        } else {
            rest << arg;
        }
    }
    if (!a.books.isEmpty())
        rest << QStringLiteral("--book") << a.books.first();
    const auto parsed = BuildOptionParser::parse(rest);
    if (const QString* error = std::get_if<QString>(&parsed))
        return *error;
    a.build = std::get<BuildOptions>(parsed);
    const BuildOptions& o = a.build;
    if (o.jobs)
        return QStringLiteral("-j belongs to the run: give it to 'folivox queue run'");
    if (o.logFile)
        return QStringLiteral("--log is not taken by queue add: each attempt's log is kept (folivox queue log ID)");
    if (!a.books.isEmpty()) {
        if (!o.tags.toJson().isEmpty() || o.cover || o.chapters || o.noSidecar || o.sort || o.skipUnreadable)
            return QStringLiteral("with --book the book is built with its own tags, cover and chapters: edit them in the "
                                  "library, or queue the files instead");
        if (a.books.size() > 1 && o.output && !QFileInfo(*o.output).isDir())
            return QStringLiteral("several books cannot share the output '%1': give -o a folder").arg(*o.output);
    }
    if (a.organize) {
        const QStringList unknown = OutputOrganization{*a.organize}.unknownPlaceholders();
        if (!unknown.isEmpty())
            return QStringLiteral("unknown placeholder {%1} in --organize: use %2")
                .arg(unknown.first(), OutputOrganization::placeholderNames().join(QStringLiteral(", ")));
    }
    return a;
}

bool settingsGiven(const BuildOptions& o)
{
    return o.preset || o.format || o.codec || o.bitrate || o.keepBitrate || o.channels || o.sampleRate || o.passthrough
        || o.splitHours || o.splitSizeMB || o.snapToChapters || o.coverSize || o.coverQuality
        || (o.output && !QFileInfo(*o.output).isDir());
}

int add(const QStringList& args)
{
    const bool json = args.contains(QStringLiteral("--json"));
    const auto parsed = parseAdd(args);
    if (const QString* error = std::get_if<QString>(&parsed))
        return fail(QStringLiteral("add"), *error, json, ExitUsage);
    const AddOptions& a = std::get<AddOptions>(parsed);
    const BuildOptions& o = a.build;
    Log::setVerbose(o.verbose);

    auto store = std::make_shared<QueueStore>();
    std::vector<QueueJob> existing;
    try {
        existing = jobsOf(ask({{QStringLiteral("command"), QStringLiteral("list")}}));
    } catch (const QueueError& e) {
        return fail(QStringLiteral("add"), e.description(), json);
    }

    auto token = std::make_shared<ManualCancellationToken>();
    CancelOnSignal cancelOnSignal(token);
    ProgressReporter progress = ProgressReporter::forConsole(o.quiet);
    BuildUseCase::Sinks sinks;
    sinks.progress = [&progress](const QString& phase, double fraction) { progress.update(phase, fraction); };
    sinks.note = [&progress](const QString& text) {
        progress.finish();
        Console::err(text + u'\n');
    };

    QueueEnqueuer::Request request;
    request.settingsGiven = settingsGiven(o);
    request.organization.folderTemplate = a.organize.value_or(QString());
    request.organizationPinned = a.organize.has_value();
    const QString libraryRoot = LibraryLocation::root(o.library.value_or(QString()));
    const qsizetype count = a.books.isEmpty() ? 1 : a.books.size();
    QJsonArray added;
    for (qsizetype i = 0; i < count; ++i) {
        QueueJob job;
        try {
            if (!a.books.isEmpty()) {
                try {
                    request.libraryBook = LibraryBookBuild::inputs(libraryRoot, a.books[i]);
                } catch (const Error& e) {
                    throw BuildFailure::failed(e.description(), libraryRoot);
                }
                request.build = BuildOptionParser::requestFrom(o, request.libraryBook->settings);
            } else {
                request.build = BuildOptionParser::requestFrom(o);
            }
            job = QueueEnqueuer::make(request, existing, *store, token, sinks);
            progress.finish();
        } catch (const BuildFailure& failure) {
            progress.finish();
            return BuildResultPrinter::printFailure(failure, json, o.quiet);
        } catch (const QueueError& e) {
            progress.finish();
            return fail(QStringLiteral("add"), e.description(), json);
        }
        if (!o.dryRun) {
            QJsonObject reply;
            try {
                reply = ask({{QStringLiteral("command"), QStringLiteral("add")}, {QStringLiteral("job"), job.toJson()}});
            } catch (const QueueError& e) {
                store->removeJobFolder(job.id);
                return fail(QStringLiteral("add"), e.description(), json);
            }
            if (!reply.value(QStringLiteral("ok")).toBool()) {
                store->removeJobFolder(job.id);
                return fail(QStringLiteral("add"), reply.value(QStringLiteral("error")).toString(), json, answerStatus(reply));
            }
        }
        existing.push_back(job);
        added.append(jobListing(job));
        if (!json)
            Console::out(QStringLiteral("%1 %2  %3 → %4\n")
                             .arg(o.dryRun ? QStringLiteral("would queue") : QStringLiteral("queued"), shortID(job.id),
                                  job.displayTitle, job.plannedOutputPath()));
    }
    if (json)
        printJson({{QStringLiteral("status"), o.dryRun ? QStringLiteral("planned") : QStringLiteral("queued")},
                   {QStringLiteral("jobs"), added}});
    return ExitSuccess;
}

} // namespace

QString QueueCommand::name() const
{
    return QStringLiteral("queue");
}

QString QueueCommand::summary() const
{
    return QStringLiteral("line up builds and run them one after the other");
}

QString QueueCommand::usage() const
{
    return QStringLiteral(
        "Usage: folivox queue SUBCOMMAND ...\n\n"
        "  add [build options] [--organize TEMPLATE] INPUT...\n"
        "                         queue a book from files and folders (imported now; the job keeps the book)\n"
        "  add [settings] --book ID [--book ID...]\n"
        "                         queue library books (read when their job runs)\n"
        "  list [--json]          every job: status, progress, attempts, last error; the halt, if any\n"
        "  run [-j N] [--json]    run the pending jobs in the foreground, one at a time, until the queue is\n"
        "                         empty, stopped or halted; Ctrl-C cancels the running job and stops\n"
        "  resume                 interrupted jobs back to pending, then run (or hand them to the running run)\n"
        "  stop                   the running run stops after its current job\n"
        "  cancel ID              cancel a pending job, or stop the running one\n"
        "  retry ID               a failed, cancelled, interrupted or skipped job back to pending; clears a halt\n"
        "  remove ID              take a job out of the queue (a running one is stopped first)\n"
        "  log ID                 the log of the job's last attempt\n\n"
        "ID is a job's id or the start of it (as 'queue list' shows it).\n"
        "'queue add' takes the options of 'folivox build' (see 'folivox build --help'), except -j and --log;\n"
        "with --book, only the settings options. -o is the destination: a folder (the book is named after\n"
        "its title, '<Title> (2).m4b' when another job already plans that name) or, for one book, a file.\n"
        "An output that exists already is refused unless -f is given. --dry-run shows the job without queuing it.\n"
        "--organize \"{author}/{series}/{title}\" puts each book into folders made from its tags (title, author,\n"
        "narrator, series, seriesIndex, year, genre; a folder whose values are all empty is left out).\n\n"
        "While 'queue run' works, the other subcommands given in another terminal act on that run at once.\n"
        "A second 'queue run' on the same queue is refused with the running one's process id.\n\n"
        "Options (every subcommand):\n"
        "  --json         print one JSON document on stdout\n"
        "  -q, --quiet    no progress\n"
        "  -v, --verbose  echo the diagnostic log on stderr\n"
        "  -h, --help     show this text\n\n"
        "Exit status: 0 done (for run: every job of the run built), 1 failed (for run: a job failed, was skipped\n"
        "or cancelled, or the queue halted), 2 usage error, 130 cancelled by Ctrl-C.\n");
}

int QueueCommand::run(const QStringList& args)
{
    if (args.isEmpty() || args.first() == u"-h" || args.first() == u"--help") {
        Console::out(usage());
        return args.isEmpty() ? ExitUsage : ExitSuccess;
    }
    const QString sub = args.first();
    const QStringList rest = args.mid(1);
    if (rest.contains(QStringLiteral("-h")) || rest.contains(QStringLiteral("--help"))) {
        Console::out(usage());
        return ExitSuccess;
    }
    if (sub == u"add")
        return add(rest);
    const bool json = rest.contains(QStringLiteral("--json"));
    const auto parsed = parseCommon(rest, sub == u"run" || sub == u"resume");
    if (const QString* error = std::get_if<QString>(&parsed))
        return fail(sub, *error, json, ExitUsage);
    const Common& c = std::get<Common>(parsed);
    Log::setVerbose(c.verbose && sub != u"worker");
    if (sub == u"worker")
        return runWorker(c);
    if (sub == u"run" || sub == u"resume")
        return runQueue(c, sub == u"resume");
    if (sub == u"list") {
        try {
            printListing(ask({{QStringLiteral("command"), QStringLiteral("list")}}), c.json);
        } catch (const QueueError& e) {
            return fail(sub, e.description(), c.json);
        }
        return ExitSuccess;
    }
    if (sub == u"log")
        return showLog(c);
    if (sub == u"stop" || sub == u"cancel" || sub == u"retry" || sub == u"remove") {
        if (sub == u"stop" && !QueueLock::holder(QueueStore().runLockURL()))
            return fail(sub, QueueError::noRun().description(), c.json);
        return simple(sub, c, c.positional.value(0));
    }
    return fail(sub, QStringLiteral("unknown subcommand '%1' (see folivox queue --help)").arg(sub), json, ExitUsage);
}

} // namespace folivox::cli
