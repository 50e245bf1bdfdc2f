#include "import/probe/InspectionError.h"

namespace folivox {

InspectionError InspectionError::timeout(const QString& filename, double seconds)
{
    return InspectionError(Kind::timeout, filename, seconds);
}

InspectionError InspectionError::noAudioTrack(const QString& filename)
{
    return InspectionError(Kind::noAudioTrack, filename, 0);
}

InspectionError InspectionError::noFormatDescription(const QString& filename)
{
    return InspectionError(Kind::noFormatDescription, filename, 0);
}

InspectionError InspectionError::noStreamDescription(const QString& filename)
{
    return InspectionError(Kind::noStreamDescription, filename, 0);
}

InspectionError InspectionError::invalidDuration(const QString& filename, double duration)
{
    return InspectionError(Kind::invalidDuration, filename, duration);
}

InspectionError InspectionError::invalidSampleRate(const QString& filename, double sampleRate)
{
    return InspectionError(Kind::invalidSampleRate, filename, sampleRate);
}

InspectionError InspectionError::invalidChannelCount(const QString& filename, int channels)
{
    return InspectionError(Kind::invalidChannelCount, filename, channels);
}

InspectionError InspectionError::noDecoder(const QString& filename, const QString& codec)
{
    return InspectionError(Kind::noDecoder, filename, 0, codec);
}

InspectionError InspectionError::emptyAudioTrack(const QString& filename)
{
    return InspectionError(Kind::emptyAudioTrack, filename, 0);
}

InspectionError InspectionError::externalMedia(const QString& filename)
{
    return InspectionError(Kind::externalMedia, filename, 0);
}

InspectionError InspectionError::mediaOutsideFile(const QString& filename, double bytesPresent, double bytesNeeded)
{
    return InspectionError(Kind::mediaOutsideFile, filename, bytesPresent, QString::number(bytesNeeded, 'f', 0));
}

QString InspectionError::description() const
{
    switch (kind_) {
    case Kind::timeout:
        return QStringLiteral("Inspection timed out after %1 seconds for %2").arg(value_).arg(filename_);
    case Kind::noAudioTrack:
        return QStringLiteral("No audio track found in ") + filename_;
    case Kind::noFormatDescription:
        return QStringLiteral("Cannot read format description from ") + filename_;
    case Kind::noStreamDescription:
        return QStringLiteral("Cannot read audio stream description from ") + filename_;
    case Kind::invalidDuration:
        return QStringLiteral("Invalid audio duration: %1 seconds in %2").arg(value_).arg(filename_);
    case Kind::invalidSampleRate:
        return QStringLiteral("Invalid sample rate: %1 Hz in %2").arg(value_).arg(filename_);
    case Kind::invalidChannelCount:
        return QStringLiteral("Invalid channel count: %1 in %2").arg(static_cast<int>(value_)).arg(filename_);
    case Kind::noDecoder:
        return QStringLiteral("No audio decoder for the codec %1 in %2").arg(detail_, filename_);
    case Kind::emptyAudioTrack:
        return QStringLiteral("The audio track of %1 holds no samples").arg(filename_);
    case Kind::externalMedia:
        return QStringLiteral("The audio of %1 is kept in another file that it only refers to").arg(filename_);
    case Kind::mediaOutsideFile:
        return QStringLiteral("The audio of %1 runs to byte %2, but the file has only %3 bytes")
            .arg(filename_, detail_, QString::number(value_, 'f', 0));
    }
    return {};
}

} // namespace folivox
