#include "sidecars/discovery/SidecarMatchResult.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QString sidecarMatchConfidenceRawValue(SidecarMatchConfidence confidence)
{
    return enumName(confidence);
}

std::optional<SidecarMatchConfidence> sidecarMatchConfidenceFromRawValue(const QString& raw)
{
    return enumFromName<SidecarMatchConfidence>(raw);
}

QJsonObject SidecarMatchResult::toJson() const
{
    return JsonWriter()
        .set("sidecarURL", sidecarURL)
        .set("audioURL", audioURL)
        .set("score", score)
        .set("confidence", confidence)
        .set("matchLayers", matchLayers.rawValue)
        .set("chapters", chapters)
        .set("parseResult", parseResult)
        .object();
}

SidecarMatchResult SidecarMatchResult::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    SidecarMatchResult m;
    m.sidecarURL = r.url("sidecarURL");
    m.audioURL = r.optionalUrl("audioURL");
    m.score = r.integer("score");
    m.confidence = r.enumeration<SidecarMatchConfidence>("confidence");
    m.matchLayers.rawValue = r.integer("matchLayers");
    for (auto& c : r.list<NormalizedChapter>("chapters"))
        m.chapters.append(std::move(c));
    m.parseResult = r.value<SidecarParseResult>("parseResult");
    return m;
}

} // namespace folivox
