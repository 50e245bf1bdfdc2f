#include "core/chapters/ChapterMarker.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject ChapterMarker::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("title", title)
        .set("time", time)
        .set("artworkData", artworkData)
        .object();
}

ChapterMarker ChapterMarker::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ChapterMarker m;
    m.id = r.uuid("id");
    m.title = r.string("title");
    m.time = r.number("time");
    m.artworkData = r.optionalBytes("artworkData");
    return m;
}

} // namespace folivox
