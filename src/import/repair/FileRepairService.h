#pragma once

#include "container/mp3/MP3ReencodedRegion.h"

#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace folivox {

class CancellationToken;
class FFmpegWrapper;

// Makes a clean copy of a damaged audio file. The source file is only read,
// never changed; the caller decides what to do with the copy. One repair runs
// at a time.
//
// An MP3 whose frames can be found is repaired without a second lossy pass:
// the copy is its valid frames, byte for byte, with its tags and a Xing/Info
// frame rewritten for the new length (MP3FrameCopyWriter). The copy is then
// decoded once by ffmpeg. If some of those frames do not decode, only the
// stretches around them are re-encoded (MP3RegionRepair): every other frame
// stays byte for byte, and the copy keeps its length in frames, so times
// after the damage do not move; the spliced copy is decoded once more. Only
// when that cannot be done is the whole file re-encoded. Any other file, and
// an MP3 without a frame lock, is re-encoded by ffmpeg, which decodes past
// the damage: an MP3 as MP3 at its own bitrate, anything else as FLAC.
//
// The size check: a repaired copy under kMinimumOutputBytes (16 KiB, less
// than a second of audio at 128 kbps) is refused as no usable repair, and a
// frame copy must hold exactly the bytes that were written for it.
class FileRepairService {
public:
    static constexpr qint64 kMinimumOutputBytes = 16384;

    enum class Method { frameCopy, partialReencode, reencode };

    struct Outcome {
        QString path;
        Method method = Method::frameCopy;
        qint64 bytes = 0;
        double seconds = 0; // wall time of the repair
        // partialReencode: the stretches that were re-encoded.
        std::vector<MP3ReencodedRegion> regions;
    };

    // "frameCopy", "partialReencode", "reencode".
    static QString methodName(Method method);

    explicit FileRepairService(std::shared_ptr<const FFmpegWrapper> ffmpeg);

    // Repairs into a new folder under FolivoxWork and returns the copy's
    // path, or nothing when the repair was skipped or failed (each case
    // logged). bitrate (bits per second) sets a re-encode's MP3 bitrate;
    // without it the scan's, or 128 kbps, is used. progress reports the
    // fraction done of the search for frames that do not decode, and, with
    // the source's duration, of a whole-file re-encode.
    std::optional<QString> repair(const QString& path, std::optional<int> bitrate, const CancellationToken& token,
                                  std::optional<double> duration = std::nullopt,
                                  const std::function<void(double)>& progress = {});

    // Repairs into `output` (replacing a file there: the caller has checked
    // that it may). The copy appears there whole or not at all.
    std::optional<Outcome> repairTo(const QString& path, const QString& output, const CancellationToken& token,
                                    std::optional<int> bitrate = std::nullopt,
                                    std::optional<double> duration = std::nullopt,
                                    const std::function<void(double)>& progress = {});

private:
    struct Produced;
    // The repaired copy in a work folder of its own.
    std::optional<Produced> run(const QString& path, const QString& outputName, std::optional<int> bitrate,
                                const CancellationToken& token, std::optional<double> duration,
                                const std::function<void(double)>& progress);

    std::shared_ptr<const FFmpegWrapper> ffmpeg_;
    std::mutex mutex_;
};

} // namespace folivox
