#include "export/engine/DefaultExportService.h"
#include "export/engine/DestinationWritability.h"
#include "export/engine/ExportError.h"
#include "export/engine/ExportPrologue.h"
#include "export/settings/ExportSettingsError.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "export/strategies/FFmpegEncoderError.h"
#include "process/ManualCancellationToken.h"
#include "export/strategies/MultiFileExportStrategy.h"
#include "export/strategies/SplitTranscodeStrategy.h"
#include "export/engine/UserFacingError.h"
#include "export/engine/EngineTestSupport.h"
#include "platform/Log.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace folivox;

namespace {

std::vector<double> partDurations(const std::vector<SplitTranscodeStrategy::Part>& parts)
{
    std::vector<double> out;
    for (const auto& p : parts)
        out.push_back(p.duration);
    return out;
}

} // namespace

TEST(SplitPlanTest, PartsAreBalancedAndSnapToChapterBoundaries)
{
    // Ten chapters of 30 min, parts of at most 2 h: three parts of 100 min
    // each would cut chapters; snapped, each part ends on the chapter
    // boundary nearest its share (90, 120 and 90 minutes).
    const std::vector<double> chapters(10, 1800.0);
    const auto snapped = SplitTranscodeStrategy::planParts(chapters, 7200, true);
    ASSERT_EQ(snapped.size(), 3u);
    EXPECT_EQ(partDurations(snapped), (std::vector<double>{5400, 7200, 5400}));
    double total = 0;
    for (const auto& p : snapped) {
        EXPECT_LE(p.duration, 7200.0);
        for (const auto& s : p.slices) {
            EXPECT_DOUBLE_EQ(s.from, 0.0); // whole chapters only
            EXPECT_DOUBLE_EQ(s.to, 1800.0);
        }
        total += p.duration;
    }
    EXPECT_DOUBLE_EQ(total, 18000.0);

    // Unsnapped: equal parts, the chapters at the boundaries cut.
    const auto even = SplitTranscodeStrategy::planParts(chapters, 7200, false);
    EXPECT_EQ(partDurations(even), (std::vector<double>{6000, 6000, 6000}));
    ASSERT_EQ(even[0].slices.back().chapter, 3);
    EXPECT_DOUBLE_EQ(even[0].slices.back().to, 600.0);
    EXPECT_EQ(even[1].slices.front().chapter, 3);
    EXPECT_DOUBLE_EQ(even[1].slices.front().from, 600.0);

    // A chapter longer than a part is the one that is cut, even when snapping.
    const auto longOne = SplitTranscodeStrategy::planParts({600, 9000, 600}, 3600, true);
    for (const auto& p : longOne)
        EXPECT_LE(p.duration, 3600.0 + 1e-6);
    double sum = 0;
    for (double d : partDurations(longOne))
        sum += d;
    EXPECT_DOUBLE_EQ(sum, 10200.0);
}

TEST(SplitPlanTest, ValidationMessagesAndLimits)
{
    auto message = [](const std::function<void()>& f) {
        try {
            f();
        } catch (const Error& e) {
            return e.description();
        }
        return QString();
    };
    EXPECT_EQ(message([] { SplitTranscodeStrategy::planParts({}, 3600, true); }),
              QStringLiteral("No bookmarks available for split export"));
    EXPECT_EQ(message([] { SplitTranscodeStrategy::planParts({0, 0}, 3600, true); }),
              QStringLiteral("Total duration is zero (no valid audio tracks)"));

    ExportSettings s;
    s.splitMode = SplitMode::byDuration;
    s.splitHours = 0;
    EXPECT_EQ(message([&] { SplitTranscodeStrategy::partLimitSeconds(s, 64); }),
              QStringLiteral("splitHours must be > 0 for split export"));
    s.splitHours = 3;
    EXPECT_DOUBLE_EQ(SplitTranscodeStrategy::partLimitSeconds(s, 64), 10800.0);
    s.splitMode = SplitMode::bySize;
    s.splitSizeMB = 100;
    // 100 MB at 64 kbps, 2% kept for the container: 12250 s.
    EXPECT_NEAR(SplitTranscodeStrategy::partLimitSeconds(s, 64), 12250.0, 1e-6);

    EXPECT_EQ(SplitTranscodeStrategy::partPath(QStringLiteral("/out/My Book.m4b"), 2),
              QStringLiteral("/out/My Book - Part 2.m4b"));
    EXPECT_EQ(SplitTranscodeStrategy::partTitle(QStringLiteral("My Book"), 3), QStringLiteral("My Book (Part 3)"));
}

TEST(SplitPlanTest, SliceCutsAChapterAcrossItsFiles)
{
    ChapterInput c;
    c.title = QStringLiteral("Long");
    c.files << QUrl::fromLocalFile(QStringLiteral("/b/1.mp3")) << QUrl::fromLocalFile(QStringLiteral("/b/2.mp3"));
    c.segmentRanges = std::vector<MediaTimeRange>{{0, 100}, {0, 100}};
    c.segmentFullTrack = std::vector<bool>{true, true};
    const QHash<QString, SourceFacts> facts;
    EXPECT_DOUBLE_EQ(SplitTranscodeStrategy::chapterLength(c, facts), 200.0);

    const ChapterInput tail = SplitTranscodeStrategy::slice(c, 150, 200, facts);
    ASSERT_EQ(tail.files.size(), 1);
    EXPECT_EQ(tail.files.first().toLocalFile(), QStringLiteral("/b/2.mp3"));
    EXPECT_DOUBLE_EQ(tail.timeRange->start, 50);
    EXPECT_DOUBLE_EQ(tail.timeRange->duration, 50);
    EXPECT_FALSE(tail.wholeFileCandidate);

    const ChapterInput middle = SplitTranscodeStrategy::slice(c, 50, 200, facts);
    ASSERT_EQ(middle.files.size(), 2);
    EXPECT_EQ((*middle.segmentRanges)[0], (MediaTimeRange{50, 50}));
    EXPECT_EQ((*middle.segmentRanges)[1], (MediaTimeRange{0, 100}));
    EXPECT_EQ(*middle.segmentFullTrack, (std::vector<bool>{false, true}));
}

TEST(MultiFileNamingTest, NumberedSafeNames)
{
    EXPECT_EQ(MultiFileExportStrategy::outputFileName(3, 12, QStringLiteral("The Storm"), QStringLiteral("mp3")),
              QStringLiteral("03 - The Storm.mp3"));
    EXPECT_EQ(MultiFileExportStrategy::outputFileName(7, 140, QStringLiteral("A"), QStringLiteral("m4a")),
              QStringLiteral("007 - A.m4a"));
    EXPECT_EQ(MultiFileExportStrategy::sanitizedTitle(QStringLiteral("AC/DC: Live? \"Yes\" <1|2>*\\")),
              QStringLiteral("AC_DC_ Live_ _Yes_ _1_2___"));
    EXPECT_EQ(MultiFileExportStrategy::sanitizedTitle(QStringLiteral("..hidden. ")), QStringLiteral("hidden"));
    EXPECT_EQ(MultiFileExportStrategy::sanitizedTitle(QStringLiteral("  \t ")), QStringLiteral("Chapter"));
    EXPECT_EQ(MultiFileExportStrategy::sanitizedTitle(QString(300, u'x')).size(), 120);
}

TEST(UserFacingErrorTest, ProblemFileLineNamesTheFileAndSaysWhetherItLooksDamaged)
{
    ExportFailureContext plain;
    plain.sourceFileNames = {QStringLiteral("07 Chapter.mp3")};
    EXPECT_EQ(UserFacingError::problemFileLine(plain), QStringLiteral("The export stopped while converting “07 Chapter.mp3”."));

    ExportFailureContext damaged = plain;
    damaged.sourceFileNames << QStringLiteral("08.mp3") << QStringLiteral("09.mp3");
    damaged.decodeErrorCount = 12;
    EXPECT_EQ(UserFacingError::problemFileLine(damaged),
              QStringLiteral("Problem file: 07 Chapter.mp3 and 2 more. It looks damaged, and the export most likely "
                             "failed because of it. Listen to it, or replace it with a fresh copy."));
    EXPECT_FALSE(UserFacingError::problemFileLine(ExportFailureContext{}).has_value());

    const UserFacingError full = UserFacingError::make(ExportError::outOfSpace(), std::nullopt);
    EXPECT_TRUE(full.message.startsWith(QStringLiteral("The disk ran out of space while building this audiobook.")));
    EXPECT_TRUE(full.recoverySuggestion.has_value());
    const UserFacingError withFile = UserFacingError::make(ExportError::underlying(QStringLiteral("FFmpeg exit code: 1")), plain);
    EXPECT_EQ(withFile.fullText(),
              QStringLiteral("FFmpeg exit code: 1\n\nThe export stopped while converting “07 Chapter.mp3”."));
}

TEST(FFmpegEncoderErrorTest, EveryCaseHasItsText)
{
    EXPECT_EQ(FFmpegEncoderError::invalidPath(QStringLiteral("-x")).description(), QStringLiteral("Invalid file path: -x"));
    EXPECT_EQ(FFmpegEncoderError::executionFailed({}).description(), QStringLiteral("FFmpeg encoding failed"));
    EXPECT_EQ(FFmpegEncoderError::executionFailed(QStringLiteral("boom")).description(), QStringLiteral("boom"));
    const auto d = FFmpegEncoderError::executionFailedWithDiagnostics(QStringLiteral("bad"), 7, true);
    EXPECT_EQ(d.description(), QStringLiteral("bad"));
    EXPECT_EQ(d.decodeErrorCount(), 7);
    EXPECT_TRUE(d.corruptStreamKilled());
    EXPECT_EQ(FFmpegEncoderError::noInputFiles(4).description(), QStringLiteral("Chapter 4 has no input files"));
    EXPECT_EQ(FFmpegEncoderError::noSourceFormat(QStringLiteral("a.mp3")).description(), QStringLiteral("No source format for a.mp3"));
    EXPECT_EQ(FFmpegEncoderError::incompleteEncoding(5, 3).description(),
              QStringLiteral("Not all chapters were encoded successfully (expected 5, got 3)"));
    EXPECT_EQ(FFmpegEncoderError::unsupportedOutputFormat(QStringLiteral("ogg")).description(),
              QStringLiteral("Unsupported output format: ogg"));
    EXPECT_EQ(FFmpegEncoderError::segmentExtractionFailed(QStringLiteral("x")).description(),
              QStringLiteral("Cross-file segment extraction failed: x"));
    EXPECT_EQ(FFmpegEncoderError::cancelled().description(), QStringLiteral("Encoding cancelled by user"));
}

TEST(ParallelRunTest, FirstFailureCancelsTheRestAndIsTheErrorShown)
{
    std::atomic<int> started{0};
    std::atomic<int> sawCancel{0};
    LogCapture log;
    try {
        FFmpegAudioEncoder::runParallel(12, 3, std::make_shared<ManualCancellationToken>(), [&](int i, const CancellationToken& token) {
            ++started;
            if (i == 1)
                throw FFmpegEncoderError::executionFailed(QStringLiteral("segment 1 broke"));
            // The others run until they are told to stop, and report a cancel.
            for (int k = 0; k < 200 && !token.isCancelled(); ++k)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (token.isCancelled()) {
                ++sawCancel;
                throw FFmpegEncoderError::cancelled();
            }
        });
        FAIL() << "the failure must surface";
    } catch (const FFmpegEncoderError& e) {
        EXPECT_EQ(e.description(), QStringLiteral("segment 1 broke"));
    }
    EXPECT_LT(started.load(), 12); // later segments were skipped
    EXPECT_GE(sawCancel.load(), 1);
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] First error — cancelling remaining operations")));
    EXPECT_TRUE(log.contains(QStringLiteral("] skipped: globalCancel=true")));
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] All operations finished: completed=")));
}

TEST(ParallelRunTest, AUserCancelWinsOverFailuresAndEveryJobRunsOtherwise)
{
    auto token = std::make_shared<ManualCancellationToken>();
    try {
        FFmpegAudioEncoder::runParallel(4, 2, token, [&](int i, const CancellationToken&) {
            if (i == 0)
                token->cancel();
            throw FFmpegEncoderError::executionFailed(QStringLiteral("after the cancel"));
        });
        FAIL();
    } catch (const FFmpegEncoderError& e) {
        EXPECT_EQ(e.kind(), FFmpegEncoderError::Kind::cancelled);
    }

    std::atomic<int> ran{0};
    FFmpegAudioEncoder::runParallel(5, 2, nullptr, [&](int, const CancellationToken&) { ++ran; });
    EXPECT_EQ(ran.load(), 5);
}

TEST(DestinationWritabilityTest, FolderFileOnlyAndRefused)
{
    QTemporaryDir dir;
    const QString book = dir.filePath(QStringLiteral("Books/out.m4b"));
    QDir().mkpath(dir.filePath(QStringLiteral("Books")));
    EXPECT_EQ(DestinationWritability::check(book, false), DestinationWritability::Result::folder);
    EXPECT_TRUE(QDir(dir.filePath(QStringLiteral("Books"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot).isEmpty())
        << "the probe file must be gone";

    ASSERT_TRUE(test::Fixtures::writeFile(book, "old"));
    if (!test::makeFolderRefuseNewEntries(dir.filePath(QStringLiteral("Books"))))
        GTEST_SKIP() << "cannot make a folder refuse new files here";
    EXPECT_EQ(DestinationWritability::check(book, false), DestinationWritability::Result::fileOnly);
    EXPECT_EQ(test::Fixtures::readFile(book), QByteArray("old")); // the check changed nothing
    // A build never takes the file-only way: it would write over the old book in place.
    try {
        DestinationWritability::require(book, false);
        ADD_FAILURE() << "a folder that takes no new files must be refused";
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind(), ExportError::Kind::validationFailed);
        EXPECT_TRUE(e.description().startsWith(QStringLiteral("Folivox can't create new files in “Books”, so it can't "
                                                               "replace “out.m4b” safely")));
    }
    const QString other = dir.filePath(QStringLiteral("Books/new.m4b"));
    EXPECT_EQ(DestinationWritability::check(other, false), DestinationWritability::Result::refused);
    LogCapture log;
    try {
        DestinationWritability::require(other, false);
        FAIL();
    } catch (const ExportError& e) {
        EXPECT_EQ(e.kind(), ExportError::Kind::destinationNotWritable);
        EXPECT_EQ(e.description(), QStringLiteral("Folivox can't save into “Books”. Choose the destination folder again, "
                                                  "then start the build."));
    }
    EXPECT_TRUE(log.contains(QStringLiteral(
        "Destination writability: REFUSED (neither the folder nor the output file can be written)")));
    // A multi-file build's folder is named by itself.
    EXPECT_EQ(DestinationWritability::check(dir.filePath(QStringLiteral("Books")), true), DestinationWritability::Result::refused);
    EXPECT_EQ(DestinationWritability::refusedFolderName(dir.filePath(QStringLiteral("Books")), true), QStringLiteral("Books"));
    test::allowNewEntries(dir.filePath(QStringLiteral("Books")));
}

TEST(CleanUpTest, NeverRemovesWhatTheUserHadADirectoryOrASource)
{
    QTemporaryDir dir;
    const QString fresh = dir.filePath(QStringLiteral("new.m4b"));
    const QString old = dir.filePath(QStringLiteral("old.m4b"));
    const QString folder = dir.filePath(QStringLiteral("folder"));
    const QString source = dir.filePath(QStringLiteral("source.m4b"));
    ASSERT_TRUE(test::Fixtures::writeFile(fresh, "partial"));
    ASSERT_TRUE(test::Fixtures::writeFile(old, "precious"));
    ASSERT_TRUE(test::Fixtures::writeFile(source, "book"));
    QDir().mkpath(folder);

    LogCapture log;
    EXPECT_FALSE(DefaultExportService::cleanUp(dir.filePath(QStringLiteral("nothing.m4b")), false));
    EXPECT_FALSE(DefaultExportService::cleanUp(old, true));
    EXPECT_EQ(test::Fixtures::readFile(old), QByteArray("precious"));
    EXPECT_FALSE(DefaultExportService::cleanUp(folder, false));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_FALSE(DefaultExportService::cleanUp(source, false, {ExportPrologue::identity(source)}));
    EXPECT_TRUE(QFile::exists(source));
    EXPECT_TRUE(DefaultExportService::cleanUp(fresh, false));
    EXPECT_FALSE(QFile::exists(fresh));
    EXPECT_TRUE(log.contains(QStringLiteral("cleanup: destination is a DIRECTORY (folder) — left untouched; partial parts "
                                            "may remain, the folder belongs to the user")));
    EXPECT_TRUE(log.contains(QStringLiteral("cleanup: destination 'old.m4b' existed before this export — left in place; a "
                                            "cancelled or failed export must not take away a file the user already had")));
}

TEST(ExportPrologueTest, IdentityFollowsTheFileNotThePath)
{
    QTemporaryDir dir;
    const QString a = dir.filePath(QStringLiteral("a.mp3"));
    ASSERT_TRUE(test::Fixtures::writeFile(a, "x"));
    const QString link = dir.filePath(QStringLiteral("hard.mp3"));
    ASSERT_TRUE(QFile::link(a, dir.filePath(QStringLiteral("soft.mp3"))));
    ASSERT_EQ(::link(QFile::encodeName(a).constData(), QFile::encodeName(link).constData()), 0);
    const QSet<QString> ids{ExportPrologue::identity(a)};
    EXPECT_TRUE(ExportPrologue::isProtected(link, ids));
    EXPECT_TRUE(ExportPrologue::isProtected(dir.filePath(QStringLiteral("sub/../a.mp3")), ids));
    EXPECT_TRUE(ExportPrologue::isProtected(dir.filePath(QStringLiteral("soft.mp3")), ids));
    EXPECT_FALSE(ExportPrologue::isProtected(dir.filePath(QStringLiteral("other.mp3")), ids));

    Track t;
    t.url = QUrl::fromLocalFile(a);
    const ExportPrologue p = ExportPrologue::make({}, BookMetadata{}, ExportSettings{}, {t});
    EXPECT_TRUE(p.protectedSourceIdentities.contains(ExportPrologue::identity(a)));
    EXPECT_TRUE(p.tempDir.contains(QStringLiteral("FolivoxWork")));
}
