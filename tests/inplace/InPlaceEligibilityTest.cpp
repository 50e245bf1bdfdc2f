#include "inplace/DefaultInPlaceEligibilityService.h"
#include "inplace/InPlaceUpdateError.h"

#include "support/Fixtures.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

QList<ChapterSnapshot> book()
{
    return {ChapterSnapshot{QStringLiteral("One"), 0.0, 10.0, std::nullopt, std::nullopt},
            ChapterSnapshot{QStringLiteral("Two"), 10.0, 12.5, std::nullopt, std::nullopt},
            ChapterSnapshot{QStringLiteral("Three"), 22.5, 7.5, std::nullopt, std::nullopt}};
}

struct Book {
    QTemporaryDir dir;
    QString file;
    Book()
    {
        file = dir.filePath(QStringLiteral("book.m4b"));
        Fixtures::writeFile(file, QByteArray("not really audio"));
    }
    InPlaceEligibility evaluate(const QList<ChapterSnapshot>& now, QStringList files = {}) const
    {
        if (files.isEmpty())
            files << file;
        return DefaultInPlaceEligibilityService().evaluate({book(), now, 3, files});
    }
};

// chattr +i makes a file unwritable even for root; not every file system
// (tmpfs on older kernels, overlayfs) supports it.
bool makeImmutable(const QString& path, bool on)
{
    QProcess p;
    p.start(QStringLiteral("chattr"), {on ? QStringLiteral("+i") : QStringLiteral("-i"), path});
    return p.waitForFinished(10000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
}

} // namespace

TEST(InPlaceEligibility, ChapterTableFollowsTheToleranceAndIgnoresTitles)
{
    const Book b;
    struct Case {
        const char* name;
        std::function<void(QList<ChapterSnapshot>&)> change;
        std::optional<IneligibilityReason> reason;
    };
    const QList<Case> cases{
        {"unchanged", [](auto&) {}, std::nullopt},
        {"title changed", [](auto& c) { c[1].title = QStringLiteral("Renamed"); }, std::nullopt},
        {"start moved 0.1 s", [](auto& c) { c[1].startTime += 0.1; }, std::nullopt},
        {"start moved back 0.1 s", [](auto& c) { c[2].startTime -= 0.1; }, std::nullopt},
        {"duration 0.1 s longer", [](auto& c) { c[0].duration += 0.1; }, std::nullopt},
        {"start moved 0.11 s", [](auto& c) { c[1].startTime += 0.11; }, IneligibilityReason::chapterBoundariesChanged},
        {"duration 0.11 s shorter", [](auto& c) { c[2].duration -= 0.11; }, IneligibilityReason::chapterBoundariesChanged},
        {"one chapter more",
         [](auto& c) { c << ChapterSnapshot{QStringLiteral("Four"), 30, 5, std::nullopt, std::nullopt}; },
         IneligibilityReason::chaptersAddedOrRemoved},
        {"one chapter fewer", [](auto& c) { c.removeLast(); }, IneligibilityReason::chaptersAddedOrRemoved},
    };
    for (const Case& c : cases) {
        QList<ChapterSnapshot> now = book();
        c.change(now);
        const InPlaceEligibility e = b.evaluate(now);
        if (c.reason) {
            EXPECT_FALSE(e.isEligible) << c.name;
            EXPECT_EQ(e.reasons, QList<IneligibilityReason>{*c.reason}) << c.name;
            EXPECT_FALSE(e.mode.has_value()) << c.name;
        } else {
            EXPECT_TRUE(e.isEligible) << c.name;
            EXPECT_TRUE(e.reasons.isEmpty()) << c.name;
            ASSERT_TRUE(e.mode.has_value()) << c.name;
            EXPECT_EQ(e.mode->kind, InPlaceUpdateMode::Kind::singleFile);
            EXPECT_EQ(e.mode->url, b.file);
            EXPECT_EQ(e.mode->format, InPlaceSourceFormat::m4b);
        }
    }
}

TEST(InPlaceEligibility, ComparisonStopsAtTheFirstDifferenceAndChecksTracksFirst)
{
    QList<ChapterSnapshot> was = book();
    QList<ChapterSnapshot> now = book();
    was[0].firstTrackURL = QUrl::fromLocalFile(QStringLiteral("/a.mp3"));
    now[0].firstTrackURL = QUrl::fromLocalFile(QStringLiteral("/b.mp3"));
    now[0].startTime += 5; // also moved, but the track is compared first
    EXPECT_EQ(DefaultInPlaceEligibilityService::compareChapters(was, now, 2), IneligibilityReason::chaptersReordered);
    // With no tracks now, the tracks are not compared.
    EXPECT_EQ(DefaultInPlaceEligibilityService::compareChapters(was, now, 0), IneligibilityReason::chapterBoundariesChanged);
    // A chapter without a known track is not compared by track.
    now[0].firstTrackURL.reset();
    now[0].startTime = 0;
    EXPECT_EQ(DefaultInPlaceEligibilityService::compareChapters(was, now, 2), std::nullopt);
    EXPECT_EQ(DefaultInPlaceEligibilityService::compareChapters({}, {}, 0), std::nullopt);
}

TEST(InPlaceEligibility, FileChecksReportInReasonOrder)
{
    QTemporaryDir dir;
    const auto make = [&](const char* name) {
        const QString p = dir.filePath(QString::fromLatin1(name));
        Fixtures::writeFile(p, "x");
        return p;
    };
    const QString m4a1 = make("01.m4a"), m4a2 = make("02.m4a"), mp3 = make("03.mp3"), wav = make("04.wav");
    const QString missing = dir.filePath(QStringLiteral("05.m4a"));
    using R = IneligibilityReason;
    EXPECT_TRUE(DefaultInPlaceEligibilityService::checkFiles({m4a1, m4a2}).isEmpty());
    EXPECT_EQ(DefaultInPlaceEligibilityService::checkFiles({m4a1, wav}), QList<R>{R::unsupportedFormat});
    EXPECT_EQ(DefaultInPlaceEligibilityService::checkFiles({m4a1, mp3}), QList<R>{R::mixedFormats});
    EXPECT_EQ(DefaultInPlaceEligibilityService::checkFiles({wav, m4a1, mp3, missing}),
              (QList<R>{R::unsupportedFormat, R::mixedFormats, R::fileNotFound}));
    for (const char* ext : {"m4b", "m4a", "mp3", "flac", "ogg", "oga", "aiff", "aif", "M4B"})
        EXPECT_TRUE(inPlaceSourceFormatFor(QStringLiteral("x.") + QString::fromLatin1(ext)).has_value()) << ext;
    EXPECT_FALSE(inPlaceSourceFormatFor(QStringLiteral("x.wav")).has_value());

    // Several files: per-chapter mode with each chapter's title.
    QList<ChapterSnapshot> now = book();
    now.removeLast();
    QList<ChapterSnapshot> was = now;
    now[1].title = QStringLiteral("New Two");
    const InPlaceEligibility e = DefaultInPlaceEligibilityService().evaluate({was, now, 2, {m4a1, m4a2}});
    ASSERT_TRUE(e.isEligible);
    ASSERT_EQ(e.mode->kind, InPlaceUpdateMode::Kind::multipleFiles);
    ASSERT_EQ(e.mode->files.size(), 2);
    EXPECT_EQ(e.mode->files.at(1).url, m4a2);
    EXPECT_EQ(e.mode->files.at(1).chapterTitle, QStringLiteral("New Two"));
}

TEST(InPlaceEligibility, ReadOnlyFileIsNotWritableEvenForRoot)
{
    const Book b;
    if (!makeImmutable(b.file, true))
        GTEST_SKIP() << "chattr +i is not supported on this file system, so no file is unwritable for root here";
    const InPlaceEligibility e = b.evaluate(book());
    makeImmutable(b.file, false);
    EXPECT_FALSE(e.isEligible);
    EXPECT_EQ(e.reasons, QList<IneligibilityReason>{IneligibilityReason::fileNotWritable});
    EXPECT_FALSE(e.mode.has_value());
}

TEST(InPlaceEligibility, ErrorTextsNameTheCaseAndTheFile)
{
    EXPECT_EQ(InPlaceUpdateError::writeVerificationFailed(1000, 400).description(),
              QStringLiteral("In-place write incomplete (400 of 1000 bytes); the original file was restored from backup."));
    EXPECT_EQ(InPlaceUpdateError::backupFailed(QStringLiteral("disk full")).description(),
              QStringLiteral("Failed to create backup: disk full"));
    EXPECT_EQ(InPlaceUpdateError::chaptersWriteFailed(QStringLiteral("x")).description(), QStringLiteral("Failed to write chapters: x"));
    EXPECT_EQ(InPlaceUpdateError::exportSessionFailed(QStringLiteral("failed: y")).description(), QStringLiteral("Export session failed: y"));
    EXPECT_EQ(InPlaceUpdateError::fileNotWritable(QStringLiteral("book.m4b")).description(),
              QStringLiteral("Cannot write to original file: book.m4b"));
}
