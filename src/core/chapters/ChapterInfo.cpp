#include "core/chapters/ChapterInfo.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

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
