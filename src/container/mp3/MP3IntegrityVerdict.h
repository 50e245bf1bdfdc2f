#pragma once

#include "core/json/EnumNames.h"

#include <QString>

namespace folivox {

// What a scan concludes about an MP3: sound enough to use as it is, damaged
// (it plays noticeably short), or not judged (no run of frames was found, or
// the file could not be read).
enum class MP3IntegrityVerdict {
    clean,
    damaged,
    unknown,
};

template<>
struct EnumNames<MP3IntegrityVerdict> {
    static constexpr const char* typeName = "MP3IntegrityVerdict";
    static constexpr std::array items{
        std::pair{MP3IntegrityVerdict::clean, "clean"},
        std::pair{MP3IntegrityVerdict::damaged, "damaged"},
        std::pair{MP3IntegrityVerdict::unknown, "unknown"},
    };
};

} // namespace folivox
