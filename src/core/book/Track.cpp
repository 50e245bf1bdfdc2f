#include "core/book/Track.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

#include <QLocale>
#include <QRegularExpression>

#include <cmath>

namespace folivox {

Track Track::withDuration(double newDuration) const
{
    Track t = *this;
    t.duration = newDuration;
    return t;
}

Track Track::withTitleAndDuration(const QString& newTitle, double newDuration) const
{
    Track t = *this;
    t.title = newTitle;
    t.duration = newDuration;
    return t;
}

Track Track::withComment(const std::optional<QString>& newComment) const
{
    Track t = *this;
    t.comment = newComment;
    return t;
}

Track Track::withUrl(const QUrl& newUrl) const
{
    Track t = *this;
    t.url = newUrl;
    return t;
}

Track Track::withCachedFormat(const CachedFormat& format) const
{
    Track t = *this;
    t.cachedCodec = format.codec;
    t.cachedBitrate = format.bitrate;
    t.cachedSampleRate = format.sampleRate;
    t.cachedChannels = format.channels;
    t.cachedFileModificationDate = format.fileModificationDate;
    t.cachedFileSize = format.fileSize;
    return t;
}

Track Track::withFromVideo(bool newFromVideo) const
{
    Track t = *this;
    t.fromVideo = newFromVideo;
    return t;
}

Track::CachedFormat Track::cachedFormat() const
{
    return CachedFormat{cachedCodec, cachedBitrate, cachedSampleRate, cachedChannels, cachedFileModificationDate,
                        cachedFileSize};
}

std::optional<double> Track::chapterStart() const
{
    if (!comment)
        return std::nullopt;
    static const QRegularExpression pattern(QStringLiteral(R"(__CHAPTER_META__:\{"chapterStart":(\d+\.?\d*))"));
    const QRegularExpressionMatch match = pattern.match(*comment);
    if (!match.hasMatch())
        return std::nullopt;
    bool ok = false;
    const double seconds = match.captured(1).trimmed().toDouble(&ok);
    if (!ok || !std::isfinite(seconds))
        return std::nullopt;
    return seconds;
}

QString Track::appendingChapterStart(const std::optional<QString>& comment, double seconds)
{
    if (!std::isfinite(seconds) || seconds < 0)
        seconds = 0;
    // Fixed notation, shortest exact digits, always with a decimal point, so
    // the reader's pattern (digits, point, digits) matches every value.
    QString number = QString::number(seconds, 'f', QLocale::FloatingPointShortest);
    if (!number.contains(u'.'))
        number += QStringLiteral(".0");
    const QString line = QStringLiteral("__CHAPTER_META__:{\"chapterStart\":%1}").arg(number);
    if (!comment || comment->isEmpty())
        return line;
    return *comment + u'\n' + line;
}

QJsonObject Track::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("url", url)
        .set("title", title)
        .set("duration", duration)
        .set("trackNumber", trackNumber)
        .set("discNumber", discNumber)
        .set("chapters", chapters)
        .set("album", album)
        .set("albumArtist", albumArtist)
        .set("artist", artist)
        .set("narrator", narrator)
        .set("year", year)
        .set("genre", genre)
        .set("language", language)
        .set("comment", comment)
        .set("trackDescription", trackDescription)
        .set("longDescription", longDescription)
        .set("publisher", publisher)
        .set("copyright", copyright)
        .set("encodedBy", encodedBy)
        .set("encodedWith", encodedWith)
        .set("seriesName", seriesName)
        .set("seriesIndex", seriesIndex)
        .set("sortTitleOverride", sortTitleOverride)
        .set("sortAuthorOverride", sortAuthorOverride)
        .set("sortAlbumOverride", sortAlbumOverride)
        .set("cachedCodec", cachedCodec)
        .set("cachedBitrate", cachedBitrate)
        .set("cachedSampleRate", cachedSampleRate)
        .set("cachedChannels", cachedChannels)
        .set("cachedFileModificationDate", cachedFileModificationDate)
        .set("cachedFileSize", cachedFileSize)
        .set("fromVideo", fromVideo)
        .object();
}

Track Track::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    Track t;
    t.id = r.uuid("id");
    t.url = r.url("url");
    t.title = r.string("title");
    t.duration = r.number("duration");
    t.trackNumber = r.optionalInteger("trackNumber");
    t.discNumber = r.optionalInteger("discNumber");
    t.chapters = r.list<ChapterMarker>("chapters");
    t.album = r.optionalString("album");
    t.albumArtist = r.optionalString("albumArtist");
    t.artist = r.optionalString("artist");
    t.narrator = r.optionalString("narrator");
    t.year = r.optionalString("year");
    t.genre = r.optionalString("genre");
    t.language = r.optionalString("language");
    t.comment = r.optionalString("comment");
    t.trackDescription = r.optionalString("trackDescription");
    t.longDescription = r.optionalString("longDescription");
    t.publisher = r.optionalString("publisher");
    t.copyright = r.optionalString("copyright");
    t.encodedBy = r.optionalString("encodedBy");
    t.encodedWith = r.optionalString("encodedWith");
    t.seriesName = r.optionalString("seriesName");
    t.seriesIndex = r.optionalValue<SeriesIndex>("seriesIndex");
    t.sortTitleOverride = r.optionalString("sortTitleOverride");
    t.sortAuthorOverride = r.optionalString("sortAuthorOverride");
    t.sortAlbumOverride = r.optionalString("sortAlbumOverride");
    t.cachedCodec = r.optionalString("cachedCodec");
    t.cachedBitrate = r.optionalInteger("cachedBitrate");
    t.cachedSampleRate = r.optionalInteger("cachedSampleRate");
    t.cachedChannels = r.optionalInteger("cachedChannels");
    t.cachedFileModificationDate = r.optionalDate("cachedFileModificationDate");
    t.cachedFileSize = r.optionalUnsigned64("cachedFileSize");
    t.fromVideo = r.optionalBoolean("fromVideo").value_or(false);
    return t;
}

} // namespace folivox
