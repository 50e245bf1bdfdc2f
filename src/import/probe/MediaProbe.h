#pragma once

#include "import/probe/AudioSourceFormat.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace folivox {

// One chapter mark as a container stores it.
struct MediaChapterMark {
    QString title;
    double start = 0;  // seconds from the start of the file
    double end = 0;
};

// Everything one in-process open of a media file tells about it: the first
// audio stream's raw facts, the container, the tags, embedded chapter marks
// and the cover picture. The codec decision is made from these facts by
// LibavAudioInspector.
struct MediaProbe {
    QString path;
    QString container;           // demuxer name, e.g. "mov,mp4,m4a,3gp,3g2,mj2", "mp3", "ogg"
    QString codecName;           // libavcodec's name: "aac", "mp3", "flac", "vorbis", "pcm_s16le", ...
    int codecProfile = -99;      // libavcodec profile, -99 when unknown
    QString profileName;         // libavcodec's name of that profile ("LC", "HE-AAC"), empty when none
    std::uint32_t codecTag = 0;  // the container's four-character code, big-endian ('mp4a'); 0 when none
    QByteArray extradata;        // for AAC: the AudioSpecificConfig
    ProbedAudioFormat probed;
    int sampleRate = 0;
    int channels = 0;
    std::optional<int> streamBitrate;     // bits per second
    std::optional<int> containerBitrate;  // bits per second
    double duration = 0;                  // seconds; 0 when unknown
    QMap<QString, QString> tags;          // lower-case keys; container tags, then stream tags where missing
    QList<MediaChapterMark> chapters;
    QByteArray coverImage;                // the attached picture, when there is one
    bool hasVideo = false;                // a real (non-cover) video stream
    bool encrypted = false;               // the audio sample entry is a protected one (drms, aavd, enca)

    // The tag under the first of these names that has a non-empty value.
    std::optional<QString> tag(std::initializer_list<const char*> names) const
    {
        for (const char* n : names) {
            auto it = tags.constFind(QString::fromLatin1(n));
            if (it != tags.constEnd() && !it.value().trimmed().isEmpty())
                return it.value();
        }
        return std::nullopt;
    }
};

} // namespace folivox
