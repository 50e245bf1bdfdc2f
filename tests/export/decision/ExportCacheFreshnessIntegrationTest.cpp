// The freshness pass against real files: ffmpeg makes them, ffmpeg -i reads
// them back, and the files are changed on disk between two builds.

#include "export/decision/ExportDecisionService.h"
#include "export/decision/ExportPlanBuilder.h"
#include "process/FFmpegWrapper.h"
#include "export/decision/SettingsNormalizer.h"
#include "platform/Log.h"
#include "support/Fixtures.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

// Just enough of the `ffmpeg -i` listing for these tests: the first audio
// stream's codec (AAC profile mapped as the inspector does), rate, channels
// and bitrate, and the duration line.
std::optional<FormatProbe> parseListing(const QString& text)
{
    static const QRegularExpression stream(QStringLiteral(
        R"(Stream #\d+:\d+.*?: Audio: (\w+)(?: \(([^)]*)\))?.*?, (\d+) Hz, (mono|stereo)[^\n]*?(?:, (\d+) kb/s)?)"));
    static const QRegularExpression duration(QStringLiteral(R"(Duration: (\d+):(\d+):(\d+(?:\.\d+)?))"));
    const QRegularExpressionMatch s = stream.match(text);
    if (!s.hasMatch())
        return std::nullopt;
    FormatProbe probe;
    probe.codec = s.captured(1).toLower();
    if (probe.codec == u"aac")
        probe.codec = s.captured(2).startsWith(QStringLiteral("HE-AAC")) ? QStringLiteral("he-aac") : QStringLiteral("aac-lc");
    probe.sampleRate = s.captured(3).toInt();
    probe.channels = s.captured(4) == u"mono" ? 1 : 2;
    if (!s.captured(5).isEmpty())
        probe.bitrate = s.captured(5).toInt() * 1000;
    const QRegularExpressionMatch d = duration.match(text);
    if (d.hasMatch())
        probe.duration = d.captured(1).toInt() * 3600 + d.captured(2).toInt() * 60 + d.captured(3).toDouble();
    return probe;
}

class ExportCacheFreshnessIntegrationTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.isValid());
        auto ffmpeg = std::make_shared<const FFmpegWrapper>();
        auto calls = calls_;
        service_.inspector = [ffmpeg, calls](const QString& path) {
            ++*calls;
            return parseListing(ffmpeg->inspect(path));
        };
    }

    QString path(const char* name) const { return dir_.filePath(QString::fromLatin1(name)); }

    bool aacTone(const QString& file, int sampleRate, int channels, const char* bitrate)
    {
        return Fixtures::tone(file, 3.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                          QString::fromLatin1(bitrate)},
                              sampleRate, channels);
    }

    // A track as import leaves it: the probed format and the file's size and date.
    Track importedTrack(const QString& file)
    {
        const std::optional<FormatProbe> probe = service_.inspector(file);
        EXPECT_TRUE(probe) << file.toStdString();
        Track t;
        t.url = QUrl::fromLocalFile(file);
        t.title = QFileInfo(file).completeBaseName();
        t.duration = probe ? probe->duration : 0.0;
        const QFileInfo info(file);
        if (probe)
            t = t.withCachedFormat(probe->toCachedFormat(static_cast<quint64>(info.size()), info.lastModified()));
        return t;
    }

    static std::vector<Bookmark> chapterPerTrack(const std::vector<Track>& tracks)
    {
        std::vector<Bookmark> out;
        for (const Track& t : tracks) {
            Bookmark b;
            b.title = t.title;
            b.tracks = {t};
            b.duration = t.duration;
            out.push_back(b);
        }
        return out;
    }

    QTemporaryDir dir_;
    std::shared_ptr<std::atomic<int>> calls_ = std::make_shared<std::atomic<int>>(0);
    ExportDecisionService service_;
};

} // namespace

TEST_F(ExportCacheFreshnessIntegrationTest, AFileReplacedOnDiskIsProbedAgainAndTheDecisionFollows)
{
    ASSERT_TRUE(aacTone(path("1.m4b"), 44100, 2, "64k"));
    ASSERT_TRUE(aacTone(path("2.m4b"), 44100, 2, "64k"));
    const std::vector<Bookmark> book = chapterPerTrack({importedTrack(path("1.m4b")), importedTrack(path("2.m4b"))});
    ASSERT_EQ(book[0].tracks.front().cachedSampleRate, 44100);

    // Nothing changed yet: no probe, and the two files are joined as they are.
    calls_->store(0);
    auto fresh = service_.refreshCachedFormats(book);
    EXPECT_EQ(calls_->load(), 0);
    EXPECT_EQ(fresh.checked, 2);
    EXPECT_EQ(fresh.stale, 0);
    auto plan = ExportPlanBuilder::build(fresh.bookmarks);
    auto decision = service_.decide(fresh.bookmarks, {}, plan);
    EXPECT_TRUE(decision.reasons.isEmpty()) << decision.reasons.join(QStringLiteral(" | ")).toStdString();
    EXPECT_EQ(decision.strategy, ExportDecision::Strategy::passthroughConcat);

    // The first file is replaced by a mono 22050 Hz encode of the same length.
    ASSERT_TRUE(aacTone(path("1.m4b"), 22050, 1, "32k"));
    LogCapture log;
    calls_->store(0);
    fresh = service_.refreshCachedFormats(book);
    EXPECT_EQ(calls_->load(), 1);
    EXPECT_EQ(fresh.stale, 1);
    EXPECT_EQ(fresh.refreshed, 1);
    EXPECT_EQ(fresh.failed, 0);
    const Track& refreshed = fresh.bookmarks[0].tracks.front();
    EXPECT_EQ(refreshed.cachedCodec, QStringLiteral("aac-lc"));
    EXPECT_EQ(refreshed.cachedSampleRate, 22050);
    EXPECT_EQ(refreshed.cachedChannels, 1);
    EXPECT_EQ(refreshed.cachedFileSize, static_cast<quint64>(QFileInfo(path("1.m4b")).size()));
    EXPECT_EQ(fresh.bookmarks[1].tracks.front(), book[1].tracks.front());
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] 1.m4b changed on disk")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] 1.m4b re-probed: codec=aac-lc sampleRate=22050 channels=1")));
    EXPECT_TRUE(log.contains(QStringLiteral("[CachePerf] exportCacheCheck tracks=2 stale=1 refreshed=1 failed=0 ms=")));

    plan = ExportPlanBuilder::build(fresh.bookmarks);
    decision = service_.decide(fresh.bookmarks, {}, plan);
    EXPECT_EQ(decision.reasons,
              (QStringList{QStringLiteral("format mismatch"), QStringLiteral("audio normalization (44100 Hz, stereo)")}));
    EXPECT_EQ(decision.strategy, ExportDecision::Strategy::transcode);
    const ExportSettings effective = SettingsNormalizer::effectiveSettings({}, decision);
    EXPECT_EQ(effective.sampleRate, SampleRateOption::hz44100);
    EXPECT_EQ(effective.channels, ChannelSetting::stereo);
    EXPECT_EQ(effective.passthroughPolicy, PassthroughPolicy::disabled);
}

TEST_F(ExportCacheFreshnessIntegrationTest, AFileDamagedOnDiskLosesItsCacheAndTheBuildIsStillDecided)
{
    ASSERT_TRUE(aacTone(path("book.m4b"), 44100, 2, "64k"));
    const std::vector<Bookmark> book = chapterPerTrack({importedTrack(path("book.m4b"))});

    QByteArray junk(8192, '\0');
    for (int i = 0; i < junk.size(); ++i)
        junk[i] = static_cast<char>((i * 7919) & 0xff);
    ASSERT_TRUE(Fixtures::writeFile(path("book.m4b"), junk));

    LogCapture log;
    calls_->store(0);
    const auto fresh = service_.refreshCachedFormats(book);
    EXPECT_EQ(calls_->load(), 1);
    EXPECT_EQ(fresh.failed, 1);
    EXPECT_FALSE(fresh.bookmarks[0].tracks.front().hasCachedFormat());
    EXPECT_TRUE(log.contains(QStringLiteral("[CacheFresh] re-probe failed for book.m4b — cache stripped")));

    const auto plan = ExportPlanBuilder::build(fresh.bookmarks);
    const auto decision = service_.decide(fresh.bookmarks, {}, plan);
    EXPECT_EQ(calls_->load(), 1); // the decision does not probe it a second time
    EXPECT_FALSE(decision.canPassthrough);
    EXPECT_EQ(decision.reasons,
              (QStringList{QStringLiteral("non-AAC source"), QStringLiteral("codec mismatch"),
                           QStringLiteral("format mismatch")}));
    EXPECT_EQ(decision.strategy, ExportDecision::Strategy::transcode);
}
