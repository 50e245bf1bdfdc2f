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
        // The file opens, but its audio can't be read into a book:
        noDecoder,           // no audio decoder for the stream's codec (detail: the codec)
        emptyAudioTrack,     // the audio track holds no samples
        externalMedia,       // the audio track's media is in another file
        mediaOutsideFile,    // the audio's samples lie past the end of the file (value: the bytes present)
    };

    static InspectionError timeout(const QString& filename, double seconds);
    static InspectionError noAudioTrack(const QString& filename);
    static InspectionError noFormatDescription(const QString& filename);
    static InspectionError noStreamDescription(const QString& filename);
    static InspectionError invalidDuration(const QString& filename, double duration);
    static InspectionError invalidSampleRate(const QString& filename, double sampleRate);
    static InspectionError invalidChannelCount(const QString& filename, int channels);
    static InspectionError noDecoder(const QString& filename, const QString& codec);
    static InspectionError emptyAudioTrack(const QString& filename);
    static InspectionError externalMedia(const QString& filename);
    static InspectionError mediaOutsideFile(const QString& filename, double bytesPresent, double bytesNeeded);

    Kind kind() const { return kind_; }
    const QString& filename() const { return filename_; }
    double value() const { return value_; }
    const QString& detail() const { return detail_; }
    QString description() const override;

private:
    InspectionError(Kind kind, QString filename, double value, QString detail = {})
        : kind_(kind), filename_(std::move(filename)), value_(value), detail_(std::move(detail)) {}

    Kind kind_;
    QString filename_;
    double value_;
    QString detail_;
};

} // namespace folivox
