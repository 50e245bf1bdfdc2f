#pragma once

#include "process/FormatProbe.h"
#include "import/probe/AudioSourceFormat.h"
#include "import/probe/MediaProbe.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace folivox {

class FFmpegWrapper;

// Reads a file's audio format, tags, chapter marks and cover in process with
// libavformat. It is fast, so it goes first; where it can't see the truth
// (chiefly HE-AAC signalled only inside the bitstream of an MP4 file) its
// answer is checked against FFprobeInspector's reading of `ffmpeg -i`.
class LibavAudioInspector {
public:
    // Reads the format through `ffmpeg -i`; throws on failure.
    using FFprobeFunction = std::function<AudioSourceFormat(const QString& path)>;

    // ffprobe may be empty: the merge then goes on with the in-process answer
    // alone. timeLimitSeconds bounds one open of a file.
    explicit LibavAudioInspector(FFprobeFunction ffprobe = {}, double timeLimitSeconds = 10);

    // Opens the file and gathers its facts. abort is polled while libavformat
    // waits on input; when it returns true the open stops with a timeout.
    // Throws InspectionError.
    MediaProbe probe(const QString& path, const std::function<bool()>& abort = {}) const;

    // The format as the in-process reader sees it, validated (no distrust
    // rule, no merge). Throws InspectionError.
    static AudioSourceFormat formatFromProbe(const MediaProbe& probe);

    // True when the in-process answer for this codec is not trusted for a
    // file with this name: AAC ("aac-lc", "aac", "mp4a") in "m4b", "m4a",
    // "mp4" or "m4r", which may hide SBR that only the decoder sees.
    static bool distrusts(const QString& path, const QString& codec);

    // The full inspection: open, map the format, and apply the distrust rule
    // and the merge. Throws InspectionError.
    AudioSourceFormat inspect(const QString& path) const;
    // The same, on facts already gathered by probe().
    AudioSourceFormat inspect(const MediaProbe& probe) const;

    // Combines the in-process answer with ffmpeg's. ff is empty when ffmpeg
    // could not be asked or failed. decoded, the profile found by decoding
    // the first frames, wins over both; only without it does a low bitrate
    // per channel at a full sample rate count as HE-AAC.
    static AudioSourceFormat merge(const AudioSourceFormat& av, const std::optional<AudioSourceFormat>& ff,
                                   const QString& name, const std::optional<QString>& decoded = std::nullopt);

    // The format reader the export side takes: the full inspection (with
    // ffmpeg's view where the in-process answer is not trusted) as a
    // FormatProbe, or nothing when the file can't be read. It holds what it
    // uses by value, so it may outlive its caller's interest.
    static FormatProbeFunction formatProbeFunction(std::shared_ptr<const FFmpegWrapper> ffmpeg);

private:
    FFprobeFunction ffprobe_;
    double timeLimitSeconds_;
};

} // namespace folivox
