#pragma once

#include <QJsonObject>

namespace folivox {

// One run of bytes between two stretches of frames that is neither audio nor
// a tag. startTime is the playing time before it; missingSeconds estimates
// the audio it stands in for, from the average frame size seen before it.
struct MP3IntegrityHole {
    qint64 byteOffset = 0;
    qint64 byteLength = 0;
    double startTime = 0.0;
    double missingSeconds = 0.0;

    QJsonObject toJson() const;
    // All keys are required.
    static MP3IntegrityHole fromJson(const QJsonObject& json);

    bool operator==(const MP3IntegrityHole&) const = default;
};

} // namespace folivox
