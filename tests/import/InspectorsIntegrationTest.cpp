#include "AudioFixtures.h"

#include "process/FFmpegWrapper.h"
#include "process/FFmpegWrapperError.h"
#include "import/probe/AudioSpecificConfig.h"
#include "import/probe/FFprobeInspectionError.h"
#include "import/probe/FFprobeInspector.h"
#include "import/probe/InspectionError.h"
#include "import/probe/LibavAudioInspector.h"
#include "platform/Log.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace folivox;
using folivox::test::AudioFixtures;
using folivox::test::Fixtures;

namespace {

class InspectorsIntegrationTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    QString path(const QString& name) const { return dir.filePath(name); }

    static LibavAudioInspector inspectorWithFFmpeg()
    {
        auto ff = std::make_shared<FFprobeInspector>();
        return LibavAudioInspector([ff](const QString& p) { return ff->inspect(p); });
    }
};

} // namespace

TEST_F(InspectorsIntegrationTest, ReportsCodecRateChannelsAndDurationOfEachFormat)
{
    struct Case {
        QString name;
        double seconds;
        QStringList args;
        int rate;
        int channels;
        QString codec;
        QString container;
    };
    const QList<Case> cases{
        {"stereo.mp3", 3.0, {"-c:a", "libmp3lame", "-b:a", "128k"}, 44100, 2, "mp3", "mp3"},
        {"mono.mp3", 2.5, {"-c:a", "libmp3lame", "-b:a", "48k"}, 22050, 1, "mp3", "mp3"},
        {"lc.m4a", 4.0, {"-c:a", "aac", "-b:a", "128k"}, 48000, 2, "aac-lc", "mov,mp4,m4a,3gp,3g2,mj2"},
        {"a.flac", 3.2, {"-c:a", "flac"}, 48000, 1, "flac", "flac"},
        {"a.ogg", 2.0, {"-c:a", "libvorbis", "-q:a", "3"}, 44100, 2, "vorbis", "ogg"},
        {"a.wav", 1.5, {"-c:a", "pcm_s16le"}, 16000, 1, "pcm_s16le", "wav"},
    };
    const LibavAudioInspector inspector;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name.toStdString());
        ASSERT_TRUE(Fixtures::tone(path(c.name), c.seconds, c.args, c.rate, c.channels));
        const AudioSourceFormat f = inspector.inspect(path(c.name));
        EXPECT_EQ(f.codec, c.codec);
        EXPECT_EQ(f.codecLongName, AudioSourceFormat::longNameForCodec(c.codec));
        EXPECT_EQ(f.sampleRate, c.rate);
        EXPECT_EQ(f.channels, c.channels);
        EXPECT_NEAR(f.duration, c.seconds, 0.05);
        EXPECT_EQ(f.format, c.container);
        ASSERT_TRUE(f.bitrate.has_value());
        EXPECT_GT(*f.bitrate, 0);
    }
}

TEST_F(InspectorsIntegrationTest, ReadsTagsChaptersAndCoverOfAnM4B)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("book.m4b"), 6.0, "64k",
                                   {{0.0, "Opening"}, {2.0, "Middle part"}, {4.5, "Épilogue"}}, true,
                                   {"title=The Book", "artist=Ann Author", "album=The Book", "genre=Audiobook"}));
    const MediaProbe p = LibavAudioInspector().probe(path("book.m4b"));
    EXPECT_EQ(p.codecName, "aac");
    EXPECT_EQ(p.probed.formatID, ProbedAudioFormat::fourCC("mp4a"));
    EXPECT_EQ(p.probed.channels, 2u);
    EXPECT_DOUBLE_EQ(p.probed.sampleRate, 44100);
    ASSERT_EQ(p.chapters.size(), 3);
    EXPECT_EQ(p.chapters[0].title, "Opening");
    EXPECT_NEAR(p.chapters[0].start, 0.0, 0.01);
    EXPECT_EQ(p.chapters[1].title, "Middle part");
    EXPECT_NEAR(p.chapters[1].start, 2.0, 0.01);
    EXPECT_EQ(p.chapters[2].title, "Épilogue");
    EXPECT_NEAR(p.chapters[2].start, 4.5, 0.01);
    EXPECT_TRUE(p.coverImage.startsWith("\x89PNG"));
    EXPECT_FALSE(p.hasVideo);  // the cover is not a video stream
    EXPECT_EQ(p.tag({"title"}), "The Book");
    EXPECT_EQ(p.tag({"artist"}), "Ann Author");
    EXPECT_EQ(p.tag({"genre"}), "Audiobook");
    // FFmpeg's encoder states outright that there is no SBR.
    const auto asc = AudioSpecificConfig::parse(p.extradata);
    ASSERT_TRUE(asc);
    EXPECT_EQ(asc->objectType, 2);
    EXPECT_TRUE(asc->signalsNoSBR());
    EXPECT_TRUE(LibavAudioInspector::formatFromProbe(p).aacSignaledNoSBR);
}

TEST_F(InspectorsIntegrationTest, DecodingTellsLowRateAacLcInMP4FromHeAac)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("low.m4b"), 3.0, "64k"));
    ASSERT_TRUE(AudioFixtures::m4b(path("high.m4b"), 3.0, "128k"));
    ASSERT_TRUE(AudioFixtures::m4b(path("slow.m4b"), 3.0, "32k", {}, false, {}, 22050, 2));
    ASSERT_TRUE(Fixtures::tone(path("low.aac"), 3.0, {"-c:a", "aac", "-b:a", "64k"}));

    LogCapture log;
    const LibavAudioInspector inspector = inspectorWithFFmpeg();

    // 64 kb/s stereo at 44.1 kHz looks like HE-AAC from outside; decoding
    // the first frames shows it is LC, and then ffmpeg is not asked at all.
    const AudioSourceFormat low = inspector.inspect(path("low.m4b"));
    EXPECT_EQ(low.codec, "aac-lc");
    EXPECT_EQ(low.sampleRate, 44100);
    EXPECT_EQ(low.channels, 2);
    EXPECT_TRUE(log.contains("[Inspect/AV+FF] low.m4b: codec=aac-lc (av=aac-lc ff=none decoded=aac-lc)"));
    EXPECT_FALSE(log.contains("[Inspect] low.m4b:"));

    const AudioSourceFormat high = inspector.inspect(path("high.m4b"));
    EXPECT_EQ(high.codec, "aac-lc");
    EXPECT_TRUE(log.contains("[Inspect/AV+FF] high.m4b: codec=aac-lc (av=aac-lc ff=none decoded=aac-lc)"));

    // 22,050 Hz is never promoted, however low the bitrate.
    EXPECT_EQ(inspector.inspect(path("slow.m4b")).codec, "aac-lc");

    // Outside the MP4 family the in-process answer stands.
    const AudioSourceFormat adts = inspector.inspect(path("low.aac"));
    EXPECT_EQ(adts.codec, "aac-lc");
    EXPECT_TRUE(log.contains("[Inspect/AV] low.aac: codec=aac-lc sampleRate=44100 channels=2"));
    EXPECT_FALSE(log.contains("[Inspect/AV+FF] low.aac"));
}

TEST_F(InspectorsIntegrationTest, RefusesFilesWithoutReadableAudio)
{
    ASSERT_TRUE(Fixtures::writeFile(path("notes.mp3"), QByteArray("This is a shopping list, not audio.\n").repeated(50)));
    ASSERT_TRUE(Fixtures::writeFile(path("empty.mp3"), QByteArray()));
    ASSERT_TRUE(Fixtures::ffmpeg({"-f", "lavfi", "-i", "color=c=blue:s=32x32:d=1", "-frames:v", "1", path("pic.png")}));
    // An ID3 tag and the start of one frame: recognisably an MP3, but no audio.
    ASSERT_TRUE(AudioFixtures::taggedMp3(path("whole.mp3"), 3.0, {"title=Whole"}));
    ASSERT_TRUE(Fixtures::writeFile(path("cut.mp3"), Fixtures::readFile(path("whole.mp3")).left(600)));

    const LibavAudioInspector inspector;
    auto kindOf = [&](const QString& name) {
        try {
            inspector.inspect(path(name));
        } catch (const InspectionError& e) {
            EXPECT_TRUE(e.description().endsWith(name)) << e.description().toStdString();
            return e.kind();
        }
        ADD_FAILURE() << name.toStdString() << " was accepted";
        return InspectionError::Kind::timeout;
    };
    EXPECT_EQ(kindOf("notes.mp3"), InspectionError::Kind::noFormatDescription);
    EXPECT_EQ(kindOf("empty.mp3"), InspectionError::Kind::noFormatDescription);
    EXPECT_EQ(kindOf("pic.png"), InspectionError::Kind::noAudioTrack);
    EXPECT_EQ(kindOf("cut.mp3"), InspectionError::Kind::noStreamDescription);
    EXPECT_EQ(InspectionError::noAudioTrack("pic.png").description(), "No audio track found in pic.png");
}

TEST_F(InspectorsIntegrationTest, FFprobeInspectorRunsFFmpeg)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("book.m4b"), 2.0, "96k"));
    ASSERT_TRUE(Fixtures::tone(path("mono.mp3"), 1.0, {"-c:a", "libmp3lame", "-b:a", "32k"}, 22050, 1));
    ASSERT_TRUE(Fixtures::writeFile(path("notes.txt"), "not audio at all"));

    const FFprobeInspector ff;
    const AudioSourceFormat m4b = ff.inspect(path("book.m4b"));
    EXPECT_EQ(m4b.codec, "aac-lc");
    EXPECT_EQ(m4b.sampleRate, 44100);
    EXPECT_EQ(m4b.channels, 2);
    EXPECT_NEAR(m4b.duration, 2.0, 0.05);
    EXPECT_EQ(m4b.format, "mov");
    EXPECT_EQ(ff.inspect(path("mono.mp3")).channels, 1);

    EXPECT_THROW(ff.inspect(path("notes.txt")), FFprobeInspectionError);

    const FFprobeInspector missing(dir.filePath("no-such-ffmpeg"));
    try {
        missing.inspect(path("book.m4b"));
        FAIL() << "expected binaryNotFound";
    } catch (const FFmpegWrapperError& e) {
        EXPECT_EQ(e.kind(), FFmpegWrapperError::Kind::binaryNotFound);
        EXPECT_EQ(e.description(), "FFmpeg binary not found at: " + dir.filePath("no-such-ffmpeg"));
    }
    // A name that would read as an option never reaches ffmpeg.
    EXPECT_THROW(ff.inspect("-i"), FFmpegWrapperError);
}

TEST_F(InspectorsIntegrationTest, FormatProbeFunctionForTheExportSide)
{
    ASSERT_TRUE(AudioFixtures::m4b(path("low.m4b"), 2.0, "64k"));
    ASSERT_TRUE(Fixtures::tone(path("a.flac"), 1.0, {}, 48000, 1));
    const FormatProbeFunction probe = LibavAudioInspector::formatProbeFunction(std::make_shared<FFmpegWrapper>());
    const auto m4b = probe(path("low.m4b"));
    ASSERT_TRUE(m4b);
    EXPECT_EQ(m4b->codec, "aac-lc");  // decoded here too, not guessed from the bitrate
    EXPECT_EQ(m4b->channels, 2);
    EXPECT_NEAR(m4b->duration, 2.0, 0.05);
    const auto flac = probe(path("a.flac"));
    ASSERT_TRUE(flac);
    EXPECT_EQ(flac->codec, "flac");
    EXPECT_EQ(flac->sampleRate, 48000);
    EXPECT_FALSE(probe(path("nothing-here.mp3")));
}
