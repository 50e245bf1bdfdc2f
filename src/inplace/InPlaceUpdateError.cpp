#include "inplace/InPlaceUpdateError.h"

#include "platform/L10n.h"

namespace folivox {

InPlaceUpdateError InPlaceUpdateError::backupFailed(const QString& u) { return {Kind::backupFailed, u}; }
InPlaceUpdateError InPlaceUpdateError::metadataWriteFailed(const QString& u) { return {Kind::metadataWriteFailed, u}; }
InPlaceUpdateError InPlaceUpdateError::chaptersWriteFailed(const QString& u) { return {Kind::chaptersWriteFailed, u}; }
InPlaceUpdateError InPlaceUpdateError::exportSessionFailed(const QString& t) { return {Kind::exportSessionFailed, t}; }
InPlaceUpdateError InPlaceUpdateError::fileNotFound(const QString& f) { return {Kind::fileNotFound, f}; }
InPlaceUpdateError InPlaceUpdateError::fileNotWritable(const QString& f) { return {Kind::fileNotWritable, f}; }
InPlaceUpdateError InPlaceUpdateError::unsupportedFormat(const QString& f) { return {Kind::unsupportedFormat, f}; }
InPlaceUpdateError InPlaceUpdateError::exportSessionCreationFailed() { return {Kind::exportSessionCreationFailed, {}}; }
InPlaceUpdateError InPlaceUpdateError::noOutputFileCreated() { return {Kind::noOutputFileCreated, {}}; }

InPlaceUpdateError InPlaceUpdateError::writeVerificationFailed(std::uint64_t expected, std::uint64_t written)
{
    InPlaceUpdateError e(Kind::writeVerificationFailed, {});
    e.expected_ = expected;
    e.written_ = written;
    return e;
}

QString InPlaceUpdateError::description() const
{
    // The file cases name the user's file after the fixed text.
    const auto named = [this](const QString& text) {
        return detail_.isEmpty() ? text : text + QStringLiteral(": ") + detail_;
    };
    switch (kind_) {
    case Kind::backupFailed:
        return L10n::format(L10n::text("inplace.error.backup.failed", "Failed to create backup: %@"), {detail_});
    case Kind::metadataWriteFailed:
        return L10n::format(L10n::text("inplace.error.metadata.failed", "Failed to write metadata: %@"), {detail_});
    case Kind::chaptersWriteFailed:
        return L10n::format(L10n::text("inplace.error.chapters.failed", "Failed to write chapters: %@"), {detail_});
    case Kind::exportSessionFailed:
        return QStringLiteral("Export session ") + detail_;
    case Kind::writeVerificationFailed:
        return QStringLiteral("In-place write incomplete (%1 of %2 bytes); the original file was restored from backup.")
            .arg(written_)
            .arg(expected_);
    case Kind::fileNotFound:
        return named(L10n::text("inplace.error.file.not.found", "Original file not found"));
    case Kind::fileNotWritable:
        return named(L10n::text("inplace.error.file.not.writable", "Cannot write to original file"));
    case Kind::unsupportedFormat:
        return named(L10n::text("inplace.error.unsupported.format", "Unsupported file format"));
    case Kind::exportSessionCreationFailed:
        return QStringLiteral("Failed to create the remux writer");
    case Kind::noOutputFileCreated:
        return QStringLiteral("Export session did not create output file");
    }
    return {};
}

} // namespace folivox
