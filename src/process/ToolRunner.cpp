#include "process/ToolRunner.h"

#include "process/BoundedOutputBuffer.h"
#include "process/PathValidator.h"
#include "process/WatchedProcess.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QElapsedTimer>

#include <algorithm>

namespace folivox {

namespace {
// Tool output is small (a chapter list at most); the bound only guards
// against a runaway child.
constexpr qsizetype kOutputLimit = 4 * 1024 * 1024;
constexpr qsizetype kOutputHead = 1024 * 1024;
} // namespace

ToolRunner::ToolRunner() : ToolRunner(Options{}) {}

ToolRunner::ToolRunner(Options options) : options_(std::move(options)) {}

ToolRunResult ToolRunner::run(const QString& tool, const QStringList& arguments, const QStringList& filePaths,
                              double timeoutSeconds, const CancellationToken& token) const
{
    PathValidator::validateAll(filePaths);
    const BinaryResolver resolver = options_.toolsDirectories ? BinaryResolver(*options_.toolsDirectories)
                                                              : BinaryResolver();
    return runBinary(tool, resolver.resolve(tool), arguments, timeoutSeconds, token);
}

ToolRunResult ToolRunner::runBinary(const QString& tool, const QString& path, const QStringList& arguments,
                                    double timeoutSeconds, const CancellationToken& token) const
{
    const QString tag = options_.logTag;
    ToolRunResult result;
    if (token.isCancelled()) {
        result.cancelled = true;
        result.error = tool + L10n::text("error.tool.cancelled", " was cancelled.");
        Log::write(tag, tool + QStringLiteral(" cancelled before launch"));
        return result;
    }

    WatchedProcess process(tool, arguments, WatchedProcess::StandardOutput::capture, tag);
    Log::write(tag, QStringLiteral("Running ") + path + QStringLiteral(" (") + QString::number(arguments.size())
                        + QStringLiteral(" args)"));
    process.launch(path);
    QElapsedTimer clock;
    clock.start();

    BoundedOutputBuffer out(kOutputLimit, kOutputHead);
    BoundedOutputBuffer err(kOutputLimit, kOutputHead);
    const int pollMs = static_cast<int>(std::max<qint64>(1, options_.pollInterval.count()));
    const qint64 timeoutMs = static_cast<qint64>(timeoutSeconds * 1000.0);
    for (;;) {
        const bool ended = process.waitForFinished(pollMs);
        out.append(process.readStandardOutput());
        err.append(process.readStandardError());
        if (ended)
            break;
        if (token.isCancelled() || process.terminationRequested()) {
            result.cancelled = true;
            Log::write(tag, tool + QStringLiteral(" cancelled — stopping PID=") + QString::number(process.pid()));
            process.stop(options_.killGrace);
            break;
        }
        if (timeoutMs > 0 && clock.elapsed() >= timeoutMs) {
            result.timedOut = true;
            Log::write(tag, QStringLiteral("TIMEOUT: ") + tool + QStringLiteral(" ran for ")
                                + QString::number(timeoutSeconds) + QStringLiteral("s — stopping PID=")
                                + QString::number(process.pid()));
            process.stop(options_.killGrace);
            break;
        }
    }
    out.append(process.readStandardOutput());
    err.append(process.readStandardError());

    result.duration = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    result.standardOutput = QString::fromUtf8(out.contents());
    result.standardError = QString::fromUtf8(err.contents());
    result.terminationStatus = process.terminationStatus();
    const bool exited = process.exitedNormally();
    // A stop by the reaper, or a signal that reached the child before this
    // loop saw the token, is still a cancellation.
    if (!result.timedOut && !(exited && result.terminationStatus == 0)
        && (process.terminationRequested() || token.isCancelled()))
        result.cancelled = true;
    Log::write(tag, tool + (exited ? QStringLiteral(" EXIT") : QStringLiteral(" SIGNAL")) + QStringLiteral(" exitCode=")
                        + QString::number(result.terminationStatus) + QStringLiteral(" duration=")
                        + QString::number(result.duration, 'f', 2) + QStringLiteral("s"));

    if (result.timedOut) {
        result.error = L10n::format(
            L10n::text("error.tool.timeout",
                       "The metadata step (%@) timed out after %@s. This can happen with very large books (30h+ or "
                       "1 GB+). Try splitting the book into smaller parts and exporting again."),
            {tool, QString::number(timeoutSeconds)});
    } else if (result.cancelled) {
        result.error = tool + L10n::text("error.tool.cancelled", " was cancelled.");
    } else if (exited && result.terminationStatus == 0) {
        result.success = true;
    } else {
        const QString detail = result.standardError.trimmed();
        result.error = L10n::format(L10n::text("error.tool.failed", "%@ failed (exit code %d)"),
                                    {tool, QString::number(result.terminationStatus)})
            + (detail.isEmpty() ? QString() : QStringLiteral(": ") + detail);
        Log::write(tag, QStringLiteral("FAILED ") + tool + QStringLiteral(" stderr: ") + detail.right(1000));
    }
    return result;
}

} // namespace folivox
