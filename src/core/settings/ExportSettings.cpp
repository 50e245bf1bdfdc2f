#include "core/settings/ExportSettings.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QStringList>

namespace folivox {

QString ExportSettings::summary() const
{
    QStringList parts;
    parts << label(outputFormat);
    if (outputFormat != OutputFormat::mp3)
        parts << label(codec);
    if (keepSourceBitrate)
        parts << QStringLiteral("Keep original");
    else if (cbrBitrateKbps)
        parts << QStringLiteral("%1 kbps").arg(*cbrBitrateKbps);
    parts << label(channels) << label(sampleRate);
    return parts.join(QStringLiteral(" · "));
}

QJsonObject ExportSettings::toJson() const
{
    return JsonWriter()
        .set("outputFormat", outputFormat)
        .set("codec", codec)
        .set("channels", channels)
        .set("sampleRate", sampleRate)
        .set("bitrateMode", bitrateMode)
        .set("passthroughPolicy", passthroughPolicy)
        .set("cbrBitrateKbps", cbrBitrateKbps)
        .set("keepSourceBitrate", keepSourceBitrate)
        .set("splitMode", splitMode)
        .set("splitHours", splitHours)
        .set("splitSizeMB", splitSizeMB)
        .set("snapToChapters", snapToChapters)
        .set("coverSize", coverSize)
        .set("coverQuality", coverQuality)
        .object();
}

ExportSettings ExportSettings::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ExportSettings s;
    s.outputFormat = r.enumeration<OutputFormat>("outputFormat");
    s.codec = r.enumeration<AudioCodec>("codec");
    s.channels = r.enumeration<ChannelSetting>("channels");
    s.sampleRate = r.enumeration<SampleRateOption>("sampleRate");
    s.bitrateMode = r.enumeration<BitrateMode>("bitrateMode");
    s.passthroughPolicy = r.enumeration<PassthroughPolicy>("passthroughPolicy");
    s.cbrBitrateKbps = r.optionalInteger("cbrBitrateKbps");
    s.keepSourceBitrate = r.boolean("keepSourceBitrate");
    s.splitMode = r.enumeration<SplitMode>("splitMode");
    s.splitHours = r.number("splitHours");
    s.splitSizeMB = r.integer("splitSizeMB");
    s.snapToChapters = r.boolean("snapToChapters");
    s.coverSize = r.enumeration<CoverSize>("coverSize");
    s.coverQuality = r.enumeration<CoverQuality>("coverQuality");
    return s;
}

} // namespace folivox
