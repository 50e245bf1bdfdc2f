#pragma once

#include <QString>

#include <optional>

namespace folivox {

// Which AAC profile a file really carries, found by decoding its first
// frames in process: SBR (HE-AAC) and parametric stereo (HE-AACv2) that are
// signalled only inside the audio (implicit signalling) show up as a doubled
// output sample rate and a second channel, whatever the container says.
class AacDecodedProfile {
public:
    // "aac-lc", "he-aac" or "he-aacv2"; nothing when the file has no AAC
    // stream or its first frames cannot be decoded.
    static std::optional<QString> of(const QString& path);
};

} // namespace folivox
