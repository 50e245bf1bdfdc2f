#include "AudioFixtures.h"

#include "import/ImportCoordinator.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::AudioFixtures;
using folivox::test::Fixtures;

namespace {

class ImportCoordinatorIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }
    QUrl url(const QString& name) const { return QUrl::fromLocalFile(path(name)); }

    static QStringList relativeNames(const std::vector<Track>& tracks, const QString& root)
    {
        QStringList out;
        for (const Track& t : tracks)
            out << QDir(root).relativeFilePath(t.url.toLocalFile());
        return out;
    }
};

class RecordingFinalizer : public ImportFinalizing {
public:
    void finalize(const std::vector<Track>& tracks, bool firstImport) override
    {
        calls.append({static_cast<int>(tracks.size()), firstImport});
    }
    QList<std::pair<int, bool>> calls;
};

} // namespace

TEST_F(ImportCoordinatorIntegrationTest, ExpandsFoldersOrdersTracksAndMakesChapters)
{
    for (const char* n : {"book/10.mp3", "book/2.mp3", "book/1.mp3", "book/.hidden.mp3", "book/.trash/9.mp3",
                          "book/CD2/01.mp3", "book/CD1/02.mp3"})
        ASSERT_TRUE(Fixtures::tone(path(n), 0.6));
    ASSERT_TRUE(Fixtures::writeFile(path("book/cover.pdf"), "%PDF-1.4"));

    const auto expansion = ImportCoordinator::expand({url("book")});
    EXPECT_EQ(expansion.audio.size(), 5);
    EXPECT_TRUE(expansion.video.isEmpty());
    for (const QString& p : expansion.audio)
        EXPECT_FALSE(p.contains("/.")) << p.toStdString();

    ImportCoordinator coordinator;
    coordinator.trackSortMode = TrackSortMode::auto_;
    QList<std::pair<int, int>> progress;
    coordinator.onProgress = [&](int d, int t) { progress.append({d, t}); };
    struct SidecarCall {
        QString folder;
        QList<QUrl> dropped;
        size_t tracks = 0;
    };
    QList<SidecarCall> sidecarCalls;
    coordinator.sidecarDiscovery = [&](const QString& folder, const QList<QUrl>& dropped, const std::vector<Track>& t) {
        sidecarCalls.append({folder, dropped, t.size()});
    };
    auto finalizer = std::make_shared<RecordingFinalizer>();
    coordinator.finalizer = finalizer;
    QList<QUrl> completed;
    coordinator.onImportCompleted = [&](const QList<QUrl>& urls) { completed = urls; };

    LogCapture log;
    const ImportResult r = coordinator.import({url("book")});
    EXPECT_EQ(r.status, ImportResult::Status::imported);
    EXPECT_EQ(relativeNames(r.tracks, path("book")),
              (QStringList{"1.mp3", "2.mp3", "10.mp3", "CD1/02.mp3", "CD2/01.mp3"}));
    ASSERT_EQ(r.chapters.size(), 5u);
    EXPECT_EQ(r.chapters[2].title, "10");
    EXPECT_NEAR(r.chapters[2].duration, 0.6, 0.05);
    EXPECT_FALSE(r.addedToExistingBook);
    EXPECT_FALSE(r.report.has_value());
    EXPECT_EQ(coordinator.bookTracks().size(), 5u);
    EXPECT_EQ(coordinator.bookChapters().size(), 5u);
    EXPECT_EQ(coordinator.total(), 5);
    EXPECT_EQ(coordinator.done(), 5);
    EXPECT_FALSE(coordinator.isImporting());
    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.first(), std::make_pair(0, 5));
    EXPECT_EQ(progress.last(), std::make_pair(5, 5));
    ASSERT_EQ(sidecarCalls.size(), 1);
    EXPECT_EQ(sidecarCalls[0].folder, QFileInfo(path("book/1.mp3")).absolutePath());
    EXPECT_TRUE(sidecarCalls[0].dropped.isEmpty());
    EXPECT_EQ(sidecarCalls[0].tracks, 5u);
    EXPECT_EQ(finalizer->calls, (QList<std::pair<int, bool>>{{5, true}}));
    EXPECT_EQ(completed.size(), 5);

    for (const char* heading : {"[Import] ========== IMPORT STARTED ==========", "[Import] Input URLs: 1",
                                "[Import] Video inputs: 0", "[Import] After filter: 5", "[Import] Metadata loaded: ",
                                "[Import] 📥 IMPORT: Source Analysis", "[Import] ---- DETECTED TAGS (source: ",
                                "[Import] 📥 IMPORT: Final Track Order (5 tracks",
                                "[Import] 📥 IMPORT: Chapter Layout (5 chapters)", "one bookmark per file",
                                "[Import] 📥 IMPORT: Timing Summary", "[Import] Sidecar: auto-discovery next to "})
        EXPECT_TRUE(log.contains(QString::fromUtf8(heading))) << heading;
    EXPECT_TRUE(log.contains("\u00a9ART artist: (none)"));

    // A second import adds to the book.
    ASSERT_TRUE(Fixtures::tone(path("more/11.mp3"), 0.5));
    const ImportResult second = coordinator.import({url("more/11.mp3"), url("more/chapters.cue")});
    EXPECT_EQ(second.status, ImportResult::Status::imported);
    EXPECT_TRUE(second.addedToExistingBook);
    EXPECT_EQ(second.droppedSidecarFiles, QList<QUrl>{url("more/chapters.cue")});
    EXPECT_EQ(coordinator.bookTracks().size(), 6u);
    EXPECT_EQ(coordinator.bookChapters().size(), 6u);
    EXPECT_EQ(finalizer->calls.last(), std::make_pair(1, false));
    EXPECT_TRUE(log.contains("added to existing book"));
    EXPECT_TRUE(log.contains("[Import] Sidecar: applying 1 dropped chapter file(s)"));
    ASSERT_EQ(sidecarCalls.size(), 2);
    EXPECT_EQ(sidecarCalls[1].dropped, QList<QUrl>{url("more/chapters.cue")});
    EXPECT_EQ(sidecarCalls[1].folder, QFileInfo(path("more/11.mp3")).absolutePath());
}

TEST_F(ImportCoordinatorIntegrationTest, M4BRulesRefuseAndLeaveTheBookUnchanged)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("book.m4b"), 2.0, "64k", {{0, "A"}, {1, "B"}}));
    ASSERT_TRUE(Fixtures::tone(path("one.mp3"), 0.5));
    ASSERT_TRUE(Fixtures::tone(path("two.mp3"), 0.5));

    ImportCoordinator coordinator;
    // One M4B and one MP3 together: the selection alert.
    ImportResult r = coordinator.import({url("book.m4b"), url("one.mp3")});
    EXPECT_EQ(r.status, ImportResult::Status::refused);
    ASSERT_TRUE(r.alert);
    EXPECT_EQ(r.alert->titleKey, "alert.cannot.mix.formats.in.selection.title");
    EXPECT_EQ(r.alert->title, "Cannot import M4B with other formats");
    EXPECT_TRUE(r.alert->message.startsWith("You selected both M4B audiobook(s) and other audio files"));
    EXPECT_TRUE(coordinator.bookTracks().empty());

    // A book of MP3 files: adding an M4B gives the add alert and changes nothing.
    r = coordinator.import({url("one.mp3")});
    ASSERT_EQ(r.status, ImportResult::Status::imported);
    const auto tracksBefore = coordinator.bookTracks();
    const auto chaptersBefore = coordinator.bookChapters();
    r = coordinator.import({url("book.m4b")});
    EXPECT_EQ(r.status, ImportResult::Status::refused);
    ASSERT_TRUE(r.alert);
    EXPECT_EQ(r.alert->title, "Cannot add M4B to existing files");
    EXPECT_EQ(r.alert->messageKey, "alert.cannot.add.m4b.message");
    EXPECT_EQ(coordinator.bookTracks(), tracksBefore);
    EXPECT_EQ(coordinator.bookChapters(), chaptersBefore);

    // A book of an M4B: adding MP3 files gives the mix alert.
    coordinator.resetBook();
    r = coordinator.import({url("book.m4b")});
    ASSERT_EQ(r.status, ImportResult::Status::imported);
    EXPECT_EQ(r.chapters.size(), 2u);  // from the embedded marks
    r = coordinator.import({url("two.mp3")});
    EXPECT_EQ(r.status, ImportResult::Status::refused);
    ASSERT_TRUE(r.alert);
    EXPECT_EQ(r.alert->title, "Cannot mix M4B with other formats");
    EXPECT_EQ(coordinator.bookTracks().size(), 1u);
    EXPECT_STREQ(ImportAlert::buttonKey(), "alert.button.ok");
}

TEST_F(ImportCoordinatorIntegrationTest, BusyLibraryRefusesBeforeAnythingHappens)
{
    ASSERT_TRUE(Fixtures::tone(path("one.mp3"), 0.5));
    ImportCoordinator coordinator;
    coordinator.isExclusiveOperationRunning = [] { return true; };
    LogCapture log;
    const ImportResult r = coordinator.import({url("one.mp3")});
    EXPECT_EQ(r.status, ImportResult::Status::busy);
    ASSERT_TRUE(r.alert);
    EXPECT_EQ(r.alert->messageKey, "library.import.busy.message");
    EXPECT_EQ(r.alert->message, "Another library operation is rewriting book records right now. Nothing was "
                                "imported — try again when it finishes.");
    EXPECT_TRUE(log.contains("Import refused: an exclusive library operation is running"));
    EXPECT_FALSE(log.contains("IMPORT STARTED"));
    EXPECT_TRUE(coordinator.bookTracks().empty());
}

TEST_F(ImportCoordinatorIntegrationTest, BrokenFilesAreReportedAndTheOthersLoad)
{
    ASSERT_TRUE(Fixtures::tone(path("good.mp3"), 0.8));
    ASSERT_TRUE(Fixtures::writeFile(path("empty.mp3"), {}));
    ASSERT_TRUE(Fixtures::writeFile(path("text.flac"), QByteArray("plain words\n").repeated(30)));
    ImportCoordinator coordinator;
    const ImportResult r = coordinator.import({url("good.mp3"), url("empty.mp3"), url("text.flac")});
    EXPECT_EQ(r.status, ImportResult::Status::imported);
    ASSERT_EQ(r.tracks.size(), 1u);
    ASSERT_EQ(r.outcome.unreadableFiles.size(), 2u);
    EXPECT_EQ(r.outcome.unreadableFiles[0].reason, TrackLoadOutcome::FailureReason::zeroDuration);
    EXPECT_EQ(r.outcome.unreadableFiles[1].reason, TrackLoadOutcome::FailureReason::noAudioFound);
    ASSERT_TRUE(r.report);
    EXPECT_EQ(r.report->title, "Some files couldn't be imported");
    EXPECT_TRUE(r.report->message.contains("• empty.mp3 — no readable audio (file is truncated or empty)"));

    // Nothing readable at all: nothing imported, the book stays empty.
    ImportCoordinator other;
    const ImportResult none = other.import({url("empty.mp3")});
    EXPECT_EQ(none.status, ImportResult::Status::nothingImported);
    EXPECT_TRUE(other.bookTracks().empty());
}

TEST_F(ImportCoordinatorIntegrationTest, VideoAudioIsExtractedAndMarked)
{
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "testsrc=size=64x48:rate=10:duration=2", "-f", "lavfi", "-i",
                                  "sine=frequency=300:duration=2", "-c:v", "mpeg4", "-c:a", "aac", "-b:a", "96k",
                                  "-shortest", path("lecture.mkv")}));
    ImportCoordinator coordinator;
    QList<double> fractions;
    coordinator.onVideoProgress = [&](const QString& message, double f) {
        EXPECT_TRUE(message.contains("lecture.mkv"));
        fractions << f;
    };
    const ImportResult r = coordinator.import({url("lecture.mkv")});
    ASSERT_EQ(r.status, ImportResult::Status::imported);
    ASSERT_EQ(r.tracks.size(), 1u);
    const Track& t = r.tracks[0];
    EXPECT_TRUE(t.fromVideo);
    EXPECT_TRUE(t.url.toLocalFile().startsWith(AppPaths::workRoot()));
    EXPECT_TRUE(t.url.toLocalFile().endsWith("lecture.m4a"));
    EXPECT_NEAR(t.duration, 2.0, 0.1);
    EXPECT_FALSE(fractions.isEmpty());
    EXPECT_FALSE(coordinator.videoExtractionMessage().has_value());
    EXPECT_DOUBLE_EQ(coordinator.videoExtractionFraction(), 1.0);
    QDir(QFileInfo(t.url.toLocalFile()).absolutePath()).removeRecursively();
}

TEST_F(ImportCoordinatorIntegrationTest, CopyProtectedFilesAreDetected)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("plain.m4b"), 1.0, "64k"));
    // The same file with its sample entry renamed to the protected kind.
    QByteArray bytes = Fixtures::readFile(path("plain.m4b"));
    const qsizetype at = bytes.indexOf("mp4a");
    ASSERT_GT(at, 0);
    bytes.replace(at, 4, "drms");
    ASSERT_TRUE(Fixtures::writeFile(path("bought.m4b"), bytes));

    ImportCoordinator coordinator;
    const ImportResult r = coordinator.import({url("plain.m4b"), url("bought.m4b")});
    ASSERT_EQ(r.detectedDRMFiles.size(), 1u);
    EXPECT_EQ(r.detectedDRMFiles[0].url, url("bought.m4b"));
    EXPECT_EQ(coordinator.detectedDRMFiles().size(), 1u);
    EXPECT_TRUE(r.detectedXHEAACFiles.empty());
}
