#include "DecisionTestBooks.h"

#include "export/decision/ExportCacheFreshness.h"
#include "export/decision/ExportDecisionService.h"
#include "platform/Log.h"
#include "support/Fixtures.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

using namespace folivox;
using folivox::test::cachedTrack;
using folivox::test::chapter;
using folivox::test::chapterPerTrack;
using folivox::test::Fixtures;

namespace {

// Real files on disk with a cache that matches them, and a probe that
// answers what the test says and counts its calls.
class ExportCacheFreshnessTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir_.isValid()); }

    QString path(const QString& name) const { return dir_.filePath(name); }

    // A file of `bytes` bytes and a track whose cache was taken from it.
    Track freshTrack(const QString& name, int bytes, const QString& codec = QStringLiteral("aac-lc"))
    {
        EXPECT_TRUE(Fixtures::writeFile(path(name), QByteArray(bytes, 'x')));
        const QFileInfo info(path(name));
        Track t = cachedTrack(path(name), 60.0, codec);
        t.cachedFileSize = static_cast<quint64>(info.size());
        t.cachedFileModificationDate = info.lastModified();
        return t;
    }

    FormatProbeFunction probe(std::optional<FormatProbe> answer)
    {
        auto calls = calls_;
        return [calls, answer](const QString&) {
            ++*calls;
            return answer;
        };
    }

    int calls() const { return calls_->load(); }

    QTemporaryDir dir_;
    std::shared_ptr<std::atomic<int>> calls_ = std::make_shared<std::atomic<int>>(0);
};

const FormatProbe kMonoAAC{QStringLiteral("aac-lc"), 32000, 22050, 1, 60.0};

} // namespace

TEST_F(ExportCacheFreshnessTest, AnUnchangedFileKeepsItsCacheAndIsNotProbed)
{
    LogCapture log;
    const Track t = freshTrack(QStringLiteral("a.m4b"), 1000);
    const auto result = ExportCacheFreshness(probe(kMonoAAC)).run(chapterPerTrack({t}));
    EXPECT_EQ(calls(), 0);
    EXPECT_EQ(result.checked, 1);
    EXPECT_EQ(result.stale, 0);
    EXPECT_EQ(result.refreshed, 0);
    EXPECT_EQ(result.failed, 0);
    EXPECT_EQ(result.bookmarks.front().tracks.front(), t);
    EXPECT_TRUE(result.replacedFormats.empty());
    EXPECT_TRUE(log.lines().last().contains(QRegularExpression(
        QStringLiteral("^\\[CachePerf\\] exportCacheCheck tracks=1 stale=0 refreshed=0 failed=0 ms=\\d+\\.\\d$"))))
        << log.lines().last().toStdString();
}

TEST_F(ExportCacheFreshnessTest, AFileThatChangedIsProbedAgainAndEveryUseOfItUpdated)
{
    LogCapture log;
    const Track t = freshTrack(QStringLiteral("a.m4b"), 1000);
    const Track other = freshTrack(QStringLiteral("b.m4b"), 500);
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("a.m4b")), QByteArray(1500, 'y')));

    // The changed file is used by two chapters.
    const std::vector<Bookmark> book{chapter(QStringLiteral("1"), {t}, 0, 30), chapter(QStringLiteral("2"), {t}, 30, 30),
                                     chapter(QStringLiteral("3"), {other}, 0, 60)};
    auto memo = std::make_shared<ExportCacheFreshness::StatMemo>();
    const auto result = ExportCacheFreshness(probe(kMonoAAC), memo).run(book);
    EXPECT_EQ(calls(), 1);
    EXPECT_EQ(memo->lookups(), 2); // each file looked at once
    EXPECT_EQ(result.checked, 2);
    EXPECT_EQ(result.stale, 1);
    EXPECT_EQ(result.refreshed, 1);
    EXPECT_EQ(result.failed, 0);
    for (int i : {0, 1}) {
        const Track& refreshed = result.bookmarks[static_cast<std::size_t>(i)].tracks.front();
        EXPECT_EQ(refreshed.cachedSampleRate, 22050);
        EXPECT_EQ(refreshed.cachedChannels, 1);
        EXPECT_EQ(refreshed.cachedBitrate, 32000);
        EXPECT_EQ(refreshed.cachedFileSize, 1500u);
        EXPECT_EQ(refreshed.id, t.id);
        EXPECT_FALSE(ExportCacheFreshness::isStale(refreshed, memo->stat(path(QStringLiteral("a.m4b")))));
    }
    EXPECT_EQ(result.bookmarks[2].tracks.front(), other);
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] a.m4b changed on disk (size 1000 → 1500")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CachePerf] exportCacheCheck tracks=2 stale=1 refreshed=1 failed=0 ms=")));

    // The book's own track list takes the same change.
    const std::vector<Track> tracks = result.applyTo({t, other});
    EXPECT_EQ(tracks[0].cachedSampleRate, 22050);
    EXPECT_EQ(tracks[1], other);
}

TEST_F(ExportCacheFreshnessTest, AFileThatCannotBeProbedLosesItsCacheAndTheBuildGoesOn)
{
    LogCapture log;
    const Track t = freshTrack(QStringLiteral("broken.m4b"), 1000);
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("broken.m4b")), QByteArray(10, 'z')));
    const Track gone = freshTrack(QStringLiteral("gone.m4b"), 1000);
    ASSERT_TRUE(QFile::remove(path(QStringLiteral("gone.m4b"))));

    ExportDecisionService service;
    service.inspector = probe(std::nullopt);
    const std::vector<Bookmark> book = chapterPerTrack({t, gone});
    const auto result = service.refreshCachedFormats(book);
    EXPECT_EQ(calls(), 1); // a missing file is not worth a probe
    EXPECT_EQ(result.stale, 2);
    EXPECT_EQ(result.failed, 2);
    EXPECT_EQ(result.refreshed, 0);
    for (const Bookmark& b : result.bookmarks) {
        EXPECT_FALSE(b.tracks.front().hasCachedFormat());
        EXPECT_FALSE(b.tracks.front().cachedFileSize);
        EXPECT_EQ(b.tracks.front().duration, 60.0);
    }
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe failed for broken.m4b — cache stripped")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] gone.m4b is missing")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe failed for gone.m4b — cache stripped")));

    // The decision treats both as unknown, without probing them again.
    const auto plan = ExportPlanBuilder::build(result.bookmarks);
    const ExportDecision decision = service.decide(result.bookmarks, {}, plan);
    EXPECT_EQ(calls(), 1);
    EXPECT_EQ(decision.reasons,
              (QStringList{QStringLiteral("non-AAC source"), QStringLiteral("codec mismatch"),
                           QStringLiteral("format mismatch")}));
    EXPECT_EQ(decision.strategy, ExportDecision::Strategy::transcode);
}

TEST_F(ExportCacheFreshnessTest, AProbeThatThrowsCountsAsFailed)
{
    LogCapture log;
    const Track t = freshTrack(QStringLiteral("a.m4b"), 100);
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("a.m4b")), QByteArray(200, 'y')));
    const FormatProbeFunction throwing = [](const QString&) -> std::optional<FormatProbe> {
        throw std::runtime_error("inspection timed out");
    };
    const auto result = ExportCacheFreshness(throwing).run(chapterPerTrack({t}));
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe of a.m4b threw: inspection timed out")));
    EXPECT_FALSE(result.bookmarks.front().tracks.front().hasCachedFormat());
}

TEST_F(ExportCacheFreshnessTest, AProbePastTheDeadlineIsGivenUpOn)
{
    LogCapture log;
    const Track slow = freshTrack(QStringLiteral("slow.m4b"), 100);
    const Track quick = freshTrack(QStringLiteral("quick.m4b"), 100);
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("slow.m4b")), QByteArray(300, 'y')));
    ASSERT_TRUE(Fixtures::writeFile(path(QStringLiteral("quick.m4b")), QByteArray(300, 'y')));

    // The slow probe holds until the test lets it go, and reports when it ends.
    struct Gate {
        std::mutex mutex;
        std::condition_variable cv;
        bool open = false;
        bool ended = false;
    };
    auto gate = std::make_shared<Gate>();
    const FormatProbeFunction probe = [gate](const QString& p) -> std::optional<FormatProbe> {
        if (p.endsWith(QStringLiteral("slow.m4b"))) {
            std::unique_lock lock(gate->mutex);
            gate->cv.wait(lock, [&] { return gate->open; });
            gate->ended = true;
            gate->cv.notify_all();
        }
        return kMonoAAC;
    };

    QElapsedTimer timer;
    timer.start();
    const auto result =
        ExportCacheFreshness(probe, nullptr, std::chrono::milliseconds(200)).run(chapterPerTrack({slow, quick}));
    const qint64 waited = timer.elapsed();
    EXPECT_GE(waited, 150);
    EXPECT_LT(waited, 5000);
    EXPECT_EQ(result.stale, 2);
    EXPECT_EQ(result.refreshed, 1);
    EXPECT_EQ(result.failed, 1);
    EXPECT_FALSE(result.bookmarks[0].tracks.front().hasCachedFormat());
    EXPECT_EQ(result.bookmarks[1].tracks.front().cachedSampleRate, 22050);
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe of slow.m4b did not answer within 200 ms")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe failed for slow.m4b — cache stripped")));

    // Let the abandoned probe finish before the test ends.
    std::unique_lock lock(gate->mutex);
    gate->open = true;
    gate->cv.notify_all();
    EXPECT_TRUE(gate->cv.wait_for(lock, std::chrono::seconds(5), [&] { return gate->ended; }));
}

TEST_F(ExportCacheFreshnessTest, StalenessComparesSizeAndDateAndDistrustsACacheWithNeither)
{
    const Track t = freshTrack(QStringLiteral("a.m4b"), 100);
    ExportCacheFreshness::StatMemo memo;
    const auto stat = memo.stat(path(QStringLiteral("a.m4b")));
    EXPECT_TRUE(stat.exists);
    EXPECT_EQ(stat.size, 100u);
    EXPECT_FALSE(ExportCacheFreshness::isStale(t, stat));

    Track dateOnly = t;
    dateOnly.cachedFileSize.reset();
    EXPECT_FALSE(ExportCacheFreshness::isStale(dateOnly, stat));
    dateOnly.cachedFileModificationDate = t.cachedFileModificationDate->addMSecs(1);
    EXPECT_TRUE(ExportCacheFreshness::isStale(dateOnly, stat));

    Track neither = t;
    neither.cachedFileSize.reset();
    neither.cachedFileModificationDate.reset();
    EXPECT_TRUE(ExportCacheFreshness::isStale(neither, stat));

    // The cache survives its JSON form (dates to the millisecond) and still matches.
    EXPECT_FALSE(ExportCacheFreshness::isStale(Track::fromJson(t.toJson()), stat));

    EXPECT_FALSE(memo.stat(path(QStringLiteral("missing.m4b"))).exists);
    EXPECT_TRUE(ExportCacheFreshness::isStale(t, memo.stat(path(QStringLiteral("missing.m4b")))));
    EXPECT_EQ(memo.lookups(), 2);
    memo.clear();
    memo.stat(path(QStringLiteral("a.m4b")));
    EXPECT_EQ(memo.lookups(), 3);
}

TEST_F(ExportCacheFreshnessTest, TracksWithoutACacheAreLeftToTheDecision)
{
    Track t = freshTrack(QStringLiteral("a.m4b"), 100);
    t = t.withCachedFormat({});
    const auto result = ExportCacheFreshness(probe(kMonoAAC)).run(chapterPerTrack({t}));
    EXPECT_EQ(result.checked, 0);
    EXPECT_EQ(calls(), 0);
    EXPECT_TRUE(result.perfLine().startsWith(
        QStringLiteral("[CachePerf] exportCacheCheck tracks=0 stale=0 refreshed=0 failed=0 ms=")))
        << result.perfLine().toStdString();
}
