#include "container/mp3/ChapterDamageHole.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject ChapterDamageHole::toJson() const
{
    return JsonWriter()
        .set("url", url)
        .set("fileTime", fileTime)
        .set("chapterTime", chapterTime)
        .set("missingSeconds", missingSeconds)
        .object();
}

ChapterDamageHole ChapterDamageHole::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ChapterDamageHole h;
    h.url = r.url("url");
    h.fileTime = r.number("fileTime");
    h.chapterTime = r.number("chapterTime");
    h.missingSeconds = r.number("missingSeconds");
    return h;
}

} // namespace folivox
