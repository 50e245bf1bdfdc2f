// The queue's files on disk: where they are, their form, loading after a
// crash, unreadable and newer files, logs, and crashes in the middle of a save.
#include "queue/QueueTestSupport.h"

#include "core/json/JsonReader.h"
#include "platform/AppPaths.h"
#include "queue/records/QueueError.h"
#include "queue/store/QueueStore.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

class QueueStoreTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString base() const { return dir.filePath(QStringLiteral("Queue")); }
};

QStringList entries(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

} // namespace

TEST_F(QueueStoreTest, LivesInTheApplicationDataFolderAsSortedPrettyJson)
{
    test::ScopedEnvironment home("FOLIVOX_HOME", dir.path());
    EXPECT_EQ(QueueStore::defaultBaseURL(), QDir(AppPaths::appSupportDir()).filePath(QStringLiteral("Queue")));
    QueueStore store;
    EXPECT_EQ(store.queueFileURL(), dir.filePath(QStringLiteral("Queue/queue.json")));
    EXPECT_TRUE(store.load().jobs.empty()); // a missing file is an empty queue

    store.save({test::sampleJob(QStringLiteral("One")), test::sampleJob(QStringLiteral("Two"))});
    const QByteArray bytes = Fixtures::readFile(store.queueFileURL());
    EXPECT_TRUE(bytes.startsWith("{\n    \"jobs\": [\n")) << bytes.left(40).constData();
    // Keys in sorted order inside a job: attempts before createdAt before displayTitle ...
    const qsizetype attempts = bytes.indexOf("\"attempts\"");
    const qsizetype created = bytes.indexOf("\"createdAt\"");
    const qsizetype title = bytes.indexOf("\"displayTitle\"");
    EXPECT_TRUE(attempts >= 0 && attempts < created && created < title);
    EXPECT_TRUE(bytes.contains("\"schemaVersion\": 1"));
    const auto loaded = store.load();
    ASSERT_EQ(loaded.jobs.size(), 2u);
    EXPECT_EQ(loaded.jobs[1].displayTitle, QStringLiteral("Two"));
    EXPECT_FALSE(loaded.warning);
    // Nothing but the file (and the empty staging folder) is left behind.
    EXPECT_EQ(entries(base()), (QStringList{QStringLiteral(".staging"), QStringLiteral("queue.json")}));
    EXPECT_TRUE(entries(base() + QStringLiteral("/.staging")).isEmpty());
}

TEST_F(QueueStoreTest, ASaveOfChangedJobsWritesWhatAWholeSaveWould)
{
    QueueStore store(base());
    std::vector<QueueJob> jobs{test::sampleJob(QStringLiteral("A")), test::sampleJob(QStringLiteral("B")),
                               test::sampleJob(QStringLiteral("C"))};
    store.save(jobs, {});
    jobs[1].status = QueueJobStatus::failed;
    jobs[1].displayTitle = QStringLiteral("B, renamed");
    store.save(jobs, {jobs[1].id});
    jobs.erase(jobs.begin());
    jobs.push_back(test::sampleJob(QStringLiteral("D")));
    store.save(jobs, {jobs.back().id});
    const QByteArray bytes = Fixtures::readFile(store.queueFileURL());
    EXPECT_EQ(bytes, QueueStore::encode(jobs));
    EXPECT_EQ(QJsonDocument::fromJson(bytes).toJson(QJsonDocument::Indented), bytes); // Qt's own pretty form
    const auto loaded = store.load().jobs;
    ASSERT_EQ(loaded.size(), 3u);
    EXPECT_EQ(loaded[0].displayTitle, QStringLiteral("B, renamed"));
    EXPECT_EQ(loaded[0].status, QueueJobStatus::failed);
    EXPECT_EQ(loaded[2].displayTitle, QStringLiteral("D"));
}

TEST_F(QueueStoreTest, ARunningJobLoadsInterruptedWithItsAttempts)
{
    QueueStore store(base());
    QueueJob running = test::sampleJob(QStringLiteral("Running"));
    running.status = QueueJobStatus::running;
    running.progress = 0.7;
    running.attempts.push_back(JobAttempt{QUuid::createUuid(), QDateTime::currentDateTimeUtc(), std::nullopt, std::nullopt, std::nullopt});
    QueueJob failed = test::sampleJob(QStringLiteral("Failed"));
    failed.status = QueueJobStatus::failed;
    store.save({running, failed});

    const auto loaded = store.load();
    ASSERT_EQ(loaded.jobs.size(), 2u);
    EXPECT_EQ(loaded.jobs[0].status, QueueJobStatus::interrupted);
    EXPECT_EQ(loaded.jobs[0].progress, 0);
    EXPECT_FALSE(loaded.jobs[0].progressPhase);
    EXPECT_EQ(loaded.jobs[0].attempts, running.attempts);
    EXPECT_EQ(loaded.jobs[1].status, QueueJobStatus::failed);
}

TEST_F(QueueStoreTest, AnUnreadableFileIsKeptAsideAndTheQueueStartsEmpty)
{
    QueueStore store(base());
    const QByteArray garbage("{\"schemaVersion\": 1, \"jobs\": [ {\"id\": 12");
    ASSERT_TRUE(Fixtures::writeFile(store.queueFileURL(), garbage));
    const auto first = store.load();
    EXPECT_TRUE(first.jobs.empty());
    ASSERT_TRUE(first.warning);
    EXPECT_TRUE(first.warning->contains(QStringLiteral("queue.json.unreadable-"))) << first.warning->toStdString();
    QStringList aside = QDir(base()).entryList({QStringLiteral("queue.json.unreadable-*")});
    ASSERT_EQ(aside.size(), 1);
    EXPECT_EQ(Fixtures::readFile(QDir(base()).filePath(aside.first())), garbage);

    // A second unreadable file never replaces the first one kept aside.
    const QByteArray other("not json at all");
    ASSERT_TRUE(Fixtures::writeFile(store.queueFileURL(), other));
    EXPECT_TRUE(store.load().warning);
    aside = QDir(base()).entryList({QStringLiteral("queue.json.unreadable-*")});
    ASSERT_EQ(aside.size(), 2);
    QList<QByteArray> kept;
    for (const QString& name : aside)
        kept << Fixtures::readFile(QDir(base()).filePath(name));
    EXPECT_TRUE(kept.contains(garbage));
    EXPECT_TRUE(kept.contains(other));

    // The queue works on: a save makes a new, readable file.
    store.save({test::sampleJob(QStringLiteral("After"))});
    EXPECT_EQ(store.load().jobs.size(), 1u);
}

TEST_F(QueueStoreTest, ALaterSchemaIsRefusedAndLeftUntouched)
{
    QueueStore store(base());
    QJsonObject root = QueueFile{2, {}}.toJson();
    root.insert(QStringLiteral("somethingNew"), true);
    const QByteArray bytes = QJsonDocument(root).toJson();
    ASSERT_TRUE(Fixtures::writeFile(store.queueFileURL(), bytes));
    try {
        store.load();
        FAIL() << "a newer file loaded";
    } catch (const QueueError& e) {
        EXPECT_EQ(e.kind(), QueueError::Kind::newerQueueFile);
        EXPECT_TRUE(e.description().contains(store.queueFileURL()));
    }
    EXPECT_THROW(store.save({test::sampleJob(QStringLiteral("X"))}), QueueError);
    EXPECT_EQ(Fixtures::readFile(store.queueFileURL()), bytes);
    EXPECT_TRUE(QDir(base()).entryList({QStringLiteral("queue.json.*")}).isEmpty());
}

TEST_F(QueueStoreTest, ACrashAtEachStepOfASaveLeavesTheOldOrTheNewFile)
{
    const QString folder = base();
    {
        QueueStore store(folder);
        store.save({test::sampleJob(QStringLiteral("Old"))});
    }
    const QByteArray before = Fixtures::readFile(QDir(folder).filePath(QStringLiteral("queue.json")));
    const auto saveTwo = [folder] {
        QueueStore store(folder);
        store.save({test::sampleJob(QStringLiteral("New 1")), test::sampleJob(QStringLiteral("New 2"))});
    };

    // Killed once the new bytes are on disk but before the rename: the old file.
    ASSERT_TRUE(test::killedAt(QStringLiteral("queue.save.staged"), saveTwo));
    EXPECT_EQ(Fixtures::readFile(QDir(folder).filePath(QStringLiteral("queue.json"))), before);
    QueueStore store(folder);
    auto loaded = store.load();
    ASSERT_EQ(loaded.jobs.size(), 1u);
    EXPECT_EQ(loaded.jobs[0].displayTitle, QStringLiteral("Old"));
    EXPECT_FALSE(loaded.warning);
    // What the killed save left in staging goes when the queue is opened for writing.
    EXPECT_EQ(entries(folder + QStringLiteral("/.staging")).size(), 1);
    store.clearStaging();
    EXPECT_TRUE(entries(folder + QStringLiteral("/.staging")).isEmpty());

    // Killed just after the rename: the whole new file.
    ASSERT_TRUE(test::killedAt(QStringLiteral("queue.save.replaced"), saveTwo));
    loaded = store.load();
    ASSERT_EQ(loaded.jobs.size(), 2u);
    EXPECT_EQ(loaded.jobs[1].displayTitle, QStringLiteral("New 2"));
}

TEST_F(QueueStoreTest, ANewJobsFilesArriveTogetherOrNotAtAll)
{
    const QString folder = base();
    const QUuid id = QUuid::createUuid();
    const QString jobFolder = QueueStore(folder).jobFolder(id);
    const auto write = [folder, id] {
        QueueStore store(folder);
        store.writeNewJobFiles(id, {{QStringLiteral("book.json"), "{\"tracks\":[]}"}, {QStringLiteral("cover.jpg"), "JPEG"}});
    };

    // Killed once both are on disk under their staging names: neither is in
    // the job's folder; staging holds both until the queue is opened.
    ASSERT_TRUE(test::killedAt(QStringLiteral("queue.jobFiles.staged"), write));
    EXPECT_TRUE(entries(jobFolder).isEmpty()) << entries(jobFolder).join(u' ').toStdString();
    EXPECT_EQ(entries(folder + QStringLiteral("/.staging")).size(), 2);
    QueueStore(folder).clearStaging();

    // Killed once they are in place: both, whole.
    ASSERT_TRUE(test::killedAt(QStringLiteral("queue.jobFiles.replaced"), write));
    EXPECT_EQ(Fixtures::readFile(jobFolder + QStringLiteral("/book.json")), QByteArray("{\"tracks\":[]}"));
    EXPECT_EQ(Fixtures::readFile(jobFolder + QStringLiteral("/cover.jpg")), QByteArray("JPEG"));
    EXPECT_TRUE(entries(folder + QStringLiteral("/.staging")).isEmpty());

    // A folder that cannot take them: an error naming the job's folder, nothing left behind.
    QueueStore store(folder);
    const QUuid blocked = QUuid::createUuid();
    ASSERT_TRUE(Fixtures::writeFile(store.jobFolder(blocked), "a file where the folder goes"));
    try {
        store.writeNewJobFiles(blocked, {{QStringLiteral("book.json"), "{}"}});
        ADD_FAILURE() << "no error";
    } catch (const QueueError& e) {
        EXPECT_TRUE(e.description().contains(store.jobFolder(blocked))) << e.description().toStdString();
    }
    EXPECT_TRUE(entries(folder + QStringLiteral("/.staging")).isEmpty());
}

TEST_F(QueueStoreTest, LogsHideTheHomeFolderAndMissingJobFoldersAreNoError)
{
    EXPECT_EQ(QueueStore::redactHome(QStringLiteral("open /Users/alice/Books/a.m4b and /Users/alicia/x"), QStringLiteral("alice"),
                                     QStringLiteral("/Users/alice")),
              QStringLiteral("open /Users/~user/Books/a.m4b and /Users/alicia/x"));
    EXPECT_EQ(QueueStore::redactHome(QStringLiteral("/home/bob/a /home/bob/b /home/bobby/c"), QStringLiteral("bob"),
                                     QStringLiteral("/home/bob")),
              QStringLiteral("/home/~user/a /home/~user/b /home/bobby/c"));
    EXPECT_EQ(QueueStore::redactHome(QStringLiteral("/root/in/a.wav /rooted/x"), QStringLiteral("root"), QStringLiteral("/root")),
              QStringLiteral("~/in/a.wav /rooted/x"));

    // The real user's home, through the store.
    const QString home = dir.filePath(QStringLiteral("home/carol"));
    QDir().mkpath(home);
    test::ScopedEnvironment homeVariable("HOME", home);
    QueueStore store(base());
    const QUuid id = QUuid::createUuid();
    const auto path = store.writeLog(id, QStringLiteral("[Queue] input %1/Books/a.wav\n").arg(home));
    ASSERT_TRUE(path);
    EXPECT_EQ(*path, QDir(base()).filePath(QStringLiteral("jobs/%1/log.txt").arg(id.toString(QUuid::WithoutBraces).toUpper())));
    const QString text = QString::fromUtf8(Fixtures::readFile(*path));
    EXPECT_FALSE(text.contains(home)) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("~/Books/a.wav")));

    store.removeJobFolder(id);
    EXPECT_FALSE(QFileInfo::exists(store.jobFolder(id)));
    store.removeJobFolder(id); // not there: silent
    store.removeJobFolder(QUuid::createUuid());
}
