#include "export/strategies/BaseExportStrategy.h"

#include "container/mp4/FastStartRelocator.h"
#include "container/io/FaultInjection.h"
#include "container/io/FileRangeCopier.h"
#include "container/mp4/MP4CreationTimeStamper.h"
#include "container/mp4/MP4File.h"
#include "container/io/SafeFileReplace.h"
#include "export/settings/AudiobookSourceInfo.h"
#include "export/settings/BitrateOptionsCalculator.h"
#include "export/settings/CoverOptions.h"
#include "export/decision/ExportDecisionService.h"
#include "export/engine/ExportPrologue.h"
#include "export/engine/OutputPlacement.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace folivox {

namespace {

bool isMP4Container(const QString& path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    return ext == u"m4b" || ext == u"m4a" || ext == u"mp4";
}

} // namespace

BaseExportStrategy::BaseExportStrategy(std::shared_ptr<MetadataWritingService> metadataService)
    : metadataService_(std::move(metadataService))
{
}

QString BaseExportStrategy::fileName(const QString& path)
{
    return QFileInfo(path).fileName();
}

FFmpegAudioEncoder::OutputSpec BaseExportStrategy::resolveOutputSpec(const ExportContext& context,
                                                                     const QHash<QString, SourceFacts>& facts)
{
    const ExportSettings& settings = context.settings;
    FFmpegAudioEncoder::OutputSpec spec;
    spec.format = settings.outputFormat;
    spec.codec = settings.codec;
    const AudiobookSourceInfo info =
        AudiobookSourceInfo::fromTracks(context.allTracks, static_cast<int>(context.plan.chapters.size()));
    spec.bitrateKbps = BitrateOptionsCalculator(info).effectiveBitrateKbps(settings);
    spec.channels = channelCount(settings.channels);
    spec.sampleRate = sampleRateHz(settings.sampleRate);
    if (settings.outputFormat != OutputFormat::m4b)
        return spec; // one file per chapter: each may keep its source's format

    // A single book is joined by copy, so every segment must come out in one
    // format: where the settings leave it to the sources, take the richest
    // of them (the rate capped at 48 kHz, at most two channels).
    int rate = 0;
    int channels = 0;
    for (const QUrl& url : context.plan.uniqueURLs) {
        const auto it = facts.constFind(url.isLocalFile() ? url.toLocalFile() : url.toString());
        if (it == facts.constEnd())
            continue;
        rate = std::max(rate, it->sampleRate.value_or(0));
        channels = std::max(channels, it->channels.value_or(0));
    }
    if (!spec.sampleRate)
        spec.sampleRate = rate > 0 ? std::min(rate, 48000) : 44100;
    if (!spec.channels)
        spec.channels = channels > 0 ? std::min(channels, 2) : 2;
    return spec;
}

QList<ChapterInfo> BaseExportStrategy::chapterInfos(const ExportContext& context,
                                                    const std::vector<ExportedChapter>& chapters)
{
    QList<ChapterInfo> infos;
    for (const ExportedChapter& c : chapters) {
        ChapterInfo info;
        info.title = c.title;
        info.startTime = c.start;
        if (c.planChapter >= 0 && c.planChapter < static_cast<int>(context.plan.chapterToBookmarkMap.size())) {
            const int b = context.plan.chapterToBookmarkMap[static_cast<std::size_t>(c.planChapter)];
            if (b >= 0 && b < static_cast<int>(context.bookmarks.size()))
                info.artworkData = context.bookmarks[static_cast<std::size_t>(b)].artworkData;
        }
        infos.append(info);
    }
    return infos;
}

void BaseExportStrategy::copyFile(const QString& source, const QString& target, const CancellationToken& token,
                                  const std::function<void(double)>& progress)
{
    try {
        FileRangeCopier::copyFile(source, target, 0644, [&](std::uint64_t done, std::uint64_t total) {
            if (token.isCancelled())
                throw ExportError::cancelled();
            if (progress && total > 0)
                progress(double(done) / double(total));
        });
    } catch (const MP4FileError& e) {
        throw GenericError(QStringLiteral("Cannot copy “%1”: %2").arg(QFileInfo(e.path()).fileName(), e.systemMessage()));
    }
}

WorkDirectory BaseExportStrategy::makeWorkDirectory()
{
    WorkDirectory work;
    Log::write(QStringLiteral("[Export] Work folder: ") + work.path());
    return work;
}

void BaseExportStrategy::beginProgress(const ExportContext& context,
                                       const std::vector<std::pair<ExportPhase, double>>& weights)
{
    progressCoalescer_.setSink(context.progressHandler);
    progressCoalescer_.setPlan(weights);
}

void BaseExportStrategy::report(ExportPhase phase, double fraction, const QString& title)
{
    progressCoalescer_.report(phase, fraction, title);
}

QByteArray BaseExportStrategy::renderCover(const ExportContext& context)
{
    const auto& image = context.metadata.coverImageData;
    if (!image || image->isEmpty())
        return {};
    report(ExportPhase::cover, 0);
    const auto rendered = CoverOptions::renderCover(*image, context.settings.coverSize, context.settings.coverQuality);
    report(ExportPhase::cover, 1);
    if (!rendered) {
        Log::write(QStringLiteral("[Export] Cover image could not be decoded — the book is written without it"));
        return {};
    }
    Log::write(QStringLiteral("[Export] Cover: %1 bytes → %2 bytes").arg(image->size()).arg(rendered->size()));
    return *rendered;
}

void BaseExportStrategy::finishFile(const ExportContext& context, const QString& file, const BookMetadata& metadata,
                                    const QList<ChapterInfo>& chapters, const QByteArray& cover,
                                    const FilePlacement& placement, bool freshOutput)
{
    context.throwIfCancelled();
    report(ExportPhase::metadata, 0);
    if (metadataService_) {
        BookFinishRequest request;
        request.file = file;
        request.metadata = metadata;
        request.chapters = chapters;
        request.coverImage = cover;
        request.placement = placement;
        request.freshOutput = freshOutput;
        metadataService_->finishBook(request, context.token());
    } else {
        Log::write(QStringLiteral("[Export] No metadata writer: tags, cover and chapters left out of ") + fileName(file));
    }
    report(ExportPhase::metadata, 1);
    if (!isMP4Container(file))
        return;
    try {
        MP4CreationTimeStamper::stamp(file, QDateTime::currentDateTimeUtc());
    } catch (const Error& e) {
        Log::write(QStringLiteral("[Export] creation date not set on '") + fileName(file) + QStringLiteral("' (non-fatal): ")
                   + e.description());
    }

    context.throwIfCancelled();
    report(ExportPhase::fastStart, 0);
    try {
        const FastStartRelocator::Outcome outcome = FastStartRelocator::relocate(file);
        if (outcome.kind == FastStartRelocator::Outcome::Kind::refused)
            Log::write(QStringLiteral("[FastStart] relocation FAILED for '") + fileName(file)
                       + QStringLiteral("' (non-fatal): ") + FastStartRelocator::refusalName(outcome.refusal));
    } catch (const SafeFileReplace::WriteInterruptedError& e) {
        Log::write(QStringLiteral("[FastStart] put-back INTERRUPTED for '") + fileName(file)
                   + QStringLiteral("' — output DAMAGED; ") + e.preservedCopyPath());
        throw;
    } catch (const Error& e) {
        Log::write(QStringLiteral("[FastStart] relocation FAILED for '") + fileName(file)
                   + QStringLiteral("' (non-fatal): ") + e.description());
    }
    report(ExportPhase::fastStart, 1);
}

void BaseExportStrategy::placeOutput(const ExportContext& context, const QString& finished, const QString& target)
{
    if (ExportPrologue::isProtected(target, context.protectedSourceIdentities)) {
        Log::write(QStringLiteral("[Export] '") + fileName(target)
                   + QStringLiteral("' is one of the book's own files — refusing to write over it (.folivox-no-free-name)"));
        throw ExportError::validationFailed(
            L10n::format(L10n::text("export.error.no.free.name",
                                    "Folivox can't find a free name for “%@” in this folder — it would have to write "
                                    "over one of the book's own files."),
                         {fileName(target)}));
    }
    const QString folder = QFileInfo(target).absolutePath();
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder);
    OutputPlacement::put(finished, target, context.token());
    Log::write(QStringLiteral("[Export] Output in place: ") + target);
    FaultInjection::reach("export.outputPlaced");
}

ExportOutcome BaseExportStrategy::completeWithFile(ExportContext& context, const QString& finished,
                                          std::vector<ExportedChapter> chapters, const QString& logTag, qint64 wallMs)
{
    context.throwIfCancelled();
    report(ExportPhase::finalizing, 0);
    placeOutput(context, finished, context.outputURL);

    ExportOutcome outcome;
    outcome.outputPath = context.outputURL;
    outcome.outputFiles = {context.outputURL};
    outcome.chapters = std::move(chapters);
    outcome.strategy = kind();
    outcome.timings = timings();
    Log::write(logTag + QStringLiteral(" ========== STRATEGY COMPLETED ========== (%1 ms)").arg(wallMs));
    progressCoalescer_.reportOverall(ExportPhase::complete, 1.0);
    return outcome;
}

} // namespace folivox
