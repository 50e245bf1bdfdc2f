#include "sidecars/parsers/SidecarFormat.h"

namespace folivox {

QString sidecarFormatRawValue(SidecarFormat format)
{
    return enumName(format);
}

QString sidecarFormatDisplayName(SidecarFormat format)
{
    switch (format) {
    case SidecarFormat::cue: return QStringLiteral("CUE Sheet");
    case SidecarFormat::ffmetadata: return QStringLiteral("FFmpeg Metadata");
    case SidecarFormat::mkvSimple: return QStringLiteral("MKV Simple Chapters");
    case SidecarFormat::mkvXML: return QStringLiteral("MKV XML Chapters");
    case SidecarFormat::mp4chaps: return QStringLiteral("MP4 Chapters");
    case SidecarFormat::audacityLabels: return QStringLiteral("Audacity Labels");
    case SidecarFormat::simpleText: return QStringLiteral("Simple Text");
    }
    return {};
}

std::optional<SidecarFormat> sidecarFormatFromRawValue(const QString& raw)
{
    return enumFromName<SidecarFormat>(raw);
}

} // namespace folivox
