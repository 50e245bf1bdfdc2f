#include "export/engine/ExportPhase.h"

#include "platform/L10n.h"

namespace folivox {

QString exportPhaseKey(ExportPhase phase)
{
    switch (phase) {
    case ExportPhase::preparing: return QStringLiteral("export.progress.preparing");
    case ExportPhase::cover: return QStringLiteral("export.progress.cover");
    case ExportPhase::checkingFiles: return QStringLiteral("export.progress.checkingFiles");
    case ExportPhase::analyzingFiles: return QStringLiteral("export.progress.analyzingFiles");
    case ExportPhase::copying: return QStringLiteral("export.progress.copying");
    case ExportPhase::encoding: return QStringLiteral("export.progress.encoding");
    case ExportPhase::finalizingChapters: return QStringLiteral("export.progress.finalizing.chapters");
    case ExportPhase::merging: return QStringLiteral("export.progress.merging");
    case ExportPhase::metadata: return QStringLiteral("export.progress.metadata");
    case ExportPhase::fastStart: return QStringLiteral("export.progress.fastStart");
    case ExportPhase::finalizing: return QStringLiteral("export.progress.finalizing");
    case ExportPhase::part: return QStringLiteral("export.progress.part");
    case ExportPhase::complete: return {};
    }
    return {};
}

QString exportPhaseTitle(ExportPhase phase, int current, int total)
{
    const QStringList numbers{QString::number(current), QString::number(total)};
    switch (phase) {
    case ExportPhase::preparing: return L10n::text("export.progress.preparing", "Preparing…");
    case ExportPhase::cover: return L10n::text("export.progress.cover", "Exporting cover…");
    case ExportPhase::checkingFiles: return L10n::text("export.progress.checkingFiles", "Checking files…");
    case ExportPhase::analyzingFiles:
        return L10n::format(L10n::text("export.progress.analyzingFiles", "Analyzing files… %d of %d"), numbers);
    case ExportPhase::copying: return L10n::text("export.progress.copying", "Copying audio…");
    case ExportPhase::encoding: return L10n::text("export.progress.encoding", "Encoding audio…");
    case ExportPhase::finalizingChapters:
        return L10n::text("export.progress.finalizing.chapters", "Finalizing chapters…");
    case ExportPhase::merging: return L10n::text("export.progress.merging", "Merging chapters…");
    case ExportPhase::metadata: return L10n::text("export.progress.metadata", "Writing metadata…");
    case ExportPhase::fastStart: return L10n::text("export.progress.fastStart", "Optimizing for streaming…");
    case ExportPhase::finalizing: return L10n::text("export.progress.finalizing", "Finalizing…");
    case ExportPhase::part:
        return L10n::format(L10n::text("export.progress.part", "Exporting Part %d/%d…"), numbers);
    case ExportPhase::complete: return QStringLiteral("Complete");
    }
    return {};
}

} // namespace folivox
