#pragma once

#include "core/book/SeriesIndex.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

// The book-level tags. title and albumUsesSeriesPrefix are required on
// decode; there is no migration of older forms. summary and description are
// two separate tags.
struct BookMetadata {
    QString title;
    std::optional<QString> seriesName;
    std::optional<SeriesIndex> seriesIndex;
    std::optional<QString> author;
    std::optional<QString> narrator;
    std::optional<QString> language;
    std::optional<QString> year;
    std::optional<QString> genre;
    std::optional<QString> summary;
    std::optional<QString> description;
    std::optional<QString> comment;
    std::optional<QString> copyright;
    std::optional<QString> publisher;
    std::optional<QString> encodedBy;
    std::optional<QString> encodedWith;
    std::optional<QByteArray> coverImageData;
    std::optional<QUrl> coverSourceURL;
    std::optional<QString> sortTitle;
    std::optional<QString> sortAuthor;
    std::optional<QString> sortAlbum;
    std::optional<QString> sortAlbumArtist;
    bool albumUsesSeriesPrefix = false;

    QJsonObject toJson() const;
    static BookMetadata fromJson(const QJsonObject& json);

    bool operator==(const BookMetadata&) const = default;
};

} // namespace folivox
