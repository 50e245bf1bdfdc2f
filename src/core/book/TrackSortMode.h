#pragma once

#include "core/json/EnumNames.h"

#include <QString>

#include <optional>

namespace folivox {

// How added files are ordered. `auto` is a C++ keyword, so that case is
// spelled auto_; its stored and typed name is "auto".
enum class TrackSortMode {
    auto_,
    filename,
    trackNumber,
    title,
    dateModified,
    // As given: files in the order the user named them, each folder's files
    // in name order.
    given,
};

template<>
struct EnumNames<TrackSortMode> {
    static constexpr const char* typeName = "TrackSortMode";
    static constexpr std::array items{
        std::pair{TrackSortMode::auto_, "auto"},
        std::pair{TrackSortMode::filename, "filename"},
        std::pair{TrackSortMode::trackNumber, "trackNumber"},
        std::pair{TrackSortMode::title, "title"},
        std::pair{TrackSortMode::dateModified, "dateModified"},
        std::pair{TrackSortMode::given, "given"},
    };
};

// "auto", "filename", "trackNumber", "title", "dateModified", "given".
QString toString(TrackSortMode mode);
std::optional<TrackSortMode> trackSortModeFromString(const QString& text);

} // namespace folivox
