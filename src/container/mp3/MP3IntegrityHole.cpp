#include "container/mp3/MP3IntegrityHole.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject MP3IntegrityHole::toJson() const
{
    return JsonWriter()
        .set("byteOffset", byteOffset)
        .set("byteLength", byteLength)
        .set("startTime", startTime)
        .set("missingSeconds", missingSeconds)
        .object();
}

MP3IntegrityHole MP3IntegrityHole::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    MP3IntegrityHole h;
    h.byteOffset = r.integer64("byteOffset");
    h.byteLength = r.integer64("byteLength");
    h.startTime = r.number("startTime");
    h.missingSeconds = r.number("missingSeconds");
    return h;
}

} // namespace folivox
