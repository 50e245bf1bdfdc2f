#pragma once

#include "core/book/Track.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <set>
#include <vector>

namespace folivox {

// A summary of a book's source files, read by the settings calculators: what
// the sources hold decides which bitrates, rates and codecs are worth offering.
struct AudiobookSourceInfo {
    double totalDuration = 0.0; // seconds
    int chapterCount = 0;
    quint64 totalSize = 0; // bytes
    QStringList codecs;    // lower case, as probed ("aac-lc", "he-aac", "mp3"), each once
    std::set<int> sampleRates;
    std::set<int> channels;
    int cachedFileCount = 0; // files whose format was probed
    int totalFileCount = 0;
    std::set<int> bitratesBps;
    // Estimated from size and length, for when no file's bitrate was probed.
    std::optional<int> avgBitrateKbpsFallback;
    std::set<QString> fileExtensions; // lower case, without the dot
    QString formattedPrimaryLine;

    // Built from the book's tracks (each distinct file counted once) and its
    // chapter count. Sizes come from the cached probe, else from the file.
    static AudiobookSourceInfo fromTracks(const std::vector<Track>& tracks, int chapterCount);

    // The highest probed bitrate, in kbps rounded to the nearest whole.
    std::optional<int> measuredBitrateKbps() const;
    // The measured rate, else the size-based estimate.
    std::optional<int> bitrateKbps() const;
    std::optional<int> maxSampleRate() const;
    std::optional<int> maxChannels() const;
    // True when any source is HE-AAC (v1, v2 or extended).
    bool hasHEAACSource() const;
    // True when any source is stored without loss (PCM, FLAC, ALAC, ...).
    bool hasLosslessSource() const;

    // "3 files · 2h 05m · AAC-LC · 44100 Hz · Stereo · 128 kbps"; parts that
    // are unknown are left out.
    QString makePrimaryLine() const;

    bool operator==(const AudiobookSourceInfo&) const = default;
};

} // namespace folivox
