#include "export/decision/FFmpegEncodingStrategy.h"

#include "export/decision/ExportDecisionService.h"

#include <QStringList>

#include <algorithm>

namespace folivox {

namespace {

bool isLossless(const QString& codec)
{
    static const QStringList lossless{QStringLiteral("flac"), QStringLiteral("alac"), QStringLiteral("wavpack"),
                                      QStringLiteral("ape"), QStringLiteral("tta")};
    const QString c = codec.toLower();
    return c.startsWith(u"pcm") || lossless.contains(c);
}

bool inOutputCodec(const FormatProbe& source, const ExportSettings& settings)
{
    if (settings.outputFormat == OutputFormat::mp3)
        return source.codec.toLower() == u"mp3";
    return ExportDecisionService::matchesCodecFamily(source.codec, settings.codec);
}

std::optional<int> sourceKbpsBelowTarget(const std::optional<FormatProbe>& source, const ExportSettings& settings)
{
    if (!source || source->codec.isEmpty() || isLossless(source->codec))
        return std::nullopt;
    if (settings.keepSourceBitrate || !settings.cbrBitrateKbps || !source->bitrate || *source->bitrate <= 0)
        return std::nullopt;
    const int sourceKbps = (*source->bitrate + 999) / 1000;
    if (sourceKbps >= *settings.cbrBitrateKbps)
        return std::nullopt;
    return sourceKbps;
}

} // namespace

FFmpegEncodingStrategy chooseFFmpegEncodingStrategy(const std::optional<FormatProbe>& source,
                                                    const ExportSettings& settings, bool copyAllowed)
{
    if (!source || source->codec.isEmpty())
        return FFmpegEncodingStrategy::transcode;
    if (copyAllowed && inOutputCodec(*source, settings)) {
        const std::optional<int> channels = channelCount(settings.channels);
        const std::optional<int> rate = sampleRateHz(settings.sampleRate);
        const bool change = (channels && *channels != source->channels) || (rate && *rate != source->sampleRate)
            || ExportDecisionService::bitrateReduction(source->bitrate, settings).has_value();
        if (!change)
            return FFmpegEncodingStrategy::copy;
    }
    if (sourceKbpsBelowTarget(source, settings))
        return FFmpegEncodingStrategy::qualityCapped;
    return FFmpegEncodingStrategy::transcode;
}

std::optional<int> cappedBitrateKbps(const std::optional<FormatProbe>& source, const ExportSettings& settings)
{
    return sourceKbpsBelowTarget(source, settings);
}

} // namespace folivox
