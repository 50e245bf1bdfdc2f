#pragma once

#include "process/BinaryResolver.h"
#include "process/CancellationToken.h"
#include "process/ToolRunResult.h"

#include <QString>
#include <QStringList>

#include <chrono>

namespace folivox {

// Runs a helper tool to its end with the same discipline as ffmpeg runs:
// standard input from the null device, standard output and standard error
// buffered, the child polled every 100 ms for cancellation and for the
// timeout, SIGTERM then SIGKILL after a grace period, and the child entered in
// the reaper for its whole life.
class ToolRunner {
public:
    struct Options {
        // Where the tool is looked up; by default BinaryResolver's folders.
        std::optional<QStringList> toolsDirectories;
        // After SIGTERM, how long a child may take before it gets SIGKILL.
        std::chrono::milliseconds killGrace{5000};
        std::chrono::milliseconds pollInterval{100};
        // The tag of this runner's log lines.
        QString logTag = QStringLiteral("MetadataWriting");
    };

    ToolRunner();
    explicit ToolRunner(Options options);

    // Runs `tool` (a base name such as "mp4tags") with these arguments.
    // `filePaths` are the arguments that name files; each is checked before
    // anything starts. Throws FFmpegWrapperError::invalidPath for a refused
    // path and ToolLaunchError when the tool is missing or cannot start.
    ToolRunResult run(const QString& tool, const QStringList& arguments, const QStringList& filePaths,
                      double timeoutSeconds, const CancellationToken& token) const;

    // Runs the binary at `path` without looking anything up.
    ToolRunResult runBinary(const QString& tool, const QString& path, const QStringList& arguments,
                            double timeoutSeconds, const CancellationToken& token) const;

private:
    Options options_;
};

} // namespace folivox
