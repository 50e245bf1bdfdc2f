#include "import/probe/FFprobeInspector.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/FFprobeInspectionError.h"
#include "platform/Log.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace folivox {

namespace {

std::optional<int> channelsFromLayout(const QString& line)
{
    static const QRegularExpression kMono(QStringLiteral("\\bmono\\b"));
    static const QRegularExpression kStereo(QStringLiteral("\\bstereo\\b"));
    static const QRegularExpression kCount(QStringLiteral("(\\d+) channels"));
    if (kMono.match(line).hasMatch())
        return 1;
    if (kStereo.match(line).hasMatch())
        return 2;
    if (const auto m = kCount.match(line); m.hasMatch())
        return m.captured(1).toInt();
    // Named layouts of more than two channels.
    static const QList<std::pair<QRegularExpression, int>> kLayouts{
        {QRegularExpression(QStringLiteral(", 2\\.1[,( ]")), 3},
        {QRegularExpression(QStringLiteral(", (3\\.0|3\\.0\\(back\\))[,( ]")), 3},
        {QRegularExpression(QStringLiteral(", (quad|4\\.0)[,( ]")), 4},
        {QRegularExpression(QStringLiteral(", (4\\.1|5\\.0)[,( ]")), 5},
        {QRegularExpression(QStringLiteral(", (5\\.1|6\\.0)[,( ]")), 6},
        {QRegularExpression(QStringLiteral(", (6\\.1|7\\.0)[,( ]")), 7},
        {QRegularExpression(QStringLiteral(", 7\\.1[,( ]")), 8},
    };
    for (const auto& [re, n] : kLayouts)
        if (re.match(line).hasMatch())
            return n;
    return std::nullopt;
}

} // namespace

FFprobeInspector::FFprobeInspector()
    : ffmpeg_(std::make_shared<FFmpegWrapper>())
{
}

FFprobeInspector::FFprobeInspector(std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : ffmpeg_(std::move(ffmpeg))
{
}

FFprobeInspector::FFprobeInspector(const QString& ffprobePath)
{
    FFmpegWrapper::Options options;
    options.ffmpegPath = ffprobePath;
    ffmpeg_ = std::make_shared<FFmpegWrapper>(options);
}

QString FFprobeInspector::ffprobePath() const
{
    return ffmpeg_->ffmpegPath();
}

QString FFprobeInspector::codecForAACProfile(const QString& profile)
{
    const QString p = profile.toLower();
    static const QRegularExpression kPS(QStringLiteral("\\bps\\b"));
    static const QRegularExpression kSBR(QStringLiteral("\\bsbr\\b"));
    static const QRegularExpression kLC(QStringLiteral("\\blc\\b"));
    if (p.contains(u"he-aacv2") || kPS.match(p).hasMatch())
        return QStringLiteral("he-aacv2");
    if (p.contains(u"he-aac") || kSBR.match(p).hasMatch())
        return QStringLiteral("he-aac");
    if (kLC.match(p).hasMatch() || p.contains(u"low complexity"))
        return QStringLiteral("aac-lc");
    return QStringLiteral("aac");
}

AudioSourceFormat FFprobeInspector::parse(const QString& text, const QString& name, int exitCode)
{
    static const QRegularExpression kInput(QStringLiteral("Input #\\d+, ([^,]+),"));
    static const QRegularExpression kDuration(QStringLiteral("Duration: (\\d+):(\\d+):(\\d+\\.?\\d*)"));
    static const QRegularExpression kContainerBitrate(QStringLiteral("bitrate: (\\d+) kb/s"));
    static const QRegularExpression kAudioLine(QStringLiteral("Stream #\\d+:\\d+.*Audio: [^\\n]+"));
    static const QRegularExpression kCodec(QStringLiteral("Audio: ([a-zA-Z0-9_-]+)"));
    static const QRegularExpression kRate(QStringLiteral("(\\d+) Hz"));
    static const QRegularExpression kStreamBitrate(QStringLiteral(", (\\d+) kb/s"));
    static const QRegularExpression kProfile(QStringLiteral("aac \\(([^)]+)\\)"));

    std::optional<QString> format;
    if (const auto m = kInput.match(text); m.hasMatch())
        format = m.captured(1);
    double duration = 0;
    if (const auto m = kDuration.match(text); m.hasMatch())
        duration = m.captured(1).toDouble() * 3600 + m.captured(2).toDouble() * 60 + m.captured(3).toDouble();
    std::optional<int> containerKbps;
    if (const auto m = kContainerBitrate.match(text); m.hasMatch())
        containerKbps = m.captured(1).toInt();

    const auto lineMatch = kAudioLine.match(text);
    if (!lineMatch.hasMatch()) {
        Log::write(QStringLiteral("[Inspect] FAILED: No audio stream found for %1 (exit code %2, output %3 chars)")
                       .arg(name, QString::number(exitCode), QString::number(text.size())));
        Log::write(QStringLiteral("[Inspect] Full FFmpeg output: ") + text);
        throw FFprobeInspectionError(FFprobeInspectionError::Kind::noAudioStream, name);
    }
    const QString line = lineMatch.captured(0);

    AudioSourceFormat f;
    const auto codecMatch = kCodec.match(line);
    const QString rawCodec = codecMatch.hasMatch() ? codecMatch.captured(1).toLower() : QStringLiteral("unknown");
    QString profile;
    f.codec = rawCodec;
    if (rawCodec == u"aac") {
        if (const auto m = kProfile.match(line); m.hasMatch()) {
            profile = m.captured(1);
            f.codec = codecForAACProfile(profile);
        }
    }
    f.codecLongName = AudioSourceFormat::longNameForCodec(f.codec);
    if (const auto m = kRate.match(line); m.hasMatch())
        f.sampleRate = m.captured(1).toInt();
    f.channels = channelsFromLayout(line).value_or(0);
    std::optional<int> streamKbps;
    if (const auto m = kStreamBitrate.match(line); m.hasMatch())
        streamKbps = m.captured(1).toInt();
    // The stream's own figure is the audio alone; the container's includes
    // covers and other streams, so it only stands in when the stream has none.
    if (streamKbps)
        f.bitrate = *streamKbps * 1000;
    else if (containerKbps)
        f.bitrate = *containerKbps * 1000;
    f.duration = duration;
    f.format = format;

    auto orNone = [](const std::optional<int>& v) { return v ? QString::number(*v) : QStringLiteral("none"); };
    Log::write(QStringLiteral("[Inspect] %1: codec=%2 profile=%3 sampleRate=%4 channels=%5 duration=%6s "
                              "bitrate=%7 streamBitrate=%8 containerBitrate=%9 format=%10 outputLength=%11")
                   .arg(name, f.codec, profile.isEmpty() ? QStringLiteral("none") : profile,
                        QString::number(f.sampleRate), QString::number(f.channels),
                        QString::asprintf("%.2f", f.duration), orNone(f.bitrate), orNone(streamKbps),
                        orNone(containerKbps), format.value_or(QStringLiteral("none")), QString::number(text.size())));
    if (f.duration == 0)
        Log::write(QStringLiteral("[Inspect] WARNING: duration=0 for ") + name
                   + QStringLiteral(". Raw output (first 800 chars): ") + text.left(800));
    if (text.size() < 100)
        Log::write(QStringLiteral("[Inspect] WARNING: very short output (") + QString::number(text.size())
                   + QStringLiteral(" chars) for ") + name + QStringLiteral(". Full output: ") + text);
    return f;
}

AudioSourceFormat FFprobeInspector::inspect(const QString& path) const
{
    // ffmpeg -i without an output file always ends with an error status;
    // only the description it printed matters.
    const QString text = ffmpeg_->inspect(path);
    return parse(text, QFileInfo(path).fileName());
}

} // namespace folivox
