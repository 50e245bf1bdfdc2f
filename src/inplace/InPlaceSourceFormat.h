#pragma once

#include <QString>

#include <optional>

namespace folivox {

// The kinds of finished file whose tags can be rewritten in place.
enum class InPlaceSourceFormat { m4b, m4a, mp3, flac, oggVorbis, aiff };

// Told by the lowercase extension: "m4b", "m4a", "mp3", "flac", "ogg" or
// "oga", "aiff" or "aif"; nothing for any other.
std::optional<InPlaceSourceFormat> inPlaceSourceFormatFor(const QString& path);

QString inPlaceSourceFormatName(InPlaceSourceFormat format);

// M4B and M4A go through the mp4 tools; the others through TagLib.
inline bool isMP4Format(InPlaceSourceFormat format)
{
    return format == InPlaceSourceFormat::m4b || format == InPlaceSourceFormat::m4a;
}

} // namespace folivox
