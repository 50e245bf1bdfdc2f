#pragma once

#include <QString>

#include <memory>

namespace folivox {

class CancellationToken;
class FFmpegWrapper;

// Catches files that open and report a duration but can't be decoded: one
// second of the audio is decoded and thrown away, and the decoder's
// complaints are counted.
class AudioStreamProbe {
public:
    struct Result {
        bool ran = false;        // ffmpeg could be run
        int decodeErrors = 0;
        bool corrupt = false;    // three or more decode errors
    };

    explicit AudioStreamProbe(std::shared_ptr<const FFmpegWrapper> ffmpeg);

    // Runs `ffmpeg -v error -i <path> -t 1 -vn -c:a pcm_s16le -f null -`.
    // A run that cannot start (no binary, a refused path) or is cancelled
    // reports ran = false and is not held against the file.
    Result probe(const QString& path, const CancellationToken& token) const;

    // Decode errors in ffmpeg's error text. Counts the pieces the text splits
    // into at "Error submitting packet to decoder: Invalid data found", and the
    // "Error while decoding stream #N:M: Invalid data found" lines that
    // ffmpeg 5 prints for the same fault.
    static int countDecodeErrors(const QString& stderrText);

    // Three or more errors in one second mean a corrupt stream.
    static bool isCorrupt(int decodeErrors) { return decodeErrors >= 3; }

    // Ogg-family files ("ogg", "oga", "opus", "spx") are never probed: their
    // decoders complain about harmless page details.
    static bool appliesTo(const QString& path);

private:
    std::shared_ptr<const FFmpegWrapper> ffmpeg_;
};

} // namespace folivox
