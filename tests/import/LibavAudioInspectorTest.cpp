#include "import/probe/LibavAudioInspector.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

using namespace folivox;

namespace {

AudioSourceFormat aac(int bitrate, int rate, int channels)
{
    AudioSourceFormat f;
    f.codec = QStringLiteral("aac-lc");
    f.codecLongName = AudioSourceFormat::longNameForCodec(f.codec);
    f.bitrate = bitrate;
    f.sampleRate = rate;
    f.channels = channels;
    f.duration = 100;
    f.format = QStringLiteral("mov,mp4,m4a,3gp,3g2,mj2");
    f.aacSignaledNoSBR = true;
    return f;
}

} // namespace

TEST(LibavAudioInspectorTest, DistrustsOnlyPlainAACInMP4Files)
{
    for (const char* name : {"a.m4b", "a.M4A", "a.mp4", "a.m4r"})
        for (const char* codec : {"aac-lc", "aac", "mp4a", "AAC-LC"})
            EXPECT_TRUE(LibavAudioInspector::distrusts(name, codec)) << name << " " << codec;
    EXPECT_FALSE(LibavAudioInspector::distrusts("a.m4b", "he-aac"));
    EXPECT_FALSE(LibavAudioInspector::distrusts("a.m4b", "alac"));
    EXPECT_FALSE(LibavAudioInspector::distrusts("a.aac", "aac-lc"));
    EXPECT_FALSE(LibavAudioInspector::distrusts("a.mkv", "aac-lc"));
}

TEST(LibavAudioInspectorTest, MergeTakesFFmpegsHighEfficiencyAnswer)
{
    LogCapture log;
    AudioSourceFormat av = aac(48000, 44100, 2);
    AudioSourceFormat ff = aac(0, 22050, 1);
    ff.codec = QStringLiteral("he-aacv2");
    ff.codecLongName = AudioSourceFormat::longNameForCodec(ff.codec);
    ff.bitrate = 47000;
    ff.duration = 99;
    ff.format = QStringLiteral("mov");

    AudioSourceFormat m = LibavAudioInspector::merge(av, ff, QStringLiteral("b.m4b"));
    EXPECT_EQ(m.codec, "he-aacv2");
    EXPECT_EQ(m.codecLongName, "AAC-HEv2 (High Efficiency AAC v2)");
    EXPECT_EQ(m.channels, 1);          // from ffmpeg
    EXPECT_EQ(m.bitrate, 48000);       // from the in-process reader
    EXPECT_EQ(m.sampleRate, 44100);    // from the in-process reader
    EXPECT_EQ(m.duration, 100);
    EXPECT_EQ(m.format, "mov,mp4,m4a,3gp,3g2,mj2");
    EXPECT_FALSE(m.aacSignaledNoSBR);
    EXPECT_TRUE(log.contains("[Inspect/AV+FF] b.m4b: codec=he-aacv2 (av=aac-lc ff=he-aacv2 decoded=none)"));

    // Without an in-process bitrate, ffmpeg's stands in.
    av.bitrate.reset();
    m = LibavAudioInspector::merge(av, ff, QStringLiteral("b.m4b"));
    EXPECT_EQ(m.bitrate, 47000);
}

TEST(LibavAudioInspectorTest, MergeBitrateRule)
{
    AudioSourceFormat plain = aac(0, 0, 0);
    plain.format = QStringLiteral("mov");
    // 64 kbps stereo at 44.1 kHz: 32 kbps per channel is below 40.
    auto m = LibavAudioInspector::merge(aac(64000, 44100, 2), plain, QStringLiteral("x.m4b"));
    EXPECT_EQ(m.codec, "he-aac");
    EXPECT_FALSE(m.aacSignaledNoSBR);
    // 128 kbps stereo: 64 per channel, unchanged.
    m = LibavAudioInspector::merge(aac(128000, 44100, 2), plain, QStringLiteral("x.m4b"));
    EXPECT_EQ(m, aac(128000, 44100, 2));
    // The limit itself (40 kbps per channel) is not below it.
    EXPECT_EQ(LibavAudioInspector::merge(aac(80000, 44100, 2), plain, "x.m4b").codec, "aac-lc");
    EXPECT_EQ(LibavAudioInspector::merge(aac(79999, 44100, 2), plain, "x.m4b").codec, "he-aac");
    // Below 32 kHz never.
    EXPECT_EQ(LibavAudioInspector::merge(aac(24000, 22050, 2), plain, "x.m4b").codec, "aac-lc");
    EXPECT_EQ(LibavAudioInspector::merge(aac(24000, 32000, 2), plain, "x.m4b").codec, "he-aac");
    // A channel count of 0 counts as one channel.
    EXPECT_EQ(LibavAudioInspector::merge(aac(50000, 44100, 0), plain, "x.m4b").codec, "aac-lc");
    EXPECT_EQ(LibavAudioInspector::merge(aac(39000, 44100, 0), plain, "x.m4b").codec, "he-aac");
    // No bitrate, nothing to judge by.
    AudioSourceFormat unknown = aac(0, 44100, 2);
    unknown.bitrate.reset();
    EXPECT_EQ(LibavAudioInspector::merge(unknown, plain, "x.m4b").codec, "aac-lc");
    // When ffmpeg could not be asked the rule still applies.
    EXPECT_EQ(LibavAudioInspector::merge(aac(64000, 44100, 2), std::nullopt, "x.m4b").codec, "he-aac");
}

TEST(LibavAudioInspectorTest, LongNamesAndJson)
{
    EXPECT_EQ(AudioSourceFormat::longNameForCodec("pcm_s16le"), "PCM (Pulse Code Modulation)");
    EXPECT_EQ(AudioSourceFormat::longNameForCodec("mp3"), "MP3 (MPEG Audio Layer 3)");
    EXPECT_EQ(AudioSourceFormat::longNameForCodec("xhe-aac"), "xHE-AAC (MPEG-D USAC, Extended HE-AAC)");
    EXPECT_EQ(AudioSourceFormat::longNameForCodec("alac"), "ALAC (Apple Lossless Audio Codec)");
    EXPECT_EQ(AudioSourceFormat::longNameForCodec("opus"), "OPUS");

    AudioSourceFormat f = aac(64000, 44100, 2);
    QJsonObject o = f.toJson();
    EXPECT_EQ(AudioSourceFormat::fromJson(o), f);
    f.bitrate.reset();
    f.format.reset();
    o = f.toJson();
    EXPECT_FALSE(o.contains("bitrate"));
    EXPECT_FALSE(o.contains("format"));
    EXPECT_EQ(AudioSourceFormat::fromJson(o), f);
}
