// Whole builds through the driver with real ffmpeg: the strategy chosen, the
// audio that comes out, the chapter marks, and what a failed or cancelled
// build leaves behind.
#include "container/io/FaultInjection.h"
#include "process/ChildProcessReaper.h"
#include "export/engine/DefaultExportService.h"
#include "export/strategies/MP4GaplessTrim.h"
#include "export/strategies/FFmpegAudioEncoder.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "export/engine/OutputLock.h"
#include "export/engine/EngineTestSupport.h"
#include "platform/FileLock.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"
#include "support/ChildProcessCheck.h"
#include "support/Fixtures.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>

#include <unistd.h>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

struct Build {
    ExportResult result;
    std::vector<ExportProgress> progress;
    int completions = 0;
    bool completedOnMainThread = false;
};

class EngineBuild : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        metadata_ = std::make_shared<test::RecordingMetadataService>();
    }

    QString path(const QString& name) const { return dir_.filePath(name); }

    DefaultExportService::Request request(std::vector<Track> tracks, const QString& output,
                                          std::vector<Bookmark> bookmarks = {}) const
    {
        DefaultExportService::Request r;
        r.allTracks = tracks;
        r.bookmarks = bookmarks.empty() ? test::chapterPerTrack(tracks) : std::move(bookmarks);
        r.metadata.title = QStringLiteral("Test Book");
        r.metadata.author = QStringLiteral("A. Writer");
        r.outputPath = output;
        r.settings.cbrBitrateKbps = 64;
        return r;
    }

    // Runs a build to its end, counting completions (and waiting a little
    // after the first to catch a second one).
    Build run(DefaultExportService& service, DefaultExportService::Request r,
              std::shared_ptr<const CancellationToken> token = std::make_shared<ManualCancellationToken>(),
              std::function<void(const ExportProgress&)> onProgress = {})
    {
        Build b;
        bool done = false;
        service.exportBook(
            std::move(r), std::move(token),
            [&b, onProgress](const ExportProgress& p) {
                b.progress.push_back(p);
                if (onProgress)
                    onProgress(p);
            },
            [&b, &done](const ExportResult& result) {
                ++b.completions;
                b.completedOnMainThread = QThread::currentThread() == QCoreApplication::instance()->thread();
                b.result = result;
                done = true;
            });
        QElapsedTimer clock;
        clock.start();
        while (!done && clock.elapsed() < 300000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        const qint64 settle = clock.elapsed() + 300;
        while (clock.elapsed() < settle)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return b;
    }

    DefaultExportService::Dependencies dependencies() const
    {
        DefaultExportService::Dependencies d;
        d.metadataService = metadata_;
        return d;
    }

    QTemporaryDir dir_;
    std::shared_ptr<test::RecordingMetadataService> metadata_;
};

QString errorText(const Build& b)
{
    return b.result.error ? b.result.error->description() : QString();
}

} // namespace

TEST_F(EngineBuild, OneAacM4bWithNothingToChangeIsCopiedBitExact)
{
    const Track source = test::aacTone(path(QStringLiteral("src/book.m4b")), 3.0, 500, 1, 64);
    DefaultExportService service(dependencies());
    const QString output = path(QStringLiteral("out/Copied.m4b"));
    QDir().mkpath(path(QStringLiteral("out")));
    LogCapture capture;
    const Build b = run(service, request({source}, output));

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_EQ(b.completions, 1);
    EXPECT_TRUE(b.completedOnMainThread);
    EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::passthroughEntireFile);
    EXPECT_TRUE(b.result.outcome->reasons.isEmpty());
    EXPECT_EQ(Fixtures::decodedMd5(output), Fixtures::decodedMd5(source.url.toLocalFile()));
    ASSERT_EQ(metadata_->requests().size(), 1u);
    EXPECT_EQ(metadata_->requests()[0].metadata.title, QStringLiteral("Test Book"));
    EXPECT_FALSE(metadata_->requests()[0].freshOutput); // a copy may carry old tags
    ASSERT_FALSE(b.progress.empty());
    for (std::size_t i = 1; i < b.progress.size(); ++i)
        EXPECT_GE(b.progress[i].fraction, b.progress[i - 1].fraction);
    EXPECT_DOUBLE_EQ(b.progress.back().fraction, 1.0);
    EXPECT_TRUE(capture.contains(QStringLiteral("[Export] Work folder: ")));
    EXPECT_TRUE(test::leftoverWorkFolders(capture.lines()).isEmpty());

    // The build wrote its diagnostic log to a file: the session, the inputs, the decision.
    const QString log = QString::fromUtf8(Fixtures::readFile(b.result.logFile));
    EXPECT_TRUE(log.contains(QStringLiteral("========== EXPORT STARTED ==========")));
    EXPECT_TRUE(log.contains(QStringLiteral("Output file: ") + output));
    EXPECT_TRUE(log.contains(QStringLiteral("track[0] book.m4b exists=true readable=true")));
    EXPECT_TRUE(log.contains(QStringLiteral("Destination writability: folder (new files may be created next to the book)")));
    EXPECT_TRUE(log.contains(QStringLiteral("========== EXPORT COMPLETED ==========")));
}

TEST_F(EngineBuild, TwoAacSourcesAreJoinedByCopyWithChaptersWhereEachFileBegins)
{
    const Track a = test::aacTone(path(QStringLiteral("src/01.m4b")), 2.0, 400, 1, 64);
    const Track c = test::aacTone(path(QStringLiteral("src/02.m4b")), 2.5, 700, 1, 64);
    DefaultExportService service(dependencies());
    const QString output = path(QStringLiteral("Joined.m4b"));
    const Build b = run(service, request({a, c}, output));

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::passthroughConcat);
    // Copied frames: the packets of both files, every one of them, once.
    EXPECT_EQ(MP4GaplessTrim::read(output).packets,
              test::audioPacketCount(a.url.toLocalFile()) + test::audioPacketCount(c.url.toLocalFile()));
    const double expected = a.duration + c.duration;
    EXPECT_NEAR(Fixtures::decodedDuration(output), expected, 0.05 * 2);
    const auto& chapters = b.result.outcome->chapters;
    ASSERT_EQ(chapters.size(), 2u);
    EXPECT_DOUBLE_EQ(chapters[0].start, 0.0);
    // The second file's audio begins where the first file's real samples
    // end: no priming frame and no padding between them (the file's own
    // edit list gives its length to the millisecond).
    const SegmentTiming first = FFmpegAudioEncoder::measure(a.url.toLocalFile());
    EXPECT_NEAR(chapters[1].start, first.presentedDuration, 0.0005);
    ASSERT_EQ(metadata_->requests().size(), 1u);
    EXPECT_EQ(metadata_->requests()[0].chapters.size(), 2);
    EXPECT_NEAR(metadata_->requests()[0].chapters[1].startTime, chapters[1].start, 1e-9);
}

TEST_F(EngineBuild, Mp3SourcesEncodeInParallelSlicesWithMarksAtTheSourcesOwnTimes)
{
    // Tone, silence, tone: where the silence starts and ends in the output
    // shows where chapters 2 and 3 really begin.
    const Track t1 = test::mp3Tone(path(QStringLiteral("src/1.mp3")), 2.0, 440);
    const Track t2 = test::silenceMp3(path(QStringLiteral("src/2.mp3")), 2.0);
    const Track t3 = test::mp3Tone(path(QStringLiteral("src/3.mp3")), 2.0, 660);
    DefaultExportService service(dependencies());
    const QString output = path(QStringLiteral("Encoded.m4b"));
    auto r = request({t1, t2, t3}, output);
    r.parallelJobs = 2;
    LogCapture log;
    const Build b = run(service, r);

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::transcode);
    EXPECT_TRUE(b.result.outcome->reasons.contains(QStringLiteral("non-AAC source")));
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] Decoding 3 sources to 44100 Hz, 1 ch PCM")));
    // Six seconds make one slice: a slice is not cut shorter than five.
    EXPECT_TRUE(log.contains(QStringLiteral("[BatchEncoding] Starting parallel encoding: 1 segments, concurrency=1")));
    const double inputs = t1.duration + t2.duration + t3.duration;
    const double decoded = Fixtures::decodedDuration(output);
    EXPECT_NEAR(decoded, inputs, 1024.0 / 44100);

    const auto& chapters = b.result.outcome->chapters;
    ASSERT_EQ(chapters.size(), 3u);
    EXPECT_NEAR(chapters[1].start, t1.duration, 0.001);
    EXPECT_NEAR(chapters[2].start, t1.duration + t2.duration, 0.001);
    const auto silences = test::detectSilences(output, -60, 1.0);
    ASSERT_EQ(silences.size(), 1u);
    // The silence lies where chapter 2 lies: no gap moved it.
    EXPECT_NEAR(chapters[2].start, silences[0].end, 0.01);
    EXPECT_NEAR(chapters[1].start, silences[0].start, 0.01);
    EXPECT_NEAR(chapters[2].start + chapters[2].duration, inputs, 0.001);

    ASSERT_EQ(metadata_->requests().size(), 1u);
    const auto& marks = metadata_->requests()[0].chapters;
    ASSERT_EQ(marks.size(), 3);
    EXPECT_EQ(marks[2].title, QStringLiteral("Chapter 3"));
    EXPECT_DOUBLE_EQ(marks[2].startTime, chapters[2].start);
}

TEST_F(EngineBuild, EightyOneChaptersOfOneFileGetTheirOwnTimesAndPlayThrough)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/long.mp3")), 40.5, 300);
    std::vector<Bookmark> marks;
    for (int i = 0; i < 81; ++i)
        marks.push_back(test::bookmark(QStringLiteral("Part %1").arg(i + 1), {source}, i * 0.5, 0.5));
    DefaultExportService service(dependencies());
    const QString output = path(QStringLiteral("Many.m4b"));
    const Build b = run(service, request({source}, output, marks));

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    const auto& chapters = b.result.outcome->chapters;
    ASSERT_EQ(chapters.size(), 81u);
    for (std::size_t i = 0; i < chapters.size(); ++i)
        EXPECT_NEAR(chapters[i].start, 0.5 * double(i), 0.001) << i;
    const double decoded = Fixtures::decodedDuration(output);
    EXPECT_NEAR(decoded, source.duration, 1024.0 / 44100);
    EXPECT_NEAR(chapters.back().start + chapters.back().duration, source.duration, 0.001);
}

TEST_F(EngineBuild, EightySegmentsJoinInOnePassAndEightyOneInTwo)
{
    // 81 tiny AAC pieces of 0.1 s (copies of one encode: the join only
    // needs 81 files).
    const FFmpegAudioEncoder encoder(std::make_shared<FFmpegWrapper>());
    const QString model = path(QStringLiteral("seg/model.m4a"));
    test::aacTone(model, 0.1, 500, 1, 64);
    QStringList pieces;
    for (int i = 0; i < 81; ++i) {
        const QString p = path(QStringLiteral("seg/p%1.m4a").arg(i, 3, 10, QChar(u'0')));
        ASSERT_TRUE(QFile::copy(model, p));
        pieces << p;
    }
    QDir().mkpath(path(QStringLiteral("w80")));
    QDir().mkpath(path(QStringLiteral("w81")));
    {
        LogCapture log;
        const auto offsets = encoder.join(pieces.mid(0, 80), path(QStringLiteral("w80/out.m4b")), path(QStringLiteral("w80")),
                                          OutputFormat::m4b, CancellationToken::never());
        EXPECT_FALSE(log.contains(QStringLiteral("[Mux] Cascaded concat")));
        EXPECT_EQ(offsets.size(), 80u);
        EXPECT_TRUE(QFile::exists(path(QStringLiteral("w80/concat_list.txt"))));
    }
    LogCapture log;
    const auto offsets = encoder.join(pieces, path(QStringLiteral("w81/out.m4b")), path(QStringLiteral("w81")),
                                      OutputFormat::m4b, CancellationToken::never());
    EXPECT_TRUE(log.contains(QStringLiteral("[Mux] Cascaded concat: 81 segments")));
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("w81/cascade_list_000.txt"))));
    EXPECT_TRUE(QFile::exists(path(QStringLiteral("w81/cascade_final_list.txt"))));
    ASSERT_EQ(offsets.size(), 81u);
    // Each piece's audio begins where the real samples of the pieces before
    // it end, whatever the stages: 0.1 s apart.
    EXPECT_DOUBLE_EQ(offsets[0], 0.0);
    for (int i = 1; i < 81; ++i)
        EXPECT_NEAR(offsets[std::size_t(i)], 0.1 * i, 1e-6) << i;
    EXPECT_EQ(MP4GaplessTrim::read(path(QStringLiteral("w81/out.m4b"))).packets, 81 * test::audioPacketCount(pieces[0]));
    EXPECT_NEAR(FFmpegAudioEncoder::measure(path(QStringLiteral("w81/out.m4b"))).presentedDuration, 8.1, 1e-6);
}

TEST_F(EngineBuild, ACancelledBuildLeavesNoProcessNoWorkFolderAndThePreviousFileUntouched)
{
    std::vector<Track> tracks;
    for (int i = 0; i < 3; ++i)
        tracks.push_back(test::mp3Tone(path(QStringLiteral("src/%1.mp3").arg(i)), 40.0, 300 + 100 * i));
    for (const bool preExisting : {true, false}) {
        SCOPED_TRACE(preExisting ? "pre-existing output" : "no output before");
        const QString output = path(preExisting ? QStringLiteral("Kept.m4b") : QStringLiteral("Fresh.m4b"));
        if (preExisting) {
            ASSERT_TRUE(Fixtures::writeFile(output, "the user's own book"));
        }
        DefaultExportService service(dependencies());
        auto r = request(tracks, output);
        r.parallelJobs = 1;
        auto token = std::make_shared<ManualCancellationToken>();
        std::atomic<int> encodingReports{0};
        LogCapture capture;
        const Build b = run(service, r, token, [&](const ExportProgress& p) {
            if (p.phase == ExportPhase::encoding && p.fraction > 0.05 && ++encodingReports == 1)
                token->cancel();
        });

        ASSERT_TRUE(b.result.cancelled()) << errorText(b).toStdString();
        EXPECT_EQ(b.completions, 1);
        EXPECT_EQ(errorText(b), QStringLiteral("Export was cancelled."));
        EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
        EXPECT_TRUE(test::liveChildren().isEmpty());
        EXPECT_TRUE(capture.contains(QStringLiteral("[Export] Work folder: ")));
        EXPECT_TRUE(test::leftoverWorkFolders(capture.lines()).isEmpty());
        // The cancel came during the first of three segments. Whether it met
        // that encode still running or just finished depends on timing; either
        // way the remaining segments must never be encoded.
        EXPECT_FALSE(capture.contains(QStringLiteral("[Transcode] Encoded 3 segments")));
        EXPECT_FALSE(capture.contains(QStringLiteral("Segment[2] started")));
        if (preExisting) {
            EXPECT_EQ(Fixtures::readFile(output), QByteArray("the user's own book"));
        } else {
            EXPECT_FALSE(QFile::exists(output));
        }
        EXPECT_TRUE(metadata_->requests().empty());
    }
}

TEST_F(EngineBuild, ACancelDuringAPassthroughCopyStopsTheCopyAndLeavesNothing)
{
    // About 12 MB of AAC, so the copy reports several pieces before its end.
    const Track piece = test::aacTone(path(QStringLiteral("src/piece.m4a")), 4.0, 500, 2, 160);
    const QString big = path(QStringLiteral("src/Long.m4b"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-stream_loop"), QStringLiteral("150"), QStringLiteral("-i"),
                                  piece.url.toLocalFile(), QStringLiteral("-c"), QStringLiteral("copy"),
                                  QStringLiteral("-f"), QStringLiteral("ipod"), big}));
    const Track source = test::realTrack(big, QStringLiteral("aac-lc"), 44100, 2, 160000, Fixtures::decodedDuration(big));
    ASSERT_GT(QFileInfo(big).size(), 10 * 1024 * 1024);
    for (const bool preExisting : {true, false}) {
        SCOPED_TRACE(preExisting ? "pre-existing output" : "no output before");
        const QString output = path(preExisting ? QStringLiteral("Kept.m4b") : QStringLiteral("Fresh.m4b"));
        if (preExisting) {
            ASSERT_TRUE(Fixtures::writeFile(output, "the user's own book"));
        }
        DefaultExportService service(dependencies());
        auto r = request({source}, output);
        r.settings.cbrBitrateKbps = 160;
        auto token = std::make_shared<ManualCancellationToken>();
        // The cancel lands on the worker, right after the first piece of the
        // copy has been written.
        std::atomic<int> pieces{0};
        FaultInjection::Scope cancelInCopy([&](const QString& point) {
            if (point == QLatin1String("relocate.piece") && ++pieces == 1)
                token->cancel();
        });
        LogCapture capture;
        const Build b = run(service, r, token);

        ASSERT_TRUE(b.result.cancelled()) << errorText(b).toStdString();
        EXPECT_EQ(pieces.load(), 1) << "the copy went on after the cancel";
        EXPECT_EQ(b.completions, 1);
        EXPECT_FALSE(capture.contains(QStringLiteral("[Passthrough] Copied "))) << "the copy ran to its end";
        EXPECT_TRUE(test::leftoverWorkFolders(capture.lines()).isEmpty());
        EXPECT_TRUE(metadata_->requests().empty());
        if (preExisting) {
            EXPECT_EQ(Fixtures::readFile(output), QByteArray("the user's own book"));
        } else {
            EXPECT_FALSE(QFile::exists(output));
        }
    }
}

TEST_F(EngineBuild, ATokenCancelledBeforeTheStartRunsNoStrategy)
{
    const Track source = test::aacTone(path(QStringLiteral("src/a.m4b")), 1.0);
    const QString output = path(QStringLiteral("Existing.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "keep me"));
    DefaultExportService service(dependencies());
    int made = 0;
    service.setStrategyFactory([&made](ExportDecision::Strategy, bool) {
        ++made;
        return std::unique_ptr<ExportStrategy>();
    });
    auto token = std::make_shared<ManualCancellationToken>();
    token->cancel();
    LogCapture log;
    const Build b = run(service, request({source}, output), token);
    EXPECT_TRUE(b.result.cancelled());
    EXPECT_EQ(made, 0);
    EXPECT_TRUE(log.contains(QStringLiteral("CANCELLED before start")));
    EXPECT_EQ(Fixtures::readFile(output), QByteArray("keep me"));
}

TEST_F(EngineBuild, AnUnwritableDestinationFailsBeforeAnyAudioWorkNamingTheFolder)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.0);
    const QString folder = path(QStringLiteral("Locked Shelf"));
    if (!test::makeFolderRefuseNewEntries(folder))
        GTEST_SKIP() << "cannot make a folder refuse new files here";
    DefaultExportService service(dependencies());
    int made = 0;
    service.setStrategyFactory([&made](ExportDecision::Strategy, bool) {
        ++made;
        return std::unique_ptr<ExportStrategy>();
    });
    LogCapture log;
    const Build b = run(service, request({source}, QDir(folder).filePath(QStringLiteral("Book.m4b"))));
    test::allowNewEntries(folder);

    ASSERT_TRUE(b.result.error.has_value());
    EXPECT_EQ(b.result.error->kind(), ExportError::Kind::destinationNotWritable);
    EXPECT_EQ(errorText(b), QStringLiteral("Folivox can't save into “Locked Shelf”. Choose the destination folder again, "
                                           "then start the build."));
    EXPECT_EQ(made, 0);
    EXPECT_FALSE(log.contains(QStringLiteral("[FFmpeg] Binary:")));
}

TEST_F(EngineBuild, AFolderThatTakesNoNewFilesIsRefusedBeforeAudioWorkAndTheOldBookIsKept)
{
    // The old file could be written in place, but a build stopped midway would
    // leave it destroyed: the build refuses and says why.
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.5);
    const QString folder = path(QStringLiteral("Granted"));
    const QString output = QDir(folder).filePath(QStringLiteral("Book.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(output, "an older build"));
    if (!test::makeFolderRefuseNewEntries(folder))
        GTEST_SKIP() << "cannot make a folder refuse new files here";
    DefaultExportService service(dependencies());
    int made = 0;
    service.setStrategyFactory([&made](ExportDecision::Strategy, bool) {
        ++made;
        return std::unique_ptr<ExportStrategy>();
    });
    LogCapture log;
    const Build b = run(service, request({source}, output));
    const QStringList entries = QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    test::allowNewEntries(folder);

    ASSERT_FALSE(b.result.succeeded());
    EXPECT_FALSE(b.result.cancelled());
    EXPECT_EQ(errorText(b), QStringLiteral("Folivox can't create new files in “Granted”, so it can't replace “Book.m4b” "
                                           "safely: writing the new book over the old file in place would destroy it "
                                           "if the build stopped midway. Make the folder writable, or choose another "
                                           "destination, then start the build."));
    EXPECT_TRUE(log.contains(QStringLiteral("Destination writability: file only")));
    EXPECT_EQ(made, 0);
    EXPECT_FALSE(log.contains(QStringLiteral("[FFmpeg] Binary:")));
    EXPECT_EQ(entries, QStringList{QStringLiteral("Book.m4b")});
    EXPECT_EQ(Fixtures::readFile(output), QByteArray("an older build"));
}

namespace {
// A strategy whose run fails the way a full temporary disk makes it fail.
class DiskFullStrategy : public ExportStrategy {
public:
    ExportDecision::Strategy kind() const override { return ExportDecision::Strategy::transcode; }
    ExportOutcome run(ExportContext&) override { throw ExportError::outOfSpace(); }
};
} // namespace

TEST_F(EngineBuild, AFullTemporaryDiskIsReportedWithTheTemporaryFolderAndWhatToDo)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.0);
    DefaultExportService service(dependencies());
    service.setStrategyFactory([](ExportDecision::Strategy, bool) { return std::make_unique<DiskFullStrategy>(); });
    const Build b = run(service, request({source}, path(QStringLiteral("Book.m4b"))));
    ASSERT_FALSE(b.result.succeeded());
    const QString text = errorText(b);
    EXPECT_TRUE(text.contains(QStringLiteral("“") + QDir::tempPath() + QStringLiteral("”"))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("ran out of space")));
    EXPECT_TRUE(text.contains(QStringLiteral("set TMPDIR to a folder on a disk with more room")));
    EXPECT_FALSE(QFileInfo::exists(path(QStringLiteral("Book.m4b"))));
}

TEST_F(EngineBuild, ABuildToAnOutputAnotherBuildHoldsIsRefusedAtOnceAndTouchesNothing)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.0);
    const QString output = path(QStringLiteral("Book.m4b"));
    DefaultExportService service(dependencies());
    int made = 0;
    service.setStrategyFactory([&made](ExportDecision::Strategy, bool) {
        ++made;
        return std::unique_ptr<ExportStrategy>();
    });
    {
        // The other build, spelling the same output another way.
        OutputLock other = OutputLock::acquire(path(QStringLiteral("src/../Book.m4b")));
        ASSERT_TRUE(other.isHeld());
        // What it has written so far: the refused build must not clean it up.
        ASSERT_TRUE(Fixtures::writeFile(output, "the other build's book"));
        LogCapture log;
        const Build refused = run(service, request({source}, output));
        ASSERT_FALSE(refused.result.succeeded());
        EXPECT_FALSE(refused.result.cancelled());
        EXPECT_EQ(errorText(refused),
                  QStringLiteral("Another Folivox build (process %1) is already writing “%2”. Wait for it to finish, "
                                 "or choose another output.")
                      .arg(::getpid())
                      .arg(QFileInfo(output).canonicalFilePath()));
        EXPECT_EQ(made, 0);
        EXPECT_FALSE(log.contains(QStringLiteral("Destination writability")));
        EXPECT_EQ(Fixtures::readFile(output), QByteArray("the other build's book"));
        ASSERT_TRUE(QFile::remove(output));
    }
    // Once the other build is over, the output is free again and its lock file gone.
    EXPECT_FALSE(QFileInfo::exists(OutputLock::lockFileFor(output)));
    DefaultExportService real(dependencies());
    const Build b = run(real, request({source}, output));
    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_FALSE(QFileInfo::exists(OutputLock::lockFileFor(output)));
}

TEST_F(EngineBuild, WhatAKilledBuildLeftIsSweptByTheNextAndLiveWorkIsKept)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.0);
    const QString output = path(QStringLiteral("Shelf/Book.m4b"));
    QDir().mkpath(path(QStringLiteral("Shelf")));
    // A killed build's leftovers: a work folder and its lock file that nobody
    // holds, a work folder from a build that took no lock, a write probe and
    // an incoming copy beside the output.
    const QString root = AppPaths::workRoot();
    const QString deadWork = root + QStringLiteral("/0D0D0D0D-0000-4000-8000-00000000DEAD");
    ASSERT_TRUE(Fixtures::writeFile(deadWork + QStringLiteral("/seg_000.m4a"), "partial audio"));
    ASSERT_TRUE(Fixtures::writeFile(deadWork + QStringLiteral(".lock"), ""));
    const QString lockless = root + QStringLiteral("/0D0D0D0D-0000-4000-8000-00000000BEEF");
    ASSERT_TRUE(Fixtures::writeFile(lockless + QStringLiteral("/x.flac"), "partial"));
    const QString probe = path(QStringLiteral("Shelf/.folivox-write-probe-1b5e7c0e-0000-4000-8000-000000000001"));
    const QString incoming = path(QStringLiteral("Shelf/.folivox-incoming-1b5e7c0e-0000-4000-8000-000000000002"));
    ASSERT_TRUE(Fixtures::writeFile(probe, ""));
    ASSERT_TRUE(Fixtures::writeFile(incoming, "half a book"));
    // Work of a build that is still running, and its probe.
    WorkDirectory live;
    ASSERT_TRUE(Fixtures::writeFile(live.filePath(QStringLiteral("seg.m4a")), "live"));
    const QString liveProbe = path(QStringLiteral("Shelf/.folivox-write-probe-1b5e7c0e-0000-4000-8000-000000000003"));
    FileLock liveProbeLock = FileLock::tryAcquire(liveProbe, FileLock::Open::createNew);
    ASSERT_TRUE(liveProbeLock.isHeld());

    DefaultExportService service(dependencies());
    const Build b = run(service, request({source}, output));
    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();

    EXPECT_FALSE(QFileInfo::exists(deadWork));
    EXPECT_FALSE(QFileInfo::exists(deadWork + QStringLiteral(".lock")));
    EXPECT_FALSE(QFileInfo::exists(lockless));
    EXPECT_FALSE(QFileInfo::exists(probe));
    EXPECT_FALSE(QFileInfo::exists(incoming));
    EXPECT_TRUE(QFileInfo::exists(live.filePath(QStringLiteral("seg.m4a"))));
    EXPECT_TRUE(QFileInfo::exists(liveProbe));
    liveProbeLock.removeAndRelease();
    EXPECT_EQ(QDir(path(QStringLiteral("Shelf"))).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
              QStringList{QStringLiteral("Book.m4b")});
}

TEST_F(EngineBuild, ACorruptSourceOnACopyPathIsRetriedOnceByEncoding)
{
    // An AAC M4B whose media header says its timescale is 0.
    const QString broken = path(QStringLiteral("src/broken.m4b"));
    test::aacTone(broken, 2.0, 440, 1, 64);
    QByteArray bytes = Fixtures::readFile(broken);
    const qsizetype mdhd = bytes.indexOf("mdhd");
    ASSERT_GT(mdhd, 0);
    // type(4) + version/flags(4) + creation(4) + modification(4), then the timescale.
    for (int i = 0; i < 4; ++i)
        bytes[mdhd + 16 + i] = 0;
    ASSERT_TRUE(Fixtures::writeFile(broken, bytes));
    const Track source = test::realTrack(broken, QStringLiteral("aac-lc"), 44100, 1, 64000, 2.0);

    DefaultExportService service(dependencies());
    int firstRuns = 0;
    int retries = 0;
    service.setStrategyFactory([&](ExportDecision::Strategy, bool retry) {
        (retry ? retries : firstRuns)++;
        return std::unique_ptr<ExportStrategy>(); // the service's own strategies
    });
    LogCapture log;
    const Build b = run(service, request({source}, path(QStringLiteral("Retried.m4b"))));

    EXPECT_EQ(firstRuns, 1);
    EXPECT_EQ(retries, 1);
    EXPECT_EQ(log.count(QStringLiteral("Corrupted source detected, retrying with TranscodeStrategy. Details: ")), 1);
    EXPECT_TRUE(log.contains(QStringLiteral("timescale not set")));
    if (!b.result.succeeded()) {
        ASSERT_TRUE(b.result.error.has_value());
        EXPECT_EQ(b.result.error->kind(), ExportError::Kind::transcodeFailedAfterRetry);
        const QString text = errorText(b);
        EXPECT_TRUE(text.startsWith(QStringLiteral("Export failed even after attempting to fix corrupted source file.\nOriginal error: ")));
        EXPECT_TRUE(text.contains(QStringLiteral("timescale not set")));
        EXPECT_TRUE(text.contains(QStringLiteral("\nRetry error: ")));
        EXPECT_TRUE(log.contains(QStringLiteral("TranscodeStrategy retry ALSO FAILED: ")));
        EXPECT_FALSE(QFile::exists(path(QStringLiteral("Retried.m4b"))));
    } else {
        EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::transcode);
    }
}

TEST_F(EngineBuild, MultiFileOutputCopiesWhatFitsAndEncodesTheRest)
{
    const Track a = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.5, 300, 1, 64);
    const Track c = test::aacTone(path(QStringLiteral("src/b.m4a")), 1.5, 500, 1, 64);
    DefaultExportService service(dependencies());
    auto r = request({a, c}, path(QStringLiteral("Chapters")));
    r.bookmarks[0].title = QStringLiteral("Opening: Part/One");
    r.bookmarks[1].title = QStringLiteral("Closing");
    r.settings.outputFormat = OutputFormat::mp3;
    const Build b = run(service, r);

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::multiFile);
    const QString first = path(QStringLiteral("Chapters/01 - Opening_ Part_One.mp3"));
    const QString second = path(QStringLiteral("Chapters/02 - Closing.mp3"));
    EXPECT_EQ(b.result.outcome->outputFiles, (QStringList{first, second}));
    // The MP3 chapter is its source, byte for byte; the AAC one was encoded.
    EXPECT_EQ(Fixtures::readFile(first), Fixtures::readFile(a.url.toLocalFile()));
    EXPECT_NEAR(Fixtures::decodedDuration(second), c.duration, 0.1);
    const auto requests = metadata_->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].placement.trackNumber, 2);
    EXPECT_EQ(requests[1].placement.trackCount, 2);
    EXPECT_EQ(requests[1].placement.title, QStringLiteral("Closing"));
    EXPECT_EQ(requests[1].chapters.value(0).title, QStringLiteral("Closing"));
}

TEST_F(EngineBuild, ASplitBuildMakesNamedPartsWithinTheLimit)
{
    std::vector<Track> tracks;
    for (int i = 0; i < 3; ++i)
        tracks.push_back(test::mp3Tone(path(QStringLiteral("src/%1.mp3").arg(i)), 24.0, 300 + 100 * i));
    DefaultExportService service(dependencies());
    auto r = request(tracks, path(QStringLiteral("Split.m4b")));
    r.settings.splitMode = SplitMode::bySize;
    r.settings.splitSizeMB = 1;
    r.settings.cbrBitrateKbps = 128; // 1 MB holds about 61 s at 128 kbps
    const double limit = 1e6 * 0.98 / (128 * 1000 / 8);
    const QString old = path(QStringLiteral("Split - Part 1.m4b"));
    ASSERT_TRUE(Fixtures::writeFile(old, "from an earlier build"));
    const Build b = run(service, r);

    ASSERT_TRUE(b.result.succeeded()) << errorText(b).toStdString();
    EXPECT_EQ(b.result.outcome->strategy, ExportDecision::Strategy::splitTranscode);
    const QStringList parts{old, path(QStringLiteral("Split - Part 2.m4b"))};
    EXPECT_EQ(b.result.outcome->outputFiles, parts);
    double total = 0;
    for (const QString& p : parts) {
        const double d = Fixtures::decodedDuration(p);
        EXPECT_LE(d, limit + 0.2) << p.toStdString();
        total += d;
    }
    EXPECT_NEAR(total, tracks[0].duration * 3, 0.05 * 3);
    // Whole chapters: 24 s and 48 s.
    const auto& chapters = b.result.outcome->chapters;
    ASSERT_EQ(chapters.size(), 3u);
    EXPECT_EQ(chapters[0].file, parts[0]);
    EXPECT_EQ(chapters[1].file, parts[1]);
    EXPECT_DOUBLE_EQ(chapters[1].start, 0.0);
    const auto requests = metadata_->requests();
    ASSERT_EQ(requests.size(), 2u);
    // One album for every part; each part has its own title and disc number.
    for (int p = 0; p < 2; ++p) {
        EXPECT_EQ(requests[std::size_t(p)].metadata.title, QStringLiteral("Test Book"));
        EXPECT_EQ(requests[std::size_t(p)].placement.title, QStringLiteral("Test Book (Part %1)").arg(p + 1));
        EXPECT_EQ(requests[std::size_t(p)].placement.discNumber, p + 1);
        EXPECT_EQ(requests[std::size_t(p)].placement.discCount, 2);
    }
    // No aside copy is left behind.
    EXPECT_EQ(QDir(dir_.path()).entryList(QDir::Files | QDir::Hidden).size(), 2);
}

TEST_F(EngineBuild, AnOutputThatIsOneOfTheSourcesIsRefusedBeforeAnyWork)
{
    const Track source = test::aacTone(path(QStringLiteral("book.m4b")), 1.0);
    const QByteArray before = Fixtures::readFile(source.url.toLocalFile());
    DefaultExportService service(dependencies());
    int made = 0;
    service.setStrategyFactory([&made](ExportDecision::Strategy, bool) {
        ++made;
        return std::unique_ptr<ExportStrategy>();
    });
    // The same file under another name: a hard link.
    const QString alias = path(QStringLiteral("alias.m4b"));
    ASSERT_EQ(::link(QFile::encodeName(source.url.toLocalFile()).constData(), QFile::encodeName(alias).constData()), 0);
    const Build b = run(service, request({source}, alias));
    ASSERT_TRUE(b.result.error.has_value());
    EXPECT_EQ(errorText(b), QStringLiteral("Folivox can't find a free name for “alias.m4b” in this folder — it would "
                                           "have to write over one of the book's own files."));
    EXPECT_EQ(made, 0);
    EXPECT_EQ(Fixtures::readFile(source.url.toLocalFile()), before);
}

TEST_F(EngineBuild, HeAacWithoutAnEncoderIsRefusedClearly)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/a.mp3")), 1.0);
    DefaultExportService::Dependencies d = dependencies();
    d.catalog = EncoderCatalog(QSet<QString>{QStringLiteral("aac"), QStringLiteral("libmp3lame")});
    DefaultExportService service(d);
    auto r = request({source}, path(QStringLiteral("He.m4b")));
    r.settings.codec = AudioCodec::heAAC;
    const Build b = run(service, r);
    ASSERT_TRUE(b.result.error.has_value());
    EXPECT_TRUE(errorText(b).contains(QStringLiteral("HE-AAC"))) << errorText(b).toStdString();
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("He.m4b"))));
}
