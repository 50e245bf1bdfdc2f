#include "AudioFixtures.h"

#include "process/FFmpegWrapper.h"
#include "process/ManualCancellationToken.h"
#include "import/probe/AudioMetadataService.h"
#include "import/probe/AudioStreamProbe.h"
#include "platform/AppPaths.h"
#include "platform/Log.h"
#include "support/ScriptedTool.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace folivox;
using folivox::test::AudioFixtures;
using folivox::test::Fixtures;
using folivox::test::ScriptedTool;
using Reason = TrackLoadOutcome::FailureReason;

namespace {

class AudioMetadataServiceIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }

    // Overwrites bytes through the first second of an MP3 so the decoder
    // complains on nearly every frame.
    bool corruptMp3(const QString& from, const QString& to)
    {
        QByteArray bytes = Fixtures::readFile(from);
        if (bytes.size() < 3000)
            return false;
        QRandomGenerator rng(7);
        for (qsizetype i = 1500; i < std::min<qsizetype>(bytes.size() - 500, 21000); i += 7)
            bytes[i] = static_cast<char>(rng.bounded(256));
        return Fixtures::writeFile(to, bytes);
    }

    static QByteArray md5(const QString& p)
    {
        return QCryptographicHash::hash(Fixtures::readFile(p), QCryptographicHash::Md5);
    }
};

} // namespace

TEST_F(AudioMetadataServiceIntegrationTest, LoadsGoodFilesInOrderAndReportsBrokenOnes)
{
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("tagged.mp3"), 3.0,
                                         {"title=Chapter Three", "track=3/10", "disc=2/2", "artist=Ann Author",
                                          "album_artist=Ann Author", "album=The Book", "composer=Ned Narrator",
                                          "date=2021-04-05", "genre=Audiobook", "comment=First line"}));
    ASSERT_TRUE(Fixtures::tone(path("02 Second part.flac"), 2.0, {}, 44100, 1));
    ASSERT_TRUE(Fixtures::tone(path("voice.ogg"), 1.5, {"-c:a", "libvorbis"}));
    ASSERT_TRUE(Fixtures::tone(path("plain.wav"), 1.0));
    ASSERT_TRUE(AudioFixtures::m4b(path("book.m4b"), 5.0, "96k", {{0, "One"}, {2.5, "Two"}}, true,
                                   {"title=Whole Book"}));
    ASSERT_TRUE(Fixtures::writeFile(path("empty.mp3"), {}));
    ASSERT_TRUE(Fixtures::writeFile(path("notes.mp3"), QByteArray("Just some words, no sound.\n").repeated(40)));
    ASSERT_TRUE(Fixtures::writeFile(path("cut.mp3"), Fixtures::readFile(path("tagged.mp3")).left(700)));
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("long.mp3"), 6.0, {}, 2, "128k"));
    // Cut in the middle: the header still promises six seconds.
    ASSERT_TRUE(Fixtures::writeFile(path("half.mp3"), Fixtures::readFile(path("long.mp3")).left(48000)));

    const QStringList names{"tagged.mp3", "empty.mp3",  "02 Second part.flac", "notes.mp3", "voice.ogg",
                            "cut.mp3",    "plain.wav",  "book.m4b",            "half.mp3"};
    QList<QUrl> urls;
    for (const QString& n : names)
        urls << AudioFixtures::url(path(n));

    AudioMetadataService service;
    QList<std::pair<int, int>> progress;
    const TrackLoadOutcome outcome = service.load(urls, CancellationToken::never(),
                                                  [&](int done, int total) { progress.append({done, total}); });

    ASSERT_EQ(outcome.tracks.size(), 6u);
    EXPECT_TRUE(outcome.repairedOriginalURLs.isEmpty());
    // Input order, whatever order the workers finished in.
    const QStringList loaded{"tagged.mp3", "02 Second part.flac", "voice.ogg", "plain.wav", "book.m4b", "half.mp3"};
    for (size_t i = 0; i < outcome.tracks.size(); ++i)
        EXPECT_EQ(outcome.tracks[i].url, AudioFixtures::url(path(loaded[static_cast<int>(i)])));

    const Track& tagged = outcome.tracks[0];
    EXPECT_EQ(tagged.title, "Chapter Three");
    EXPECT_EQ(tagged.trackNumber, 3);
    EXPECT_EQ(tagged.discNumber, 2);
    EXPECT_EQ(tagged.artist, "Ann Author");
    EXPECT_EQ(tagged.albumArtist, "Ann Author");
    EXPECT_EQ(tagged.album, "The Book");
    EXPECT_EQ(tagged.narrator, "Ned Narrator");
    EXPECT_EQ(tagged.year, "2021");
    EXPECT_EQ(tagged.genre, "Audiobook");
    EXPECT_EQ(tagged.comment, "First line");
    EXPECT_NEAR(tagged.duration, 3.0, 0.05);
    EXPECT_TRUE(tagged.chapters.empty());
    EXPECT_EQ(tagged.cachedCodec, "mp3");
    EXPECT_EQ(tagged.cachedSampleRate, 44100);
    EXPECT_EQ(tagged.cachedChannels, 2);
    EXPECT_EQ(tagged.cachedFileSize, static_cast<quint64>(QFileInfo(path("tagged.mp3")).size()));
    EXPECT_TRUE(tagged.cachedFileModificationDate.has_value());

    const Track& flac = outcome.tracks[1];
    EXPECT_EQ(flac.title, "02 Second part");  // no tag: the name without its extension
    EXPECT_FALSE(flac.trackNumber.has_value());
    EXPECT_EQ(flac.cachedChannels, 1);
    EXPECT_NEAR(flac.duration, 2.0, 0.05);

    EXPECT_EQ(outcome.tracks[2].cachedCodec, "vorbis");
    EXPECT_NEAR(outcome.tracks[2].duration, 1.5, 0.05);
    EXPECT_EQ(outcome.tracks[3].cachedCodec, "pcm_s16le");

    const Track& book = outcome.tracks[4];
    EXPECT_EQ(book.title, "Whole Book");
    ASSERT_EQ(book.chapters.size(), 2u);
    EXPECT_EQ(book.chapters[0].title, "One");
    EXPECT_EQ(book.chapters[1].title, "Two");
    EXPECT_NEAR(book.chapters[1].time, 2.5, 0.01);
    // AAC in an MP4 file is not cached without ffmpeg's view of it.
    EXPECT_FALSE(book.hasCachedFormat());

    // A file cut short loads at the length it really has.
    const double halfDecoded = Fixtures::decodedDuration(path("half.mp3"));
    EXPECT_NEAR(outcome.tracks[5].duration, halfDecoded, 0.1);
    EXPECT_LT(outcome.tracks[5].duration, 4.0);

    const std::vector<TrackLoadOutcome::UnreadableFile> expected{
        {AudioFixtures::url(path("empty.mp3")), Reason::zeroDuration},
        {AudioFixtures::url(path("notes.mp3")), Reason::noAudioFound},
        {AudioFixtures::url(path("cut.mp3")), Reason::zeroDuration},
    };
    EXPECT_EQ(outcome.unreadableFiles, expected);

    ASSERT_FALSE(progress.isEmpty());
    EXPECT_EQ(progress.last(), std::make_pair(9, 9));
    for (int i = 1; i < progress.size(); ++i)
        EXPECT_GT(progress[i].first, progress[i - 1].first);
}

TEST_F(AudioMetadataServiceIntegrationTest, RepairsDamagedStreamsWithoutTouchingTheSource)
{
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("good.mp3"), 6.0, {"title=Damaged One", "track=4"}, 2, "128k"));
    ASSERT_TRUE(corruptMp3(path("good.mp3"), path("damaged.mp3")));
    // Too short to leave a usable repaired copy (under 16 KB).
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("tiny.mp3"), 2.0, {}, 1, "32k"));
    ASSERT_TRUE(corruptMp3(path("tiny.mp3"), path("tiny-damaged.mp3")));
    const QByteArray before = md5(path("damaged.mp3"));

    LogCapture log;
    AudioMetadataService service;
    const auto outcome = service.load({AudioFixtures::url(path("damaged.mp3")),
                                       AudioFixtures::url(path("tiny-damaged.mp3"))});

    EXPECT_TRUE(log.contains("decode errors in 1s — stream is corrupt"));
    ASSERT_EQ(outcome.tracks.size(), 1u);
    const Track& repaired = outcome.tracks[0];
    const QString repairedPath = repaired.url.toLocalFile();
    EXPECT_NE(repairedPath, path("damaged.mp3"));
    EXPECT_TRUE(repairedPath.startsWith(AppPaths::workRoot())) << repairedPath.toStdString();
    EXPECT_TRUE(repairedPath.endsWith("/damaged.mp3"));
    EXPECT_EQ(repaired.title, "Damaged One");  // tags carried over
    EXPECT_EQ(repaired.trackNumber, 4);
    EXPECT_GT(repaired.duration, 5.0);
    EXPECT_EQ(outcome.repairedOriginalURLs, QList<QUrl>{AudioFixtures::url(path("damaged.mp3"))});
    EXPECT_TRUE(log.contains("[FileRepairService] ✅ Repaired damaged.mp3 → "));
    EXPECT_TRUE(log.contains("[FileRepairService] ❌ Repair output too small ("));

    // The repaired copy decodes cleanly; the source is exactly as it was.
    const auto probe = AudioStreamProbe::probe(repairedPath, CancellationToken::never());
    EXPECT_TRUE(probe.ran);
    EXPECT_EQ(probe.decodeErrors, 0);
    EXPECT_EQ(md5(path("damaged.mp3")), before);

    const std::vector<TrackLoadOutcome::UnreadableFile> expected{
        {AudioFixtures::url(path("tiny-damaged.mp3")), Reason::brokenAudioStream}};
    EXPECT_EQ(outcome.unreadableFiles, expected);
    QDir(QFileInfo(repairedPath).absolutePath()).removeRecursively();
}

TEST_F(AudioMetadataServiceIntegrationTest, OggFamilyIsNeverStreamProbed)
{
    ASSERT_TRUE(Fixtures::tone(path("a.ogg"), 1.0, {"-c:a", "libvorbis"}));
    ASSERT_TRUE(Fixtures::tone(path("b.opus"), 1.0, {"-c:a", "libopus"}));
    ASSERT_TRUE(Fixtures::tone(path("c.mp3"), 1.0));
    AudioMetadataService service;
    {
        LogCapture log;
        const auto outcome = service.load({AudioFixtures::url(path("a.ogg")), AudioFixtures::url(path("b.opus"))});
        EXPECT_EQ(outcome.tracks.size(), 2u);
        EXPECT_EQ(log.count("[AudioStreamProbe] "), 0);
    }
    {
        LogCapture log;
        const auto outcome = service.load({AudioFixtures::url(path("c.mp3"))});
        EXPECT_EQ(outcome.tracks.size(), 1u);
        EXPECT_EQ(log.count("[AudioStreamProbe] c.mp3: 0 decode error(s)"), 1);
    }
}

TEST_F(AudioMetadataServiceIntegrationTest, AStalledFileTimesOutAndTheOthersLoad)
{
    // A damaged file whose repair hangs, as an ffmpeg reading an
    // unreachable network file does; the other file loads as usual.
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("good.mp3"), 6.0, {}, 2, "128k"));
    ASSERT_TRUE(corruptMp3(path("good.mp3"), path("stuck.mp3")));
    ASSERT_TRUE(Fixtures::tone(path("fine.mp3"), 1.0));
    const QString script = ScriptedTool::write(dir.path(), QStringLiteral("ffmpeg"),
                                               QStringLiteral("case \"$*\" in *stuck.mp3*) exec sleep 30;; esac\n"
                                                              "exec ffmpeg \"$@\"\n"));

    AudioMetadataService::Options options;
    options.stallInterval = std::chrono::milliseconds(1000);
    FFmpegWrapper::Options ffmpegOptions;
    ffmpegOptions.ffmpegPath = script;
    AudioMetadataService service(std::make_shared<FFmpegWrapper>(ffmpegOptions), options);
    LogCapture log;
    QElapsedTimer clock;
    clock.start();
    const auto outcome = service.load({AudioFixtures::url(path("stuck.mp3")), AudioFixtures::url(path("fine.mp3"))});
    EXPECT_LT(clock.elapsed(), 8000);

    ASSERT_EQ(outcome.tracks.size(), 1u);
    EXPECT_EQ(outcome.tracks[0].url, AudioFixtures::url(path("fine.mp3")));
    const std::vector<TrackLoadOutcome::UnreadableFile> expected{{AudioFixtures::url(path("stuck.mp3")), Reason::timeout}};
    EXPECT_EQ(outcome.unreadableFiles, expected);
    EXPECT_TRUE(log.contains("[AudioMetadataService] ⏱ No progress for 1s (stage: repairing) loading stuck.mp3 "
                             "— file may be corrupted"));
}

TEST_F(AudioMetadataServiceIntegrationTest, CancelledLoadLeavesFilesOut)
{
    ASSERT_TRUE(Fixtures::tone(path("a.mp3"), 1.0));
    ASSERT_TRUE(Fixtures::tone(path("b.mp3"), 1.0));
    ManualCancellationToken token;
    token.cancel();
    AudioMetadataService service;
    const auto outcome = service.load({AudioFixtures::url(path("a.mp3")), AudioFixtures::url(path("b.mp3"))}, token);
    EXPECT_TRUE(outcome.isEmpty());
}

TEST_F(AudioMetadataServiceIntegrationTest, Mp3LengthsAreWhatAFullDecodeGivesToTheMillisecond)
{
    // The build decodes every MP3 and drops the LAME delay and padding; the
    // lengths imported (and so where a chapter file's marks fall in later
    // files) must be the same, not the frames' whole length.
    struct Case {
        const char* name;
        QStringList args;
        int rate;
    };
    const QString sine = QStringLiteral("sine=frequency=500:duration=");
    const std::vector<Case> cases{
        {"cbr.mp3", {"-f", "lavfi", "-i", sine + "10.3", "-ac", "1", "-c:a", "libmp3lame", "-b:a", "64k"}, 44100},
        {"vbr.mp3", {"-f", "lavfi", "-i", sine + "7.77", "-ac", "2", "-c:a", "libmp3lame", "-q:a", "4"}, 44100},
        {"low.mp3", {"-f", "lavfi", "-i", sine + "5.5", "-ar", "22050", "-ac", "1", "-c:a", "libmp3lame", "-b:a", "32k"}, 22050},
        {"no-header.mp3", {"-f", "lavfi", "-i", sine + "6.1", "-c:a", "libmp3lame", "-b:a", "64k", "-write_xing", "0"}, 44100},
        // A tag with a cover ahead of the frames, longer than the head read first.
        {"covered.mp3", {"-f", "lavfi", "-i", sine + "4.4", "-f", "lavfi", "-i", "testsrc=s=640x480:d=1", "-map", "0",
                         "-map", "1", "-frames:v", "1", "-c:a", "libmp3lame", "-b:a", "64k", "-c:v", "png",
                         "-disposition:v", "attached_pic", "-id3v2_version", "3"},
         44100},
    };
    QList<QUrl> urls;
    for (const Case& c : cases) {
        ASSERT_TRUE(Fixtures::ffmpeg(QStringList(c.args) << path(QString::fromLatin1(c.name)))) << c.name;
        urls << AudioFixtures::url(path(QString::fromLatin1(c.name)));
    }
    AudioMetadataService service;
    const auto outcome = service.load(urls);
    ASSERT_EQ(outcome.tracks.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        QProcess decode;
        decode.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"),
                                                path(QString::fromLatin1(cases[i].name)), QStringLiteral("-map"),
                                                QStringLiteral("0:a"), QStringLiteral("-ac"), QStringLiteral("1"),
                                                QStringLiteral("-f"), QStringLiteral("s16le"), QStringLiteral("-")});
        ASSERT_TRUE(decode.waitForFinished(60000));
        const double decoded = double(decode.readAllStandardOutput().size()) / 2 / cases[i].rate;
        EXPECT_NEAR(outcome.tracks[i].duration, decoded, 0.001) << cases[i].name;
    }
}
