#include "core/book/TrackSortMode.h"

namespace folivox {

QString toString(TrackSortMode mode)
{
    return enumName(mode);
}

std::optional<TrackSortMode> trackSortModeFromString(const QString& text)
{
    return enumFromName<TrackSortMode>(text);
}

} // namespace folivox
