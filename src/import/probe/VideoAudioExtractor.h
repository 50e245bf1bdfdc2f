#pragma once

#include "process/CancellationToken.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

namespace folivox {

class FFmpegWrapper;

// Takes the audio out of a video file with ffmpeg, into a folder of its own
// under FolivoxWork. AAC and MP3 audio are copied as they are (into .m4a and
// .mp3); any other codec is decoded into FLAC, so nothing is lost on the way.
class VideoAudioExtractor {
public:
    // The video extensions an import sets aside for extraction.
    static bool isVideoPath(const QString& path);

    explicit VideoAudioExtractor(std::shared_ptr<const FFmpegWrapper> ffmpeg);

    struct Extraction {
        QString audioPath;     // the extracted file
        QString error;         // why there is none
        bool ok() const { return !audioPath.isEmpty(); }
    };

    // progress receives the fraction done (0...1) on the calling thread.
    Extraction extract(const QString& videoPath, const CancellationToken& token,
                       const std::function<void(double)>& progress = {}) const;

private:
    std::shared_ptr<const FFmpegWrapper> ffmpeg_;
};

} // namespace folivox
