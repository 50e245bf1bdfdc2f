#include "import/probe/VideoAudioExtractor.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/InspectionError.h"
#include "import/probe/LibavAudioInspector.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"

#include <QFileInfo>

namespace folivox {

bool VideoAudioExtractor::isVideoPath(const QString& path)
{
    static const QStringList kVideo{QStringLiteral("mp4"), QStringLiteral("m4v"), QStringLiteral("mov"),
                                    QStringLiteral("mkv"), QStringLiteral("webm"), QStringLiteral("avi")};
    return kVideo.contains(QFileInfo(path).suffix().toLower());
}

VideoAudioExtractor::VideoAudioExtractor(std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : ffmpeg_(std::move(ffmpeg))
{
}

VideoAudioExtractor::Extraction VideoAudioExtractor::extract(const QString& videoPath, const CancellationToken& token,
                                                             const std::function<void(double)>& progress) const
{
    Extraction result;
    const QFileInfo source(videoPath);
    MediaProbe probe;
    try {
        probe = LibavAudioInspector().probe(videoPath);
    } catch (const InspectionError& e) {
        result.error = e.description();
        return result;
    }

    QString extension = QStringLiteral("flac");
    QStringList codecArgs{QStringLiteral("-c:a"), QStringLiteral("flac")};
    if (probe.codecName == u"aac") {
        extension = QStringLiteral("m4a");
        codecArgs = {QStringLiteral("-c:a"), QStringLiteral("copy")};
    } else if (probe.codecName == u"mp3") {
        extension = QStringLiteral("mp3");
        codecArgs = {QStringLiteral("-c:a"), QStringLiteral("copy")};
    }

    WorkDirectory folder;
    const QString output = folder.filePath(source.completeBaseName() + u'.' + extension);
    QStringList args{QStringLiteral("-y"), QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-stats"),
                     QStringLiteral("-i"), videoPath, QStringLiteral("-map"), QStringLiteral("0:a:0"),
                     QStringLiteral("-vn"), QStringLiteral("-map_metadata"), QStringLiteral("0"),
                     QStringLiteral("-map_chapters"), QStringLiteral("0")};
    args << codecArgs << output;
    Log::write(QStringLiteral("[Import] Extracting audio from ") + source.fileName() + QStringLiteral(" (")
               + probe.codecName + QStringLiteral(" → ") + extension + QStringLiteral(")"));
    FFmpegResult run;
    try {
        run = ffmpeg_->run(args, probe.duration > 0 ? std::optional<double>(probe.duration) : std::nullopt, token,
                           progress);
    } catch (const std::exception& e) {
        result.error = QString::fromUtf8(e.what());
        return result;
    }
    if (!run.succeeded() || !QFileInfo(output).isFile() || QFileInfo(output).size() == 0) {
        result.error = run.error.value_or(QStringLiteral("ffmpeg produced no audio"));
        return result;  // the folder and anything half-written go with it
    }
    folder.release();  // the book refers to the extracted file from now on
    result.audioPath = output;
    return result;
}

} // namespace folivox
