#pragma once

#include "export/engine/ExportFailureContext.h"
#include "platform/Error.h"

#include <QString>

#include <optional>

namespace folivox {

// Failures of the segment encoder (FFmpegAudioEncoder). A failed job carries
// the failure context of its chapter and files so that the driver can name
// the file.
class FFmpegEncoderError : public Error {
public:
    enum class Kind {
        invalidPath,
        executionFailed,
        executionFailedWithDiagnostics,
        noInputFiles,
        noSourceFormat,
        incompleteEncoding,
        unsupportedOutputFormat,
        segmentExtractionFailed,
        cancelled,
    };

    // "Invalid file path: " and the path.
    static FFmpegEncoderError invalidPath(const QString& path);
    // The job's text, or "FFmpeg encoding failed" when it has none.
    static FFmpegEncoderError executionFailed(const QString& message);
    // The message; the counts feed ExportFailureContext.
    static FFmpegEncoderError executionFailedWithDiagnostics(const QString& message, int decodeErrorCount,
                                                             bool corruptStreamKilled);
    // "Chapter N has no input files".
    static FFmpegEncoderError noInputFiles(int chapterIndex);
    // "No source format for " and the name.
    static FFmpegEncoderError noSourceFormat(const QString& filename);
    // "Not all chapters were encoded successfully (expected E, got A)".
    static FFmpegEncoderError incompleteEncoding(int expected, int actual);
    // "Unsupported output format: " and the name.
    static FFmpegEncoderError unsupportedOutputFormat(const QString& format);
    // "Cross-file segment extraction failed: " and the detail.
    static FFmpegEncoderError segmentExtractionFailed(const QString& detail);
    // "Encoding cancelled by user".
    static FFmpegEncoderError cancelled();

    Kind kind() const { return kind_; }
    const QString& detail() const { return detail_; }
    int decodeErrorCount() const { return decodeErrorCount_; }
    bool corruptStreamKilled() const { return corruptStreamKilled_; }
    int expected() const { return expected_; }
    int actual() const { return actual_; }

    const std::optional<ExportFailureContext>& failureContext() const { return failureContext_; }
    FFmpegEncoderError& withFailureContext(ExportFailureContext context);

    QString description() const override;

private:
    FFmpegEncoderError(Kind kind, QString detail) : kind_(kind), detail_(std::move(detail)) {}

    Kind kind_;
    QString detail_;
    int decodeErrorCount_ = 0;
    bool corruptStreamKilled_ = false;
    int expected_ = 0;
    int actual_ = 0;
    std::optional<ExportFailureContext> failureContext_;
};

} // namespace folivox
