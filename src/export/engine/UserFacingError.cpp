#include "export/engine/UserFacingError.h"

#include "export/engine/ExportError.h"
#include "platform/L10n.h"

namespace folivox {

QString UserFacingError::nameAndMore(const QStringList& names)
{
    if (names.isEmpty())
        return {};
    if (names.size() == 1)
        return names.first();
    return L10n::format(L10n::text("export.error.problemFile.nameAndMore", "%@ and %d more"),
                        {names.first(), QString::number(names.size() - 1)});
}

std::optional<QString> UserFacingError::problemFileLine(const ExportFailureContext& context)
{
    if (context.sourceFileNames.isEmpty())
        return std::nullopt;
    const QString name = nameAndMore(context.sourceFileNames);
    if (context.looksCorrupt()) {
        return L10n::format(L10n::text("export.error.problemFile.damaged",
                                       "Problem file: %@. It looks damaged, and the export most likely failed because "
                                       "of it. Listen to it, or replace it with a fresh copy."),
                            {name});
    }
    return L10n::format(L10n::text("export.error.problemFile.plain", "The export stopped while converting “%@”."),
                        {name});
}

UserFacingError UserFacingError::make(const ExportError& error, const std::optional<ExportFailureContext>& context)
{
    UserFacingError e;
    e.title = L10n::text("export.error.title", "Export Failed");
    e.message = error.description();
    if (context)
        e.problemFile = problemFileLine(*context);
    if (error.kind() == ExportError::Kind::cancelled) {
        e.title = L10n::text("export.cancelled.title", "Export Cancelled");
    } else if (error.kind() == ExportError::Kind::outOfSpace && error.detail().isEmpty()) {
        e.recoverySuggestion = L10n::text("export.error.outOfSpace.suggestion",
                                          "Free up space on the disk that holds the temporary folder and the "
                                          "destination, then start the build again.");
    } else if (error.kind() == ExportError::Kind::destinationNotWritable) {
        e.recoverySuggestion = L10n::text("export.error.destination.suggestion",
                                          "Check the folder's permissions, or choose another destination.");
    }
    return e;
}

QString UserFacingError::fullText() const
{
    QString text = message;
    if (problemFile)
        text += QStringLiteral("\n\n") + *problemFile;
    if (recoverySuggestion)
        text += QStringLiteral("\n\n") + *recoverySuggestion;
    return text;
}

} // namespace folivox
