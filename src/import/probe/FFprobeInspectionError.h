#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Why `ffmpeg -i` could not describe a file's audio. Failures to run it at
// all are the tool layer's FFmpegWrapperError.
class FFprobeInspectionError : public Error {
public:
    enum class Kind {
        noAudioStream,  // payload: the file's name
    };

    FFprobeInspectionError(Kind kind, QString payload)
        : kind_(kind), payload_(std::move(payload)) {}

    Kind kind() const { return kind_; }
    const QString& payload() const { return payload_; }
    QString description() const override;

private:
    Kind kind_;
    QString payload_;
};

} // namespace folivox
