#include "core/book/BookSnapshot.h"

#include "core/book/BookMetadata.h"
#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QHashFunctions>

namespace folivox {

namespace {

// Combines one optional field into the running hash; an empty field and an
// empty value hash differently.
template<class T>
void mix(size_t& seed, const std::optional<T>& field)
{
    seed = qHashMulti(seed, field.has_value());
    if (field)
        seed = qHashMulti(seed, *field);
}

} // namespace

BookSnapshot BookSnapshot::fromMetadata(const BookMetadata& m)
{
    BookSnapshot s;
    s.title = m.title;
    s.seriesName = m.seriesName;
    s.seriesIndex = m.seriesIndex;
    s.author = m.author;
    s.narrator = m.narrator;
    s.language = m.language;
    s.year = m.year;
    s.genre = m.genre;
    s.description = m.description;
    s.summary = m.summary;
    s.publisher = m.publisher;
    s.copyright = m.copyright;
    s.encodedBy = m.encodedBy;
    s.encodedWith = m.encodedWith;
    s.comment = m.comment;
    s.sortTitle = m.sortTitle;
    s.sortAuthor = m.sortAuthor;
    s.albumUsesSeriesPrefix = m.albumUsesSeriesPrefix;
    s.artworkData = m.coverImageData;
    s.coverSourceURL = m.coverSourceURL;
    return s;
}

QJsonObject BookSnapshot::toJson() const
{
    return JsonWriter()
        .set("title", title)
        .set("seriesName", seriesName)
        .set("seriesIndex", seriesIndex)
        .set("author", author)
        .set("narrator", narrator)
        .set("language", language)
        .set("year", year)
        .set("genre", genre)
        .set("description", description)
        .set("summary", summary)
        .set("publisher", publisher)
        .set("copyright", copyright)
        .set("encodedBy", encodedBy)
        .set("encodedWith", encodedWith)
        .set("comment", comment)
        .set("sortTitle", sortTitle)
        .set("sortAuthor", sortAuthor)
        .set("albumUsesSeriesPrefix", albumUsesSeriesPrefix)
        .set("artworkData", artworkData)
        .set("coverSourceURL", coverSourceURL)
        .object();
}

BookSnapshot BookSnapshot::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    BookSnapshot s;
    s.title = r.optionalString("title");
    s.seriesName = r.optionalString("seriesName");
    s.seriesIndex = r.optionalValue<SeriesIndex>("seriesIndex");
    s.author = r.optionalString("author");
    s.narrator = r.optionalString("narrator");
    s.language = r.optionalString("language");
    s.year = r.optionalString("year");
    s.genre = r.optionalString("genre");
    s.description = r.optionalString("description");
    s.summary = r.optionalString("summary");
    s.publisher = r.optionalString("publisher");
    s.copyright = r.optionalString("copyright");
    s.encodedBy = r.optionalString("encodedBy");
    s.encodedWith = r.optionalString("encodedWith");
    s.comment = r.optionalString("comment");
    s.sortTitle = r.optionalString("sortTitle");
    s.sortAuthor = r.optionalString("sortAuthor");
    s.albumUsesSeriesPrefix = r.optionalBoolean("albumUsesSeriesPrefix");
    s.artworkData = r.optionalBytes("artworkData");
    s.coverSourceURL = r.optionalUrl("coverSourceURL");
    return s;
}

size_t qHash(const BookSnapshot& s, size_t seed) noexcept
{
    mix(seed, s.title);
    mix(seed, s.seriesName);
    mix(seed, s.seriesIndex);
    mix(seed, s.author);
    mix(seed, s.narrator);
    mix(seed, s.language);
    mix(seed, s.year);
    mix(seed, s.genre);
    mix(seed, s.description);
    mix(seed, s.summary);
    mix(seed, s.publisher);
    mix(seed, s.copyright);
    mix(seed, s.encodedBy);
    mix(seed, s.encodedWith);
    mix(seed, s.comment);
    mix(seed, s.sortTitle);
    mix(seed, s.sortAuthor);
    mix(seed, s.albumUsesSeriesPrefix);
    mix(seed, s.artworkData);
    mix(seed, s.coverSourceURL);
    return seed;
}

} // namespace folivox
