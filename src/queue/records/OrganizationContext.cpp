#include "queue/records/OrganizationContext.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

namespace {

std::optional<QString> nonEmpty(const std::optional<QString>& text)
{
    if (!text || text->trimmed().isEmpty())
        return std::nullopt;
    return text->trimmed();
}

} // namespace

OrganizationContext OrganizationContext::from(const BookMetadata& m)
{
    OrganizationContext c;
    c.title = m.title.trimmed();
    c.author = nonEmpty(m.author);
    c.narrator = nonEmpty(m.narrator);
    c.series = nonEmpty(m.seriesName);
    if (m.seriesIndex)
        c.seriesIndex = m.seriesIndex->text();
    c.year = nonEmpty(m.year);
    c.genre = nonEmpty(m.genre);
    return c;
}

QString OrganizationContext::value(const QString& name) const
{
    if (name == u"title")
        return title;
    const std::optional<QString>* field = name == u"author"        ? &author
                                          : name == u"narrator"    ? &narrator
                                          : name == u"series"      ? &series
                                          : name == u"seriesIndex" ? &seriesIndex
                                          : name == u"year"        ? &year
                                          : name == u"genre"       ? &genre
                                                                   : nullptr;
    return field && *field ? **field : QString();
}

QJsonObject OrganizationContext::toJson() const
{
    return JsonWriter()
        .set("title", title)
        .set("author", author)
        .set("narrator", narrator)
        .set("series", series)
        .set("seriesIndex", seriesIndex)
        .set("year", year)
        .set("genre", genre)
        .object();
}

OrganizationContext OrganizationContext::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    OrganizationContext c;
    c.title = r.string("title");
    c.author = r.optionalString("author");
    c.narrator = r.optionalString("narrator");
    c.series = r.optionalString("series");
    c.seriesIndex = r.optionalString("seriesIndex");
    c.year = r.optionalString("year");
    c.genre = r.optionalString("genre");
    return c;
}

} // namespace folivox
