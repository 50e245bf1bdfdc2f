#include "core/book/BookMetadata.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QJsonObject BookMetadata::toJson() const
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
        .set("summary", summary)
        .set("description", description)
        .set("comment", comment)
        .set("copyright", copyright)
        .set("publisher", publisher)
        .set("encodedBy", encodedBy)
        .set("encodedWith", encodedWith)
        .set("coverImageData", coverImageData)
        .set("coverSourceURL", coverSourceURL)
        .set("sortTitle", sortTitle)
        .set("sortAuthor", sortAuthor)
        .set("sortAlbum", sortAlbum)
        .set("sortAlbumArtist", sortAlbumArtist)
        .set("albumUsesSeriesPrefix", albumUsesSeriesPrefix)
        .object();
}

BookMetadata BookMetadata::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    BookMetadata m;
    m.title = r.string("title");
    m.seriesName = r.optionalString("seriesName");
    m.seriesIndex = r.optionalValue<SeriesIndex>("seriesIndex");
    m.author = r.optionalString("author");
    m.narrator = r.optionalString("narrator");
    m.language = r.optionalString("language");
    m.year = r.optionalString("year");
    m.genre = r.optionalString("genre");
    m.summary = r.optionalString("summary");
    m.description = r.optionalString("description");
    m.comment = r.optionalString("comment");
    m.copyright = r.optionalString("copyright");
    m.publisher = r.optionalString("publisher");
    m.encodedBy = r.optionalString("encodedBy");
    m.encodedWith = r.optionalString("encodedWith");
    m.coverImageData = r.optionalBytes("coverImageData");
    m.coverSourceURL = r.optionalUrl("coverSourceURL");
    m.sortTitle = r.optionalString("sortTitle");
    m.sortAuthor = r.optionalString("sortAuthor");
    m.sortAlbum = r.optionalString("sortAlbum");
    m.sortAlbumArtist = r.optionalString("sortAlbumArtist");
    m.albumUsesSeriesPrefix = r.boolean("albumUsesSeriesPrefix");
    return m;
}

} // namespace folivox
