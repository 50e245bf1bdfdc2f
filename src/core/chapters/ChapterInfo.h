#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// A chapter as read from a file for export and tagging.
struct ChapterInfo {
    QString title;
    double startTime = 0.0; // seconds
    std::optional<QByteArray> artworkData;

    QJsonObject toJson() const;
    static ChapterInfo fromJson(const QJsonObject& json);

    bool operator==(const ChapterInfo&) const = default;
};

} // namespace folivox
