// FFmpegWrapper on the real ffmpeg: encodes, cancels, broken inputs, a full
// disk, inspection and the encoder catalog. The one test that waits out the
// five-second SIGKILL grace uses a script, because ffmpeg honours SIGTERM.
#include "ProcessTestHelpers.h"

#include "process/ChildProcessReaper.h"
#include "process/EncoderCatalog.h"
#include "process/FFmpegWrapper.h"
#include "process/FFmpegWrapperError.h"
#include "platform/Log.h"

#include "support/ChildProcessCheck.h"
#include "support/Fixtures.h"
#include "support/ScriptedTool.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <random>

using namespace folivox;
using namespace std::chrono_literals;
using folivox::test::DelayedCancel;
using folivox::test::Fixtures;
using folivox::test::ScriptedTool;

namespace {
class FFmpegWrapperIntegrationTest : public ::testing::Test {
protected:
    QString path(const QString& name) const { return QDir(dir.path()).filePath(name); }

    QTemporaryDir dir;
    LogCapture log;
    ManualCancellationToken token;
};
} // namespace

TEST_F(FFmpegWrapperIntegrationTest, ProgressRisesToOneOnARealEncode)
{
    const FFmpegWrapper w;
    ASSERT_TRUE(QFileInfo(w.ffmpegPath()).isExecutable()) << w.ffmpegPath().toStdString();
    const QString out = path(QStringLiteral("tone.m4a"));
    std::vector<double> fractions;
    // -re paces the source in real time so that ffmpeg reports several times.
    const FFmpegResult r = w.run({QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-y"),
                                  QStringLiteral("-re"), QStringLiteral("-f"), QStringLiteral("lavfi"),
                                  QStringLiteral("-i"), QStringLiteral("sine=frequency=440:duration=2"),
                                  QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                  QStringLiteral("64k"), out},
                                 2.0, token, [&](double f) { fractions.push_back(f); });
    ASSERT_TRUE(r.succeeded()) << r.error.value_or(QString()).toStdString();
    EXPECT_EQ(r.outputURL, out);
    EXPECT_EQ(r.terminationStatus, 0);
    EXPECT_EQ(r.decodeErrorCount, 0);
    EXPECT_GE(r.duration, 1.5);
    ASSERT_GE(fractions.size(), 3u);
    EXPECT_LT(fractions.front(), 0.5);
    for (size_t i = 1; i < fractions.size(); ++i)
        EXPECT_GE(fractions[i], fractions[i - 1]);
    for (double f : fractions) {
        EXPECT_GE(f, 0.0);
        EXPECT_LE(f, 1.0);
    }
    EXPECT_DOUBLE_EQ(fractions.back(), 1.0);
    EXPECT_NEAR(Fixtures::decodedDuration(out), 2.0, 0.1);
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Progress: ")));
    EXPECT_TRUE(log.contains(QStringLiteral("s/2.0s speed=")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Completed: ") + out));
}

TEST_F(FFmpegWrapperIntegrationTest, CancelEndsARealRunPromptly)
{
    const FFmpegWrapper w;
    DelayedCancel cancel(token, 700ms);
    const FFmpegResult r = w.run({QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-re"),
                                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("sine=frequency=440:duration=3600"), QStringLiteral("-c:a"),
                                  QStringLiteral("aac"), QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")},
                                 3600.0, token);
    // ffmpeg honours SIGTERM: no need for the SIGKILL five seconds later.
    EXPECT_LT(cancel.sinceCancel(), 4000);
    EXPECT_FALSE(r.succeeded());
    EXPECT_EQ(r.error, QStringLiteral("Cancelled by user"));
    EXPECT_EQ(r.outputURL, std::nullopt);
    EXPECT_TRUE(log.contains(QStringLiteral("wasCancelled=true")));
    EXPECT_FALSE(log.contains(QStringLiteral("SIGKILL")));
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}

TEST_F(FFmpegWrapperIntegrationTest, ChildIgnoringSigtermIsKilledAFewMomentsAfterFiveSeconds)
{
    FFmpegWrapper::Options options;
    options.ffmpegPath = ScriptedTool::write(
        dir.path(), QStringLiteral("ffmpeg"),
        QStringLiteral("trap '' TERM\nwhile :; do echo 'size=  1kB time=00:00:01.00 bitrate= 8.0kbits/s' >&2; "
                       "sleep 0.1; done"));
    const FFmpegWrapper w(options); // the real five-second grace
    DelayedCancel cancel(token, 300ms);
    const FFmpegResult r = w.run({QStringLiteral("-i"), path(QStringLiteral("a.mp3")), path(QStringLiteral("b.m4a"))},
                                 std::nullopt, token);
    const qint64 afterCancel = cancel.sinceCancel();
    EXPECT_GE(afterCancel, 5000);
    EXPECT_LT(afterCancel, 7500);
    EXPECT_FALSE(r.succeeded());
    EXPECT_EQ(r.error, QStringLiteral("Cancelled by user"));
    EXPECT_EQ(r.terminationStatus, 9);
    EXPECT_TRUE(log.contains(QStringLiteral("still running 5s after SIGTERM — sending SIGKILL")));
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] SIGNAL exitCode=9")));
    EXPECT_FALSE(log.contains(QStringLiteral("external signal")));
}

TEST_F(FFmpegWrapperIntegrationTest, GarbageInputGivesTheCorruptFileText)
{
    const QString bad = path(QStringLiteral("Chapter 07.m4a"));
    QByteArray text;
    for (int i = 0; i < 50; ++i)
        text += "this is not audio at all\n";
    ASSERT_TRUE(Fixtures::writeFile(bad, text));
    const FFmpegWrapper w;
    const FFmpegResult r = w.run({QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-i"), bad,
                                  QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")},
                                 std::nullopt, token);
    EXPECT_FALSE(r.succeeded());
    EXPECT_NE(r.terminationStatus, 0);
    ASSERT_TRUE(r.error.has_value());
    EXPECT_TRUE(r.error->startsWith(QStringLiteral(
        "The file \"Chapter 07.m4a\" appears to be corrupt or is not a valid audio file.\n\n"
        "Please replace or re-download this file and try again.\n\nFFmpeg exit code: ")))
        << r.error->toStdString();
    EXPECT_TRUE(r.error->contains(QStringLiteral("Invalid data found when processing input")));
    EXPECT_TRUE(r.indicatesDamagedSource());
    EXPECT_FALSE(r.indicatesOutOfSpace());
}

TEST_F(FFmpegWrapperIntegrationTest, DamagedMp3CountsDecodeErrorsButFinishesWhileTimeMoves)
{
    const QString good = path(QStringLiteral("tone.mp3"));
    ASSERT_TRUE(Fixtures::tone(good, 10.0, {QStringLiteral("-c:a"), QStringLiteral("libmp3lame")}, 44100, 1));
    QByteArray bytes = Fixtures::readFile(good);
    std::mt19937 rng(3);
    for (qsizetype at = 8000; at + 80 < bytes.size() - 2000; at += 300) {
        for (int j = 0; j < 80; ++j)
            bytes[at + j] = static_cast<char>(rng() & 0xff);
    }
    const QString bad = path(QStringLiteral("damaged.mp3"));
    ASSERT_TRUE(Fixtures::writeFile(bad, bytes));

    FFmpegWrapper::Options options;
    options.corruptStreamLimit = 2000ms;
    const FFmpegWrapper w(options);
    const FFmpegResult r = w.run({QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-i"), bad,
                                  QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")},
                                 10.0, token);
    EXPECT_GE(r.decodeErrorCount, 50);
    EXPECT_FALSE(r.corruptStreamKilled);
    EXPECT_TRUE(r.succeeded()) << r.error.value_or(QString()).toStdString();
}

TEST_F(FFmpegWrapperIntegrationTest, FullDiskIsAFailureRecognisedAsOutOfSpace)
{
    if (!QFileInfo::exists(QStringLiteral("/dev/full")))
        GTEST_SKIP() << "no /dev/full on this system";
    const FFmpegWrapper w;
    const FFmpegResult r = w.run({QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-y"),
                                  QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                  QStringLiteral("sine=duration=2"), QStringLiteral("-c:a"), QStringLiteral("aac"),
                                  QStringLiteral("-f"), QStringLiteral("adts"), QStringLiteral("/dev/full")},
                                 2.0, token);
    EXPECT_FALSE(r.succeeded());
    EXPECT_TRUE(r.indicatesOutOfSpace());
    ASSERT_TRUE(r.error.has_value());
    EXPECT_TRUE(r.error->contains(QStringLiteral("No space left on device")));
}

TEST_F(FFmpegWrapperIntegrationTest, InspectDescribesARealFile)
{
    const QString file = path(QStringLiteral("one second.m4a"));
    ASSERT_TRUE(Fixtures::tone(file, 1.0, {QStringLiteral("-c:a"), QStringLiteral("aac"), QStringLiteral("-b:a"),
                                            QStringLiteral("64k")}));
    const FFmpegWrapper w;
    const QString text = w.inspect(file);
    EXPECT_TRUE(text.contains(QStringLiteral("Input #0, mov,mp4,m4a")));
    EXPECT_TRUE(text.contains(QStringLiteral("Duration: 00:00:01.0")));
    EXPECT_TRUE(text.contains(QStringLiteral("Audio: aac")));
    EXPECT_EQ(ChildProcessReaper::instance().count(), 0u);
}

TEST_F(FFmpegWrapperIntegrationTest, EncoderCatalogReadsTheInstalledFfmpegOnceAndItsChoicesEncode)
{
    const EncoderCatalog& catalog = EncoderCatalog::system();
    EXPECT_EQ(&catalog, &EncoderCatalog::system());
    EXPECT_TRUE(catalog.has(QStringLiteral("aac")));
    EXPECT_TRUE(catalog.has(QStringLiteral("libmp3lame")));
    EXPECT_TRUE(catalog.has(QStringLiteral("flac")));
    EXPECT_TRUE(catalog.has(QStringLiteral("pcm_s16le")));
    EXPECT_FALSE(catalog.has(QStringLiteral("libx264"))); // a video encoder
    const bool heAvailable = catalog.has(QStringLiteral("aac_at")) || catalog.has(QStringLiteral("libfdk_aac"));
    EXPECT_EQ(catalog.heAAC().has_value(), heAvailable);
    EXPECT_TRUE(log.contains(QStringLiteral("[FFmpeg] Encoders: AAC-LC=")));

    const FFmpegWrapper w;
    struct Case {
        EncoderChoice choice;
        QString name;
    };
    for (const Case& c : {Case{catalog.requireAacLC(), QStringLiteral("a.m4a")},
                          Case{catalog.requireMp3(), QStringLiteral("a.mp3")},
                          Case{catalog.requireFlac(), QStringLiteral("a.flac")},
                          Case{catalog.requirePcm16(), QStringLiteral("a.wav")}}) {
        QStringList arguments{QStringLiteral("-hide_banner"), QStringLiteral("-nostdin"), QStringLiteral("-y"),
                              QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                              QStringLiteral("sine=duration=1")};
        arguments << c.choice.codecArguments() << path(c.name);
        const FFmpegResult r = w.run(arguments, 1.0, token);
        EXPECT_TRUE(r.succeeded()) << c.name.toStdString() << ": " << r.error.value_or(QString()).toStdString();
        EXPECT_NEAR(Fixtures::decodedDuration(path(c.name)), 1.0, 0.1) << c.name.toStdString();
    }
}
