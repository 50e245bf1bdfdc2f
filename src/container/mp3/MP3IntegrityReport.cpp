#include "container/mp3/MP3IntegrityReport.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

MP3IntegrityVerdict MP3IntegrityReport::judge(bool locked, const std::vector<MP3IntegrityHole>& holes,
                                              double trueDuration)
{
    if (!locked)
        return MP3IntegrityVerdict::unknown;
    double missing = 0.0;
    for (const MP3IntegrityHole& h : holes) {
        if (h.missingSeconds >= kDamagingHoleSeconds)
            return MP3IntegrityVerdict::damaged;
        missing += h.missingSeconds;
    }
    if (trueDuration > 0 && missing / trueDuration >= kDamagingMissingShare)
        return MP3IntegrityVerdict::damaged;
    return MP3IntegrityVerdict::clean;
}

double MP3IntegrityReport::missingSeconds() const
{
    double sum = 0.0;
    for (const MP3IntegrityHole& h : holes)
        sum += h.missingSeconds;
    return sum;
}

std::optional<double> MP3IntegrityReport::playingSeconds() const
{
    if (validFrameCount <= 0)
        return std::nullopt;
    return playedDuration.value_or(trueDuration);
}

QJsonObject MP3IntegrityReport::toJson() const
{
    return JsonWriter()
        .set("url", url)
        .set("fileSize", fileSize)
        .set("validFrameCount", validFrameCount)
        .set("trueDuration", trueDuration)
        .set("holes", holes)
        .set("verdict", verdict)
        .set("sampleRate", sampleRate)
        .set("bitrateKbps", bitrateKbps)
        .set("channelMode", channelMode)
        .set("trailingBytes", trailingBytes)
        .set("claimedDuration", claimedDuration)
        .set("claimedBy", claimedBy)
        .set("playedDuration", playedDuration)
        .object();
}

MP3IntegrityReport MP3IntegrityReport::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    MP3IntegrityReport m;
    m.url = r.url("url");
    m.fileSize = r.integer64("fileSize");
    m.validFrameCount = r.integer64("validFrameCount");
    m.trueDuration = r.number("trueDuration");
    m.holes = r.list<MP3IntegrityHole>("holes");
    m.verdict = r.enumeration<MP3IntegrityVerdict>("verdict");
    m.sampleRate = r.optionalInteger("sampleRate");
    m.bitrateKbps = r.optionalInteger("bitrateKbps");
    m.channelMode = r.optionalInteger("channelMode");
    m.trailingBytes = r.integer64("trailingBytes");
    m.claimedDuration = r.optionalNumber("claimedDuration");
    m.claimedBy = r.optionalString("claimedBy");
    m.playedDuration = r.optionalNumber("playedDuration");
    return m;
}

} // namespace folivox
