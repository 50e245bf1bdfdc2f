#include "import/InspectionError.h"

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
    }
    return {};
}

} // namespace folivox
