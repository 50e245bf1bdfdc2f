#include "export/engine/ExportError.h"

#include "platform/L10n.h"

namespace folivox {

ExportError::ExportError(Kind kind, QString detail, QString second, QString typeName)
    : kind_(kind)
    , detail_(std::move(detail))
    , second_(std::move(second))
    , typeName_(std::move(typeName))
{
}

ExportError ExportError::corruptedSourceRequiresTranscode(const QString& details)
{
    return {Kind::corruptedSourceRequiresTranscode, details};
}

ExportError ExportError::transcodeFailedAfterRetry(const QString& originalError, const QString& retryError)
{
    return {Kind::transcodeFailedAfterRetry, originalError, retryError};
}

ExportError ExportError::underlying(const QString& description, const QString& typeName, Cause cause)
{
    ExportError e{Kind::underlying, description, {}, typeName};
    e.setCause(cause);
    return e;
}

ExportError ExportError::demoRestriction(const QString& message)
{
    return {Kind::demoRestriction, message};
}

ExportError ExportError::licenseValidationFailed(const QString& message)
{
    return {Kind::licenseValidationFailed, message};
}

ExportError ExportError::validationFailed(const QString& message)
{
    return {Kind::validationFailed, message};
}

ExportError ExportError::destinationNotWritable(const QString& folderName)
{
    return {Kind::destinationNotWritable, folderName};
}

ExportError ExportError::failedToWrite()
{
    return {Kind::failedToWrite, {}};
}

ExportError ExportError::cancelled()
{
    return {Kind::cancelled, {}};
}

ExportError ExportError::ffmpegUnavailable()
{
    return {Kind::ffmpegUnavailable, {}};
}

ExportError ExportError::securityCheckFailed()
{
    return {Kind::securityCheckFailed, {}};
}

ExportError ExportError::noSourceFiles()
{
    return {Kind::noSourceFiles, {}};
}

ExportError ExportError::outOfSpace()
{
    return {Kind::outOfSpace, {}, {}, QStringLiteral("OutOfSpace")};
}

ExportError ExportError::outOfSpaceInTemporaryFolder(const QString& folder)
{
    return {Kind::outOfSpace, folder, QStringLiteral("temporary"), QStringLiteral("OutOfSpace")};
}

ExportError ExportError::outOfSpaceAtDestination(const QString& folder)
{
    return {Kind::outOfSpace, folder, QStringLiteral("destination"), QStringLiteral("OutOfSpace")};
}

QString ExportError::caseName() const
{
    switch (kind_) {
    case Kind::corruptedSourceRequiresTranscode: return QStringLiteral("corruptedSourceRequiresTranscode");
    case Kind::transcodeFailedAfterRetry: return QStringLiteral("transcodeFailedAfterRetry");
    case Kind::underlying: return QStringLiteral("underlying");
    case Kind::demoRestriction: return QStringLiteral("demoRestriction");
    case Kind::licenseValidationFailed: return QStringLiteral("licenseValidationFailed");
    case Kind::validationFailed: return QStringLiteral("validationFailed");
    case Kind::destinationNotWritable: return QStringLiteral("destinationNotWritable");
    case Kind::failedToWrite: return QStringLiteral("failedToWrite");
    case Kind::cancelled: return QStringLiteral("cancelled");
    case Kind::ffmpegUnavailable: return QStringLiteral("ffmpegUnavailable");
    case Kind::securityCheckFailed: return QStringLiteral("securityCheckFailed");
    case Kind::noSourceFiles: return QStringLiteral("noSourceFiles");
    case Kind::outOfSpace: return QStringLiteral("outOfSpace");
    }
    return {};
}

QString ExportError::description() const
{
    switch (kind_) {
    case Kind::corruptedSourceRequiresTranscode:
        return QStringLiteral("Source file has corrupted metadata (timescale error). Automatic transcode is required. Details: ")
            + detail_;
    case Kind::transcodeFailedAfterRetry:
        return QStringLiteral("Export failed even after attempting to fix corrupted source file.\nOriginal error: ") + detail_
            + QStringLiteral("\nRetry error: ") + second_
            + QStringLiteral("\n\nPlease check the source file for corruption.");
    case Kind::underlying:
    case Kind::demoRestriction:
    case Kind::licenseValidationFailed:
    case Kind::validationFailed:
        return detail_;
    case Kind::destinationNotWritable:
        return L10n::format(L10n::text("export.error.destination.not.writable",
                                       "Folivox can't save into “%@”. Choose the destination folder again, then start the build."),
                            {detail_});
    case Kind::failedToWrite:
        return QStringLiteral("Failed to write export file.");
    case Kind::cancelled:
        return QStringLiteral("Export was cancelled.");
    case Kind::ffmpegUnavailable:
        return QStringLiteral("FFmpeg not available");
    case Kind::securityCheckFailed:
        return QStringLiteral("Security check failed");
    case Kind::noSourceFiles:
        return L10n::text("export.error.no.source.files", "No source files found for export.");
    case Kind::outOfSpace:
        if (second_ == QLatin1String("destination"))
            return L10n::format(L10n::text("export.error.destination.full",
                                           "The disk that holds “%@” ran out of space while Folivox put the finished "
                                           "book there. Nothing there was changed. Free up space on that disk, then "
                                           "start the build again."),
                                {detail_});
        if (detail_.isEmpty())
            return L10n::text("export.error.outOfSpace",
                              "The disk ran out of space while building this audiobook.\n\n"
                              "Folivox needs room for temporary files while it works — for a long book that can be "
                              "several gigabytes more than the finished file. Free up some space and try again.");
        return L10n::format(
            L10n::text("export.error.outOfSpace.temporaryFolder",
                       "The disk that holds the temporary folder “%@” ran out of space while building this "
                       "audiobook.\n\nFolivox needs room there for temporary files while it works — for a "
                       "long book that can be several gigabytes more than the finished file. Free up space on "
                       "that disk, or set TMPDIR to a folder on a disk with more room, then start the build "
                       "again."),
            {detail_});
    }
    return {};
}

} // namespace folivox
