#include "import/FileRepairService.h"

#include "export/CancellationToken.h"
#include "export/FFmpegWrapper.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

namespace folivox {

FileRepairService::FileRepairService(std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : ffmpeg_(std::move(ffmpeg))
{
}

std::optional<QString> FileRepairService::repair(const QString& path, std::optional<int> bitrate,
                                                 const CancellationToken& token, std::optional<double> duration,
                                                 const std::function<void(double)>& progress)
{
    std::lock_guard lock(mutex_);
    const QFileInfo source(path);
    const QString name = source.fileName();
    if (!QFileInfo::exists(ffmpeg_->ffmpegPath())) {
        Log::write(QStringLiteral("[FileRepairService] FFmpeg unavailable — skipping repair for ") + name);
        return std::nullopt;
    }

    std::optional<WorkDirectory> folder;
    try {
        folder.emplace();
    } catch (const std::exception& e) {
        Log::write(QStringLiteral("[FileRepairService] Failed to create repair dir: ") + QString::fromUtf8(e.what()));
        return std::nullopt;
    }

    const bool mp3 = source.suffix().compare(QStringLiteral("mp3"), Qt::CaseInsensitive) == 0;
    const QString output = folder->filePath(source.completeBaseName() + (mp3 ? QStringLiteral(".mp3")
                                                                              : QStringLiteral(".flac")));
    QStringList args{QStringLiteral("-y"), QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-err_detect"),
                     QStringLiteral("ignore_err"), QStringLiteral("-i"), path, QStringLiteral("-map"),
                     QStringLiteral("0:a:0"), QStringLiteral("-map_metadata"), QStringLiteral("0"),
                     QStringLiteral("-vn")};
    if (mp3) {
        const int kbps = std::clamp(bitrate.value_or(128000) / 1000, 32, 320);
        args << QStringLiteral("-c:a") << QStringLiteral("libmp3lame") << QStringLiteral("-b:a")
             << QStringLiteral("%1k").arg(kbps) << QStringLiteral("-id3v2_version") << QStringLiteral("3");
    } else {
        args << QStringLiteral("-c:a") << QStringLiteral("flac");
    }
    args << output;

    QElapsedTimer clock;
    clock.start();
    FFmpegResult run;
    try {
        run = ffmpeg_->run(args, duration, token, progress);
    } catch (const std::exception& e) {
        Log::write(QStringLiteral("[FileRepairService] ❌ Repair of ") + name + QStringLiteral(" could not start: ")
                   + QString::fromUtf8(e.what()));
        return std::nullopt;
    }
    if (!run.success) {
        Log::write(QStringLiteral("[FileRepairService] ❌ Repair failed for ") + name + QStringLiteral(": ")
                   + run.error.value_or(QString()));
        return std::nullopt;
    }
    const QFileInfo out(output);
    if (!out.exists()) {
        Log::write(QStringLiteral("[FileRepairService] ❌ Repair reported success but output missing: ") + output);
        return std::nullopt;
    }
    const auto size = static_cast<unsigned long long>(out.size());
    if (out.size() < kMinimumOutputBytes) {
        Log::write(QStringLiteral("[FileRepairService] ❌ Repair output too small (%1 bytes) for ").arg(size) + name);
        return std::nullopt;
    }
    Log::write(QStringLiteral("[FileRepairService] ✅ Repaired ") + name + QStringLiteral(" → ")
               + QString::number(size) + QStringLiteral(" bytes in ")
               + QString::asprintf("%.1f", static_cast<double>(clock.elapsed()) / 1000.0) + QStringLiteral("s"));
    // The repaired copy outlives this call: the book now refers to it.
    folder->release();
    return output;
}

} // namespace folivox
