#include "export/strategies/FFmpegEncoderError.h"

namespace folivox {

FFmpegEncoderError FFmpegEncoderError::invalidPath(const QString& path)
{
    return {Kind::invalidPath, path};
}

FFmpegEncoderError FFmpegEncoderError::executionFailed(const QString& message)
{
    return {Kind::executionFailed, message};
}

FFmpegEncoderError FFmpegEncoderError::executionFailedWithDiagnostics(const QString& message, int decodeErrorCount,
                                                                      bool corruptStreamKilled)
{
    FFmpegEncoderError e(Kind::executionFailedWithDiagnostics, message);
    e.decodeErrorCount_ = decodeErrorCount;
    e.corruptStreamKilled_ = corruptStreamKilled;
    return e;
}

FFmpegEncoderError FFmpegEncoderError::noInputFiles(int chapterIndex)
{
    FFmpegEncoderError e(Kind::noInputFiles, {});
    e.expected_ = chapterIndex;
    return e;
}

FFmpegEncoderError FFmpegEncoderError::noSourceFormat(const QString& filename)
{
    return {Kind::noSourceFormat, filename};
}

FFmpegEncoderError FFmpegEncoderError::incompleteEncoding(int expected, int actual)
{
    FFmpegEncoderError e(Kind::incompleteEncoding, {});
    e.expected_ = expected;
    e.actual_ = actual;
    return e;
}

FFmpegEncoderError FFmpegEncoderError::unsupportedOutputFormat(const QString& format)
{
    return {Kind::unsupportedOutputFormat, format};
}

FFmpegEncoderError FFmpegEncoderError::segmentExtractionFailed(const QString& detail)
{
    return {Kind::segmentExtractionFailed, detail};
}

FFmpegEncoderError FFmpegEncoderError::cancelled()
{
    return {Kind::cancelled, {}};
}

FFmpegEncoderError& FFmpegEncoderError::withFailureContext(ExportFailureContext context)
{
    failureContext_ = std::move(context);
    return *this;
}

QString FFmpegEncoderError::description() const
{
    switch (kind_) {
    case Kind::invalidPath: return QStringLiteral("Invalid file path: ") + detail_;
    case Kind::executionFailed:
        return detail_.isEmpty() ? QStringLiteral("FFmpeg encoding failed") : detail_;
    case Kind::executionFailedWithDiagnostics: return detail_;
    case Kind::noInputFiles: return QStringLiteral("Chapter %1 has no input files").arg(expected_);
    case Kind::noSourceFormat: return QStringLiteral("No source format for ") + detail_;
    case Kind::incompleteEncoding:
        return QStringLiteral("Not all chapters were encoded successfully (expected %1, got %2)")
            .arg(expected_)
            .arg(actual_);
    case Kind::unsupportedOutputFormat: return QStringLiteral("Unsupported output format: ") + detail_;
    case Kind::segmentExtractionFailed: return QStringLiteral("Cross-file segment extraction failed: ") + detail_;
    case Kind::cancelled: return QStringLiteral("Encoding cancelled by user");
    }
    return {};
}

} // namespace folivox
