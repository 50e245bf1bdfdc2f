#pragma once

#include "core/book/BookMetadata.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <optional>

namespace folivox {

// A partial change to BookMetadata: the same 22 fields, each optional. A
// field with a value replaces that tag; a field without one leaves the tag as
// it is (a patch never clears a tag). Decodes with every key optional.
struct BookMetadataPatch {
    std::optional<QString> title;
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
    std::optional<bool> albumUsesSeriesPrefix;

    // True when no field holds a value.
    bool isEmpty() const;

    // `base` with every field of this patch that holds a value written over it.
    BookMetadata applied(const BookMetadata& base) const;

    QJsonObject toJson() const;
    static BookMetadataPatch fromJson(const QJsonObject& json);

    bool operator==(const BookMetadataPatch&) const = default;
};

} // namespace folivox
