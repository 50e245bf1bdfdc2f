#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Failures of an ffmpeg run that happen before the child starts (or, for an
// inspection, instead of its result).
class FFmpegWrapperError : public Error {
public:
    enum class Kind {
        binaryNotFound,     // detail: the path that was looked for
        invalidPath,        // detail: the refusal message of the path check
        stalled,            // seconds: how long time= did not move
        inspectionTimedOut, // detail: the file name
    };

    static FFmpegWrapperError binaryNotFound(const QString& path);
    static FFmpegWrapperError invalidPath(const QString& message);
    static FFmpegWrapperError stalled(double seconds);
    static FFmpegWrapperError inspectionTimedOut(const QString& fileName);

    Kind kind() const { return kind_; }
    const QString& detail() const { return detail_; }
    double seconds() const { return seconds_; }

    QString description() const override;

private:
    FFmpegWrapperError(Kind kind, QString detail, double seconds);

    Kind kind_;
    QString detail_;
    double seconds_ = 0;
};

} // namespace folivox
