#include "process/FormatProbe.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

std::optional<FormatProbe> FormatProbe::fromCached(const Track& track)
{
    if (!track.cachedCodec)
        return std::nullopt;
    FormatProbe probe;
    probe.codec = track.cachedCodec->toLower();
    probe.bitrate = track.cachedBitrate;
    probe.sampleRate = track.cachedSampleRate.value_or(0);
    probe.channels = track.cachedChannels.value_or(0);
    probe.duration = track.duration;
    return probe;
}

Track::CachedFormat FormatProbe::toCachedFormat(std::optional<quint64> fileSize,
                                                std::optional<QDateTime> modificationDate) const
{
    Track::CachedFormat cached;
    cached.codec = codec;
    cached.bitrate = bitrate;
    if (sampleRate > 0)
        cached.sampleRate = sampleRate;
    if (channels > 0)
        cached.channels = channels;
    cached.fileModificationDate = std::move(modificationDate);
    cached.fileSize = fileSize;
    return cached;
}

QJsonObject FormatProbe::toJson() const
{
    return JsonWriter()
        .set("codec", codec)
        .set("bitrate", bitrate)
        .set("sampleRate", sampleRate)
        .set("channels", channels)
        .set("duration", duration)
        .object();
}

FormatProbe FormatProbe::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    FormatProbe probe;
    probe.codec = r.string("codec");
    probe.bitrate = r.optionalInteger("bitrate");
    probe.sampleRate = r.integer("sampleRate");
    probe.channels = r.integer("channels");
    probe.duration = r.number("duration");
    return probe;
}

} // namespace folivox
