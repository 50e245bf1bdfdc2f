#pragma once

#include "core/json/EnumNames.h"

#include <QString>

#include <array>
#include <optional>

namespace folivox {

// The chapter file formats Folivox reads. The raw value is the spelling used
// wherever a format is stored or logged.
enum class SidecarFormat { cue, ffmetadata, mkvSimple, mkvXML, mp4chaps, audacityLabels, simpleText };

inline constexpr std::array<SidecarFormat, 7> kAllSidecarFormats = {
    SidecarFormat::cue,      SidecarFormat::ffmetadata,     SidecarFormat::mkvSimple, SidecarFormat::mkvXML,
    SidecarFormat::mp4chaps, SidecarFormat::audacityLabels, SidecarFormat::simpleText};

QString sidecarFormatRawValue(SidecarFormat format);
QString sidecarFormatDisplayName(SidecarFormat format);
std::optional<SidecarFormat> sidecarFormatFromRawValue(const QString& raw);

template<>
struct EnumNames<SidecarFormat> {
    static constexpr const char* typeName = "SidecarFormat";
    static constexpr std::array items{
        std::pair{SidecarFormat::cue, "cue"},
        std::pair{SidecarFormat::ffmetadata, "ffmetadata"},
        std::pair{SidecarFormat::mkvSimple, "mkvSimple"},
        std::pair{SidecarFormat::mkvXML, "mkvXML"},
        std::pair{SidecarFormat::mp4chaps, "mp4chaps"},
        std::pair{SidecarFormat::audacityLabels, "audacityLabels"},
        std::pair{SidecarFormat::simpleText, "simpleText"},
    };
};

} // namespace folivox
