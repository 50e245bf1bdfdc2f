#pragma once

#include <QJsonObject>
#include <QUrl>

namespace folivox {

// One hole of an MP3 placed on a chapter: fileTime is where the audio jumps
// in the file as it plays (the hole's startTime), chapterTime is where the
// hole lands counted from the chapter's start, on the time line the chapter
// marks were made for.
struct ChapterDamageHole {
    QUrl url;
    double fileTime = 0.0;
    double chapterTime = 0.0;
    double missingSeconds = 0.0;

    QJsonObject toJson() const;
    // All keys are required.
    static ChapterDamageHole fromJson(const QJsonObject& json);

    bool operator==(const ChapterDamageHole&) const = default;
};

} // namespace folivox
