#pragma once

// Builders for books of tracks with cached formats, shared by the decision
// tests. Files named here need not exist: the decision reads what the
// tracks carry.

#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox::test {

inline Track cachedTrack(const QString& path, double duration, const QString& codec = QStringLiteral("aac-lc"),
                         int sampleRate = 44100, int channels = 2, std::optional<int> bitrate = 64000)
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    t.title = QUrl::fromLocalFile(path).fileName();
    t.duration = duration;
    t.cachedCodec = codec;
    t.cachedBitrate = bitrate;
    t.cachedSampleRate = sampleRate;
    t.cachedChannels = channels;
    return t;
}

inline Track uncachedTrack(const QString& path, double duration)
{
    Track t;
    t.url = QUrl::fromLocalFile(path);
    t.title = QUrl::fromLocalFile(path).fileName();
    t.duration = duration;
    return t;
}

inline Bookmark chapter(const QString& title, std::vector<Track> tracks, double startOffset, double duration)
{
    Bookmark b;
    b.title = title;
    b.tracks = std::move(tracks);
    b.startOffset = startOffset;
    b.duration = duration;
    return b;
}

// One chapter per track, each taking its whole file.
inline std::vector<Bookmark> chapterPerTrack(const std::vector<Track>& tracks)
{
    std::vector<Bookmark> out;
    int n = 0;
    for (const Track& t : tracks)
        out.push_back(chapter(QStringLiteral("Chapter %1").arg(++n), {t}, 0.0, t.duration));
    return out;
}

} // namespace folivox::test
