#include "queue/run/WorkerProcessJobBuilder.h"

#include "process/ChildProcessReaper.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "queue/run/QueueWorkerProtocol.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace folivox {

struct WorkerProcessJobBuilder::Worker {
    QProcess process;
    std::shared_ptr<ChildProcessReaper::Entry> entry;
    std::thread::id owner;
    QByteArray pending; // output not yet a whole line
};

WorkerProcessJobBuilder::WorkerProcessJobBuilder(QString program, QStringList arguments, std::chrono::milliseconds grace)
    : program_(std::move(program))
    , arguments_(std::move(arguments))
    , grace_(grace)
{
}

WorkerProcessJobBuilder::~WorkerProcessJobBuilder()
{
    endWorker();
}

qint64 WorkerProcessJobBuilder::workerProcessId() const
{
    return worker_ ? worker_->process.processId() : 0;
}

void WorkerProcessJobBuilder::startWorker()
{
    auto worker = std::make_unique<Worker>();
    QProcess& process = worker->process;
    process.setProgram(program_);
    process.setArguments(arguments_);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const pid_t parent = ::getpid();
    process.setChildProcessModifier([parent] {
        // Asked to stop when the thread that started it ends, whatever way
        // the queue's process dies. If it died before this line, stop now.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent)
            ::_exit(130);
    });
    auto& reaper = ChildProcessReaper::instance();
    worker->entry = reaper.enter(program_);
    process.start();
    if (!process.waitForStarted(30000)) {
        reaper.leave(worker->entry);
        throw QueueBuildFailure::classified(
            JobAttempt::ErrorClass::transient,
            L10n::format(L10n::text("queue.error.workerStart", "the build could not be started (%@): %@"),
                         {program_, process.errorString()}));
    }
    reaper.launched(worker->entry, process.processId());
    worker->owner = std::this_thread::get_id();
    Log::write(QStringLiteral("[Queue] build worker PID=%1 started").arg(process.processId()));
    worker_ = std::move(worker);
}

void WorkerProcessJobBuilder::endWorker()
{
    if (!worker_)
        return;
    QProcess& process = worker_->process;
    if (process.state() != QProcess::NotRunning) {
        // The end of its input ends an idle worker at once.
        process.closeWriteChannel();
        if (!process.waitForFinished(static_cast<int>(grace_.count()))) {
            Log::write(QStringLiteral("[Queue] build worker PID=%1 did not end with its input — SIGKILL").arg(process.processId()));
            process.kill();
            process.waitForFinished(5000);
        }
    }
    ChildProcessReaper::instance().leave(worker_->entry);
    worker_.reset();
}

void WorkerProcessJobBuilder::runEnded()
{
    endWorker();
}

QueueJobBuilder::Built WorkerProcessJobBuilder::build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                                                      const BuildUseCase::Sinks& sinks)
{
    if (worker_) {
        worker_->process.waitForFinished(0); // notice a worker that ended since the last build
        if (worker_->owner != std::this_thread::get_id() || worker_->process.state() == QProcess::NotRunning)
            endWorker();
    }
    if (!worker_)
        startWorker();
    Worker& worker = *worker_;
    QProcess& process = worker.process;
    worker.pending.clear();
    process.write(QJsonDocument(order.toJson()).toJson(QJsonDocument::Compact) + '\n');
    process.waitForBytesWritten(5000);

    QueueWorkerProtocol::Ending ending;
    const auto ended = [&ending] { return ending.built || ending.failure; };
    const auto drain = [&] {
        worker.pending += process.readAllStandardOutput();
        qsizetype end;
        while (!ended() && (end = worker.pending.indexOf('\n')) >= 0) {
            QueueWorkerProtocol::read(worker.pending.left(end), sinks, ending);
            worker.pending.remove(0, end + 1);
        }
    };
    bool terminated = false;
    bool killed = false;
    QElapsedTimer sinceTerminate;
    // Until the build's end arrives; after a cancel, until the worker has
    // ended too, so that its children and work folder are gone.
    while (process.state() != QProcess::NotRunning && (terminated || !ended())) {
        process.waitForReadyRead(100);
        drain();
        if (token->isCancelled() && !terminated && !ended()) {
            Log::write(QStringLiteral("[Queue] cancel: SIGTERM to the build worker PID=%1").arg(process.processId()));
            process.terminate();
            terminated = true;
            sinceTerminate.start();
        }
        if (terminated && !killed && sinceTerminate.elapsed() > grace_.count()) {
            Log::write(QStringLiteral("[Queue] build worker PID=%1 still running after SIGTERM — SIGKILL").arg(process.processId()));
            process.kill();
            killed = true;
        }
        if (process.state() != QProcess::NotRunning)
            process.waitForFinished(0);
    }
    drain();
    const bool running = process.state() != QProcess::NotRunning;
    if (!running && !ended() && !worker.pending.isEmpty())
        QueueWorkerProtocol::read(worker.pending, sinks, ending);
    const QString how = process.exitStatus() == QProcess::CrashExit
                            ? QStringLiteral("it crashed")
                            : QStringLiteral("exit status %1").arg(process.exitCode());
    if (!running)
        endWorker(); // a new one for the next build

    if (ending.built)
        return *ending.built;
    if (ending.failure)
        throw *ending.failure;
    if (terminated)
        throw QueueBuildFailure::cancellation();
    Log::write(QStringLiteral("[Queue] build worker ended without a result (%1)").arg(how));
    throw QueueBuildFailure::classified(
        JobAttempt::ErrorClass::transient,
        L10n::format(L10n::text("queue.error.workerEnded", "the build stopped unexpectedly (%@)"), {how}));
}

} // namespace folivox
