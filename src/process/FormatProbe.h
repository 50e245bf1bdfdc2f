#pragma once

#include "core/book/Track.h"

#include <QJsonObject>
#include <QString>

#include <functional>
#include <optional>

namespace folivox {

// The audio facts of one source file that the export decision works with. The
// export code cannot reach the import inspectors (import builds on export), so
// whoever assembles a build hands it a FormatProbeFunction backed by them.
struct FormatProbe {
    QString codec;              // lower case: "aac-lc", "he-aac", "mp3", ...
    std::optional<int> bitrate; // bits per second
    int sampleRate = 0;         // Hz; 0 when unknown
    int channels = 0;           // 0 when unknown
    double duration = 0.0;      // seconds; 0 when unknown

    // The format cached on a track, when it has one. The duration is the
    // track's own.
    static std::optional<FormatProbe> fromCached(const Track& track);

    // The cached-format record for this probe of a file whose size and
    // modification date at the time of the probe are given.
    Track::CachedFormat toCachedFormat(std::optional<quint64> fileSize,
                                       std::optional<QDateTime> modificationDate) const;

    QJsonObject toJson() const;
    static FormatProbe fromJson(const QJsonObject& json);

    bool operator==(const FormatProbe&) const = default;
};

// Reads the format of the file at a local path; no value when it cannot be
// read. It may be called from a worker thread, and after a missed deadline it
// may still be running when its caller has moved on, so it must capture what
// it uses by value (shared pointers, not references).
using FormatProbeFunction = std::function<std::optional<FormatProbe>(const QString& path)>;

} // namespace folivox
