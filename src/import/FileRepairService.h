#pragma once

#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace folivox {

class CancellationToken;
class FFmpegWrapper;

// Rewrites a damaged audio file with ffmpeg into a new folder under
// FolivoxWork, decoding past the damage. The source file is only read, never
// changed. An MP3 is re-encoded as MP3 at its own bitrate; any other source
// becomes FLAC, so that nothing more is lost than the damage itself. One
// repair runs at a time.
class FileRepairService {
public:
    static constexpr qint64 kMinimumOutputBytes = 16384;

    explicit FileRepairService(std::shared_ptr<const FFmpegWrapper> ffmpeg);

    // The path of the repaired copy, or nothing when the repair was skipped
    // or failed (each case logged). bitrate (bits per second) sets the MP3
    // re-encode; without it 128 kbps is used. With the source's duration,
    // progress reports the fraction done as ffmpeg works.
    std::optional<QString> repair(const QString& path, std::optional<int> bitrate, const CancellationToken& token,
                                  std::optional<double> duration = std::nullopt,
                                  const std::function<void(double)>& progress = {});

private:
    std::shared_ptr<const FFmpegWrapper> ffmpeg_;
    std::mutex mutex_;
};

} // namespace folivox
