#include "process/BoundedOutputBuffer.h"
#include "process/FFmpegResult.h"
#include "process/FFmpegWrapper.h"
#include "platform/L10n.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace folivox;

namespace {
const QString kDrm = QStringLiteral(
    "This file appears to be DRM-protected (e.g., purchased from Audible or iTunes with copy protection).\n\n"
    "Folivox cannot process DRM-protected files. You may need to use the original service's app to download an "
    "unprotected version.");

QStringList args(std::initializer_list<const char*> list)
{
    QStringList out;
    for (const char* a : list)
        out << QString::fromUtf8(a);
    return out;
}
} // namespace

TEST(FFmpegFailureTextTest, DiagnosticTextKeepsTheLinesThatExplainTheFailure)
{
    const QString stderrText = QStringLiteral(
        "ffmpeg version 5.1\n"
        "  libavutil 57\n"
        "Input #0, mp3, from 'a.mp3':\n"
        "[mp3 @ 0x1] invalid frame header\n"
        "size=  12kB time=00:00:01.00 bitrate= 64.0kbits/s speed=1x\r"
        "Output file #0 does not contain any stream\n"
        "/in/x.mp3: No such file or directory\n"
        "Conversion FAILED\n"
        "[aac @ 0x2] Discarding 3 samples\n");
    EXPECT_EQ(FFmpegWrapper::diagnosticText(1, stderrText),
              QStringLiteral("FFmpeg exit code: 1\n\n"
                             "[mp3 @ 0x1] invalid frame header\n"
                             "/in/x.mp3: No such file or directory\n"
                             "Conversion FAILED\n"
                             "[aac @ 0x2] Discarding 3 samples"));
    // With no telling line, the whole (trimmed) stderr is the detail.
    EXPECT_EQ(FFmpegWrapper::diagnosticText(7, QStringLiteral("  something odd happened \n")),
              QStringLiteral("FFmpeg exit code: 7\n\nsomething odd happened"));
}

TEST(FFmpegFailureTextTest, DiagnosticTextKeepsRepeatedErrorsOnceAndStopsAfterAScreenful)
{
    QString stderrText;
    for (int i = 0; i < 500; ++i)
        stderrText += QStringLiteral("[mp3float @ 0x5] Error while decoding MPEG audio frame.\n");
    for (int i = 0; i < 80; ++i)
        stderrText += QStringLiteral("Error number %1 occurred\n").arg(i);
    const QString text = FFmpegWrapper::diagnosticText(1, stderrText);
    EXPECT_EQ(text.count(QStringLiteral("Error while decoding MPEG audio frame.")), 1);
    EXPECT_TRUE(text.contains(QStringLiteral("Error number 48 occurred")));
    EXPECT_FALSE(text.contains(QStringLiteral("Error number 49 occurred")));
    EXPECT_TRUE(text.endsWith(QStringLiteral("(31 more lines)")));
}

TEST(FFmpegFailureTextTest, Exit234IsCopyProtectionExceptForConcatJobsAndShortArgumentLists)
{
    const QString err = QStringLiteral("[mov @ 0x1] Error: could not find codec parameters\n");
    const QString diag = FFmpegWrapper::diagnosticText(234, err);
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-i", "/b/book.aax", "/o/out.m4a"}), 234, err),
              kDrm + QStringLiteral("\n\n") + diag);
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-f", "concat", "-safe", "0", "-i", "/w/list.txt", "/o/out.m4a"}),
                                             234, err),
              diag);
    // "-f" and "concat" must be a pair; apart they mean something else.
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-f", "mp4", "-metadata", "concat", "-i", "/b/x.aax", "/o/y"}),
                                             234, err),
              kDrm + QStringLiteral("\n\n") + diag);
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-i", "/b/book.aax"}), 234, err), diag);
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-i", "/b/book.aax", "/o/out.m4a"}), 233, err),
              FFmpegWrapper::diagnosticText(233, err));
}

TEST(FFmpegFailureTextTest, CorruptInputNamesTheFileFromEitherFfmpegWording)
{
    // ffmpeg 6 and later.
    const QString modern = QStringLiteral(
        "[in#0 @ 0x1] Error opening input: Invalid data found when processing input\n"
        "Error opening input file /Books/My Book/03 - Part.mp3.\n"
        "Error opening input files: Invalid data found when processing input\n");
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-i", "/Books/My Book/03 - Part.mp3", "/o/x.m4a"}), 1, modern),
              QStringLiteral("The file \"03 - Part.mp3\" appears to be corrupt or is not a valid audio file.\n\n"
                             "Please replace or re-download this file and try again.\n\n")
                  + FFmpegWrapper::diagnosticText(1, modern));
    // ffmpeg 5.x: "<path>: Invalid data ..." for a path given with -i.
    const QString older = QStringLiteral("/in/b.m4a: Invalid data found when processing input\n");
    EXPECT_TRUE(FFmpegWrapper::describeFailure(args({"-i", "/in/a.m4a", "-i", "/in/b.m4a", "/o/x.m4a"}), 1, older)
                    .startsWith(QStringLiteral("The file \"b.m4a\" appears to be corrupt")));
    // The message alone, without a file to name, gives the diagnostic text.
    const QString anonymous = QStringLiteral("Invalid data found when processing input\n");
    EXPECT_EQ(FFmpegWrapper::describeFailure(args({"-i", "/in/a.m4a", "/o/x.m4a"}), 1, anonymous),
              FFmpegWrapper::diagnosticText(1, anonymous));
}

TEST(FFmpegFailureTextTest, TextsComeThroughTheLocalisationTable)
{
    L10n::setOverride(QStringLiteral("error.ffmpeg.corrupt_input_file"), QStringLiteral("Datei „%@“ ist defekt."));
    const QString text = FFmpegWrapper::describeFailure(
        args({"-i", "/x/a.m4a", "/o.m4a"}), 1,
        QStringLiteral("Error opening input file /x/a.m4a.\nInvalid data found when processing input\n"));
    L10n::clearOverrides();
    EXPECT_TRUE(text.startsWith(QStringLiteral("Datei „a.m4a“ ist defekt.\n\nFFmpeg exit code: 1"))) << text.toStdString();
}

TEST(FFmpegResultTest, FullDiskAndDamagedSourceAreRecognisedOnlyInFailedRuns)
{
    FFmpegResult r;
    r.stderr = QStringLiteral("Error writing trailer of /out.m4a: No space left on device\n");
    EXPECT_TRUE(r.indicatesOutOfSpace());
    EXPECT_FALSE(r.indicatesDamagedSource());
    for (const char* text : {"Invalid data found when processing input", "[mov @ 0x1] moov atom not found",
                             "timescale not set", "Invalid timescale", "corrupt or malformed file structure",
                             "Invalid presentation timestamps", "invalid data when processing input"}) {
        r.stderr = QString::fromUtf8(text);
        EXPECT_TRUE(r.indicatesDamagedSource()) << text;
        EXPECT_FALSE(r.indicatesOutOfSpace()) << text;
    }
    r.stderr = QStringLiteral("Error while opening encoder for output stream");
    EXPECT_FALSE(r.indicatesDamagedSource());
    r.stderr = QStringLiteral("moov atom not found; No space left on device");
    r.end = FFmpegResult::End::succeeded;
    EXPECT_FALSE(r.indicatesDamagedSource());
    EXPECT_FALSE(r.indicatesOutOfSpace());
}

TEST(FFmpegResultTest, JsonRoundTripLeavesEmptyOptionalsOut)
{
    FFmpegResult r;
    r.end = FFmpegResult::End::corruptStream;
    r.error = QStringLiteral("Cancelled by user");
    r.duration = 1.25;
    r.stderr = QStringLiteral("x\ny");
    r.decodeErrorCount = 51;
    r.corruptStreamKilled = true;
    r.terminationStatus = 15;
    const QJsonObject json = r.toJson();
    EXPECT_FALSE(json.contains(QStringLiteral("outputURL")));
    const FFmpegResult back = FFmpegResult::fromJson(QJsonDocument::fromJson(QJsonDocument(json).toJson()).object());
    EXPECT_EQ(back.error, r.error);
    EXPECT_EQ(back.outputURL, std::nullopt);
    EXPECT_DOUBLE_EQ(back.duration, 1.25);
    EXPECT_EQ(back.stderr, r.stderr);
    EXPECT_EQ(back.decodeErrorCount, 51);
    EXPECT_TRUE(back.corruptStreamKilled);
    EXPECT_EQ(back.terminationStatus, 15);
    EXPECT_EQ(back.end, FFmpegResult::End::corruptStream);
}

TEST(BoundedOutputBufferTest, KeepsStartAndEndWithinTheLimitAndSaysHowMuchWasDropped)
{
    BoundedOutputBuffer small(1000, 200);
    small.append("hello ");
    small.append("world");
    EXPECT_EQ(small.contents(), QByteArray("hello world"));
    EXPECT_EQ(small.droppedBytes(), 0);

    BoundedOutputBuffer buffer(131072, 16384);
    QByteArray all;
    for (int i = 0; i < 20000; ++i) {
        const QByteArray line = "line " + QByteArray::number(i) + " of the child's standard error\n";
        all += line;
        buffer.append(line);
    }
    const QByteArray kept = buffer.contents();
    EXPECT_LE(kept.size(), 131072);
    EXPECT_GE(kept.size(), 131072 - 8);
    EXPECT_TRUE(kept.startsWith(all.left(16384)));
    const QByteArray marker = "\n[... " + QByteArray::number(buffer.droppedBytes()) + " bytes omitted ...]\n";
    const qsizetype at = kept.indexOf(marker);
    ASSERT_EQ(at, 16384);
    // What follows the marker is exactly the end of the output.
    const QByteArray tail = kept.mid(at + marker.size());
    EXPECT_TRUE(all.endsWith(tail));
    EXPECT_EQ(16384 + buffer.droppedBytes() + tail.size(), all.size());
    EXPECT_EQ(buffer.totalBytes(), all.size());
}
