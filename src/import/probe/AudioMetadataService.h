#pragma once

#include "process/CancellationToken.h"
#include "import/TrackLoadOutcome.h"

#include <QList>
#include <QUrl>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace folivox {

class FFmpegWrapper;

// Loads many audio files at once and turns each into a Track. Each file is
// opened in process (LibavAudioInspector); ffmpeg is called in only for a
// file that reports no duration, and for a one-second decode that catches
// streams that open but can't be decoded. A damaged stream is repaired into a
// copy under FolivoxWork when it can be. Every file has a stall watchdog: a
// file that makes no progress for the interval fails with `timeout` and the
// others go on. Results come back in input order. One load runs at a time.
class AudioMetadataService {
public:
    struct Options {
        // No progress on one file for this long fails it.
        std::chrono::milliseconds stallInterval{10000};
        // Processor cores to plan workers for; by default the machine's.
        std::optional<int> cores;
        // Repair files whose stream is damaged.
        bool repairDamagedFiles = true;
    };

    // Called on the loading thread as files finish: how many are done of how many.
    using ProgressHandler = std::function<void(int done, int total)>;

    AudioMetadataService();
    explicit AudioMetadataService(std::shared_ptr<const FFmpegWrapper> ffmpeg);
    AudioMetadataService(std::shared_ptr<const FFmpegWrapper> ffmpeg, Options options);
    ~AudioMetadataService();

    // Loads the files (local file URLs; others are left out). Blocks until
    // every file has an outcome. Cancellation is checked before each track is
    // built; cancelled files are left out of the outcome.
    TrackLoadOutcome load(const QList<QUrl>& urls, const CancellationToken& token = CancellationToken::never(),
                          const ProgressHandler& progress = {});

    // The smallest of 12, the file count, and the larger of 4 and cores - 2.
    static int workerCount(int fileCount, int cores);

    const Options& options() const { return options_; }

private:
    struct Context;
    std::shared_ptr<Context> context_;
    Options options_;
    std::mutex loadMutex_;
};

} // namespace folivox
