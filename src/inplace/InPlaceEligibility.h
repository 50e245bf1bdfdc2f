#pragma once

#include "inplace/InPlaceUpdateMode.h"

#include <QList>
#include <QString>

#include <optional>

namespace folivox {

// Why an update in place is not offered, in the order they are reported.
enum class IneligibilityReason {
    unsupportedFormat,
    mixedFormats,
    chaptersReordered,
    chapterBoundariesChanged,
    chaptersAddedOrRemoved,
    fileNotFound,
    fileNotWritable,
};

QString ineligibilityReasonName(IneligibilityReason reason);
// A sentence for the user.
QString ineligibilityReasonText(IneligibilityReason reason);

struct InPlaceEligibility {
    bool isEligible = false;
    // Set only when eligible.
    std::optional<InPlaceUpdateMode> mode;
    QList<IneligibilityReason> reasons;
};

} // namespace folivox
