// The build worker process with real builds: one worker serves a run's
// builds, a worker that died or was cancelled is replaced, the end of a run
// ends it, and the end of its input (the queue gone) cancels its build and
// leaves no work folder and no child behind.
#include "queue/QueueTestSupport.h"

#include "build/BuildUseCase.h"
#include "process/ManualCancellationToken.h"
#include "queue/records/QueueBuildOrder.h"
#include "queue/run/QueueWorkerProtocol.h"
#include "queue/run/WorkerProcessJobBuilder.h"
#include "support/ChildProcessCheck.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sys/wait.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

QStringList workDebris()
{
    const QString work = QDir(qEnvironmentVariable("TMPDIR")).filePath(QStringLiteral("FolivoxWork"));
    return QDir(work).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

bool alive(qint64 pid)
{
    // A zombie is not alive: the worker's parent (this test) may not have reaped it yet.
    const QByteArray stat = Fixtures::readFile(QStringLiteral("/proc/%1/stat").arg(pid));
    const qsizetype close = stat.lastIndexOf(')');
    return close > 0 && close + 2 < stat.size() && stat.at(close + 2) != 'Z';
}

class QueueWorkerTest : public ::testing::Test {
protected:
    QTemporaryDir dir;

    void SetUp() override
    {
        if (test::CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox binary is not built";
    }

    // An order for a book of one tone of `seconds`.
    QueueBuildOrder order(const QString& name, double seconds)
    {
        const QString folder = dir.filePath(QStringLiteral("in/") + name);
        QDir().mkpath(folder);
        EXPECT_TRUE(Fixtures::tone(QDir(folder).filePath(QStringLiteral("01.wav")), seconds, {}, 22050, 1));
        BuildRequest request;
        request.inputs = {folder};
        request.tags.title = name;
        QueueBuildOrder o;
        o.book = BuildUseCase().importBook(request, std::make_shared<ManualCancellationToken>());
        o.outputPath = dir.filePath(QStringLiteral("out/") + name + QStringLiteral(".m4b"));
        o.parallelJobs = 1;
        QDir().mkpath(dir.filePath(QStringLiteral("out")));
        return o;
    }

    WorkerProcessJobBuilder builder{test::CommandRunner::folivoxBinary(), {QStringLiteral("queue"), QStringLiteral("worker")}};
};

} // namespace

TEST_F(QueueWorkerTest, OneWorkerServesTheRunAndIsReplacedWhenItDiesOrIsCancelled)
{
    const auto build = [this](const QueueBuildOrder& o) {
        return builder.build(o, std::make_shared<ManualCancellationToken>(), {});
    };

    // Two builds, one worker.
    const QueueBuildOrder first = order(QStringLiteral("First"), 2);
    EXPECT_EQ(build(first).outputPath, first.outputPath);
    const qint64 worker = builder.workerProcessId();
    ASSERT_GT(worker, 0);
    EXPECT_TRUE(alive(worker));
    const QueueBuildOrder second = order(QStringLiteral("Second"), 2);
    EXPECT_EQ(build(second).outputPath, second.outputPath);
    EXPECT_EQ(builder.workerProcessId(), worker);
    EXPECT_NEAR(Fixtures::decodedDuration(second.outputPath), 2, 0.1);

    // A worker that died between builds: the next build has a new one.
    ASSERT_EQ(::kill(static_cast<pid_t>(worker), SIGKILL), 0);
    const QueueBuildOrder third = order(QStringLiteral("Third"), 2);
    EXPECT_EQ(build(third).outputPath, third.outputPath);
    const qint64 replacement = builder.workerProcessId();
    EXPECT_GT(replacement, 0);
    EXPECT_NE(replacement, worker);

    // A cancel stops the build and the worker with it: its children and
    // work folder are gone when build() returns.
    const QueueBuildOrder longOne = order(QStringLiteral("Long"), 300);
    auto token = std::make_shared<ManualCancellationToken>();
    BuildUseCase::Sinks sinks;
    sinks.progress = [token](const QString&, double fraction) {
        if (fraction > 0.02)
            token->cancel();
    };
    try {
        builder.build(longOne, token, sinks);
        ADD_FAILURE() << "the cancelled build made a book";
    } catch (const QueueBuildFailure& f) {
        EXPECT_TRUE(f.cancelled) << f.message.toStdString();
    }
    EXPECT_EQ(builder.workerProcessId(), 0);
    EXPECT_FALSE(alive(replacement));
    EXPECT_TRUE(test::liveChildren().isEmpty());
    EXPECT_TRUE(workDebris().isEmpty()) << workDebris().join(u' ').toStdString();
    EXPECT_FALSE(QFileInfo::exists(longOne.outputPath));

    // The next build after a cancel has a worker again; the end of the run ends it.
    const QueueBuildOrder fourth = order(QStringLiteral("Fourth"), 2);
    EXPECT_EQ(build(fourth).outputPath, fourth.outputPath);
    const qint64 last = builder.workerProcessId();
    ASSERT_GT(last, 0);
    builder.runEnded();
    EXPECT_EQ(builder.workerProcessId(), 0);
    EXPECT_FALSE(alive(last));
    EXPECT_TRUE(test::liveChildren().isEmpty());
}

TEST_F(QueueWorkerTest, TheEndOfItsInputCancelsTheBuildAndTheWorkerCleansUp)
{
    const QueueBuildOrder longOne = order(QStringLiteral("Long"), 300);
    QProcess worker;
    worker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    worker.start(test::CommandRunner::folivoxBinary(), {QStringLiteral("queue"), QStringLiteral("worker")});
    ASSERT_TRUE(worker.waitForStarted(10000));
    worker.write(QJsonDocument(longOne.toJson()).toJson(QJsonDocument::Compact) + '\n');

    // Until it encodes, with the decoded book in its work folder.
    QByteArray output;
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < 60000 && !(output.contains("\"progress\"") && workDebris().size() > 0)) {
        worker.waitForReadyRead(50);
        output += worker.readAllStandardOutput();
    }
    ASSERT_TRUE(output.contains("\"progress\"")) << output.constData();
    ASSERT_FALSE(workDebris().isEmpty());

    // The queue closes its end of the pipe (as the kernel does when the
    // queue's process dies): no signal at all, and the worker still stops.
    worker.closeWriteChannel();
    ASSERT_TRUE(worker.waitForFinished(5000));
    output += worker.readAllStandardOutput();
    QueueWorkerProtocol::Ending ending;
    for (const QByteArray& line : output.split('\n'))
        QueueWorkerProtocol::read(line, {}, ending);
    ASSERT_TRUE(ending.failure) << output.constData();
    EXPECT_TRUE(ending.failure->cancelled);
    EXPECT_FALSE(ending.built);
    EXPECT_TRUE(workDebris().isEmpty()) << workDebris().join(u' ').toStdString();
    EXPECT_FALSE(QFileInfo::exists(longOne.outputPath));
    // Its ffmpeg went with it (children of the worker come here once it has ended).
    for (int child : test::liveChildren())
        ::waitpid(child, nullptr, WNOHANG);
    EXPECT_TRUE(test::CommandRunner::processesMentioning(dir.path()).isEmpty())
        << test::CommandRunner::processesMentioning(dir.path()).join(u'\n').toStdString();
}
