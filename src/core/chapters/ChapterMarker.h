#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

namespace folivox {

// One chapter mark embedded in a source file. id, title and time are fixed
// at construction; the image can be replaced.
struct ChapterMarker {
    QUuid id = QUuid::createUuid();
    QString title;
    double time = 0.0; // seconds from the start of the file
    std::optional<QByteArray> artworkData;

    QJsonObject toJson() const;
    // All keys but artworkData are required.
    static ChapterMarker fromJson(const QJsonObject& json);

    bool operator==(const ChapterMarker&) const = default;
};

} // namespace folivox
