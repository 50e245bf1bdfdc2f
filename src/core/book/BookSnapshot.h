#pragma once

#include "core/book/SeriesIndex.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <cstddef>
#include <functional>
#include <optional>

namespace folivox {

struct BookMetadata;

// The book-level tags kept as a point of comparison and inside other records.
// Every field is optional. Unlike BookMetadata it has no sortAlbum or
// sortAlbumArtist, its image is `artworkData` (not coverImageData), and
// description stands before summary; the JSON keys keep these names.
// Two snapshots are equal exactly when every tag and the image bytes are
// equal, and the hash covers every field.
struct BookSnapshot {
    std::optional<QString> title;
    std::optional<QString> seriesName;
    std::optional<SeriesIndex> seriesIndex;
    std::optional<QString> author;
    std::optional<QString> narrator;
    std::optional<QString> language;
    std::optional<QString> year;
    std::optional<QString> genre;
    std::optional<QString> description;
    std::optional<QString> summary;
    std::optional<QString> publisher;
    std::optional<QString> copyright;
    std::optional<QString> encodedBy;
    std::optional<QString> encodedWith;
    std::optional<QString> comment;
    std::optional<QString> sortTitle;
    std::optional<QString> sortAuthor;
    std::optional<bool> albumUsesSeriesPrefix;
    std::optional<QByteArray> artworkData;
    std::optional<QUrl> coverSourceURL;

    // The snapshot of a book's tags: every shared field copied, the cover
    // bytes as artworkData; sortAlbum and sortAlbumArtist have no place here.
    static BookSnapshot fromMetadata(const BookMetadata& metadata);

    QJsonObject toJson() const;
    static BookSnapshot fromJson(const QJsonObject& json);

    bool operator==(const BookSnapshot&) const = default;
};

size_t qHash(const BookSnapshot& snapshot, size_t seed = 0) noexcept;

} // namespace folivox

template<>
struct std::hash<folivox::BookSnapshot> {
    size_t operator()(const folivox::BookSnapshot& s) const noexcept { return folivox::qHash(s); }
};
