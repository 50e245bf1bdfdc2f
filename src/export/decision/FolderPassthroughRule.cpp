#include "export/decision/FolderPassthroughRule.h"

#include "export/decision/ExportDecisionService.h"
#include "export/decision/ExportPlanBuilder.h"

#include <QFileInfo>

namespace folivox {

FolderPassthroughRule::Verdict FolderPassthroughRule::Verdict::copyIfWholeFile(const QUrl& url, double rangeSeconds)
{
    Verdict v;
    v.kind = Kind::copyIfWholeFile;
    v.url = url;
    v.rangeSeconds = rangeSeconds;
    return v;
}

FolderPassthroughRule::Verdict FolderPassthroughRule::Verdict::refuse(const QString& reason)
{
    Verdict v;
    v.kind = Kind::refuse;
    v.reason = reason;
    return v;
}

FolderPassthroughRule::Verdict FolderPassthroughRule::Verdict::copy(const QUrl& url)
{
    Verdict v;
    v.kind = Kind::copy;
    v.url = url;
    return v;
}

bool FolderPassthroughRule::isTargetFormat(const QUrl& file, const FormatProbe& source, const ExportSettings& settings)
{
    const QString suffix = QFileInfo(file.fileName()).suffix().toLower();
    if (settings.outputFormat == OutputFormat::mp3)
        return suffix == u"mp3" && source.codec.toLower() == u"mp3";
    const bool mp4File = suffix == u"m4a" || suffix == u"m4b" || suffix == u"mp4";
    return mp4File && ExportDecisionService::matchesCodecFamily(source.codec, settings.codec);
}

FolderPassthroughRule::Verdict FolderPassthroughRule::judge(const ChapterInput& chapter,
                                                            const std::optional<FormatProbe>& source,
                                                            const ExportSettings& settings)
{
    if (settings.passthroughPolicy == PassthroughPolicy::disabled)
        return Verdict::refuse(QStringLiteral("policy disabled"));
    if (chapter.files.size() != 1 || !chapter.timeRange)
        return Verdict::refuse(QStringLiteral("chapter spans %1 files").arg(chapter.files.size()));
    if (!source || source->codec.isEmpty())
        return Verdict::refuse(QStringLiteral("source format unknown"));

    const QUrl& url = chapter.files.front();
    if (!isTargetFormat(url, *source, settings)) {
        return Verdict::refuse(QStringLiteral("source is %1 in .%2, not the %3 output format")
                                   .arg(source->codec, QFileInfo(url.fileName()).suffix().toLower(),
                                        label(settings.outputFormat)));
    }
    if (const std::optional<int> wanted = channelCount(settings.channels); wanted && *wanted != source->channels)
        return Verdict::refuse(QStringLiteral("channel count differs from source"));
    if (const std::optional<int> wanted = sampleRateHz(settings.sampleRate); wanted && *wanted != source->sampleRate)
        return Verdict::refuse(QStringLiteral("sample rate differs from source"));
    if (const auto reduction = ExportDecisionService::bitrateReduction(source->bitrate, settings))
        return Verdict::refuse(*reduction);

    const MediaTimeRange& range = *chapter.timeRange;
    if (range.start > ExportPlanBuilder::kStartTolerance)
        return Verdict::refuse(QStringLiteral("chapter starts %1 s into its file").arg(range.start, 0, 'f', 3));
    // A measured length settles it; without one the plan's judgement does,
    // and failing that the strategy measures the file before copying.
    if (source->duration > 0) {
        if (range.end() >= source->duration - ExportPlanBuilder::kEndTolerance)
            return Verdict::copy(url);
        return Verdict::refuse(QStringLiteral("chapter ends %1 s before its file does")
                                   .arg(source->duration - range.end(), 0, 'f', 3));
    }
    if (chapter.wholeFileCandidate)
        return Verdict::copy(url);
    return Verdict::copyIfWholeFile(url, range.duration);
}

} // namespace folivox
