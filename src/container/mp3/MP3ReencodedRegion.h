#pragma once

#include <QJsonObject>

namespace folivox {

// A stretch of a repaired MP3 that was re-encoded because frames in it did
// not decode. Frames count the audio frames of the repaired copy from 0 (its
// information frame not counted); startTime is the playing time of the audio
// frames before the stretch, as a hole's is.
struct MP3ReencodedRegion {
    qint64 firstFrame = 0;
    qint64 frameCount = 0;
    qint64 undecodableFrames = 0; // frames in it that did not decode
    qint64 lostFrames = 0;        // frames whose audio was gone: played as silence
    double startTime = 0.0;
    double duration = 0.0;

    QJsonObject toJson() const;
    static MP3ReencodedRegion fromJson(const QJsonObject& json);

    bool operator==(const MP3ReencodedRegion&) const = default;
};

} // namespace folivox
