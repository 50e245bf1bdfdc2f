#pragma once

#include <QString>

namespace folivox {

class CancellationToken;

// Catches files that open and report a duration but can't be decoded: the
// first second of the audio is decoded in this process with libav and
// thrown away, and the decoder's complaints are counted.
class AudioStreamProbe {
public:
    struct Result {
        bool ran = false;        // the probe ran to its end (not cancelled)
        int decodeErrors = 0;    // packets the decoder refused
        bool corrupt = false;    // three or more decode errors
    };

    // Decodes the best audio stream until one second of audio has come out
    // (or the stream ends). A file libav cannot open, or without audio, has
    // no decode errors: the format inspection reports those. A cancel (the
    // token is polled while reading) reports ran = false, which is not held
    // against the file.
    static Result probe(const QString& path, const CancellationToken& token);

    // Three or more errors in one second mean a corrupt stream.
    static bool isCorrupt(int decodeErrors) { return decodeErrors >= 3; }

    // Ogg-family files ("ogg", "oga", "opus", "spx") are never probed: their
    // decoders complain about harmless page details.
    static bool appliesTo(const QString& path);
};

} // namespace folivox
