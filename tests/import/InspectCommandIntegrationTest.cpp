#include "AudioFixtures.h"

#include "support/CommandRunner.h"
#include "support/MediaReaders.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <cmath>

#include <gtest/gtest.h>

using folivox::test::AudioFixtures;
using folivox::test::Fixtures;

using folivox::test::CommandRun;
using folivox::test::CommandRunner;

namespace {

CommandRun runFolivoxHere(const QStringList& args)
{
    return CommandRunner::run(args, QDir::tempPath());
}

class InspectCommandIntegrationTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dir = new QTemporaryDir;
        ASSERT_TRUE(AudioFixtures::m4b(path("book.m4b"), 4.0, "64k", {{0, "Opening"}, {2.0, "Second"}}, true,
                                       {"title=The Book", "artist=Ann Author"}));
        ASSERT_TRUE(AudioFixtures::taggedMp3(path("track.mp3"), 2.0, {"title=Track Title", "track=4/12"}, 1));
        ASSERT_TRUE(Fixtures::writeFile(path("notes.mp3"), QByteArray("Nothing to hear here.\n").repeated(20)));
    }
    static void TearDownTestSuite()
    {
        delete dir;
        dir = nullptr;
    }
    static QString path(const QString& name) { return dir->filePath(name); }
    static QTemporaryDir* dir;
};

QTemporaryDir* InspectCommandIntegrationTest::dir = nullptr;

} // namespace

TEST_F(InspectCommandIntegrationTest, JsonListsFormatTagsChaptersAndCover)
{
    const CommandRun r = runFolivoxHere({"inspect", "--json", path("book.m4b"), path("track.mp3")});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(r.out, &error);
    ASSERT_EQ(error.error, QJsonParseError::NoError) << r.out.toStdString();
    const QJsonArray files = doc.object().value("files").toArray();
    ASSERT_EQ(files.size(), 2);

    const QJsonObject book = files[0].toObject();
    EXPECT_EQ(book.value("path").toString(), path("book.m4b"));
    EXPECT_TRUE(book.value("readable").toBool());
    const QJsonObject format = book.value("format").toObject();
    // AAC-LC at 32 kbps per channel is taken as HE-AAC.
    // 64 kb/s stereo AAC-LC, told from HE-AAC by decoding it.
    EXPECT_EQ(format.value("codec").toString(), "aac-lc");
    EXPECT_EQ(format.value("profile").toString(), "LC");
    EXPECT_EQ(format.value("sampleRate").toInt(), 44100);
    EXPECT_EQ(format.value("channels").toInt(), 2);
    EXPECT_NEAR(format.value("duration").toDouble(), 4.0, 0.05);
    EXPECT_GT(format.value("bitrate").toInt(), 40000);
    EXPECT_EQ(format.value("container").toString(), "mov,mp4,m4a,3gp,3g2,mj2");
    EXPECT_EQ(book.value("tags").toObject().value("title").toString(), "The Book");
    // The book's tags, not what the container writes for itself.
    for (const char* internal : {"handler_name", "vendor_id", "major_brand", "minor_version", "compatible_brands"})
        EXPECT_FALSE(book.value("tags").toObject().contains(QLatin1String(internal))) << internal;
    const QJsonArray chapters = book.value("chapters").toArray();
    ASSERT_EQ(chapters.size(), 2);
    EXPECT_EQ(chapters[1].toObject().value("title").toString(), "Second");
    EXPECT_NEAR(chapters[1].toObject().value("start").toDouble(), 2.0, 0.01);
    EXPECT_TRUE(book.value("cover").toObject().value("present").toBool());
    EXPECT_EQ(book.value("cover").toObject().value("mimeType").toString(), "image/png");

    const QJsonObject track = files[1].toObject();
    EXPECT_EQ(track.value("format").toObject().value("codec").toString(), "mp3");
    EXPECT_EQ(track.value("format").toObject().value("channels").toInt(), 1);
    EXPECT_EQ(track.value("tags").toObject().value("track").toString(), "4/12");
    EXPECT_TRUE(track.value("chapters").toArray().isEmpty());
    EXPECT_FALSE(track.value("cover").toObject().value("present").toBool());
}

TEST_F(InspectCommandIntegrationTest, UnreadableFilesAreListedAfterTheRestAndExitOne)
{
    CommandRun r = runFolivoxHere({"inspect", "--json", path("notes.mp3"), path("track.mp3"), path("missing.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    const QJsonArray files = QJsonDocument::fromJson(r.out).object().value("files").toArray();
    ASSERT_EQ(files.size(), 3);
    EXPECT_FALSE(files[0].toObject().value("readable").toBool());
    EXPECT_EQ(files[0].toObject().value("reason").toString(), "noAudioFound");
    EXPECT_TRUE(files[1].toObject().value("readable").toBool());
    EXPECT_EQ(files[2].toObject().value("reason").toString(), "other");

    r = runFolivoxHere({"inspect", path("notes.mp3"), path("track.mp3")});
    EXPECT_EQ(r.exitCode, 1);
    const QString out = QString::fromUtf8(r.out);
    EXPECT_TRUE(out.startsWith(path("track.mp3") + "\n")) << out.toStdString();
    EXPECT_TRUE(out.contains("  Codec:       mp3 — MP3 (MPEG Audio Layer 3)"));
    EXPECT_TRUE(out.contains("  Channels:    1"));
    EXPECT_TRUE(out.contains("    title: Track Title"));
    EXPECT_FALSE(out.contains("notes.mp3"));
    EXPECT_TRUE(QString::fromUtf8(r.err).contains(
        "folivox inspect: " + path("notes.mp3") + ": no audio found at the start of the file"));
}

TEST_F(InspectCommandIntegrationTest, TextShowsChaptersAndCover)
{
    const CommandRun r = runFolivoxHere({"inspect", path("book.m4b")});
    EXPECT_EQ(r.exitCode, 0);
    const QString out = QString::fromUtf8(r.out);
    EXPECT_TRUE(out.contains("  Chapters:    2\n    1. 00:00:00.000  Opening\n    2. 00:00:02.000  Second\n"))
        << out.toStdString();
    EXPECT_TRUE(out.contains("  Cover:       yes (image/png, "));
    EXPECT_TRUE(out.contains("  Sample rate: 44100 Hz"));
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST_F(InspectCommandIntegrationTest, UsageErrors)
{
    EXPECT_EQ(runFolivoxHere({"inspect"}).exitCode, 2);
    EXPECT_EQ(runFolivoxHere({"inspect", "--bogus", path("track.mp3")}).exitCode, 2);
    const CommandRun help = runFolivoxHere({"inspect", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.startsWith("Usage: folivox inspect"));
}

namespace {

// Samples per channel that a full decode by ffmpeg gives; -1 when it fails.
qint64 decodedSamples(const QString& path)
{
    const auto r = folivox::test::MediaReaders::run(
        "ffmpeg", {"-hide_banner", "-nostdin", "-v", "error", "-i", path, "-map", "0:a:0", "-ac", "1", "-f", "s16le", "-"});
    return r.exitCode == 0 ? r.out.size() / 2 : -1;
}

double inspectedDuration(const QString& path)
{
    const CommandRun r = runFolivoxHere({"inspect", "--json", path});
    EXPECT_EQ(r.exitCode, 0) << r.err.toStdString();
    const double seconds = r.json().value("files").toArray().first().toObject().value("format").toObject().value("duration").toDouble();
    // Seconds rounded to the millisecond, as every JSON time is.
    EXPECT_EQ(seconds, std::round(seconds * 1000) / 1000);
    return seconds;
}

} // namespace

// The length inspect gives an MP3 is what a decoder plays: the encoder's
// delay and padding (from the LAME extension) are left out, a file without an
// information frame is counted frame by frame rather than guessed from its
// size, and a cut file gives the length of the frames it still has, not the
// length its header claims.
TEST_F(InspectCommandIntegrationTest, Mp3DurationsAgreeWithAFullDecode)
{
    // "64k" a constant bitrate, "q6" a VBR quality.
    const auto lame = [](const QString& bitrateOrQuality) {
        return bitrateOrQuality.startsWith('q') ? QStringList{"-c:a", "libmp3lame", "-q:a", bitrateOrQuality.mid(1)}
                                                : QStringList{"-c:a", "libmp3lame", "-b:a", bitrateOrQuality};
    };
    ASSERT_TRUE(Fixtures::tone(path("cbr.mp3"), 7.3, lame("64k"), 44100, 1));
    ASSERT_TRUE(Fixtures::tone(path("vbr.mp3"), 9.1, lame("q6"), 44100, 2));
    ASSERT_TRUE(Fixtures::tone(path("low.mp3"), 5.2, lame("32k"), 22050, 1));
    // A VBR stream with no information frame at all.
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "sine=frequency=200:duration=8.2,volume=enable='gt(t,4)':volume=0.05",
                                  "-ac", "2", "-c:a", "libmp3lame", "-q:a", "4", "-write_xing", "0", path("bare.mp3")}));
    for (const char* name : {"cbr.mp3", "vbr.mp3", "low.mp3", "bare.mp3"}) {
        const QString file = path(name);
        const qint64 samples = decodedSamples(file);
        ASSERT_GT(samples, 0) << name;
        const int rate = QString(name) == "low.mp3" ? 22050 : 44100;
        EXPECT_NEAR(inspectedDuration(file), double(samples) / rate, 0.0011) << name;
    }
    // 'folivox chapters' measures the audio it checks chapters against the same way.
    ASSERT_TRUE(Fixtures::writeFile(path("bare.txt"), "00:00:00.000 Opening\n00:00:04.000 Second\n"));
    const CommandRun chapters = runFolivoxHere({"chapters", "--json", path("bare.txt"), "--audio", path("bare.mp3")});
    ASSERT_EQ(chapters.exitCode, 0) << chapters.err.toStdString();
    EXPECT_NEAR(chapters.json().value("audio").toObject().value("duration").toDouble(), double(decodedSamples(path("bare.mp3"))) / 44100,
                0.0011)
        << chapters.out.toStdString();

    // Cut in the middle of a frame: within the one broken frame of a decode,
    // and far from the 30 s the information frame claims.
    ASSERT_TRUE(Fixtures::tone(path("whole.mp3"), 30.0, lame("q6"), 44100, 2));
    const QByteArray whole = Fixtures::readFile(path("whole.mp3"));
    ASSERT_TRUE(Fixtures::writeFile(path("cut.mp3"), whole.left(whole.size() / 2 + 77)));
    const qint64 cutSamples = decodedSamples(path("cut.mp3"));
    ASSERT_GT(cutSamples, 0);
    const double cut = inspectedDuration(path("cut.mp3"));
    EXPECT_NEAR(cut, double(cutSamples) / 44100, 1152.0 / 44100 + 0.0011);
    EXPECT_LT(cut, 20.0);
}

// A tag with several values (an ID3v2.4 frame's NUL-separated list, repeated
// Vorbis comments) is shown with all of them, in order.
TEST_F(InspectCommandIntegrationTest, MultiValuedTagsAreKeptWhole)
{
    ASSERT_TRUE(Fixtures::tone(path("multi.mp3"), 1.0, {"-c:a", "libmp3lame", "-b:a", "64k"}, 44100, 1));
    ASSERT_TRUE(Fixtures::tone(path("multi.flac"), 1.0, {}, 44100, 1));
    const QString script = QStringLiteral(
        "import sys\n"
        "from mutagen.id3 import ID3, TPE1, TCON, TIT2, TXXX\n"
        "from mutagen.flac import FLAC\n"
        "t = ID3()\n"
        "t.add(TPE1(encoding=3, text=['Ann Author', 'Bob Writer']))\n"
        "t.add(TCON(encoding=3, text=['Audiobook', 'Fantasy']))\n"
        "t.add(TXXX(encoding=3, desc='NARRATOR', text=['Cy Reader', 'Di Voice']))\n"
        "t.add(TIT2(encoding=3, text=['One']))\n"
        "t.save(sys.argv[1], v2_version=4)\n"
        "f = FLAC(sys.argv[2])\n"
        "f['artist'] = ['Ann Author', 'Bob Writer']\n"
        "f['genre'] = ['Audiobook', 'Fantasy']\n"
        "f.save()\n");
    const auto tagged = folivox::test::MediaReaders::run(folivox::test::MediaReaders::python(),
                                                         {"-c", script, path("multi.mp3"), path("multi.flac")});
    ASSERT_EQ(tagged.exitCode, 0) << tagged.err.toStdString();

    const CommandRun r = runFolivoxHere({"inspect", "--json", path("multi.mp3"), path("multi.flac")});
    ASSERT_EQ(r.exitCode, 0) << r.err.toStdString();
    const QJsonArray files = r.json().value("files").toArray();
    ASSERT_EQ(files.size(), 2);
    for (const QJsonValue& file : files) {
        const QJsonObject tags = file.toObject().value("tags").toObject();
        EXPECT_EQ(tags.value("artist").toString(), "Ann Author;Bob Writer") << file.toObject().value("path").toString().toStdString();
        EXPECT_EQ(tags.value("genre").toString(), "Audiobook;Fantasy");
    }
    const QJsonObject mp3Tags = files.first().toObject().value("tags").toObject();
    EXPECT_EQ(mp3Tags.value("narrator").toString(), "Cy Reader;Di Voice");
    EXPECT_EQ(mp3Tags.value("title").toString(), "One");

    const CommandRun text = runFolivoxHere({"inspect", path("multi.mp3")});
    EXPECT_TRUE(QString::fromUtf8(text.out).contains("    artist: Ann Author;Bob Writer\n")) << text.out.toStdString();
}
