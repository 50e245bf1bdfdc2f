#include "inplace/InPlaceSourceFormat.h"

#include <QFileInfo>

namespace folivox {

std::optional<InPlaceSourceFormat> inPlaceSourceFormatFor(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    if (ext == QLatin1String("m4b"))
        return InPlaceSourceFormat::m4b;
    if (ext == QLatin1String("m4a"))
        return InPlaceSourceFormat::m4a;
    if (ext == QLatin1String("mp3"))
        return InPlaceSourceFormat::mp3;
    if (ext == QLatin1String("flac"))
        return InPlaceSourceFormat::flac;
    if (ext == QLatin1String("ogg") || ext == QLatin1String("oga"))
        return InPlaceSourceFormat::oggVorbis;
    if (ext == QLatin1String("aiff") || ext == QLatin1String("aif"))
        return InPlaceSourceFormat::aiff;
    return std::nullopt;
}

QString inPlaceSourceFormatName(InPlaceSourceFormat format)
{
    switch (format) {
    case InPlaceSourceFormat::m4b: return QStringLiteral("m4b");
    case InPlaceSourceFormat::m4a: return QStringLiteral("m4a");
    case InPlaceSourceFormat::mp3: return QStringLiteral("mp3");
    case InPlaceSourceFormat::flac: return QStringLiteral("flac");
    case InPlaceSourceFormat::oggVorbis: return QStringLiteral("oggVorbis");
    case InPlaceSourceFormat::aiff: return QStringLiteral("aiff");
    }
    return {};
}

} // namespace folivox
