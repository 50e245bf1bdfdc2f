#include "queue/WorkerProcessJobBuilder.h"

#include "process/ChildProcessReaper.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "queue/QueueWorkerProtocol.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace folivox {

WorkerProcessJobBuilder::WorkerProcessJobBuilder(QString program, QStringList arguments, std::chrono::milliseconds grace)
    : program_(std::move(program))
    , arguments_(std::move(arguments))
    , grace_(grace)
{
}

QueueJobBuilder::Built WorkerProcessJobBuilder::build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                                                      const BuildUseCase::Sinks& sinks)
{
    QProcess process;
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
    const auto entry = reaper.enter(program_);
    process.start();
    if (!process.waitForStarted(30000)) {
        reaper.leave(entry);
        throw QueueBuildFailure::classified(
            JobAttempt::ErrorClass::transient,
            L10n::format(L10n::text("queue.error.workerStart", "the build could not be started (%@): %@"),
                         {program_, process.errorString()}));
    }
    reaper.launched(entry, process.processId());
    process.write(QJsonDocument(order.toJson()).toJson(QJsonDocument::Compact));
    process.closeWriteChannel();

    QueueWorkerProtocol::Ending ending;
    QByteArray pending;
    const auto drain = [&] {
        pending += process.readAllStandardOutput();
        qsizetype end;
        while ((end = pending.indexOf('\n')) >= 0) {
            QueueWorkerProtocol::read(pending.left(end), sinks, ending);
            pending.remove(0, end + 1);
        }
    };
    bool terminated = false;
    bool killed = false;
    QElapsedTimer sinceTerminate;
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        drain();
        if (token->isCancelled() && !terminated) {
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
    if (!pending.isEmpty())
        QueueWorkerProtocol::read(pending, sinks, ending);
    reaper.leave(entry);

    if (ending.built)
        return *ending.built;
    if (ending.failure)
        throw *ending.failure;
    if (terminated)
        throw QueueBuildFailure::cancellation();
    const QString how = process.exitStatus() == QProcess::CrashExit
                            ? QStringLiteral("it crashed")
                            : QStringLiteral("exit status %1").arg(process.exitCode());
    Log::write(QStringLiteral("[Queue] build worker ended without a result (%1)").arg(how));
    throw QueueBuildFailure::classified(
        JobAttempt::ErrorClass::transient,
        L10n::format(L10n::text("queue.error.workerEnded", "the build stopped unexpectedly (%@)"), {how}));
}

} // namespace folivox
