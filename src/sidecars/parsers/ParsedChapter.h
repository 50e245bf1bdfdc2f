#pragma once

#include <QString>

namespace folivox {

// A chapter row in seconds, as older chapter readers produced it. Kept beside
// the sidecar records for callers that work in seconds; the parsers produce
// NormalizedChapter rows.
struct ParsedChapter {
    int index = 0;
    double startTime = 0;
    double endTime = 0;
    QString title;

    bool operator==(const ParsedChapter&) const = default;
};

} // namespace folivox
