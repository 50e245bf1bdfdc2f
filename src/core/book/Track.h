#pragma once

#include "core/chapters/ChapterMarker.h"
#include "core/book/SeriesIndex.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>
#include <vector>

namespace folivox {

// One source audio file in a book. Treated as immutable: the with...
// operations return a copy with the named fields replaced and every other
// field, id included, kept.
//
// JSON: id, url, title, duration, chapters and fromVideo are always written
// (chapters as a list even when empty); the rest only when they hold a value.
// On decode id, url, title, duration and chapters are required; fromVideo
// defaults to false.
struct Track {
    // Audio format facts probed when the file was last inspected, with the
    // file's size and modification date at that moment. Always replaced as
    // one unit.
    struct CachedFormat {
        std::optional<QString> codec;
        std::optional<int> bitrate; // bits per second
        std::optional<int> sampleRate;
        std::optional<int> channels;
        std::optional<QDateTime> fileModificationDate;
        std::optional<quint64> fileSize;

        bool operator==(const CachedFormat&) const = default;
    };

    QUuid id = QUuid::createUuid();
    QUrl url;
    QString title;
    double duration = 0.0;
    std::optional<int> trackNumber;
    std::optional<int> discNumber;
    std::vector<ChapterMarker> chapters;
    std::optional<QString> album;
    std::optional<QString> albumArtist;
    std::optional<QString> artist;
    std::optional<QString> narrator;
    std::optional<QString> year;
    std::optional<QString> genre;
    std::optional<QString> language;
    std::optional<QString> comment;
    std::optional<QString> trackDescription;
    std::optional<QString> longDescription;
    std::optional<QString> publisher;
    std::optional<QString> copyright;
    std::optional<QString> encodedBy;
    std::optional<QString> encodedWith;
    std::optional<QString> seriesName;
    std::optional<SeriesIndex> seriesIndex;
    std::optional<QString> sortTitleOverride;
    std::optional<QString> sortAuthorOverride;
    std::optional<QString> sortAlbumOverride;
    std::optional<QString> cachedCodec;
    std::optional<int> cachedBitrate;
    std::optional<int> cachedSampleRate;
    std::optional<int> cachedChannels;
    std::optional<QDateTime> cachedFileModificationDate;
    std::optional<quint64> cachedFileSize;
    bool fromVideo = false;

    Track withDuration(double newDuration) const;
    Track withTitleAndDuration(const QString& newTitle, double newDuration) const;
    Track withComment(const std::optional<QString>& newComment) const;
    Track withUrl(const QUrl& newUrl) const;
    // Replaces all six cached fields; an empty CachedFormat strips them.
    Track withCachedFormat(const CachedFormat& format) const;
    Track withFromVideo(bool newFromVideo) const;

    CachedFormat cachedFormat() const;
    bool hasCachedFormat() const { return cachedCodec.has_value(); }

    // The chapter start carried in the comment by a line
    // __CHAPTER_META__:{"chapterStart":<seconds>}; no value when there is no
    // comment, no such line, or its number does not read.
    std::optional<double> chapterStart() const;

    // The comment with a chapter-start line appended on a line of its own
    // (just the line when the comment is empty). Negative or non-finite
    // seconds are written as 0.
    static QString appendingChapterStart(const std::optional<QString>& comment, double seconds);

    QJsonObject toJson() const;
    static Track fromJson(const QJsonObject& json);

    bool operator==(const Track&) const = default;
};

} // namespace folivox
