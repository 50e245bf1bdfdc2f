#include "process/FFmpegWrapper.h"

#include "process/BinaryResolver.h"
#include "process/BoundedOutputBuffer.h"
#include "process/FFmpegWrapperError.h"
#include "process/PathValidator.h"
#include "process/WatchedProcess.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

namespace folivox {

namespace {

// The start of ffmpeg's stderr (banner, inputs, opening errors) that always
// survives the bound; the rest of the budget keeps the most recent output.
constexpr qsizetype kStderrHead = 16384;
// An inspection's output is the stream description, parsed in full by the
// caller; a book with hundreds of chapters needs far more than a run does.
constexpr qsizetype kInspectLimit = 4 * 1024 * 1024;
// A "line" without any line end is handled once it grows this long.
constexpr qsizetype kPartialLineLimit = 65536;
// A corrupt stream can print thousands of error lines a second; the log
// keeps the first ones of each run.
constexpr int kLoggedLineLimit = 200;
// Diagnostic texts keep at most this many distinct lines.
constexpr int kDiagnosticLineLimit = 50;

const QRegularExpression& timePattern()
{
    thread_local const QRegularExpression re(QStringLiteral("time=(\\d{2,}):(\\d{2}):(\\d{2}\\.\\d{2})"));
    return re;
}

const QRegularExpression& speedPattern()
{
    thread_local const QRegularExpression re(QStringLiteral("speed=\\s*(\\d+(?:\\.\\d+)?)x"));
    return re;
}

const QRegularExpression& bitratePattern()
{
    thread_local const QRegularExpression re(QStringLiteral("bitrate=\\s*(\\d+(?:\\.\\d+)?)kbits/s"));
    return re;
}

const QRegularExpression& fpsPattern()
{
    thread_local const QRegularExpression re(QStringLiteral("fps=\\s*(\\d+(?:\\.\\d+)?)"));
    return re;
}

const QRegularExpression& lineBreak()
{
    thread_local const QRegularExpression re(QStringLiteral("[\\r\\n]"));
    return re;
}

double capturedNumber(const QRegularExpression& re, const QString& line)
{
    const auto m = re.match(line);
    return m.hasMatch() ? m.captured(1).toDouble() : 0.0;
}

QString fixed(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
}

QString seconds(std::chrono::milliseconds ms)
{
    return QString::number(static_cast<double>(ms.count()) / 1000.0);
}

// What one run has seen on stderr so far. Lives on the caller's thread only.
class StderrMonitor {
public:
    StderrMonitor(std::optional<double> totalDuration, const FFmpegWrapper::ProgressHandler& progress,
                  const QElapsedTimer& clock)
        : total_(totalDuration), progress_(progress), clock_(clock)
    {
    }

    void consume(const QByteArray& chunk)
    {
        if (chunk.isEmpty())
            return;
        lastOutputMs = clock_.elapsed();
        buffer.append(chunk);
        partial_.append(chunk);
        qsizetype start = 0;
        for (qsizetype i = 0; i < partial_.size(); ++i) {
            const char c = partial_.at(i);
            if (c == '\n' || c == '\r') {
                if (i > start)
                    handleLine(partial_.mid(start, i - start));
                start = i + 1;
            }
        }
        partial_.remove(0, start);
        if (partial_.size() > kPartialLineLimit)
            flush();
    }

    void flush()
    {
        if (!partial_.isEmpty())
            handleLine(partial_);
        partial_.clear();
    }

    BoundedOutputBuffer buffer{FFmpegWrapper::kStderrLimit, kStderrHead};
    int decodeErrorCount = 0;
    qint64 lastOutputMs = 0;
    qint64 lastProgressMs = 0;
    double lastFps = 0;

private:
    void handleLine(const QByteArray& bytes)
    {
        const QString line = QString::fromUtf8(bytes);
        // ffmpeg 6 and later say "Error submitting packet to decoder"; the
        // 5.x series reports the same failed decode as "Error while decoding
        // stream #0:0: ...".
        if (line.contains(QLatin1String("Error submitting packet to decoder"))
            || line.contains(QLatin1String("Error while decoding stream")))
            ++decodeErrorCount;
        if (line.contains(QLatin1String("Error")) || line.contains(QLatin1String("Warning"))) {
            if (loggedLines_ < kLoggedLineLimit)
                Log::write(QStringLiteral("[FFmpeg] ") + line.trimmed());
            else if (loggedLines_ == kLoggedLineLimit)
                Log::write(QStringLiteral("[FFmpeg] (further error and warning lines of this run are not logged)"));
            ++loggedLines_;
        }
        parseProgress(line);
    }

    void parseProgress(const QString& line)
    {
        const auto m = timePattern().match(line);
        if (!m.hasMatch())
            return;
        const double time = m.captured(1).toDouble() * 3600 + m.captured(2).toDouble() * 60 + m.captured(3).toDouble();
        if (time != lastTime_) {
            lastTime_ = time;
            lastProgressMs = clock_.elapsed();
        }
        lastFps = capturedNumber(fpsPattern(), line);
        if (!total_ || *total_ <= 0)
            return;
        const double fraction = std::clamp(time / *total_, 0.0, 1.0);
        const double speed = capturedNumber(speedPattern(), line);
        const double bitrate = capturedNumber(bitratePattern(), line);
        Log::write(QStringLiteral("[FFmpeg] Progress: ") + fixed(fraction * 100, 0) + QStringLiteral("% time=")
                   + fixed(time, 1) + QStringLiteral("s/") + fixed(*total_, 1) + QStringLiteral("s speed=")
                   + fixed(speed, 1) + QStringLiteral("x bitrate=") + fixed(bitrate, 0) + QStringLiteral("kbps"));
        if (progress_)
            progress_(fraction);
    }

    std::optional<double> total_;
    const FFmpegWrapper::ProgressHandler& progress_;
    const QElapsedTimer& clock_;
    QByteArray partial_;
    double lastTime_ = -1;
    int loggedLines_ = 0;
};

bool hasConcatInput(const QStringList& arguments)
{
    for (qsizetype i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("-f") && arguments[i + 1] == QLatin1String("concat"))
            return true;
    }
    return false;
}

// The name of the input that ffmpeg could not read, from its stderr.
std::optional<QString> corruptInputName(const QStringList& arguments, const QString& stderrText)
{
    const QStringList lines = stderrText.split(lineBreak(), Qt::SkipEmptyParts);
    static const QString marker = QStringLiteral("Error opening input file ");
    for (const QString& line : lines) {
        const qsizetype at = line.indexOf(marker);
        if (at < 0)
            continue;
        QString path = line.mid(at + marker.size()).trimmed();
        if (path.endsWith(u'.'))
            path.chop(1);
        path = path.trimmed();
        if (path.isEmpty())
            return std::nullopt;
        return QFileInfo(path).fileName();
    }
    // ffmpeg before 6.0 names the input as "<path>: Invalid data found when
    // processing input"; accept that form only for a path given with -i.
    for (qsizetype i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] != QLatin1String("-i"))
            continue;
        const QString expected = arguments[i + 1] + QStringLiteral(": Invalid data found when processing input");
        for (const QString& line : lines) {
            if (line.trimmed() == expected)
                return QFileInfo(arguments[i + 1]).fileName();
        }
    }
    return std::nullopt;
}

QString expectedToolPath(const BinaryResolver& resolver, const QString& tool)
{
    const QString name = tool + BinaryResolver::architectureSuffix(BinaryResolver::currentArchitecture());
    if (resolver.toolsDirectories().isEmpty())
        return name;
    return QDir(resolver.toolsDirectories().first()).filePath(name);
}

} // namespace

FFmpegWrapper::FFmpegWrapper() : FFmpegWrapper(Options{}) {}

FFmpegWrapper::FFmpegWrapper(Options options) : options_(std::move(options))
{
    architecture_ = BinaryResolver::currentArchitecture();
    const BinaryResolver resolver;
    if (options_.ffmpegPath)
        ffmpegPath_ = *options_.ffmpegPath;
    else
        ffmpegPath_ = resolver.find(QStringLiteral("ffmpeg")).value_or(expectedToolPath(resolver, QStringLiteral("ffmpeg")));
    ffprobePath_ = resolver.find(QStringLiteral("ffprobe")).value_or(expectedToolPath(resolver, QStringLiteral("ffprobe")));
}

QString FFmpegWrapper::ffmpegPath() const
{
    std::lock_guard lock(pathMutex_);
    return ffmpegPath_;
}

void FFmpegWrapper::setFFmpegPath(const QString& path) const
{
    std::lock_guard lock(pathMutex_);
    ffmpegPath_ = path;
}

QStringList FFmpegWrapper::pathArguments(const QStringList& arguments)
{
    QStringList paths;
    for (qsizetype i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == QLatin1String("-i"))
            paths << arguments[i + 1];
    }
    if (arguments.size() >= 2 && arguments[arguments.size() - 2] == QLatin1String("-i"))
        return paths; // the last argument is an input, already listed
    if (!arguments.isEmpty()) {
        const QString& last = arguments.last();
        if (last != QLatin1String("-") && !last.startsWith(QLatin1String("pipe:")))
            paths << last;
    }
    return paths;
}

FFmpegResult FFmpegWrapper::run(const QStringList& arguments, std::optional<double> totalDuration,
                                const CancellationToken& token, const ProgressHandler& progress,
                                std::optional<double> stallLimitSeconds) const
{
    const QString path = ffmpegPath();
    if (!QFileInfo::exists(path))
        throw FFmpegWrapperError::binaryNotFound(path);
    PathValidator::validateAll(pathArguments(arguments));

    FFmpegResult result;
    const QString cancelledText = L10n::text("error.ffmpeg.cancelled", "Cancelled by user");
    if (token.isCancelled()) {
        Log::write(QStringLiteral("[FFmpeg] Cancelled before launch"));
        result.end = FFmpegResult::End::cancelled;
        result.error = cancelledText;
        return result;
    }

    WatchedProcess process(QStringLiteral("ffmpeg"), arguments, WatchedProcess::StandardOutput::discard,
                           QStringLiteral("FFmpeg"));
    Log::write(QStringLiteral("[FFmpeg] Binary: ") + path);
    Log::write(QStringLiteral("[FFmpeg] Args count: ") + QString::number(arguments.size()));
    Log::write(QStringLiteral("[FFmpeg] totalDuration: ") + fixed(totalDuration.value_or(0.0), 2));

    const QString running = process.launch(path);
    if (running != path) {
        setFFmpegPath(running);
        Log::write(QStringLiteral("[FFmpeg] Binary: ") + running);
    }
    // Wall time, last output and last progress all count from the launch.
    QElapsedTimer clock;
    clock.start();
    const qint64 pid = process.pid();
    StderrMonitor monitor(totalDuration, progress, clock);

    const qint64 silenceMs = options_.silenceLimit.count();
    const qint64 corruptMs = options_.corruptStreamLimit.count();
    const qint64 killGraceMs = options_.killGrace.count();
    const qint64 stallMs = stallLimitSeconds && *stallLimitSeconds > 0
        ? static_cast<qint64>(*stallLimitSeconds * 1000.0)
        : 0;
    const int pollMs = static_cast<int>(std::max<qint64>(1, options_.pollInterval.count()));

    bool wasCancelled = false;
    bool timedOut = false;
    bool corruptStreamKilled = false;
    bool stalled = false;
    bool signalledByUs = false;
    bool killSent = false;
    qint64 terminateSentAt = -1;

    for (;;) {
        const bool ended = process.waitForFinished(pollMs);
        monitor.consume(process.readStandardError());
        if (ended)
            break;
        const qint64 now = clock.elapsed();

        // Cancel: SIGTERM now, SIGKILL when the child outlasts the grace period.
        if (!wasCancelled && (token.isCancelled() || process.terminationRequested())) {
            wasCancelled = true;
            Log::write(QStringLiteral("[FFmpeg] Cancel requested — sending SIGTERM to PID=") + QString::number(pid));
            if (terminateSentAt < 0) {
                process.terminate();
                terminateSentAt = now;
            }
            signalledByUs = true;
        }
        if (terminateSentAt >= 0) {
            // Once this layer is ending the child the watchdogs stand down.
            if (!killSent && now - terminateSentAt > killGraceMs) {
                Log::write(QStringLiteral("[FFmpeg] PID=%1 still running %2s after SIGTERM — sending SIGKILL")
                               .arg(pid)
                               .arg(seconds(options_.killGrace)));
                process.kill();
                killSent = true;
            }
            continue;
        }

        const qint64 sinceOutput = now - monitor.lastOutputMs;
        const qint64 sinceProgress = now - monitor.lastProgressMs;
        if (sinceOutput >= silenceMs) {
            Log::write(QStringLiteral("[FFmpeg] TIMEOUT: No output for ") + seconds(options_.silenceLimit)
                       + QStringLiteral("s — killing stuck process PID=") + QString::number(pid));
            timedOut = true;
        } else if (monitor.decodeErrorCount >= kCorruptStreamErrorThreshold && sinceProgress >= corruptMs) {
            Log::write(QStringLiteral("[FFmpeg] CORRUPT STREAM: ") + QString::number(monitor.decodeErrorCount)
                       + QStringLiteral(" decode errors with no progress after ")
                       + fixed(static_cast<double>(sinceProgress) / 1000.0, 2) + QStringLiteral("s — killing PID=")
                       + QString::number(pid));
            corruptStreamKilled = true;
        } else if (stallMs > 0 && sinceProgress >= stallMs && sinceOutput < stallMs) {
            Log::write(QStringLiteral("[FFmpeg] STALL: no progress for ")
                       + fixed(static_cast<double>(sinceProgress) / 1000.0, 1) + QStringLiteral("s — killing PID=")
                       + QString::number(pid));
            stalled = true;
        }
        if (timedOut || corruptStreamKilled || stalled) {
            process.terminate();
            terminateSentAt = now;
            signalledByUs = true;
        }
    }
    monitor.consume(process.readStandardError());
    monitor.flush();

    const bool exited = process.exitedNormally();
    const int status = process.terminationStatus();
    // ffmpeg 5.x exits 0 even when writing the output's trailer failed on a
    // full disk; such a file is truncated and must not count as a success.
    const bool diskFull = monitor.buffer.contents().contains("No space left on device");
    if (exited && status == 0 && diskFull)
        Log::write(QStringLiteral("[FFmpeg] Exit 0 but the output could not be written (No space left on device)"));
    const bool cleanExit = exited && status == 0 && !diskFull;
    if (process.terminationRequested()) {
        // The reaper (program exit, SIGINT/SIGTERM) stopped it: a cancellation.
        signalledByUs = true;
        if (!cleanExit)
            wasCancelled = true;
    }
    // A cancel that reached the child before this layer saw the token (a
    // terminal's Ctrl-C goes to the whole process group) is still a cancel.
    if (!cleanExit && !wasCancelled && token.isCancelled())
        wasCancelled = true;

    result.duration = static_cast<double>(clock.nsecsElapsed()) / 1e9;
    result.stderr = QString::fromUtf8(monitor.buffer.contents());
    result.decodeErrorCount = monitor.decodeErrorCount;
    result.corruptStreamKilled = corruptStreamKilled;
    result.terminationStatus = status;

    Log::write(QStringLiteral("[FFmpeg] ") + (exited ? QStringLiteral("EXIT") : QStringLiteral("SIGNAL"))
               + QStringLiteral(" exitCode=") + QString::number(status) + QStringLiteral(" duration=")
               + fixed(result.duration, 2) + QStringLiteral("s wasCancelled=")
               + (wasCancelled ? QStringLiteral("true") : QStringLiteral("false")));
    if (!exited && !signalledByUs)
        Log::write(QStringLiteral("[FFmpeg] WARNING: Process killed by external signal ") + QString::number(status)
                   + QStringLiteral(" — possible OOM/jetsam. PID=") + QString::number(pid));

    if (timedOut) {
        result.end = FFmpegResult::End::timedOut;
        result.error = L10n::text("error.ffmpeg.not_responding",
                                  "FFmpeg not responding (no output for 5 min). The audio engine may be blocked by "
                                  "system security or a corrupted installation.");
    } else if (corruptStreamKilled) {
        result.end = FFmpegResult::End::corruptStream;
        result.error = L10n::text("error.ffmpeg.corrupt_stream",
                                  "The audio stream couldn't be decoded. The file is damaged or improperly "
                                  "converted and cannot be exported.");
    } else if (stalled) {
        result.end = FFmpegResult::End::stalled;
        result.error = FFmpegWrapperError::stalled(*stallLimitSeconds).description();
    } else if (wasCancelled) {
        result.end = FFmpegResult::End::cancelled;
        result.error = cancelledText;
    } else if (cleanExit) {
        result.end = FFmpegResult::End::succeeded;
        const QString output = arguments.isEmpty() ? QString() : arguments.last();
        if (!output.isEmpty() && output != QLatin1String("-") && !output.startsWith(QLatin1String("pipe:")))
            result.outputURL = output;
        Log::write(QStringLiteral("[FFmpeg] Completed: ") + result.outputURL.value_or(QStringLiteral("-"))
                   + QStringLiteral(" in ") + fixed(result.duration, 2) + QStringLiteral("s"));
    } else {
        result.end = diskFull ? FFmpegResult::End::outOfSpace : FFmpegResult::End::failed;
        result.error = describeFailure(arguments, status, result.stderr);
    }

    if (!result.succeeded())
        Log::write(QStringLiteral("[FFmpeg] FAILED stderr (last 1000 chars): ") + result.stderr.right(1000));
    return result;
}

QString FFmpegWrapper::inspect(const QString& path) const
{
    PathValidator::validate(path);
    const QString binary = ffmpegPath();
    if (!QFileInfo::exists(binary))
        throw FFmpegWrapperError::binaryNotFound(binary);

    const QString name = QFileInfo(path).fileName();
    WatchedProcess process(QStringLiteral("ffmpeg"), {QStringLiteral("-nostdin"), QStringLiteral("-i"), path},
                           WatchedProcess::StandardOutput::discard, QStringLiteral("Inspect"));
    const QString running = process.launch(binary);
    if (running != binary)
        setFFmpegPath(running);
    QElapsedTimer clock;
    clock.start();
    BoundedOutputBuffer output(kInspectLimit, kInspectLimit / 2);
    const int pollMs = static_cast<int>(std::max<qint64>(1, options_.pollInterval.count()));
    for (;;) {
        const bool ended = process.waitForFinished(pollMs);
        output.append(process.readStandardError());
        if (ended)
            break;
        if (process.terminationRequested()) {
            process.stop(options_.killGrace);
            break;
        }
        if (clock.elapsed() >= options_.inspectTimeout.count()) {
            Log::write(QStringLiteral("[Inspect] TIMEOUT: ffmpeg -i hung for ") + seconds(options_.inspectTimeout)
                       + QStringLiteral("s on ") + name);
            // A hung inspection has nothing worth a graceful end.
            process.kill();
            process.waitForFinished(-1);
            throw FFmpegWrapperError::inspectionTimedOut(name);
        }
    }
    output.append(process.readStandardError());
    return QString::fromUtf8(output.contents());
}

QString FFmpegWrapper::diagnosticText(int terminationStatus, const QString& stderrText)
{
    static const char* const kKeywords[] = {"Error",  "Invalid", "failed",    "Cannot",   "Unable",
                                            "No such", "Permission denied", "not found", "Discarding"};
    QStringList kept;
    QSet<QString> seen;
    int more = 0;
    const QStringList lines = stderrText.split(lineBreak(), Qt::SkipEmptyParts);
    for (const QString& raw : lines) {
        const QString line = raw.trimmed();
        const bool matches = std::any_of(std::begin(kKeywords), std::end(kKeywords), [&line](const char* k) {
            return line.contains(QLatin1String(k), Qt::CaseInsensitive);
        });
        if (!matches || seen.contains(line))
            continue;
        seen.insert(line);
        // A corrupt stream repeats its errors thousands of times; the text
        // for a person keeps each line once and stops after a screenful.
        if (kept.size() < kDiagnosticLineLimit)
            kept << line;
        else
            ++more;
    }
    if (more > 0)
        kept << L10n::format(L10n::text("error.ffmpeg.more_lines", "(%d more lines)"), {QString::number(more)});
    const QString detail = kept.isEmpty() ? stderrText.trimmed() : kept.join(u'\n');
    return L10n::text("error.ffmpeg.exit_code", "FFmpeg exit code: ") + QString::number(terminationStatus)
        + QStringLiteral("\n\n") + detail;
}

QString FFmpegWrapper::describeFailure(const QStringList& arguments, int terminationStatus,
                                       const QString& stderrText)
{
    const QString diagnostic = diagnosticText(terminationStatus, stderrText);
    if (terminationStatus == 234 && arguments.size() > 2 && !hasConcatInput(arguments)) {
        return L10n::text("error.ffmpeg.drm_protected",
                          "This file appears to be DRM-protected (e.g., purchased from Audible or iTunes with copy "
                          "protection).\n\nFolivox cannot process DRM-protected files. You may need to use the "
                          "original service's app to download an unprotected version.")
            + QStringLiteral("\n\n") + diagnostic;
    }
    if (stderrText.contains(QLatin1String("Invalid data found when processing input"))) {
        if (const auto name = corruptInputName(arguments, stderrText)) {
            return L10n::format(L10n::text("error.ffmpeg.corrupt_input_file",
                                           "The file \"%@\" appears to be corrupt or is not a valid audio "
                                           "file.\n\nPlease replace or re-download this file and try again."),
                                {*name})
                + QStringLiteral("\n\n") + diagnostic;
        }
    }
    return diagnostic;
}

} // namespace folivox
