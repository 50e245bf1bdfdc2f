#pragma once

#include <QStringList>

namespace folivox {

// The evidence that a chapter file belongs to an audio file, as flags with the
// points each adds to the match score.
struct SidecarMatchLayers {
    enum Flag : int {
        exactName = 1,      // 40: the stems are equal
        referencedFile = 2, // 35: the sidecar names this audio file
        duration = 4,       // 25: the chapters' span fits the audio's length
        sameFolder = 8,     // 15: both lie in the same folder
        partialName = 16,   // 10: one stem contains the other or they share a long prefix
    };

    int rawValue = 0;

    bool contains(Flag f) const { return (rawValue & f) != 0; }
    void insert(Flag f) { rawValue |= f; }
    static int points(Flag f);
    // The sum of the points of the flags set.
    int score() const;
    // The names of the flags set, in the order above.
    QStringList names() const;

    bool operator==(const SidecarMatchLayers&) const = default;
};

} // namespace folivox
