#include "inplace/InPlaceEligibility.h"

#include "platform/L10n.h"

namespace folivox {

QString ineligibilityReasonName(IneligibilityReason reason)
{
    switch (reason) {
    case IneligibilityReason::unsupportedFormat: return QStringLiteral("unsupportedFormat");
    case IneligibilityReason::mixedFormats: return QStringLiteral("mixedFormats");
    case IneligibilityReason::chaptersReordered: return QStringLiteral("chaptersReordered");
    case IneligibilityReason::chapterBoundariesChanged: return QStringLiteral("chapterBoundariesChanged");
    case IneligibilityReason::chaptersAddedOrRemoved: return QStringLiteral("chaptersAddedOrRemoved");
    case IneligibilityReason::fileNotFound: return QStringLiteral("fileNotFound");
    case IneligibilityReason::fileNotWritable: return QStringLiteral("fileNotWritable");
    }
    return {};
}

QString ineligibilityReasonText(IneligibilityReason reason)
{
    switch (reason) {
    case IneligibilityReason::unsupportedFormat:
        return L10n::text("inplace.reason.unsupportedFormat", "A file is not M4B, M4A, MP3, FLAC, Ogg Vorbis or AIFF");
    case IneligibilityReason::mixedFormats:
        return L10n::text("inplace.reason.mixedFormats", "The files are not all of one format");
    case IneligibilityReason::chaptersReordered:
        return L10n::text("inplace.reason.chaptersReordered", "The chapters were reordered");
    case IneligibilityReason::chapterBoundariesChanged:
        return L10n::text("inplace.reason.chapterBoundariesChanged", "A chapter starts or ends at another time");
    case IneligibilityReason::chaptersAddedOrRemoved:
        return L10n::text("inplace.reason.chaptersAddedOrRemoved", "Chapters were added or removed");
    case IneligibilityReason::fileNotFound:
        return L10n::text("inplace.reason.fileNotFound", "A file of the book is missing");
    case IneligibilityReason::fileNotWritable:
        return L10n::text("inplace.reason.fileNotWritable", "A file of the book cannot be written");
    }
    return {};
}

} // namespace folivox
