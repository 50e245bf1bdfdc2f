#include "core/ChapterInfo.h"

#include "core/JsonReader.h"
#include "core/JsonWriter.h"

namespace folivox {

QJsonObject ChapterInfo::toJson() const
{
    return JsonWriter().set("title", title).set("startTime", startTime).set("artworkData", artworkData).object();
}

ChapterInfo ChapterInfo::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ChapterInfo c;
    c.title = r.string("title");
    c.startTime = r.number("startTime");
    c.artworkData = r.optionalBytes("artworkData");
    return c;
}

} // namespace folivox
