#pragma once

#include "core/settings/ExportSettings.h"

namespace folivox {

// Checks settings before a build starts.
class ExportSettingsValidator {
public:
    // Throws ExportSettingsError when a split build has no positive part
    // length: byDuration needs splitHours > 0, bySize splitSizeMB > 0. The
    // length of the mode not in use is not looked at.
    static void validate(const ExportSettings& settings);
};

} // namespace folivox
