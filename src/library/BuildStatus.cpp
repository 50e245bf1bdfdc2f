#include "library/BuildStatus.h"

#include "core/settings/SettingsFingerprint.h"

#include <QFileInfo>

namespace folivox {

QStringList BuildStatus::rebuildReasons(const BookStateDTO& state)
{
    if (!state.lastBuild)
        return {QStringLiteral("never built")};
    const BuildRecord& b = *state.lastBuild;
    QStringList reasons;
    if (state.revision > b.revision)
        reasons << QStringLiteral("edited since the last build (revision %1, built %2)").arg(state.revision).arg(b.revision);
    if (SettingsFingerprint::of(state.settings) != b.settingsFingerprint)
        reasons << QStringLiteral("export settings changed since the last build");
    for (const BuildRecord::Output& o : b.outputs) {
        const QFileInfo info(o.path);
        if (!info.exists())
            reasons << QStringLiteral("output missing: ") + o.path;
        else if (static_cast<quint64>(info.size()) != o.size || info.lastModified().toUTC() != o.modifiedAt)
            reasons << QStringLiteral("output changed on disk: ") + o.path;
    }
    return reasons;
}

} // namespace folivox
