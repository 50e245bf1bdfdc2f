#include "core/book/BookMetadataPatch.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

namespace {

template<class T>
void over(std::optional<T>& target, const std::optional<T>& patch)
{
    if (patch)
        target = *patch;
}

template<class T>
void over(T& target, const std::optional<T>& patch)
{
    if (patch)
        target = *patch;
}

} // namespace

bool BookMetadataPatch::isEmpty() const
{
    return *this == BookMetadataPatch{};
}

BookMetadata BookMetadataPatch::applied(const BookMetadata& base) const
{
    BookMetadata m = base;
    over(m.title, title);
    over(m.seriesName, seriesName);
    over(m.seriesIndex, seriesIndex);
    over(m.author, author);
    over(m.narrator, narrator);
    over(m.language, language);
    over(m.year, year);
    over(m.genre, genre);
    over(m.summary, summary);
    over(m.description, description);
    over(m.comment, comment);
    over(m.copyright, copyright);
    over(m.publisher, publisher);
    over(m.encodedBy, encodedBy);
    over(m.encodedWith, encodedWith);
    over(m.coverImageData, coverImageData);
    over(m.coverSourceURL, coverSourceURL);
    over(m.sortTitle, sortTitle);
    over(m.sortAuthor, sortAuthor);
    over(m.sortAlbum, sortAlbum);
    over(m.sortAlbumArtist, sortAlbumArtist);
    over(m.albumUsesSeriesPrefix, albumUsesSeriesPrefix);
    return m;
}

QJsonObject BookMetadataPatch::toJson() const
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

BookMetadataPatch BookMetadataPatch::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    BookMetadataPatch p;
    p.title = r.optionalString("title");
    p.seriesName = r.optionalString("seriesName");
    p.seriesIndex = r.optionalValue<SeriesIndex>("seriesIndex");
    p.author = r.optionalString("author");
    p.narrator = r.optionalString("narrator");
    p.language = r.optionalString("language");
    p.year = r.optionalString("year");
    p.genre = r.optionalString("genre");
    p.summary = r.optionalString("summary");
    p.description = r.optionalString("description");
    p.comment = r.optionalString("comment");
    p.copyright = r.optionalString("copyright");
    p.publisher = r.optionalString("publisher");
    p.encodedBy = r.optionalString("encodedBy");
    p.encodedWith = r.optionalString("encodedWith");
    p.coverImageData = r.optionalBytes("coverImageData");
    p.coverSourceURL = r.optionalUrl("coverSourceURL");
    p.sortTitle = r.optionalString("sortTitle");
    p.sortAuthor = r.optionalString("sortAuthor");
    p.sortAlbum = r.optionalString("sortAlbum");
    p.sortAlbumArtist = r.optionalString("sortAlbumArtist");
    p.albumUsesSeriesPrefix = r.optionalBoolean("albumUsesSeriesPrefix");
    return p;
}

} // namespace folivox
