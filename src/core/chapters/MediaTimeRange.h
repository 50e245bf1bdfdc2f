#pragma once

#include <QJsonObject>

namespace folivox {

// A stretch of media time in seconds: where it starts and how long it lasts.
struct MediaTimeRange {
    double start = 0.0;
    double duration = 0.0;

    double end() const { return start + duration; }

    // JSON: {"start": seconds, "duration": seconds}, both required.
    QJsonObject toJson() const;
    static MediaTimeRange fromJson(const QJsonObject& json);

    bool operator==(const MediaTimeRange&) const = default;
};

} // namespace folivox
