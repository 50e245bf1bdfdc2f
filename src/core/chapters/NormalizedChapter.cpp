#include "core/chapters/NormalizedChapter.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "core/book/TagTextRepair.h"

namespace folivox {


QString NormalizedChapter::finishTitle(const QString& rawTitle)
{
    QString t = TagTextRepair::repair(rawTitle, TagTextRepair::Kind::chapterTitle);
    if (t.isEmpty())
        t = QStringLiteral("Untitled");
    return t;
}

NormalizedChapter NormalizedChapter::make(const QString& rawTitle, std::int64_t startMs,
                                          std::optional<std::int64_t> endMs)
{
    NormalizedChapter c;
    c.id = QUuid::createUuid();
    c.title = finishTitle(rawTitle);
    c.startMs = startMs;
    c.endMs = endMs;
    return c;
}

NormalizedChapter NormalizedChapter::rebuilt(std::int64_t newStartMs, std::optional<std::int64_t> newEndMs) const
{
    NormalizedChapter c = *this;
    c.title = finishTitle(title);
    c.startMs = newStartMs;
    c.endMs = newEndMs;
    return c;
}

QJsonObject NormalizedChapter::toJson() const
{
    return JsonWriter().set("id", id).set("title", title).set("startMs", startMs).set("endMs", endMs).object();
}

NormalizedChapter NormalizedChapter::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    NormalizedChapter c;
    c.id = r.uuid("id");
    c.title = r.string("title");
    c.startMs = r.integer64("startMs");
    c.endMs = r.optionalInteger64("endMs");
    return c;
}

} // namespace folivox
