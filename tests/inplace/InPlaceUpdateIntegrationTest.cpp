#include "InPlaceTestBooks.h"

#include "container/io/FaultInjection.h"
#include "export/metadata/DefaultMetadataWritingService.h"
#include "process/ManualCancellationToken.h"
#include "inplace/DefaultInPlaceUpdateService.h"
#include "inplace/InPlaceBackupStore.h"
#include "inplace/InPlaceUpdateController.h"
#include "inplace/InPlaceUpdateError.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"
#include "support/CommandRunner.h"
#include "support/ScriptedTool.h"

#include <QCoreApplication>
#include <QDir>
#include <QImage>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace folivox;
using namespace folivox::test;

namespace {

QList<ChapterInfo> newChapters()
{
    return {ChapterInfo{QStringLiteral("Eins"), 0, std::nullopt}, ChapterInfo{QStringLiteral("Zwei"), 4, std::nullopt},
            ChapterInfo{QStringLiteral("Drei"), 8, std::nullopt}};
}

BookMetadata newTags()
{
    BookMetadata m;
    m.title = QStringLiteral("New Title");
    m.author = QStringLiteral("New Author");
    m.narrator = QStringLiteral("A Reader");
    return m;
}

QStringList makeTracks(const QString& dir, const QString& ext, int count)
{
    QStringList files;
    for (int i = 1; i <= count; ++i) {
        const QString p = dir + QStringLiteral("/%1 part.").arg(i, 2, 10, QLatin1Char('0')) + ext;
        if (!InPlaceTestBooks::track(p, 2.0, 300 + 50 * i))
            return {};
        files << p;
    }
    return files;
}

InPlaceUpdateMode perChapterMode(const QStringList& files)
{
    QList<InPlaceUpdateMode::FileUpdate> updates;
    for (int i = 0; i < files.size(); ++i)
        updates << InPlaceUpdateMode::FileUpdate{files.at(i), QStringLiteral("Chapter %1").arg(i + 1), std::nullopt};
    return InPlaceUpdateMode::multipleFiles(updates);
}

QStringList backupsIn(const QString& session)
{
    return QDir(session).entryList({QStringLiteral("*.bak")}, QDir::Files, QDir::Name);
}

// Runs a controller to its outcome.
InPlaceUpdateController::Outcome runController(InPlaceUpdateController& controller, const BookMetadata& m,
                                               const InPlaceUpdateMode& mode)
{
    std::mutex mutex;
    std::condition_variable cv;
    std::optional<InPlaceUpdateController::Outcome> outcome;
    const bool started = controller.start(m, {}, mode, {}, {}, [&](const InPlaceUpdateController::Outcome& o) {
        std::lock_guard lock(mutex);
        outcome = o;
        cv.notify_all();
    });
    EXPECT_TRUE(started);
    std::unique_lock lock(mutex);
    cv.wait(lock, [&] { return outcome.has_value(); });
    lock.unlock();
    controller.wait();
    return *outcome;
}

} // namespace

TEST(InPlaceUpdate, M4BTagsCoverAndChapterTitlesChangeAndTheAudioDoesNot)
{
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(book, dir.path()));
    const QString externalCover = dir.filePath(QStringLiteral("cover.jpg"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("color=red:size=50x50:duration=1"), QStringLiteral("-frames:v"),
                                  QStringLiteral("1"), externalCover}));
    const QByteArray before = InPlaceTestBooks::sha(book);
    const QString md5 = Fixtures::decodedMd5(book);
    BookMetadata m = newTags();
    m.coverImageData = InPlaceTestBooks::cover(dir.path(), 200);

    LogCapture log;
    QStringList phases;
    ManualCancellationToken token;
    DefaultInPlaceUpdateService service;
    const QString session = service.updateMetadata(m, newChapters(), InPlaceUpdateMode::singleFile(book, InPlaceSourceFormat::m4b),
                                                   token, [&](const QString& key, double) {
                                                       if (!phases.contains(key))
                                                           phases << key;
                                                   });

    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    const QJsonObject tags = InPlaceTestBooks::tags(book);
    EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("New Title"));
    EXPECT_EQ(tags.value(QStringLiteral("artist")).toString(), QStringLiteral("New Author"));
    EXPECT_EQ(InPlaceTestBooks::coverWidth(book), 200);
    EXPECT_EQ(InPlaceTestBooks::chapterTitles(book), (QStringList{"Eins", "Zwei", "Drei"}));
    const QJsonObject mutagen = MediaReaders::mutagenMp4(book);
    EXPECT_EQ(mutagen.value(QStringLiteral("©nam")).toArray().first().toString(), QStringLiteral("New Title"));
    EXPECT_EQ(mutagen.value(QStringLiteral("©wrt")).toArray().first().toString(), QStringLiteral("A Reader"));
    EXPECT_EQ(mutagen.value(QStringLiteral("covr")).toArray().size(), 1);
    const QJsonArray nero = mutagen.value(QStringLiteral("_chapters")).toArray();
    ASSERT_EQ(nero.size(), 3);
    EXPECT_EQ(nero.at(1).toArray().at(1).toString(), QStringLiteral("Zwei"));
    const QJsonObject exif = MediaReaders::exiftool(book);
    bool exifTitle = false;
    for (auto it = exif.begin(); it != exif.end(); ++it)
        exifTitle |= it.key().endsWith(QStringLiteral(":Title")) && it.value().toString() == QStringLiteral("New Title");
    EXPECT_TRUE(exifTitle);

    // The backup is the book as it was, in a session folder of the
    // application data folder; the external cover was replaced and kept too.
    EXPECT_TRUE(QFileInfo(session).fileName().startsWith(QStringLiteral("session-")));
    EXPECT_TRUE(session.startsWith(AppPaths::appSupportDir()));
    const auto backup = InPlaceBackupStore::backupFor(session, book);
    ASSERT_TRUE(backup.has_value());
    EXPECT_TRUE(backup->endsWith(QStringLiteral(".bak")));
    EXPECT_EQ(InPlaceTestBooks::sha(*backup), before);
    EXPECT_TRUE(InPlaceBackupStore::backupFor(session, externalCover).has_value());
    EXPECT_EQ(QImage(externalCover).width(), 200);

    EXPECT_EQ(phases, (QStringList{"inplace.progress.creating.backup", "inplace.progress.writing.metadata",
                                   "inplace.progress.writing.cover", "inplace.progress.writing.chapters",
                                   "inplace.progress.completed"}));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] === STARTING updateMetadata ===")));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] Mode: singleFile 'book.m4b'")));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] writeM4BMetadata: SUCCESS for 'book.m4b'")));

    // Rolling back puts the original bytes back.
    const InPlaceBackupStore::RestoreOutcome r =
        InPlaceBackupStore::restore(session, InPlaceUpdateMode::singleFile(book, InPlaceSourceFormat::m4b));
    EXPECT_TRUE(r.allRestored);
    EXPECT_EQ(InPlaceTestBooks::sha(book), before);
}

TEST(InPlaceUpdate, PerChapterM4AAndMP3FilesGetTheirTitlesAndTheBookTags)
{
    for (const QString& ext : {QStringLiteral("m4a"), QStringLiteral("mp3")}) {
        SCOPED_TRACE(ext.toStdString());
        QTemporaryDir dir;
        const QStringList files = makeTracks(dir.path(), ext, 3);
        ASSERT_EQ(files.size(), 3);
        QStringList md5s;
        for (const QString& f : files)
            md5s << Fixtures::decodedMd5(f);
        BookMetadata m = newTags();
        m.coverImageData = InPlaceTestBooks::cover(dir.path(), 120);
        LogCapture log;
        ManualCancellationToken token;
        DefaultInPlaceUpdateService().updateMetadata(m, {}, perChapterMode(files), token, {});
        EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] Mode: multipleFiles (3)")));
        EXPECT_EQ(log.count(QStringLiteral("[InPlaceUpdate] writePerFileM4A: '")), 3);
        for (int i = 0; i < 3; ++i) {
            const QString f = files.at(i);
            EXPECT_EQ(Fixtures::decodedMd5(f), md5s.at(i));
            const QJsonObject tags = InPlaceTestBooks::tags(f);
            EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("Chapter %1").arg(i + 1));
            EXPECT_EQ(tags.value(QStringLiteral("album")).toString(), QStringLiteral("New Title"));
            EXPECT_EQ(tags.value(QStringLiteral("artist")).toString(), QStringLiteral("New Author"));
            EXPECT_EQ(tags.value(QStringLiteral("track")).toString(), QStringLiteral("%1/3").arg(i + 1));
            EXPECT_EQ(InPlaceTestBooks::coverWidth(f), 120);
            if (ext == QStringLiteral("mp3")) {
                const QJsonObject id3 = MediaReaders::mutagenId3(f);
                EXPECT_EQ(id3.value(QStringLiteral("_version")).toArray().at(1).toInt(), 4);
                EXPECT_EQ(id3.value(QStringLiteral("APIC")).toObject().value(QStringLiteral("type")).toInt(), 3);
                EXPECT_EQ(id3.value(QStringLiteral("TXXX:NARRATOR")).toArray().first().toString(), QStringLiteral("A Reader"));
            } else {
                EXPECT_EQ(MediaReaders::mutagenMp4(f).value(QStringLiteral("covr")).toArray().size(), 1);
            }
        }
    }
}

TEST(InPlaceUpdate, FlacOggAndAiffGetTagsAndCoverThroughTagLib)
{
    for (const QString& ext : {QStringLiteral("flac"), QStringLiteral("ogg"), QStringLiteral("aiff")}) {
        SCOPED_TRACE(ext.toStdString());
        QTemporaryDir dir;
        const QString f = dir.filePath(QStringLiteral("book.") + ext);
        ASSERT_TRUE(InPlaceTestBooks::track(f, 3.0));
        const QString md5 = Fixtures::decodedMd5(f);
        const auto format = *inPlaceSourceFormatFor(f);
        ManualCancellationToken token;
        DefaultInPlaceUpdateService service;

        // Only the author first: the title the file has stays.
        BookMetadata authorOnly;
        authorOnly.author = QStringLiteral("Only Author");
        service.updateMetadata(authorOnly, {}, InPlaceUpdateMode::singleFile(f, format), token, {});
        QJsonObject tags = InPlaceTestBooks::tags(f);
        EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("Old Title"));
        EXPECT_EQ(tags.value(QStringLiteral("artist")).toString(), QStringLiteral("Only Author"));

        BookMetadata m = newTags();
        m.coverImageData = InPlaceTestBooks::cover(dir.path(), 64);
        service.updateMetadata(m, {}, InPlaceUpdateMode::singleFile(f, format), token, {});
        EXPECT_EQ(Fixtures::decodedMd5(f), md5);
        tags = InPlaceTestBooks::tags(f);
        EXPECT_EQ(tags.value(QStringLiteral("title")).toString(), QStringLiteral("New Title"));
        EXPECT_EQ(tags.value(QStringLiteral("artist")).toString(), QStringLiteral("New Author"));
        const QJsonObject mutagen = InPlaceTestBooks::mutagenGeneric(f);
        EXPECT_EQ(mutagen.value(QStringLiteral("_pictures")).toInt(), 1) << QJsonDocument(mutagen).toJson().toStdString();
        const QString narratorKey = ext == QStringLiteral("aiff") ? QStringLiteral("txxx:narrator") : QStringLiteral("narrator");
        EXPECT_EQ(mutagen.value(narratorKey).toString(), QStringLiteral("A Reader"));

        // And out again.
        InPlaceUpdateOptions remove;
        remove.removeCover = true;
        service.updateMetadata(BookMetadata{}, {}, InPlaceUpdateMode::singleFile(f, format), token, {}, remove);
        EXPECT_EQ(InPlaceTestBooks::mutagenGeneric(f).value(QStringLiteral("_pictures")).toInt(), 0);
        EXPECT_EQ(InPlaceTestBooks::tags(f).value(QStringLiteral("title")).toString(), QStringLiteral("New Title"));
    }
}

TEST(InPlaceUpdate, CancelDuringTheThirdOfFiveFilesRollsAllBack)
{
    QTemporaryDir dir;
    const QStringList files = makeTracks(dir.path(), QStringLiteral("m4a"), 5);
    ASSERT_EQ(files.size(), 5);
    QList<QByteArray> before;
    for (const QString& f : files)
        before << InPlaceTestBooks::sha(f);

    InPlaceUpdateController controller(std::make_shared<DefaultInPlaceUpdateService>());
    LogCapture log;
    // The user cancels while the third file is being written.
    const int sink = Log::addSink([&](const QString& line) {
        if (line.contains(QStringLiteral("writePerFileM4A: '03 part.m4a'")))
            controller.cancel();
    });
    const InPlaceUpdateController::Outcome outcome = runController(controller, newTags(), perChapterMode(files));
    Log::removeSink(sink);

    EXPECT_EQ(outcome.kind, InPlaceUpdateController::Outcome::Kind::cancelled);
    EXPECT_TRUE(outcome.allRestored);
    EXPECT_FALSE(outcome.recovery.has_value());
    EXPECT_GT(outcome.hold, 0);
    // The third file was finished before the cancel took effect, the fourth never started.
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] cancelled after 3")));
    EXPECT_FALSE(log.contains(QStringLiteral("writePerFileM4A: '04 part.m4a'")));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] Cancelled by user — rolling back from backup")));
    EXPECT_EQ(log.count(QStringLiteral("restored from backup")), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(InPlaceTestBooks::sha(files.at(i)), before.at(i)) << i;
    // The backups stay after the rollback.
    EXPECT_EQ(backupsIn(outcome.backupURL).size(), 5);
}

TEST(InPlaceUpdate, RollbackWithoutABackupLeavesThatFileAndSaysSo)
{
    QTemporaryDir dir;
    const QStringList files = makeTracks(dir.path(), QStringLiteral("mp3"), 2);
    ASSERT_EQ(files.size(), 2);
    const QByteArray first = InPlaceTestBooks::sha(files.at(0));
    const QByteArray second = InPlaceTestBooks::sha(files.at(1));
    ManualCancellationToken token;
    const InPlaceUpdateMode mode = perChapterMode(files);
    const QString session = DefaultInPlaceUpdateService().updateMetadata(newTags(), {}, mode, token, {});
    ASSERT_TRUE(QFile::remove(*InPlaceBackupStore::backupFor(session, files.at(1))));

    LogCapture log;
    const InPlaceBackupStore::RestoreOutcome r = InPlaceBackupStore::restore(session, mode);
    EXPECT_FALSE(r.allRestored);
    EXPECT_EQ(InPlaceTestBooks::sha(files.at(0)), first);
    EXPECT_NE(InPlaceTestBooks::sha(files.at(1)), second);
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] rollback: no backup found for '02 part.mp3' — file left as updated")));

    const InPlaceBackupStore::RestoreOutcome none = InPlaceBackupStore::restore(dir.filePath(QStringLiteral("session-gone")), mode);
    EXPECT_FALSE(none.allRestored);
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] CRITICAL: rollback cannot list the session backups: ")));
}

TEST(InPlaceUpdate, ASecondStartIsRefusedWhileTheFirstGoesOn)
{
    QTemporaryDir dir;
    const QStringList files = makeTracks(dir.path(), QStringLiteral("m4a"), 4);
    ASSERT_EQ(files.size(), 4);
    InPlaceUpdateController controller(std::make_shared<DefaultInPlaceUpdateService>());
    LogCapture log;
    std::mutex mutex;
    std::condition_variable cv;
    std::optional<InPlaceUpdateController::Outcome> first;
    ASSERT_TRUE(controller.start(newTags(), {}, perChapterMode(files), {}, {}, [&](const InPlaceUpdateController::Outcome& o) {
        std::lock_guard lock(mutex);
        first = o;
        cv.notify_all();
    }));
    EXPECT_TRUE(controller.isRunning());
    EXPECT_TRUE(controller.runID().has_value());
    bool secondCalled = false;
    EXPECT_FALSE(controller.start(newTags(), {}, perChapterMode(files), {}, {}, [&](const auto&) { secondCalled = true; }));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] refused: another in-place write is still running")));
    {
        std::unique_lock lock(mutex);
        cv.wait(lock, [&] { return first.has_value(); });
    }
    controller.wait();
    EXPECT_EQ(first->kind, InPlaceUpdateController::Outcome::Kind::completed);
    EXPECT_FALSE(secondCalled);
    EXPECT_FALSE(controller.runID().has_value());
    EXPECT_EQ(InPlaceTestBooks::tags(files.last()).value(QStringLiteral("title")).toString(), QStringLiteral("Chapter 4"));
}

TEST(InPlaceUpdate, ASizeMismatchAfterTheWritePutsTheBackupBack)
{
    QTemporaryDir dir;
    const QString f = dir.filePath(QStringLiteral("book.flac"));
    ASSERT_TRUE(InPlaceTestBooks::track(f, 2.0));
    const QByteArray before = InPlaceTestBooks::sha(f);
    // Stand in for a write the disk did not keep whole.
    FaultInjection::Scope hook([&](const QString& point) {
        if (point == QStringLiteral("inplace.file.replaced"))
            QFile(f).resize(QFileInfo(f).size() / 2);
    });
    ManualCancellationToken token;
    try {
        DefaultInPlaceUpdateService().updateMetadata(newTags(), {}, InPlaceUpdateMode::singleFile(f, InPlaceSourceFormat::flac),
                                                     token, {});
        FAIL() << "the truncated write went unnoticed";
    } catch (const InPlaceUpdateError& e) {
        EXPECT_EQ(e.kind(), InPlaceUpdateError::Kind::writeVerificationFailed);
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("In-place write incomplete (")));
        EXPECT_TRUE(e.description().endsWith(QStringLiteral("the original file was restored from backup.")));
        EXPECT_EQ(e.written() * 2 / 2, e.written());
        EXPECT_LT(e.written(), e.expected());
    }
    EXPECT_EQ(InPlaceTestBooks::sha(f), before);
}

TEST(InPlaceUpdate, FailingToolsFallBackToTheRemuxWithChaptersOnTheNormalizedFile)
{
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(book, dir.path()));
    const QString md5 = Fixtures::decodedMd5(book);
    const QString tools = dir.filePath(QStringLiteral("tools"));
    QDir().mkpath(tools);
    ScriptedTool::write(tools, QStringLiteral("mp4tags"), QStringLiteral("echo 'mp4tags: cannot parse this file' >&2\nexit 3\n"));
    const QString real = QString::fromLocal8Bit(qgetenv("FOLIVOX_TOOLS_DIR"));
    const QString realDir = real.isEmpty() ? QCoreApplication::applicationDirPath() : real;
    for (const char* t : {"mp4art", "mp4chaps"})
        QFile::link(realDir + u'/' + QString::fromLatin1(t), tools + u'/' + QString::fromLatin1(t));
    DefaultMetadataWritingService::Options options;
    options.toolsDirectories = QStringList{tools};
    LogCapture log;
    ManualCancellationToken token;
    DefaultInPlaceUpdateService(options).updateMetadata(newTags(), newChapters(),
                                                        InPlaceUpdateMode::singleFile(book, InPlaceSourceFormat::m4b), token, {});
    EXPECT_TRUE(log.contains(QStringLiteral("falling back to the ffmpeg remux")));
    EXPECT_EQ(Fixtures::decodedMd5(book), md5);
    EXPECT_EQ(InPlaceTestBooks::tags(book).value(QStringLiteral("title")).toString(), QStringLiteral("New Title"));
    EXPECT_EQ(InPlaceTestBooks::chapterTitles(book), (QStringList{"Eins", "Zwei", "Drei"}));
}

TEST(InPlaceUpdate, AKillAtEveryWriteStepLeavesTheOldOrTheNewBookAndTheBackup)
{
    QTemporaryDir dir;
    const QString original = dir.filePath(QStringLiteral("original.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(original, dir.path()));
    const QByteArray oldSha = InPlaceTestBooks::sha(original);
    const QString md5 = Fixtures::decodedMd5(original);
    BookMetadata m = newTags();
    m.coverImageData = InPlaceTestBooks::cover(dir.path(), 80);
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    const auto run = [&] {
        ManualCancellationToken token;
        DefaultInPlaceUpdateService().updateMetadata(m, newChapters(), InPlaceUpdateMode::singleFile(book, InPlaceSourceFormat::m4b),
                                                     token, {});
    };

    QStringList points;
    QFile::copy(original, book);
    {
        FaultInjection::Scope record([&](const QString& p) {
            if (!points.contains(p))
                points << p;
        });
        run();
    }
    ASSERT_TRUE(points.contains(QStringLiteral("inplace.backup.copied")));
    ASSERT_TRUE(points.contains(QStringLiteral("inplace.file.prepared")));
    const QByteArray newSha = InPlaceTestBooks::sha(book);

    for (const QString& point : points) {
        SCOPED_TRACE(point.toStdString());
        const QStringList sessionsBefore = InPlaceBackupStore::sessions();
        QFile::remove(book);
        ASSERT_TRUE(QFile::copy(original, book));
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            // A killed run leaves its work folder behind: keep it in the test's folder.
            qputenv("TMPDIR", dir.filePath(QStringLiteral("tmp")).toUtf8());
            QDir().mkpath(dir.filePath(QStringLiteral("tmp")));
            FaultInjection::Scope hook([&](const QString& reached) {
                if (reached == point)
                    ::_exit(42);
            });
            try {
                run();
            } catch (...) {
                ::_exit(2);
            }
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 42);
        const QByteArray now = InPlaceTestBooks::sha(book);
        EXPECT_TRUE(now == oldSha || now == newSha);
        EXPECT_EQ(DefaultMetadataWritingService::unreadableReason(book), std::nullopt);
        EXPECT_EQ(Fixtures::decodedMd5(book), md5);
        // Once the backup was made, it is there whatever happened after.
        QStringList made = InPlaceBackupStore::sessions();
        for (const QString& s : sessionsBefore)
            made.removeAll(s);
        if (point != QStringLiteral("inplace.backup.copied") && point != QStringLiteral("inplace.copy.piece")) {
            ASSERT_EQ(made.size(), 1);
            const auto backup = InPlaceBackupStore::backupFor(made.first(), book);
            ASSERT_TRUE(backup.has_value());
            EXPECT_EQ(InPlaceTestBooks::sha(*backup), oldSha);
        }
    }
}

TEST(InPlaceUpdate, AFullDiskDuringTheBackupTouchesNothing)
{
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("book.m4b"));
    ASSERT_TRUE(InPlaceTestBooks::m4b(book, dir.path()));
    const QByteArray before = InPlaceTestBooks::sha(book);
    const QString home = dir.filePath(QStringLiteral("small-home"));
    QDir().mkpath(home);
    if (::mount("tmpfs", QFile::encodeName(home).constData(), "tmpfs", 0, "size=48k") != 0)
        GTEST_SKIP() << "cannot mount a small tmpfs here (" << std::strerror(errno) << "), so no disk can be filled";
    struct Unmount {
        QString path;
        ~Unmount() { ::umount2(QFile::encodeName(path).constData(), MNT_DETACH); }
    } unmount{home};
    ScopedEnvironment env("FOLIVOX_HOME", home);
    ManualCancellationToken token;
    try {
        DefaultInPlaceUpdateService().updateMetadata(newTags(), newChapters(),
                                                     InPlaceUpdateMode::singleFile(book, InPlaceSourceFormat::m4b), token, {});
        FAIL() << "the backup should not fit";
    } catch (const InPlaceUpdateError& e) {
        EXPECT_EQ(e.kind(), InPlaceUpdateError::Kind::backupFailed);
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("Failed to create backup: \"book.m4b\"")));
    }
    EXPECT_EQ(InPlaceTestBooks::sha(book), before);
    EXPECT_TRUE(InPlaceBackupStore::sessions().isEmpty());
}

TEST(InPlaceUpdate, OldSessionsArePurgedWithALogLine)
{
    const QString old = InPlaceBackupStore::createSession();
    const QString fresh = InPlaceBackupStore::createSession();
    // Age the old session by its modification time.
    ASSERT_EQ(::system(QStringLiteral("touch -d '40 days ago' '%1'").arg(old).toLocal8Bit().constData()), 0);
    LogCapture log;
    EXPECT_EQ(InPlaceBackupStore::purge(), 1);
    EXPECT_EQ(InPlaceBackupStore::purge(), 0);
    EXPECT_FALSE(QFileInfo::exists(old));
    EXPECT_TRUE(QFileInfo::exists(fresh));
    EXPECT_TRUE(log.contains(QStringLiteral("[InPlaceUpdate] purging backup older than 30 days: '%1'").arg(QFileInfo(old).fileName())));
    QDir(fresh).removeRecursively();
}
