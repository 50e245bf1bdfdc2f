#include "container/mp3/MP3IntegrityService.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

using namespace folivox;

namespace {

// MPEG 1 Layer III frames at 128 kbps, 44.1 kHz: a header and silence.
QByteArray frames(int n)
{
    QByteArray out;
    for (int i = 0; i < n; ++i)
        out += QByteArray("\xFF\xFB\x90\x44", 4) + QByteArray(413, '\0');
    return out;
}

bool write(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

Track trackAt(const QString& path)
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    return t;
}

} // namespace

TEST(MP3IntegrityServiceTest, ReportsAreCachedByFileStamp)
{
    QTemporaryDir dir;
    const QString path = dir.filePath("a.mp3");
    ASSERT_TRUE(write(path, frames(100) + QByteArray(900, '\0') + frames(100)));
    MP3IntegrityService service;
    const auto first = service.reportFor(path);
    ASSERT_TRUE(first);
    ASSERT_EQ(first->holes.size(), 1u);
    EXPECT_EQ(service.cachedReport(path), first);

    // Same size, same modification time: the cached report stands even
    // though the bytes changed underneath.
    const QDateTime mtime = QFileInfo(path).lastModified();
    ASSERT_TRUE(write(path, frames(100) + frames(2) + QByteArray(66, '\0') + frames(100)));
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        ASSERT_TRUE(f.setFileTime(mtime, QFileDevice::FileModificationTime));
    }
    EXPECT_EQ(service.reportFor(path)->holes.size(), 1u);
    EXPECT_EQ(service.reportFor(path)->holes[0].byteLength, 900);

    // A new time: scanned again.
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        ASSERT_TRUE(f.setFileTime(mtime.addSecs(5), QFileDevice::FileModificationTime));
    }
    const auto again = service.reportFor(path);
    ASSERT_EQ(again->holes.size(), 1u);
    EXPECT_EQ(again->holes[0].byteLength, 66);

    // For a build: in order, an unreadable file as unknown.
    const auto all = service.scanFiles({path, dir.filePath("missing.mp3")});
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 2u);
    EXPECT_EQ((*all)[0].holes.size(), 1u);
    EXPECT_EQ((*all)[1].verdict, MP3IntegrityVerdict::unknown);
}

TEST(MP3IntegrityServiceTest, ANewRoundDropsTheOldRoundsReports)
{
    QTemporaryDir dir;
    std::vector<Track> oldBook;
    std::vector<Track> newBook;
    for (int i = 0; i < 4; ++i) {
        const QString p = dir.filePath(QStringLiteral("old%1.mp3").arg(i));
        // Damaged: a hole of about 1.6 s in 13 s.
        ASSERT_TRUE(write(p, frames(250) + QByteArray(25000, '\0') + frames(250)));
        oldBook.push_back(trackAt(p));
    }
    for (int i = 0; i < 2; ++i) {
        const QString p = dir.filePath(QStringLiteral("new%1.mp3").arg(i));
        ASSERT_TRUE(write(p, frames(300)));
        newBook.push_back(trackAt(p));
    }
    newBook.push_back(trackAt(dir.filePath("notes.txt")));

    MP3IntegrityService service;
    QList<QUuid> published;
    QList<QUuid> finished;
    QObject::connect(&service, &MP3IntegrityService::reportPublished, [&](const QUuid& id) { published << id; });
    QObject::connect(&service, &MP3IntegrityService::roundFinished, [&](const QUuid& t) { finished << t; });

    // The old round scans all its files, but this thread takes no events
    // meanwhile: its reports wait in the queue, late, when the new book comes.
    const QUuid oldToken = service.scanTracks(oldBook);
    QDeadlineTimer deadline(10000);
    const auto allCached = [&] {
        for (const Track& t : oldBook)
            if (!service.cachedReport(t.url.toLocalFile()))
                return false;
        return true;
    };
    while (!allCached() && !deadline.hasExpired())
        QThread::msleep(5);
    ASSERT_TRUE(allCached());
    QThread::msleep(50);
    EXPECT_TRUE(published.isEmpty());

    const QUuid newToken = service.scanTracks(newBook);
    EXPECT_NE(oldToken, newToken);
    EXPECT_EQ(service.currentToken(), newToken);
    EXPECT_TRUE(service.damagedReportsByFile().empty());
    while (!finished.contains(newToken) && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    ASSERT_TRUE(finished.contains(newToken));
    QCoreApplication::processEvents();

    EXPECT_EQ(published, (QList<QUuid>{newBook[0].id, newBook[1].id}));
    for (const Track& t : oldBook)
        EXPECT_FALSE(service.report(t.id).has_value());
    EXPECT_EQ(service.report(newBook[0].id)->verdict, MP3IntegrityVerdict::clean);
    EXPECT_FALSE(service.report(newBook[2].id).has_value());
    EXPECT_TRUE(service.damagedReportsByFile().empty());

    // The holes of a chapter come from the cache.
    Bookmark chapter;
    chapter.tracks = {oldBook[0]};
    chapter.tracks[0].duration = 100;
    chapter.duration = 100;
    const auto holes = service.holesOfChapter(chapter);
    ASSERT_EQ(holes.size(), 1u);
    EXPECT_NEAR(holes[0].chapterTime, 250 * 1152.0 / 44100, 1e-9);
}
