#pragma once

#include "core/chapters/MediaTimeRange.h"

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace folivox {

// One output chapter as the export engine receives it: its title, the source
// files it is made from, and which part of them it takes.
struct ChapterInput {
    QString title;
    QList<QUrl> files;
    // The part of a single file this chapter takes.
    std::optional<MediaTimeRange> timeRange;
    // For a chapter over several files: the part of each file, one per file.
    std::optional<std::vector<MediaTimeRange>> segmentRanges;
    // One per file: true where the chapter takes that file whole.
    std::optional<std::vector<bool>> segmentFullTrack;
    // True when the chapter may be copied as one whole file.
    bool wholeFileCandidate = false;

    QJsonObject toJson() const;
    // title, files and wholeFileCandidate are required.
    static ChapterInput fromJson(const QJsonObject& json);

    bool operator==(const ChapterInput&) const = default;
};

} // namespace folivox
