#pragma once

#include "core/book/Track.h"
#include "import/probe/AudioSourceFormat.h"
#include "import/probe/MediaProbe.h"

#include <QList>
#include <QString>

#include <optional>

namespace folivox {

// Turns what was read from a file into a Track: tag text is repaired, the
// title falls back to the file's name, and embedded chapter marks become
// ChapterMarkers.
class TrackBuilder {
public:
    // One tag as the import log lists it: the Track field, the MP4 atom that
    // carries it, and its value (empty when the file has none).
    struct DetectedTag {
        QString field;
        QString atom;
        QString value;
    };

    // format, when given, fills the cached format fields together with the
    // file's size and modification date as they are now.
    static Track build(const MediaProbe& probe, double duration, const std::optional<AudioSourceFormat>& format);

    // The leading number of a tag such as "3/12" or " 07"; empty when there is none.
    static std::optional<int> leadingNumber(const QString& text);

    // The year of a date tag: its leading four digits, or the trimmed text.
    static QString yearFromDate(const QString& text);

    // The tags of a track in the order the import log lists them.
    static QList<DetectedTag> detectedTags(const Track& track);
};

} // namespace folivox
