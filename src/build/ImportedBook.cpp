#include "build/ImportedBook.h"


#include <QJsonArray>

namespace folivox {

QJsonObject ImportedBook::toJson() const
{
    QJsonArray trackList;
    for (const Track& t : tracks)
        trackList.append(t.toJson());
    QJsonArray chapterList;
    for (const Bookmark& b : bookmarks)
        chapterList.append(b.toJson());
    return QJsonObject{{QStringLiteral("tracks"), trackList},
                       {QStringLiteral("bookmarks"), chapterList},
                       {QStringLiteral("metadata"), metadata.toJson()}};
}

ImportedBook ImportedBook::fromJson(const QJsonObject& json)
{
    ImportedBook book;
    for (const QJsonValue& v : json.value(QStringLiteral("tracks")).toArray())
        book.tracks.push_back(Track::fromJson(v.toObject()));
    for (const QJsonValue& v : json.value(QStringLiteral("bookmarks")).toArray())
        book.bookmarks.push_back(Bookmark::fromJson(v.toObject()));
    book.metadata = BookMetadata::fromJson(json.value(QStringLiteral("metadata")).toObject());
    return book;
}

} // namespace folivox
