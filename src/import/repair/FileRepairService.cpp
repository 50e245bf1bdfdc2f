#include "import/repair/FileRepairService.h"

#include "container/mp3/MP3FileBytes.h"
#include "container/mp3/MP3FrameCopyWriter.h"
#include "container/mp3/MP3FrameScanner.h"
#include "process/CancellationToken.h"
#include "process/FFmpegWrapper.h"
#include "import/repair/MP3RegionRepair.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace folivox {

namespace {

constexpr auto kTag = "[FileRepairService] ";

void log(const QString& text)
{
    Log::write(QLatin1StringView(kTag) + text);
}

QString secondsText(const QElapsedTimer& clock)
{
    return QString::asprintf("%.1f", double(clock.elapsed()) / 1000.0);
}

// An MP3 read and scanned for a frame copy.
struct ScannedMp3 {
    std::unique_ptr<MP3FileBytes> bytes;
    MP3FrameScanner::Result scan;
};

// The scan of an MP3 for its frame copy. Nothing when the file has no frame
// lock (the caller re-encodes) or the scan was cancelled (`cancelled` set);
// the scan's bitrate goes to `bitrate` for a re-encode. Throws
// MP3IntegrityError.
std::optional<ScannedMp3> scanFrames(const QString& path, const CancellationToken& token, std::optional<int>& bitrate,
                                     bool& cancelled)
{
    const std::function<bool()> stop = [&token] { return token.isCancelled(); };
    auto bytes = std::make_unique<MP3FileBytes>(path, stop);
    if (bytes->cancelled() || bytes->access() == MP3FileBytes::Access::tooLarge) {
        cancelled = bytes->cancelled();
        return std::nullopt;
    }
    auto scan = MP3FrameScanner::scan(bytes->data(), bytes->size(), stop);
    if (!scan) {
        cancelled = true;
        return std::nullopt;
    }
    if (!scan->locked || scan->validFrameCount == 0)
        return std::nullopt;
    if (!bitrate && scan->bitrateKbps)
        bitrate = *scan->bitrateKbps * 1000;
    return ScannedMp3{std::move(bytes), std::move(*scan)};
}

// The frame copy of a scanned MP3 into `output`, with replacements for
// stretches that were re-encoded. Nothing when cancelled. Throws
// MP3IntegrityError.
std::optional<MP3FrameCopyWriter::Outcome> copyFrames(const ScannedMp3& mp3, const QString& output,
                                                      const CancellationToken& token,
                                                      const std::vector<MP3FrameCopyWriter::Replacement>& replacements = {})
{
    const std::function<bool()> stop = [&token] { return token.isCancelled(); };
    return MP3FrameCopyWriter::write(mp3.bytes->data(), mp3.bytes->size(), mp3.scan, output, stop, replacements);
}

// ffmpeg decodes a file to nothing, to see whether every frame decodes.
FFmpegResult decodeCheck(const QString& path, const std::shared_ptr<const FFmpegWrapper>& ffmpeg,
                         const CancellationToken& token)
{
    return ffmpeg->run({QStringLiteral("-nostdin"), QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"),
                        path, QStringLiteral("-map"), QStringLiteral("0:a:0"), QStringLiteral("-f"),
                        QStringLiteral("null"), QStringLiteral("-")},
                       std::nullopt, token);
}

bool decodesCleanly(const FFmpegResult& check)
{
    return check.succeeded() && check.decodeErrorCount == 0 && check.stderr.trimmed().isEmpty();
}

// Moves a finished copy to its destination: a rename on the same file
// system, otherwise a copy under a hidden name beside it and a rename, so the
// destination never holds a partial file.
bool moveInto(const QString& from, const QString& to, QString& error)
{
    if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return true;
    const QFileInfo dest(to);
    const QString part = dest.absolutePath() + QStringLiteral("/.") + dest.fileName() + QStringLiteral(".")
        + QUuid::createUuid().toString(QUuid::Id128).left(8) + QStringLiteral(".part");
    if (!QFile::copy(from, part)) {
        error = QStringLiteral("cannot write ") + to;
        QFile::remove(part);
        return false;
    }
    if (std::rename(QFile::encodeName(part).constData(), QFile::encodeName(to).constData()) != 0) {
        error = QStringLiteral("cannot write ") + to;
        QFile::remove(part);
        return false;
    }
    return true;
}

} // namespace

struct FileRepairService::Produced {
    Outcome outcome;
    WorkDirectory folder;
};

QString FileRepairService::methodName(Method method)
{
    switch (method) {
    case Method::frameCopy:
        return QStringLiteral("frameCopy");
    case Method::partialReencode:
        return QStringLiteral("partialReencode");
    case Method::reencode:
        break;
    }
    return QStringLiteral("reencode");
}

FileRepairService::FileRepairService(std::shared_ptr<const FFmpegWrapper> ffmpeg) : ffmpeg_(std::move(ffmpeg)) {}

std::optional<QString> FileRepairService::repair(const QString& path, std::optional<int> bitrate,
                                                 const CancellationToken& token, std::optional<double> duration,
                                                 const std::function<void(double)>& progress)
{
    const QFileInfo source(path);
    const bool mp3 = source.suffix().compare(QStringLiteral("mp3"), Qt::CaseInsensitive) == 0;
    auto produced = run(path, source.completeBaseName() + (mp3 ? QStringLiteral(".mp3") : QStringLiteral(".flac")),
                        bitrate, token, duration, progress);
    if (!produced)
        return std::nullopt;
    // The copy outlives this call: the book now refers to it.
    produced->folder.release();
    return produced->outcome.path;
}

std::optional<FileRepairService::Outcome> FileRepairService::repairTo(const QString& path, const QString& output,
                                                                      const CancellationToken& token,
                                                                      std::optional<int> bitrate,
                                                                      std::optional<double> duration,
                                                                      const std::function<void(double)>& progress)
{
    auto produced = run(path, QFileInfo(output).fileName(), bitrate, token, duration, progress);
    if (!produced)
        return std::nullopt;
    Outcome outcome = produced->outcome;
    QString error;
    if (!moveInto(outcome.path, output, error)) {
        log(QStringLiteral("❌ Repair failed for %1 after %2s: %3")
                .arg(QFileInfo(path).fileName(), QString::asprintf("%.1f", outcome.seconds), error));
        return std::nullopt;
    }
    outcome.path = output;
    return outcome;
}

std::optional<FileRepairService::Produced> FileRepairService::run(const QString& path, const QString& outputName,
                                                                  std::optional<int> bitrate,
                                                                  const CancellationToken& token,
                                                                  std::optional<double> duration,
                                                                  const std::function<void(double)>& progress)
{
    std::lock_guard lock(mutex_);
    const QFileInfo source(path);
    const QString name = source.fileName();
    if (!QFileInfo::exists(ffmpeg_->ffmpegPath())) {
        log(QStringLiteral("FFmpeg unavailable — skipping repair for ") + name);
        return std::nullopt;
    }
    std::optional<WorkDirectory> folder;
    try {
        folder.emplace();
    } catch (const std::exception& e) {
        log(QStringLiteral("Failed to create repair dir: ") + QString::fromUtf8(e.what()));
        return std::nullopt;
    }

    QElapsedTimer clock;
    clock.start();
    const QString output = folder->filePath(outputName);
    const bool mp3Out = outputName.endsWith(QStringLiteral(".mp3"), Qt::CaseInsensitive);
    Outcome outcome;
    outcome.path = output;
    std::optional<qint64> exactBytes;
    try {
        bool copied = false;
        if (mp3Out) {
            bool cancelled = false;
            const auto mp3 = scanFrames(path, token, bitrate, cancelled);
            const auto stopped = [&] {
                if (!cancelled && !token.isCancelled())
                    return false;
                log(QStringLiteral("Repair of ") + name + QStringLiteral(" cancelled"));
                return true;
            };
            if (stopped())
                return std::nullopt;
            std::optional<MP3FrameCopyWriter::Outcome> frames;
            if (mp3) {
                log(QStringLiteral("Frame copy of %1: %2 frames kept, %3 holes and %4 trailing bytes left out")
                        .arg(name)
                        .arg(mp3->scan.validFrameCount)
                        .arg(mp3->scan.holes.size())
                        .arg(mp3->scan.trailingBytes));
                frames = copyFrames(*mp3, output, token);
                cancelled = !frames;
            }
            if (stopped())
                return std::nullopt;
            if (frames) {
                // One decode of the copy: frames that pass the header walk can
                // still hold data the decoder rejects.
                const FFmpegResult check = decodeCheck(output, ffmpeg_, token);
                if (stopped())
                    return std::nullopt;
                if (decodesCleanly(check)) {
                    copied = true;
                    exactBytes = frames->bytes;
                    outcome.method = Method::frameCopy;
                } else {
                    log(QStringLiteral("%1 decode errors in the copied frames of %2 — re-encoding only the "
                                       "stretches where they lie")
                            .arg(check.decodeErrorCount)
                            .arg(name));
                    QFile::remove(output);
                    const WorkDirectory scratch;
                    MP3RegionRepair regional(mp3->bytes->data(), mp3->scan, *ffmpeg_, scratch.path(), token, progress);
                    const auto plan = regional.run();
                    if (stopped())
                        return std::nullopt;
                    if (plan) {
                        for (const MP3ReencodedRegion& r : plan->regions)
                            log(QStringLiteral("Re-encoded frames %1–%2 of %3 (%4 s at %5 s; %6 did not decode)")
                                    .arg(r.firstFrame)
                                    .arg(r.firstFrame + r.frameCount - 1)
                                    .arg(name)
                                    .arg(r.duration, 0, 'f', 3)
                                    .arg(r.startTime, 0, 'f', 3)
                                    .arg(r.undecodableFrames));
                        frames = copyFrames(*mp3, output, token, plan->replacements);
                        cancelled = !frames;
                        if (stopped())
                            return std::nullopt;
                        const FFmpegResult again = decodeCheck(output, ffmpeg_, token);
                        if (stopped())
                            return std::nullopt;
                        if (decodesCleanly(again)) {
                            copied = true;
                            exactBytes = frames->bytes;
                            outcome.method = Method::partialReencode;
                            outcome.regions = plan->regions;
                        } else {
                            log(QStringLiteral("%1 decode errors remain in the spliced copy of %2 — re-encoding the "
                                               "whole file instead")
                                    .arg(again.decodeErrorCount)
                                    .arg(name));
                            QFile::remove(output);
                        }
                    } else {
                        log(QStringLiteral("Stretches of %1 could not be re-encoded alone (%2) — re-encoding the "
                                           "whole file instead")
                                .arg(name, regional.why()));
                    }
                }
            }
        }
        if (!copied) {
            outcome.method = Method::reencode;
            QStringList args{QStringLiteral("-y"), QStringLiteral("-v"), QStringLiteral("error"),
                             QStringLiteral("-err_detect"), QStringLiteral("ignore_err"), QStringLiteral("-i"), path,
                             QStringLiteral("-map"), QStringLiteral("0:a:0"), QStringLiteral("-map_metadata"),
                             QStringLiteral("0"), QStringLiteral("-vn")};
            if (mp3Out) {
                const int kbps = std::clamp(bitrate.value_or(128000) / 1000, 32, 320);
                args << QStringLiteral("-c:a") << QStringLiteral("libmp3lame") << QStringLiteral("-b:a")
                     << QStringLiteral("%1k").arg(kbps) << QStringLiteral("-id3v2_version") << QStringLiteral("3");
            } else {
                args << QStringLiteral("-c:a") << QStringLiteral("flac");
            }
            args << output;
            const FFmpegResult result = ffmpeg_->run(args, duration, token, progress);
            if (!result.succeeded()) {
                log(QStringLiteral("❌ Repair failed for %1 after %2s: %3")
                        .arg(name, secondsText(clock), result.error.value_or(QString())));
                return std::nullopt;
            }
        }
    } catch (const std::exception& e) {
        log(QStringLiteral("execute threw: ") + QString::fromUtf8(e.what()));
        return std::nullopt;
    }

    const QFileInfo out(output);
    if (!out.exists()) {
        log(QStringLiteral("❌ Repair reported success but output missing: ") + output);
        return std::nullopt;
    }
    const auto size = static_cast<unsigned long long>(out.size());
    if (out.size() < kMinimumOutputBytes || (exactBytes && out.size() != *exactBytes)) {
        log(QStringLiteral("❌ Repair output too small (%1 bytes) for ").arg(size) + name);
        return std::nullopt;
    }
    outcome.bytes = out.size();
    outcome.seconds = double(clock.elapsed()) / 1000.0;
    log(QStringLiteral("✅ Repaired ") + name + QStringLiteral(" → ") + QString::number(size) + QStringLiteral(" bytes in ")
        + secondsText(clock) + QStringLiteral("s"));
    if (progress)
        progress(1.0);
    return Produced{outcome, std::move(*folder)};
}

} // namespace folivox
