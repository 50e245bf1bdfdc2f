#pragma once

#include "import/probe/AudioSourceFormat.h"

#include <QString>

#include <memory>

namespace folivox {

class FFmpegWrapper;

// Reads a file's audio format from what `ffmpeg -nostdin -i <file>` prints on
// standard error. Slower than the in-process reader (one child process per
// file), but it reports what the decoder sees, SBR included.
class FFprobeInspector {
public:
    // Uses the tool layer's ffmpeg.
    FFprobeInspector();
    explicit FFprobeInspector(std::shared_ptr<const FFmpegWrapper> ffmpeg);
    // The path of the tool binary; despite the class name it is `ffmpeg`.
    explicit FFprobeInspector(const QString& ffprobePath);

    QString ffprobePath() const;

    // Runs `ffmpeg -nostdin -i <path>` through the tool layer (which stops it
    // after 10 s) and parses its output. Throws FFprobeInspectionError, and
    // FFmpegWrapperError for a missing binary, a refused path or a timeout.
    AudioSourceFormat inspect(const QString& path) const;

    // Parses the standard error text of one `ffmpeg -i` run for the file
    // called name; exitCode is only reported in the log. Throws
    // FFprobeInspectionError::noAudioStream when no audio stream is listed.
    static AudioSourceFormat parse(const QString& stderrText, const QString& name, int exitCode = 1);

    // The AAC profile text ffmpeg prints in "aac (...)" mapped to a codec name:
    // "he-aacv2", "he-aac" or "aac-lc"; "aac" for other profiles.
    static QString codecForAACProfile(const QString& profile);

private:
    std::shared_ptr<const FFmpegWrapper> ffmpeg_;
};

} // namespace folivox
