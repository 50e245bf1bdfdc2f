#include "export/settings/ExportSettingsError.h"

namespace folivox {

QString ExportSettingsError::description() const
{
    switch (kind_) {
    case Kind::invalidSplitHours:
        return QStringLiteral("splitHours must be > 0 for split export");
    case Kind::invalidSplitSize:
        return QStringLiteral("splitSizeMB must be > 0 for split export");
    }
    return {};
}

} // namespace folivox
