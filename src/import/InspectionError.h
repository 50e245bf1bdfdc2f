#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Why the in-process inspector could not describe a file's audio. The texts
// name the file by its last path component.
class InspectionError : public Error {
public:
    enum class Kind {
        timeout,
        noAudioTrack,
        noFormatDescription,
        noStreamDescription,
        invalidDuration,
        invalidSampleRate,
        invalidChannelCount,
    };

    static InspectionError timeout(const QString& filename, double seconds);
    static InspectionError noAudioTrack(const QString& filename);
    static InspectionError noFormatDescription(const QString& filename);
    static InspectionError noStreamDescription(const QString& filename);
    static InspectionError invalidDuration(const QString& filename, double duration);
    static InspectionError invalidSampleRate(const QString& filename, double sampleRate);
    static InspectionError invalidChannelCount(const QString& filename, int channels);

    Kind kind() const { return kind_; }
    const QString& filename() const { return filename_; }
    double value() const { return value_; }
    QString description() const override;

private:
    InspectionError(Kind kind, QString filename, double value)
        : kind_(kind), filename_(std::move(filename)), value_(value) {}

    Kind kind_;
    QString filename_;
    double value_;
};

} // namespace folivox
