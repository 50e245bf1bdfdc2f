#include "container/mp3/MP3ReencodedRegion.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject MP3ReencodedRegion::toJson() const
{
    return JsonWriter()
        .set("firstFrame", firstFrame)
        .set("frameCount", frameCount)
        .set("undecodableFrames", undecodableFrames)
        .set("lostFrames", lostFrames)
        .set("startTime", startTime)
        .set("duration", duration)
        .object();
}

MP3ReencodedRegion MP3ReencodedRegion::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    MP3ReencodedRegion region;
    region.firstFrame = r.integer64("firstFrame");
    region.frameCount = r.integer64("frameCount");
    region.undecodableFrames = r.integer64("undecodableFrames");
    region.lostFrames = r.integer64("lostFrames");
    region.startTime = r.number("startTime");
    region.duration = r.number("duration");
    return region;
}

} // namespace folivox
