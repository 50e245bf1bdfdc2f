#include "core/book/Bookmark.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject Bookmark::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("title", title)
        .set("tracks", tracks)
        .set("startOffset", startOffset)
        .set("duration", duration)
        .set("isSidecarChapter", isSidecarChapter)
        .set("artworkData", artworkData)
        .set("artworkSourceURL", artworkSourceURL)
        .object();
}

Bookmark Bookmark::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    Bookmark b;
    b.id = r.uuid("id");
    b.title = r.string("title");
    b.tracks = r.list<Track>("tracks");
    b.startOffset = r.number("startOffset");
    b.duration = r.number("duration");
    b.isSidecarChapter = r.boolean("isSidecarChapter");
    b.artworkData = r.optionalBytes("artworkData");
    b.artworkSourceURL = r.optionalUrl("artworkSourceURL");
    return b;
}

} // namespace folivox
