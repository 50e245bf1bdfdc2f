#include "process/FFmpegWrapperError.h"

#include "platform/L10n.h"

namespace folivox {

FFmpegWrapperError::FFmpegWrapperError(Kind kind, QString detail, double seconds)
    : kind_(kind), detail_(std::move(detail)), seconds_(seconds)
{
}

FFmpegWrapperError FFmpegWrapperError::binaryNotFound(const QString& path)
{
    FFmpegWrapperError e(Kind::binaryNotFound, path, 0);
    e.setCause(Cause::missingTool);
    return e;
}

FFmpegWrapperError FFmpegWrapperError::invalidPath(const QString& message)
{
    return FFmpegWrapperError(Kind::invalidPath, message, 0);
}

FFmpegWrapperError FFmpegWrapperError::stalled(double seconds)
{
    return FFmpegWrapperError(Kind::stalled, QString(), seconds);
}

FFmpegWrapperError FFmpegWrapperError::inspectionTimedOut(const QString& fileName)
{
    return FFmpegWrapperError(Kind::inspectionTimedOut, fileName, 0);
}

QString FFmpegWrapperError::description() const
{
    switch (kind_) {
    case Kind::binaryNotFound:
        return L10n::text("error.ffmpeg.binary_not_found", "FFmpeg binary not found at: ") + detail_;
    case Kind::invalidPath:
        return L10n::text("error.ffmpeg.invalid_path", "Invalid path: ") + detail_;
    case Kind::stalled:
        return L10n::format(L10n::text("error.ffmpeg.stalled", "FFmpeg made no progress for %@ s and was stopped."),
                            {QString::number(seconds_)});
    case Kind::inspectionTimedOut:
        return L10n::text("error.ffmpeg.inspect_timeout", "FFmpeg inspection timed out for ") + detail_;
    }
    return {};
}

} // namespace folivox
