// Transcoded books with real ffmpeg, listened to sample by sample: the
// book's length, where its chapter marks fall, and whether the joins of
// files and of parallel slices can be heard.
#include "export/engine/DefaultExportService.h"
#include "export/strategies/MP4GaplessTrim.h"
#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "export/engine/EngineTestSupport.h"
#include "platform/Log.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>

using namespace folivox;
using folivox::test::Fixtures;

namespace {

constexpr double kFrame = 1024.0 / 44100.0;

class GaplessBuild : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir_.isValid()); }
    QString path(const QString& name) const { return dir_.filePath(name); }

    ExportResult build(std::vector<Track> tracks, std::vector<Bookmark> marks, const QString& output, int jobs = 2,
                       std::shared_ptr<const FFmpegWrapper> ffmpeg = {})
    {
        DefaultExportService::Dependencies d;
        d.metadataService = std::make_shared<test::RecordingMetadataService>();
        d.ffmpeg = std::move(ffmpeg);
        DefaultExportService service(d);
        DefaultExportService::Request r;
        r.allTracks = tracks;
        r.bookmarks = marks.empty() ? test::chapterPerTrack(tracks) : std::move(marks);
        r.metadata.title = QStringLiteral("Gapless");
        r.outputPath = output;
        r.settings.cbrBitrateKbps = 64;
        r.parallelJobs = jobs;
        ExportResult result;
        bool done = false;
        service.exportBook(std::move(r), std::make_shared<ManualCancellationToken>(), [](const ExportProgress&) {},
                           [&](const ExportResult& res) {
                               result = res;
                               done = true;
                           });
        QElapsedTimer clock;
        clock.start();
        while (!done && clock.elapsed() < 300000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        return result;
    }

    QTemporaryDir dir_;
};

// Decoded audio of a file as 16-bit mono samples at 44.1 kHz.
std::vector<qint16> decode(const QString& file)
{
    QProcess p;
    p.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), file,
                                       QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-ar"),
                                       QStringLiteral("44100"), QStringLiteral("-f"), QStringLiteral("s16le"),
                                       QStringLiteral("-")});
    p.waitForFinished(120000);
    const QByteArray bytes = p.readAllStandardOutput();
    std::vector<qint16> out(std::size_t(bytes.size() / 2));
    std::memcpy(out.data(), bytes.constData(), out.size() * 2);
    return out;
}

Track wav(const QString& path, int rate, int channels, double seconds)
{
    return test::realTrack(path, QStringLiteral("pcm_s16le"), rate, channels, rate * channels * 16, seconds);
}

// Error energy in dB of the window of decoded against source at `at`.
double errorDb(const std::vector<qint16>& decoded, const std::vector<qint16>& source, std::size_t at, std::size_t width)
{
    double sum = 0;
    for (std::size_t i = at; i < at + width; ++i) {
        const double d = double(decoded[i]) - double(source[i]);
        sum += d * d;
    }
    return 10 * std::log10(sum / double(width) + 1e-9);
}

// The slice starts a build logged ("samples=[start,"), past the first.
std::vector<qint64> sliceStarts(const LogCapture& log)
{
    std::vector<qint64> starts;
    static const QRegularExpression slice(QStringLiteral("samples=\\[(\\d+),"));
    for (const QString& line : log.lines()) {
        const auto m = slice.match(line);
        if (m.hasMatch() && m.captured(1).toLongLong() > 0)
            starts.push_back(m.captured(1).toLongLong());
    }
    return starts;
}

// The book decodes to the raw mono source within a frame of padding, the
// error near every join is no larger than elsewhere (within 3 dB), and the
// level never dips.
void expectNoAudibleJoin(const QString& raw, const QString& output, const std::vector<qint64>& joins)
{
    QFile rawFile(raw);
    ASSERT_TRUE(rawFile.open(QIODevice::ReadOnly));
    const QByteArray bytes = rawFile.readAll();
    std::vector<qint16> source(std::size_t(bytes.size() / 2));
    std::memcpy(source.data(), bytes.constData(), source.size() * 2);
    const std::vector<qint16> decoded = decode(output);
    ASSERT_GE(decoded.size(), source.size());
    EXPECT_LT(decoded.size() - source.size(), 1024u);

    constexpr std::size_t width = 256;
    double near = -100;
    double elsewhere = -100;
    for (std::size_t at = 4096; at + width < source.size() - 4096; at += width) {
        bool atJoin = false;
        for (qint64 j : joins)
            atJoin = atJoin || std::abs(qint64(at) - j) < qint64(2 * width);
        (atJoin ? near : elsewhere) = std::max(atJoin ? near : elsewhere, errorDb(decoded, source, at, width));
    }
    EXPECT_LE(near, elsewhere + 3.0) << "near=" << near << " elsewhere=" << elsewhere;
    // The level never dips: every window holds the tone.
    for (std::size_t at = 0; at + width < source.size(); at += width) {
        double s = 0;
        for (std::size_t i = at; i < at + width; ++i)
            s += double(decoded[i]) * decoded[i];
        ASSERT_GT(10 * std::log10(s / width + 1e-9), 60.0) << "dip at sample " << at;
    }
}

} // namespace

TEST_F(GaplessBuild, SixMp3ChaptersMakeExactlyTheirLengthWithMarksOnTheSeconds)
{
    std::vector<Track> tracks;
    for (int i = 0; i < 6; ++i)
        tracks.push_back(test::mp3Tone(path(QStringLiteral("src/%1.mp3").arg(i + 1)), 20.0, 300 + 50 * i));
    const QString output = path(QStringLiteral("Six.m4b"));
    const ExportResult result = build(tracks, {}, output);
    ASSERT_TRUE(result.succeeded()) << result.error->description().toStdString();

    EXPECT_NEAR(Fixtures::decodedDuration(output), 120.0, kFrame);
    const auto& chapters = result.outcome->chapters;
    ASSERT_EQ(chapters.size(), 6u);
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(chapters[i].start, 20.0 * double(i), 0.001) << i;
    // The file says so itself: one priming skip, the last packet cut to the
    // real samples.
    const MP4GaplessTrim::Layout layout = MP4GaplessTrim::read(output);
    EXPECT_EQ(layout.framing.priming, 1024);
    EXPECT_EQ(layout.mediaSamples, 1024 + 120 * 44100);
}

TEST_F(GaplessBuild, AToneCutAtOddSamplesIsRebuiltWithoutAnAudibleJoin)
{
    // 16 s of one tone, cut into four WAV files at positions that are no
    // multiple of a frame.
    const QString raw = path(QStringLiteral("tone.raw"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("sine=frequency=440:sample_rate=44100:duration=16"), QStringLiteral("-ac"),
                                  QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("s16le"), raw}));
    const std::vector<qint64> cuts{0, 77777, 300001, 512345, 16 * 44100};
    std::vector<Track> tracks;
    for (std::size_t k = 0; k + 1 < cuts.size(); ++k) {
        const QString file = path(QStringLiteral("src/part%1.wav").arg(k + 1));
        QDir().mkpath(path(QStringLiteral("src")));
        ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("-ar"),
                                      QStringLiteral("44100"), QStringLiteral("-ac"), QStringLiteral("1"),
                                      QStringLiteral("-i"),
                                      QStringLiteral("subfile,,start,%1,end,%2,,:%3").arg(cuts[k] * 2).arg(cuts[k + 1] * 2).arg(raw),
                                      file}));
        tracks.push_back(wav(file, 44100, 1, double(cuts[k + 1] - cuts[k]) / 44100));
    }
    const QString output = path(QStringLiteral("Tone.m4b"));
    LogCapture log;
    const ExportResult result = build(tracks, {}, output);
    ASSERT_TRUE(result.succeeded()) << result.error->description().toStdString();

    // Joins: the files' and the slices' (from the log).
    std::vector<qint64> joins(cuts.begin() + 1, cuts.end() - 1);
    for (const qint64 start : sliceStarts(log))
        joins.push_back(start);
    ASSERT_GE(joins.size(), 4u) << "the book was not cut into slices";

    expectNoAudibleJoin(raw, output, joins);
}

TEST_F(GaplessBuild, SlicesEncodedWhileALongFileStillDecodesJoinAsIfEncodedAfter)
{
    // One 40 s tone file in three chapters, on two jobs. Its decode is held
    // open 3 s after its audio is written, so the idle job encodes
    // every slice it may (all but the estimate's last) before the decode is
    // done; the rest is planned from the decoded length.
    const QString raw = path(QStringLiteral("tone.raw"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("sine=frequency=330:sample_rate=44100:duration=40"), QStringLiteral("-ac"),
                                  QStringLiteral("1"), QStringLiteral("-f"), QStringLiteral("s16le"), raw}));
    QDir().mkpath(path(QStringLiteral("src")));
    const QString file = path(QStringLiteral("src/book.wav"));
    ASSERT_TRUE(Fixtures::ffmpeg({QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("-ar"), QStringLiteral("44100"),
                                  QStringLiteral("-ac"), QStringLiteral("1"), QStringLiteral("-i"), raw, file}));
    const Track source = wav(file, 44100, 1, 40.0);
    const std::vector<double> starts{0.0, 13.3331, 26.0007};
    std::vector<Bookmark> marks;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const double end = i + 1 < starts.size() ? starts[i + 1] : source.duration;
        marks.push_back(test::bookmark(QStringLiteral("Part %1").arg(i + 1), {source}, starts[i], end - starts[i]));
    }
    const QString slowDecode = test::ScriptedTool::write(
        path(QStringLiteral("bin")), QStringLiteral("ffmpeg"),
        QStringLiteral("case \"$*\" in *pcm_s16le*) ffmpeg \"$@\"; status=$?; sleep 3; exit $status;; esac\n"
                       "exec ffmpeg \"$@\"\n"));
    FFmpegWrapper::Options options;
    options.ffmpegPath = slowDecode;
    const QString output = path(QStringLiteral("Early.m4b"));
    LogCapture log;
    const ExportResult result = build({source}, marks, output, 2, std::make_shared<FFmpegWrapper>(options));
    ASSERT_TRUE(result.succeeded()) << result.error->description().toStdString();

    EXPECT_TRUE(log.contains("7 slice(s) started while the sources decoded")) << log.lines().join(u'\n').toStdString();
    const auto& chapters = result.outcome->chapters;
    ASSERT_EQ(chapters.size(), starts.size());
    for (std::size_t i = 0; i < starts.size(); ++i)
        EXPECT_NEAR(chapters[i].start, starts[i], 0.001) << i;
    EXPECT_NEAR(Fixtures::decodedDuration(output), 40.0, kFrame);
    const std::vector<qint64> joins = sliceStarts(log);
    ASSERT_EQ(joins.size(), 7u); // the seven taken early and the last
    expectNoAudibleJoin(raw, output, joins);
}

TEST_F(GaplessBuild, OneFileWithAChapterFileGetsThoseTimesAndNoSilenceAtTheMarks)
{
    const Track source = test::mp3Tone(path(QStringLiteral("src/long.mp3")), 15.0, 500);
    const std::vector<double> starts{0.0, 3.217, 7.5003, 11.9};
    std::vector<Bookmark> marks;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const double end = i + 1 < starts.size() ? starts[i + 1] : source.duration;
        marks.push_back(test::bookmark(QStringLiteral("Mark %1").arg(i + 1), {source}, starts[i], end - starts[i]));
    }
    const QString output = path(QStringLiteral("Marks.m4b"));
    const ExportResult result = build({source}, marks, output);
    ASSERT_TRUE(result.succeeded()) << result.error->description().toStdString();
    const auto& chapters = result.outcome->chapters;
    ASSERT_EQ(chapters.size(), starts.size());
    for (std::size_t i = 0; i < starts.size(); ++i)
        EXPECT_NEAR(chapters[i].start, starts[i], 0.001) << i;
    EXPECT_NEAR(Fixtures::decodedDuration(output), source.duration, kFrame);
    EXPECT_TRUE(test::detectSilences(output, -40, 0.005).empty());
}

TEST_F(GaplessBuild, SourcesOfMixedRatesAndChannelsJoinWithoutGaps)
{
    QDir().mkpath(path(QStringLiteral("src")));
    struct Spec {
        int rate;
        int channels;
        double seconds;
    };
    const std::vector<Spec> specs{{44100, 1, 3.3}, {48000, 2, 2.7}, {44100, 2, 3.1}, {48000, 1, 2.9}};
    std::vector<Track> tracks;
    double total = 0;
    for (std::size_t i = 0; i < specs.size(); ++i) {
        const QString file = path(QStringLiteral("src/%1.wav").arg(i + 1));
        ASSERT_TRUE(Fixtures::tone(file, specs[i].seconds, {}, specs[i].rate, specs[i].channels, 400 + 100 * int(i)));
        tracks.push_back(wav(file, specs[i].rate, specs[i].channels, specs[i].seconds));
        total += specs[i].seconds;
    }
    const QString output = path(QStringLiteral("Mixed.m4b"));
    const ExportResult result = build(tracks, {}, output);
    ASSERT_TRUE(result.succeeded()) << result.error->description().toStdString();
    EXPECT_NEAR(Fixtures::decodedDuration(output), total, 1024.0 / 48000);
    double at = 0;
    for (std::size_t i = 0; i < specs.size(); ++i) {
        EXPECT_NEAR(result.outcome->chapters[i].start, at, 0.001) << i;
        at += specs[i].seconds;
    }
    // ffmpeg decodes the last packet whole: its padding is no join.
    for (const auto& s : test::detectSilences(output, -40, 0.005)) {
        if (s.start < total - 0.001)
            ADD_FAILURE() << "silence from " << s.start << " to " << s.end;
    }
}
