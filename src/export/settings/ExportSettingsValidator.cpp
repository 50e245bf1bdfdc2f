#include "export/settings/ExportSettingsValidator.h"

#include "export/settings/ExportSettingsError.h"

namespace folivox {

void ExportSettingsValidator::validate(const ExportSettings& settings)
{
    switch (settings.splitMode) {
    case SplitMode::off:
        return;
    case SplitMode::byDuration:
        if (settings.splitHours <= 0)
            throw ExportSettingsError(ExportSettingsError::Kind::invalidSplitHours, settings.splitHours);
        return;
    case SplitMode::bySize:
        if (settings.splitSizeMB <= 0)
            throw ExportSettingsError(ExportSettingsError::Kind::invalidSplitSize, settings.splitSizeMB);
        return;
    }
}

} // namespace folivox
