// `folivox queue` as a user drives it, with real builds in its worker
// processes: a run in order, a kill -9 in the middle of a job, a cancel and a
// list from another terminal, a library book removed after queuing, a
// destination that fills up, and logs without the home folder.
#include "support/ChildProcessCheck.h"
#include "support/CommandRunner.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"
#include "support/SmallVolume.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

using namespace folivox::test;

namespace {

QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

// The children of process `pid` (of all its threads), read from /proc.
QList<int> childrenOf(qint64 pid)
{
    QList<int> found;
    const QString tasks = QStringLiteral("/proc/%1/task").arg(pid);
    for (const QString& tid : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        for (const QByteArray& child : Fixtures::readFile(tasks + u'/' + tid + QStringLiteral("/children")).split(' '))
            if (!child.trimmed().isEmpty())
                found << child.trimmed().toInt();
    return found;
}

QString commandLine(int pid)
{
    return QString::fromUtf8(Fixtures::readFile(QStringLiteral("/proc/%1/cmdline").arg(pid)).replace('\0', ' ')).trimmed();
}

// What is in the temporary work folders: one line per folder, with its files.
QStringList workDebris()
{
    const QString work = QDir(qEnvironmentVariable("TMPDIR")).filePath(QStringLiteral("FolivoxWork"));
    QStringList debris;
    for (const QString& e : entries(work))
        debris << e + QStringLiteral(": ") + entries(QDir(work).filePath(e)).join(u' ');
    return debris;
}

// Reaps this process's children as they end (orphans of a killed run come
// here, as to a subreaper) until none is left and the work folders are
// gone, or the time is up. Gives the command lines of the children left.
QStringList waitForChildrenAndWorkToGo(int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    QList<int> left = liveChildren();
    while ((!left.isEmpty() || !workDebris().isEmpty()) && t.elapsed() < timeoutMs) {
        for (int child : left)
            ::waitpid(child, nullptr, WNOHANG);
        QThread::msleep(20);
        left = liveChildren();
    }
    QStringList commands;
    for (int child : left)
        commands << commandLine(child);
    return commands;
}

class QueueCommandTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    std::unique_ptr<ScopedEnvironment> home;
    std::unique_ptr<ScopedEnvironment> library;

    void SetUp() override
    {
        if (CommandRunner::folivoxBinary().isEmpty())
            GTEST_SKIP() << "the folivox binary is not built";
        // A queue (and library) of this test's own.
        home = std::make_unique<ScopedEnvironment>("FOLIVOX_HOME", dir.filePath(QStringLiteral("home")));
        library = std::make_unique<ScopedEnvironment>("FOLIVOX_LIBRARY", dir.filePath(QStringLiteral("home/Library")));
        QDir().mkpath(out());
    }

    QString out() const { return dir.filePath(QStringLiteral("out")); }

    CommandRun folivox(const QStringList& args, int timeoutMs = 300000) { return CommandRunner::run(args, dir.path(), timeoutMs); }

    // A folder with one tone of `seconds` (WAV: the build encodes it).
    QString source(const QString& name, double seconds, int frequency = 440)
    {
        const QString folder = dir.filePath(QStringLiteral("in/") + name);
        QDir().mkpath(folder);
        EXPECT_TRUE(Fixtures::tone(QDir(folder).filePath(QStringLiteral("01.wav")), seconds, {}, 22050, 1, frequency));
        return folder;
    }

    // Queues a folder; gives the job's id.
    QString add(const QString& folder, const QString& title, const QStringList& extra = {})
    {
        const CommandRun r = folivox(QStringList{QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("--json"),
                                                 QStringLiteral("-o"), out(), QStringLiteral("--title"), title}
                                     + extra + QStringList{folder});
        EXPECT_EQ(r.exitCode, 0) << r.errText().toStdString();
        return r.json().value(QStringLiteral("jobs")).toArray().at(0).toObject().value(QStringLiteral("id")).toString();
    }

    QJsonObject list()
    {
        const CommandRun r = folivox({QStringLiteral("queue"), QStringLiteral("list"), QStringLiteral("--json")});
        EXPECT_EQ(r.exitCode, 0) << r.errText().toStdString();
        return r.json();
    }

    QJsonObject job(const QString& id)
    {
        for (const QJsonValue& v : list().value(QStringLiteral("jobs")).toArray())
            if (v.toObject().value(QStringLiteral("id")).toString() == id)
                return v.toObject();
        return {};
    }

    QStringList statuses()
    {
        QStringList s;
        for (const QJsonValue& v : list().value(QStringLiteral("jobs")).toArray())
            s << v.toObject().value(QStringLiteral("status")).toString();
        return s;
    }

    // `queue run` started in the background.
    std::unique_ptr<QProcess> startRun(const QStringList& extra = {})
    {
        auto p = std::make_unique<QProcess>();
        p->setWorkingDirectory(dir.path());
        p->setStandardInputFile(QProcess::nullDevice());
        p->start(CommandRunner::folivoxBinary(), QStringList{QStringLiteral("queue"), QStringLiteral("run"), QStringLiteral("--json")} + extra);
        EXPECT_TRUE(p->waitForStarted(10000));
        return p;
    }

    // Waits until the job runs and its build has made some progress.
    bool waitUntilBuilding(const QString& id, int timeoutMs = 60000)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < timeoutMs) {
            const QJsonObject j = job(id);
            if (j.value(QStringLiteral("status")).toString() == u"running" && j.value(QStringLiteral("progress")).toDouble() > 0.02)
                return true;
            QThread::msleep(50);
        }
        return false;
    }
};

} // namespace

TEST_F(QueueCommandTest, ThreeJobsRunInListOrderAndEndCompleted)
{
    QStringList ids;
    for (int i = 1; i <= 3; ++i)
        ids << add(source(QStringLiteral("b%1").arg(i), 3, 300 + 100 * i), QStringLiteral("Book %1").arg(i));
    EXPECT_EQ(statuses(), (QStringList{QStringLiteral("pending"), QStringLiteral("pending"), QStringLiteral("pending")}));

    // A default name another job already plans gets a number.
    const CommandRun same = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("--dry-run"), QStringLiteral("--json"),
                                     QStringLiteral("-o"), out(), QStringLiteral("--title"), QStringLiteral("Book 1"),
                                     dir.filePath(QStringLiteral("in/b1"))});
    EXPECT_EQ(same.exitCode, 0) << same.errText().toStdString();
    EXPECT_EQ(same.json().value(QStringLiteral("jobs")).toArray().at(0).toObject().value(QStringLiteral("output")).toString(),
              QDir(out()).filePath(QStringLiteral("Book 1 (2).m4b")));
    // A name the user gave that a job plans is refused, and so is a file that is there.
    const CommandRun taken = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("-o"),
                                      QDir(out()).filePath(QStringLiteral("Book 2.m4b")), dir.filePath(QStringLiteral("in/b1"))});
    EXPECT_EQ(taken.exitCode, 1);
    EXPECT_TRUE(taken.errText().contains(ids[1].left(8))) << taken.errText().toStdString();
    ASSERT_TRUE(Fixtures::writeFile(QDir(out()).filePath(QStringLiteral("Mine.m4b")), "the user's own file"));
    const CommandRun exists = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("-o"),
                                       QDir(out()).filePath(QStringLiteral("Mine.m4b")), dir.filePath(QStringLiteral("in/b1"))});
    EXPECT_EQ(exists.exitCode, 1);
    EXPECT_TRUE(exists.errText().contains(QStringLiteral("already exists"))) << exists.errText().toStdString();
    EXPECT_EQ(list().value(QStringLiteral("jobs")).toArray().size(), 3);

    const CommandRun run = folivox({QStringLiteral("queue"), QStringLiteral("run"), QStringLiteral("--json")});
    EXPECT_EQ(run.exitCode, 0) << run.errText().toStdString();
    const QJsonObject summary = run.json().value(QStringLiteral("summary")).toObject();
    EXPECT_EQ(summary.value(QStringLiteral("built")).toInt(), 3);
    EXPECT_EQ(summary.value(QStringLiteral("failed")).toInt(), 0);
    EXPECT_EQ(statuses(), (QStringList{QStringLiteral("completed"), QStringLiteral("completed"), QStringLiteral("completed")}));
    // In list order: each attempt started after the one before ended.
    QString previousEnd;
    const QByteArray file = Fixtures::readFile(dir.filePath(QStringLiteral("home/Queue/queue.json")));
    const QJsonArray saved = QJsonDocument::fromJson(file).object().value(QStringLiteral("jobs")).toArray();
    ASSERT_EQ(saved.size(), 3);
    for (int i = 0; i < 3; ++i) {
        const QJsonObject j = saved.at(i).toObject();
        EXPECT_EQ(j.value(QStringLiteral("id")).toString(), ids[i]);
        const QJsonObject attempt = j.value(QStringLiteral("attempts")).toArray().at(0).toObject();
        EXPECT_GE(attempt.value(QStringLiteral("startedAt")).toString(), previousEnd);
        previousEnd = attempt.value(QStringLiteral("endedAt")).toString();
        EXPECT_GT(Fixtures::decodedDuration(QDir(out()).filePath(QStringLiteral("Book %1.m4b").arg(i + 1))), 2.9);
    }
    EXPECT_TRUE(run.errText().contains(QStringLiteral("✓ built")));
    // Nothing left to run is not a failure.
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("run")}).exitCode, 0);
    // The log of a job.
    const CommandRun log = folivox({QStringLiteral("queue"), QStringLiteral("log"), ids[0].left(6)});
    EXPECT_EQ(log.exitCode, 0);
    EXPECT_TRUE(log.out.contains("success")) << log.out.left(300).constData();
}

TEST_F(QueueCommandTest, AKilledRunLeavesTheJobInterruptedNoOutputAndNoProcess)
{
    // Orphans of the killed run come to this process, so that none can hide.
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const QString big = add(source(QStringLiteral("long"), 300), QStringLiteral("Long"));
    const QString small = add(source(QStringLiteral("small"), 2), QStringLiteral("Small"));

    auto run = startRun({QStringLiteral("-j"), QStringLiteral("1")});
    ASSERT_TRUE(waitUntilBuilding(big)) << run->readAllStandardError().constData();
    const qint64 pid = run->processId();
    ASSERT_EQ(::kill(static_cast<pid_t>(pid), SIGKILL), 0);
    ASSERT_TRUE(run->waitForFinished(10000));

    // The build worker and its ffmpeg stop by themselves, and the worker
    // removes its work folder on the way: nothing is left for a later run
    // to sweep.
    const QStringList left = waitForChildrenAndWorkToGo(5000);
    EXPECT_TRUE(left.isEmpty()) << "processes left after the kill:\n" << left.join(u'\n').toStdString();
    EXPECT_TRUE(workDebris().isEmpty()) << workDebris().join(u'\n').toStdString();
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    EXPECT_TRUE(entries(out()).isEmpty()) << entries(out()).join(u' ').toStdString();

    EXPECT_EQ(job(big).value(QStringLiteral("status")).toString(), QStringLiteral("interrupted"));
    EXPECT_EQ(job(big).value(QStringLiteral("progress")).toDouble(), 0.0);
    // A plain run leaves it alone and builds the rest.
    const CommandRun plain = folivox({QStringLiteral("queue"), QStringLiteral("run")});
    EXPECT_EQ(plain.exitCode, 0) << plain.errText().toStdString();
    EXPECT_EQ(job(big).value(QStringLiteral("status")).toString(), QStringLiteral("interrupted"));
    EXPECT_EQ(job(small).value(QStringLiteral("status")).toString(), QStringLiteral("completed"));
    EXPECT_TRUE(folivox({QStringLiteral("queue"), QStringLiteral("run")}).errText().contains(QStringLiteral("queue resume")));
    // Resume builds it; the interrupted attempt stays in its history.
    const CommandRun resumed = folivox({QStringLiteral("queue"), QStringLiteral("resume"), QStringLiteral("-j"), QStringLiteral("2")});
    EXPECT_EQ(resumed.exitCode, 0) << resumed.errText().toStdString();
    EXPECT_EQ(job(big).value(QStringLiteral("status")).toString(), QStringLiteral("completed"));
    EXPECT_EQ(job(big).value(QStringLiteral("attempts")).toInt(), 2);
    EXPECT_NEAR(Fixtures::decodedDuration(QDir(out()).filePath(QStringLiteral("Long.m4b"))), 300, 1);
}

TEST_F(QueueCommandTest, AKilledRunsWorkerRemovesItsWorkFolderItselfEvenWhenTheSignalComesAgain)
{
    ASSERT_EQ(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const QString big = add(source(QStringLiteral("long"), 300), QStringLiteral("Long"));
    auto run = startRun({QStringLiteral("-j"), QStringLiteral("1")});
    // Until the worker encodes, with the decoded book (PCM) in its work folder.
    QElapsedTimer t;
    t.start();
    while (!workDebris().join(u' ').contains(QStringLiteral(".pcm")) && t.elapsed() < 60000)
        QThread::msleep(20);
    ASSERT_TRUE(workDebris().join(u' ').contains(QStringLiteral(".pcm"))) << run->readAllStandardError().constData();
    ASSERT_TRUE(waitUntilBuilding(big)) << run->readAllStandardError().constData();
    int worker = 0;
    for (int child : childrenOf(run->processId()))
        if (commandLine(child).contains(QStringLiteral("queue worker")))
            worker = child;
    ASSERT_GT(worker, 0);

    // The kernel tells the worker of its parent's death once for every
    // thread of `queue run` that ends after the one that started it, so a
    // kill -9 can bring the signal two or three times within milliseconds.
    // Two more here, each after the one before has been taken (a signal
    // sent while the same one is pending counts once), make that case
    // certain: each is the same request, to stop and clean up, and none may
    // end the worker before it has.
    ASSERT_EQ(::kill(static_cast<pid_t>(run->processId()), SIGKILL), 0);
    for (int i = 0; i < 2; ++i) {
        QThread::msleep(10);
        ::kill(worker, SIGTERM);
    }
    ASSERT_TRUE(run->waitForFinished(10000));

    const QStringList left = waitForChildrenAndWorkToGo(5000);
    EXPECT_TRUE(left.isEmpty()) << "processes left after the kill:\n" << left.join(u'\n').toStdString();
    EXPECT_TRUE(workDebris().isEmpty()) << workDebris().join(u'\n').toStdString();
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    EXPECT_TRUE(entries(out()).isEmpty()) << entries(out()).join(u' ').toStdString();
    EXPECT_EQ(job(big).value(QStringLiteral("status")).toString(), QStringLiteral("interrupted"));
}

TEST_F(QueueCommandTest, AnotherTerminalListsAndCancelsTheRunningJobAtOnce)
{
    const QString big = add(source(QStringLiteral("long"), 300), QStringLiteral("Long"));
    const QString next = add(source(QStringLiteral("next"), 2), QStringLiteral("Next"));
    auto run = startRun({QStringLiteral("-j"), QStringLiteral("1")});
    ASSERT_TRUE(waitUntilBuilding(big)) << run->readAllStandardError().constData();

    const QJsonObject live = list();
    EXPECT_TRUE(live.value(QStringLiteral("running")).toBool());
    EXPECT_EQ(live.value(QStringLiteral("pid")).toInteger(), run->processId());
    EXPECT_FALSE(job(big).value(QStringLiteral("progressPhase")).toString().isEmpty());

    const CommandRun second = folivox({QStringLiteral("queue"), QStringLiteral("run")});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_TRUE(second.errText().contains(QString::number(run->processId()))) << second.errText().toStdString();

    // stop: the run ends after the current job, which the cancel then stops.
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("stop")}).exitCode, 0);
    QElapsedTimer t;
    t.start();
    const CommandRun cancel = folivox({QStringLiteral("queue"), QStringLiteral("cancel"), big.left(8)});
    const qint64 took = t.elapsed();
    EXPECT_EQ(cancel.exitCode, 0) << cancel.errText().toStdString();
    EXPECT_LT(took, 1000) << "the running job took " << took << " ms to stop";
    EXPECT_EQ(job(big).value(QStringLiteral("status")).toString(), QStringLiteral("cancelled"));

    ASSERT_TRUE(run->waitForFinished(30000));
    EXPECT_EQ(run->exitCode(), 1); // not everything built
    const QJsonObject summary = QJsonDocument::fromJson(run->readAllStandardOutput()).object().value(QStringLiteral("summary")).toObject();
    EXPECT_EQ(summary.value(QStringLiteral("cancelled")).toInt(), 1);
    EXPECT_EQ(summary.value(QStringLiteral("failed")).toInt(), 0);
    EXPECT_EQ(job(next).value(QStringLiteral("status")).toString(), QStringLiteral("pending"));
    EXPECT_TRUE(entries(out()).isEmpty()) << entries(out()).join(u' ').toStdString();

    // Without a run, cancel and remove act on the file; stop has nothing to stop.
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("stop")}).exitCode, 1);
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("cancel"), next}).exitCode, 0);
    EXPECT_EQ(job(next).value(QStringLiteral("status")).toString(), QStringLiteral("cancelled"));
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("remove"), next}).exitCode, 0);
    EXPECT_EQ(list().value(QStringLiteral("jobs")).toArray().size(), 1);
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("cancel"), QStringLiteral("FFFFFFFF")}).exitCode, 2);
}

TEST_F(QueueCommandTest, ABookRemovedFromTheLibraryIsSkippedAndTheNextIsBuiltAndRecorded)
{
    for (const QString& name : {QStringLiteral("first"), QStringLiteral("second")}) {
        const QString folder = source(name, 2, name == u"first" ? 330 : 550);
        const CommandRun added = folivox({QStringLiteral("library"), QStringLiteral("add"), folder});
        ASSERT_EQ(added.exitCode, 0) << added.errText().toStdString();
    }
    const CommandRun books = folivox({QStringLiteral("library"), QStringLiteral("list"), QStringLiteral("--json")});
    QMap<QString, QString> ids;
    for (const QJsonValue& v : books.json().value(QStringLiteral("books")).toArray())
        ids.insert(v.toObject().value(QStringLiteral("title")).toString(), v.toObject().value(QStringLiteral("id")).toString());
    ASSERT_EQ(ids.size(), 2) << books.out.constData();
    const QString first = ids.value(QStringLiteral("first"));
    const QString second = ids.value(QStringLiteral("second"));

    for (const QString& id : {first, second}) {
        const CommandRun r = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("-o"), out(), QStringLiteral("--book"), id});
        ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
    }
    // Tags cannot travel with a library book's job.
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("--title"), QStringLiteral("X"),
                       QStringLiteral("--book"), second})
                  .exitCode,
              2);
    ASSERT_EQ(folivox({QStringLiteral("library"), QStringLiteral("remove"), first}).exitCode, 0);

    const CommandRun run = folivox({QStringLiteral("queue"), QStringLiteral("run"), QStringLiteral("--json")});
    EXPECT_EQ(run.exitCode, 1) << run.errText().toStdString();
    const QJsonObject summary = run.json().value(QStringLiteral("summary")).toObject();
    EXPECT_EQ(summary.value(QStringLiteral("skipped")).toInt(), 1);
    EXPECT_EQ(summary.value(QStringLiteral("built")).toInt(), 1);
    const QJsonArray jobs = list().value(QStringLiteral("jobs")).toArray();
    EXPECT_EQ(jobs.at(0).toObject().value(QStringLiteral("status")).toString(), QStringLiteral("skipped"));
    EXPECT_EQ(jobs.at(0).toObject().value(QStringLiteral("lastError")).toString(), QStringLiteral("Book was removed from the library."));
    EXPECT_EQ(jobs.at(1).toObject().value(QStringLiteral("status")).toString(), QStringLiteral("completed"));
    EXPECT_TRUE(QFileInfo::exists(QDir(out()).filePath(QStringLiteral("second.m4b")))) << entries(out()).join(u' ').toStdString();
    // The library knows the book was built.
    const CommandRun shown = folivox({QStringLiteral("library"), QStringLiteral("show"), second, QStringLiteral("--json")});
    EXPECT_FALSE(shown.json().value(QStringLiteral("rebuildDue")).toBool()) << shown.out.constData();
}

TEST_F(QueueCommandTest, ADestinationThatFillsUpHaltsTheQueueUntilARetry)
{
    // The size of one book, from a build of the same audio elsewhere.
    const QString sample = source(QStringLiteral("sample"), 6, 300);
    const QString probe = dir.filePath(QStringLiteral("probe.m4b"));
    ASSERT_EQ(folivox({QStringLiteral("build"), QStringLiteral("-q"), QStringLiteral("-o"), probe, sample}).exitCode, 0);
    const qint64 pages = (QFileInfo(probe).size() + 4095) / 4096;

    const QByteArray options = QByteArrayLiteral("size=") + QByteArray::number((2 * pages + pages / 2) * 4096);
    const SmallVolume volume(dir.filePath(QStringLiteral("small")), options);
    if (!volume.mounted())
        GTEST_SKIP() << volume.failure().toStdString();
    const QString small = volume.path();

    QStringList ids;
    for (int i = 1; i <= 5; ++i) {
        const QString folder = dir.filePath(QStringLiteral("in/s%1").arg(i));
        QDir().mkpath(folder);
        ASSERT_TRUE(QFile::copy(QDir(sample).filePath(QStringLiteral("01.wav")), QDir(folder).filePath(QStringLiteral("01.wav"))));
        const CommandRun r = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("--json"), QStringLiteral("-o"), small,
                                      QStringLiteral("--title"), QStringLiteral("Book %1").arg(i), folder});
        ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
        ids << r.json().value(QStringLiteral("jobs")).toArray().at(0).toObject().value(QStringLiteral("id")).toString();
    }

    const CommandRun run = folivox({QStringLiteral("queue"), QStringLiteral("run"), QStringLiteral("--json")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(statuses(), (QStringList{"completed", "completed", "failed", "pending", "pending"}));
    const QJsonObject listing = list();
    EXPECT_EQ(listing.value(QStringLiteral("halt")).toObject().value(QStringLiteral("key")).toString(), QStringLiteral("queue.halt.outOfSpace"));
    EXPECT_EQ(job(ids[2]).value(QStringLiteral("lastErrorClass")).toString(), QStringLiteral("environment"));
    // No partial output of the third book, nothing else left behind.
    EXPECT_EQ(entries(small), (QStringList{QStringLiteral("Book 1.m4b"), QStringLiteral("Book 2.m4b")}));
    EXPECT_GT(Fixtures::decodedDuration(QDir(small).filePath(QStringLiteral("Book 2.m4b"))), 5.9);

    // Refused until a retry.
    const CommandRun refused = folivox({QStringLiteral("queue"), QStringLiteral("run")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_TRUE(refused.errText().contains(QStringLiteral("The disk ran out of space — the queue is paused."))) << refused.errText().toStdString();
    EXPECT_EQ(statuses(), (QStringList{"completed", "completed", "failed", "pending", "pending"}));

    ASSERT_TRUE(QFile::remove(QDir(small).filePath(QStringLiteral("Book 1.m4b")))); // room for one more
    EXPECT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("retry"), ids[2].left(8)}).exitCode, 0);
    EXPECT_FALSE(list().contains(QStringLiteral("halt")));
    folivox({QStringLiteral("queue"), QStringLiteral("run")});
    EXPECT_EQ(job(ids[2]).value(QStringLiteral("status")).toString(), QStringLiteral("completed"));
    EXPECT_EQ(job(ids[3]).value(QStringLiteral("status")).toString(), QStringLiteral("failed"));
    EXPECT_TRUE(list().contains(QStringLiteral("halt")));
}

TEST_F(QueueCommandTest, ADestinationOnAReadOnlyDiskHaltsTheQueueAndLeavesTheOtherJobsWaiting)
{
    const QString sample = source(QStringLiteral("sample"), 2, 300);
    SmallVolume volume(dir.filePath(QStringLiteral("shelf")), "size=8m");
    if (!volume.mounted())
        GTEST_SKIP() << volume.failure().toStdString();
    QStringList ids;
    for (int i = 1; i <= 2; ++i) {
        const CommandRun r = folivox({QStringLiteral("queue"), QStringLiteral("add"), QStringLiteral("--json"), QStringLiteral("-o"),
                                      volume.path(), QStringLiteral("--title"), QStringLiteral("Book %1").arg(i), sample});
        ASSERT_EQ(r.exitCode, 0) << r.errText().toStdString();
        ids << r.json().value(QStringLiteral("jobs")).toArray().at(0).toObject().value(QStringLiteral("id")).toString();
    }
    ASSERT_TRUE(volume.remount("ro"));

    const CommandRun run = folivox({QStringLiteral("queue"), QStringLiteral("run"), QStringLiteral("--json")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(statuses(), (QStringList{"failed", "pending"}));
    EXPECT_EQ(list().value(QStringLiteral("halt")).toObject().value(QStringLiteral("key")).toString(),
              QStringLiteral("queue.halt.readOnlyVolume"))
        << run.out.constData();
    EXPECT_EQ(job(ids[0]).value(QStringLiteral("lastErrorClass")).toString(), QStringLiteral("environment"));
    EXPECT_TRUE(entries(volume.path()).isEmpty()) << entries(volume.path()).join(u' ').toStdString();
}

TEST_F(QueueCommandTest, AnAttemptsLogShowsThePlaceholderForTheHomeFolder)
{
    const QString userHome = dir.filePath(QStringLiteral("users/dana"));
    QDir().mkpath(userHome);
    const QString folder = QDir(userHome).filePath(QStringLiteral("Audiobooks/Dune"));
    QDir().mkpath(folder);
    ASSERT_TRUE(Fixtures::tone(QDir(folder).filePath(QStringLiteral("01.wav")), 2, {}, 22050, 1, 440));
    ScopedEnvironment homeVariable("HOME", userHome);
    const QString id = add(folder, QStringLiteral("Dune"));
    ASSERT_EQ(folivox({QStringLiteral("queue"), QStringLiteral("run")}).exitCode, 0);
    const CommandRun log = folivox({QStringLiteral("queue"), QStringLiteral("log"), id});
    ASSERT_EQ(log.exitCode, 0);
    const QString text = QString::fromUtf8(log.out);
    EXPECT_TRUE(text.contains(QStringLiteral("~/Audiobooks/Dune/01.wav"))) << text.left(2000).toStdString();
    EXPECT_FALSE(text.contains(userHome)) << text.left(2000).toStdString();
}
