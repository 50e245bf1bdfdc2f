#pragma once

#include <QJsonObject>
#include <QString>

#include <cstdint>
#include <optional>

namespace folivox {

// What an inspector reports about the audio of one file.
struct AudioSourceFormat {
    QString codec;          // lower case: "aac-lc", "he-aac", "he-aacv2", "xhe-aac", "mp3", "flac", ...
    QString codecLongName;  // "AAC (Advanced Audio Coding)", ...
    std::optional<int> bitrate;  // bits per second
    int sampleRate = 0;     // Hz
    int channels = 0;
    double duration = 0;    // seconds
    std::optional<QString> format;  // the container as ffmpeg names it, e.g. "mov,mp4,m4a,3gp,3g2,mj2"
    bool aacSignaledNoSBR = false;

    bool isHEAACFamily() const;

    // The long name shown for a codec: "PCM (Pulse Code Modulation)" for the
    // pcm family, "MP3 (MPEG Audio Layer 3)", the AAC names, "FLAC (Free
    // Lossless Audio Codec)", "ALAC (Apple Lossless Audio Codec)", "Vorbis";
    // the upper-cased codec name otherwise.
    static QString longNameForCodec(const QString& codec);

    QJsonObject toJson() const;
    static AudioSourceFormat fromJson(const QJsonObject& o);

    bool operator==(const AudioSourceFormat&) const = default;
};

// The raw description a media framework gives of an audio stream.
struct ProbedAudioFormat {
    std::uint32_t formatID = 0;  // four-character code, e.g. 'mp4a'
    double sampleRate = 0;
    std::uint32_t channels = 0;

    static std::uint32_t fourCC(const char (&code)[5]);
    bool operator==(const ProbedAudioFormat&) const = default;
};

} // namespace folivox
