#pragma once

#include "inplace/InPlaceEligibilityService.h"

#include <optional>

namespace folivox {

// The chapters must be the ones last built, apart from their titles (that
// is what an update changes), and the files must all be of one supported
// format, exist and be writable.
class DefaultInPlaceEligibilityService : public InPlaceEligibilityService {
public:
    // Largest difference in start or length, in seconds, that still counts
    // as the same chapter (exactly this much passes).
    static constexpr double tolerance = 0.1;

    InPlaceEligibility evaluate(const InPlaceEligibilityRequest& request) const override;

    // The chapter comparison alone: nothing when they match, else the one
    // reason found first.
    static std::optional<IneligibilityReason> compareChapters(const QList<ChapterSnapshot>& lastBuild,
                                                              const QList<ChapterSnapshot>& current,
                                                              int currentTrackCount);

    // The file checks alone, in reason order (each reason at most once).
    static QList<IneligibilityReason> checkFiles(const QStringList& files);

    // Whether the process may write the file: also false for a file made
    // immutable or on a read-only mount, which hold for root too.
    static bool isWritable(const QString& path);
};

} // namespace folivox
