#pragma once

#include "process/CancellationToken.h"
#include "process/FFmpegResult.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>

namespace folivox {

// Runs ffmpeg as a watched child process. A run blocks its caller; the child
// is polled every 100 ms for cancellation, silence, a corrupt stream and (when
// asked) a stall, and its end becomes one FFmpegResult whose text a user can
// act on. Any number of runs may be alive at once, from any threads.
class FFmpegWrapper {
public:
    struct Options {
        // The ffmpeg binary; by default BinaryResolver's choice for "ffmpeg".
        std::optional<QString> ffmpegPath;
        // A child that writes nothing at all for this long is stopped.
        std::chrono::milliseconds silenceLimit{300000};
        // After SIGTERM, how long a child may take before it gets SIGKILL.
        std::chrono::milliseconds killGrace{5000};
        // With at least 50 decode errors, how long time= may stand still
        // before the stream is judged corrupt. ffmpeg reports progress about
        // twice a second, so ten seconds without movement while the decoder
        // keeps failing is far outside normal operation, yet short enough that
        // a damaged file fails fast instead of burning CPU for minutes.
        std::chrono::milliseconds corruptStreamLimit{10000};
        // The longest an inspection (ffmpeg -i) may take.
        std::chrono::milliseconds inspectTimeout{10000};
        // How often the child is checked.
        std::chrono::milliseconds pollInterval{100};
    };

    using ProgressHandler = std::function<void(double fraction)>;

    static constexpr qsizetype kStderrLimit = 131072;
    static constexpr int kCorruptStreamErrorThreshold = 50;

    FFmpegWrapper();
    explicit FFmpegWrapper(Options options);

    // The binary in use. It can change once, when a wrong-architecture launch
    // falls back to the other architecture's file.
    QString ffmpegPath() const;
    QString ffprobePath() const { return ffprobePath_; }
    QString architecture() const { return architecture_; }
    const Options& options() const { return options_; }

    // Runs ffmpeg with these arguments (the last one is the output, or "-").
    // With a total duration (seconds) progress is reported as a fraction
    // 0...1 on the calling thread. A stall limit (seconds) stops a child whose
    // time= stands still for that long while it keeps writing.
    // Throws FFmpegWrapperError (binaryNotFound, invalidPath) before anything
    // starts, and ToolLaunchError when the child cannot be started. Every
    // failure of the child itself is returned, not thrown.
    FFmpegResult run(const QStringList& arguments, std::optional<double> totalDuration,
                     const CancellationToken& token, const ProgressHandler& progress = {},
                     std::optional<double> stallLimitSeconds = std::nullopt) const;

    // "ffmpeg -nostdin -i <path>": returns what ffmpeg wrote to standard error
    // (the stream description). Throws FFmpegWrapperError (invalidPath,
    // binaryNotFound, inspectionTimedOut) and ToolLaunchError.
    QString inspect(const QString& path) const;

    // The user-facing text for a failed run that no watchdog stopped: the
    // copy-protection and corrupt-input messages where they apply, otherwise
    // the diagnostic text.
    static QString describeFailure(const QStringList& arguments, int terminationStatus, const QString& stderrText);
    // "FFmpeg exit code: N" and the lines of stderr that say what went wrong.
    static QString diagnosticText(int terminationStatus, const QString& stderrText);

    // The file paths of an argument list: every value of "-i" and the output
    // (the last argument, unless it is "-" or a pipe).
    static QStringList pathArguments(const QStringList& arguments);

private:
    void setFFmpegPath(const QString& path) const;

    Options options_;
    mutable std::mutex pathMutex_;
    mutable QString ffmpegPath_;
    QString ffprobePath_;
    QString architecture_;
};

} // namespace folivox
