#pragma once

#include "core/chapters/ChapterSnapshot.h"
#include "inplace/InPlaceEligibility.h"

#include <QList>
#include <QStringList>

namespace folivox {

// What the comparison needs of a book: its chapters as last built and as
// they are now, and the files the last build made.
struct InPlaceEligibilityRequest {
    QList<ChapterSnapshot> lastBuildChapters;
    QList<ChapterSnapshot> currentChapters;
    // The number of tracks the book has now.
    int currentTrackCount = 0;
    // The last build's output files, in chapter order for per-chapter files.
    QStringList outputFiles;
};

// Whether a book's last build can take the book's present tags in place.
class InPlaceEligibilityService {
public:
    virtual ~InPlaceEligibilityService() = default;
    virtual InPlaceEligibility evaluate(const InPlaceEligibilityRequest& request) const = 0;
};

} // namespace folivox
