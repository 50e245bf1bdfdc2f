#include "import/probe/FFprobeInspectionError.h"
#include "import/probe/FFprobeInspector.h"
#include "platform/Log.h"

#include <gtest/gtest.h>

using folivox::FFprobeInspectionError;
using folivox::FFprobeInspector;
using folivox::LogCapture;

namespace {

// The shape of `ffmpeg -nostdin -i` output (banner trimmed) around one stream line.
QString ffmpegOutput(const QString& container, const QString& durationLine, const QString& streamLine)
{
    return QStringLiteral("ffmpeg version 5.1.9 Copyright (c) 2000-2026 the FFmpeg developers\n"
                          "  built with gcc 12\n"
                          "Input #0, %1, from 'book.m4b':\n"
                          "  Metadata:\n"
                          "    major_brand     : M4A \n"
                          "    encoder         : Lavf59.27.100\n"
                          "%2\n"
                          "%3\n"
                          "    Metadata:\n"
                          "      handler_name    : SoundHandler\n"
                          "At least one output file must be specified\n")
        .arg(container, durationLine, streamLine);
}

} // namespace

TEST(FFprobeInspectorTest, ReadsPlainAACFromAnMP4Listing)
{
    LogCapture log;
    const auto f = FFprobeInspector::parse(
        ffmpegOutput(QStringLiteral("mov,mp4,m4a,3gp,3g2,mj2"),
                     QStringLiteral("  Duration: 00:01:03.25, start: 0.000000, bitrate: 68 kb/s"),
                     QStringLiteral("  Stream #0:0[0x1](und): Audio: aac (LC) (mp4a / 0x6134706D), 44100 Hz, "
                                    "stereo, fltp, 64 kb/s (default)")),
        QStringLiteral("book.m4b"));
    EXPECT_EQ(f.codec, "aac-lc");
    EXPECT_EQ(f.codecLongName, "AAC (Advanced Audio Coding)");
    EXPECT_EQ(f.sampleRate, 44100);
    EXPECT_EQ(f.channels, 2);
    EXPECT_DOUBLE_EQ(f.duration, 63.25);
    EXPECT_EQ(f.bitrate, 64000);  // the stream's figure, not the container's 68
    EXPECT_EQ(f.format, "mov");   // the first name of the demuxer list
    EXPECT_FALSE(f.aacSignaledNoSBR);
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] book.m4b: codec=aac-lc profile=LC sampleRate=44100 "
                                            "channels=2 duration=63.25s bitrate=64000 streamBitrate=64 "
                                            "containerBitrate=68 format=mov")));
    EXPECT_FALSE(log.contains(QStringLiteral("WARNING")));
}

TEST(FFprobeInspectorTest, MapsHighEfficiencyProfiles)
{
    const auto he = FFprobeInspector::parse(
        ffmpegOutput(QStringLiteral("mov,mp4,m4a,3gp,3g2,mj2"),
                     QStringLiteral("  Duration: 02:00:00.00, start: 0.000000, bitrate: 49 kb/s"),
                     QStringLiteral("  Stream #0:0[0x1](eng): Audio: aac (HE-AAC) (mp4a / 0x6134706D), 44100 Hz, "
                                    "stereo, fltp, 48 kb/s (default)")),
        QStringLiteral("he.m4b"));
    EXPECT_EQ(he.codec, "he-aac");
    EXPECT_EQ(he.codecLongName, "AAC-HE (High Efficiency AAC)");
    EXPECT_DOUBLE_EQ(he.duration, 7200);

    const auto v2 = FFprobeInspector::parse(
        ffmpegOutput(QStringLiteral("mov,mp4,m4a,3gp,3g2,mj2"),
                     QStringLiteral("  Duration: 00:00:10.00, start: 0.000000, bitrate: 33 kb/s"),
                     QStringLiteral("  Stream #0:0[0x1](und): Audio: aac (HE-AACv2) (mp4a / 0x6134706D), 48000 Hz, "
                                    "stereo, fltp, 32 kb/s (default)")),
        QStringLiteral("v2.m4a"));
    EXPECT_EQ(v2.codec, "he-aacv2");
    EXPECT_EQ(v2.codecLongName, "AAC-HEv2 (High Efficiency AAC v2)");
    EXPECT_EQ(v2.sampleRate, 48000);

    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("HE-AACv2")), "he-aacv2");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("LC, PS")), "he-aacv2");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("HE-AAC")), "he-aac");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("LC+SBR")), "he-aac");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("LC")), "aac-lc");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("Low Complexity")), "aac-lc");
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("Main")), "aac");
    // "ps" and "lc" are words, not fragments of other words.
    EXPECT_EQ(FFprobeInspector::codecForAACProfile(QStringLiteral("Caps")), "aac");
}

TEST(FFprobeInspectorTest, ReadsOtherCodecsAndChannelLayouts)
{
    auto f = FFprobeInspector::parse(QStringLiteral("Input #0, mp3, from 'a.mp3':\n"
                                                    "  Duration: 00:00:03.03, start: 0.025057, bitrate: 96 kb/s\n"
                                                    "  Stream #0:0: Audio: mp3, 22050 Hz, mono, fltp, 96 kb/s\n"),
                                     QStringLiteral("a.mp3"));
    EXPECT_EQ(f.codec, "mp3");
    EXPECT_EQ(f.codecLongName, "MP3 (MPEG Audio Layer 3)");
    EXPECT_EQ(f.sampleRate, 22050);
    EXPECT_EQ(f.channels, 1);
    EXPECT_EQ(f.format, "mp3");

    // No stream bitrate (FLAC): the container's figure stands in.
    f = FFprobeInspector::parse(QStringLiteral("Input #0, flac, from 'a.flac':\n"
                                               "  Duration: 00:00:05.00, start: 0.000000, bitrate: 612 kb/s\n"
                                               "  Stream #0:0: Audio: flac, 48000 Hz, 5.1, s16\n"),
                                QStringLiteral("a.flac"));
    EXPECT_EQ(f.codec, "flac");
    EXPECT_EQ(f.channels, 6);
    EXPECT_EQ(f.bitrate, 612000);

    f = FFprobeInspector::parse(QStringLiteral("Input #0, wav, from 'a.wav':\n"
                                               "  Duration: 00:00:01.50, bitrate: 4608 kb/s\n"
                                               "  Stream #0:0: Audio: pcm_s24le ([1][0][0][0] / 0x0001), 48000 Hz, "
                                               "3 channels, s32 (24 bit), 3456 kb/s\n"),
                                QStringLiteral("a.wav"));
    EXPECT_EQ(f.codec, "pcm_s24le");
    EXPECT_EQ(f.codecLongName, "PCM (Pulse Code Modulation)");
    EXPECT_EQ(f.channels, 3);
    EXPECT_EQ(f.bitrate, 3456000);

    // The first audio stream counts; a video stream before it is skipped.
    f = FFprobeInspector::parse(QStringLiteral("Input #0, matroska,webm, from 'v.mkv':\n"
                                               "  Duration: 00:00:02.00, start: 0.000000, bitrate: 300 kb/s\n"
                                               "  Stream #0:0: Video: h264 (High), yuv420p, 320x240, 25 fps\n"
                                               "  Stream #0:1(eng): Audio: vorbis, 44100 Hz, stereo, fltp\n"
                                               "  Stream #0:2(fre): Audio: opus, 48000 Hz, mono, fltp\n"),
                                QStringLiteral("v.mkv"));
    EXPECT_EQ(f.codec, "vorbis");
    EXPECT_EQ(f.codecLongName, "Vorbis");
    EXPECT_EQ(f.channels, 2);
    EXPECT_EQ(f.format, "matroska");
}

TEST(FFprobeInspectorTest, WarnsAboutZeroDurationAndShortOutput)
{
    LogCapture log;
    const QString text = QStringLiteral("Input #0, mp3, from 'x.mp3':\n"
                                        "  Duration: N/A, bitrate: N/A\n"
                                        "  Stream #0:0: Audio: mp3, 44100 Hz, stereo, fltp, 128 kb/s\n");
    const auto f = FFprobeInspector::parse(text, QStringLiteral("x.mp3"));
    EXPECT_EQ(f.duration, 0);
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] WARNING: duration=0 for x.mp3. Raw output (first 800 chars): ")
                             + text));
    EXPECT_FALSE(log.contains(QStringLiteral("very short output")));

    const QString tiny = QStringLiteral("Stream #0:0: Audio: mp3, 44100 Hz, mono\n");
    FFprobeInspector::parse(tiny, QStringLiteral("y.mp3"));
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] WARNING: very short output (%1 chars) for y.mp3. Full output: ")
                                 .arg(tiny.size())
                             + tiny));
}

TEST(FFprobeInspectorTest, FailsWithoutAnAudioStream)
{
    LogCapture log;
    const QString text = QStringLiteral("Input #0, png_pipe, from 'cover.png':\n"
                                        "  Duration: N/A, bitrate: N/A\n"
                                        "  Stream #0:0: Video: png, rgb24(pc), 64x64, 25 tbr\n");
    try {
        FFprobeInspector::parse(text, QStringLiteral("cover.png"), 1);
        FAIL() << "expected a failure";
    } catch (const FFprobeInspectionError& e) {
        EXPECT_EQ(e.kind(), FFprobeInspectionError::Kind::noAudioStream);
        EXPECT_EQ(e.description(), "No audio stream found in cover.png");
    }
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] FAILED: No audio stream found for cover.png (exit code 1")));
    EXPECT_TRUE(log.contains(QStringLiteral("[Inspect] Full FFmpeg output: ") + text));
}
