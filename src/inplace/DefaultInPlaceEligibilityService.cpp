#include "inplace/DefaultInPlaceEligibilityService.h"

#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <optional>
#include <unistd.h>

namespace folivox {

namespace {
// A tolerance of 0.1 compared in floating point: 0.3 - 0.2 is a hair above
// 0.1, so allow for the rounding of the subtraction.
bool within(double a, double b)
{
    return std::fabs(a - b) <= DefaultInPlaceEligibilityService::tolerance + 1e-9;
}
} // namespace

std::optional<IneligibilityReason> DefaultInPlaceEligibilityService::compareChapters(const QList<ChapterSnapshot>& lastBuild,
                                                                                      const QList<ChapterSnapshot>& current,
                                                                                      int currentTrackCount)
{
    if (lastBuild.size() != current.size())
        return IneligibilityReason::chaptersAddedOrRemoved;
    for (qsizetype i = 0; i < current.size(); ++i) {
        const ChapterSnapshot& was = lastBuild.at(i);
        const ChapterSnapshot& now = current.at(i);
        if (was.firstTrackURL && now.firstTrackURL && currentTrackCount > 0 && *was.firstTrackURL != *now.firstTrackURL)
            return IneligibilityReason::chaptersReordered;
        if (!within(was.startTime, now.startTime))
            return IneligibilityReason::chapterBoundariesChanged;
        if (!within(was.duration, now.duration))
            return IneligibilityReason::chapterBoundariesChanged;
    }
    return std::nullopt;
}

bool DefaultInPlaceEligibilityService::isWritable(const QString& path)
{
    return ::access(QFile::encodeName(path).constData(), W_OK) == 0;
}

QList<IneligibilityReason> DefaultInPlaceEligibilityService::checkFiles(const QStringList& files)
{
    bool unsupported = false, mixed = false, missing = false, readOnly = false;
    std::optional<InPlaceSourceFormat> first;
    for (const QString& f : files) {
        const auto format = inPlaceSourceFormatFor(f);
        if (!format)
            unsupported = true;
        else if (!first)
            first = format;
        else if (*first != *format)
            mixed = true;
        if (!QFileInfo(f).isFile())
            missing = true;
        else if (!isWritable(f))
            readOnly = true;
    }
    QList<IneligibilityReason> out;
    if (files.isEmpty() || unsupported)
        out << IneligibilityReason::unsupportedFormat;
    if (mixed)
        out << IneligibilityReason::mixedFormats;
    if (missing || files.isEmpty())
        out << IneligibilityReason::fileNotFound;
    if (readOnly)
        out << IneligibilityReason::fileNotWritable;
    return out;
}

InPlaceEligibility DefaultInPlaceEligibilityService::evaluate(const InPlaceEligibilityRequest& request) const
{
    InPlaceEligibility result;
    const QList<IneligibilityReason> fileReasons = checkFiles(request.outputFiles);
    const auto chapterReason = compareChapters(request.lastBuildChapters, request.currentChapters, request.currentTrackCount);
    // Reasons in their declared order: format, then chapters, then files.
    for (IneligibilityReason r : {IneligibilityReason::unsupportedFormat, IneligibilityReason::mixedFormats,
                                  IneligibilityReason::chaptersReordered, IneligibilityReason::chapterBoundariesChanged,
                                  IneligibilityReason::chaptersAddedOrRemoved, IneligibilityReason::fileNotFound,
                                  IneligibilityReason::fileNotWritable}) {
        if (fileReasons.contains(r) || chapterReason == r)
            result.reasons << r;
    }
    result.isEligible = result.reasons.isEmpty();
    if (!result.isEligible)
        return result;
    if (request.outputFiles.size() == 1) {
        result.mode = InPlaceUpdateMode::singleFile(request.outputFiles.first(),
                                                    *inPlaceSourceFormatFor(request.outputFiles.first()));
    } else {
        QList<InPlaceUpdateMode::FileUpdate> files;
        for (qsizetype i = 0; i < request.outputFiles.size(); ++i) {
            InPlaceUpdateMode::FileUpdate f;
            f.url = request.outputFiles.at(i);
            if (i < request.currentChapters.size())
                f.chapterTitle = request.currentChapters.at(i).title;
            files << f;
        }
        result.mode = InPlaceUpdateMode::multipleFiles(files);
    }
    return result;
}

} // namespace folivox
