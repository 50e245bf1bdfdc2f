#include "build/BuildUseCase.h"

#include "import/BookTagMerger.h"
#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "build/OwnOutputFilter.h"
#include "build/SourceDamage.h"
#include "build/SourceCover.h"
#include "export/engine/DefaultExportService.h"
#include "export/settings/BitrateOptionsCalculator.h"
#include "export/metadata/DefaultMetadataWritingService.h"
#include "export/decision/ExportDecisionPreview.h"
#include "export/settings/ExportSettingsValidator.h"
#include "export/engine/OutputLock.h"
#include "process/FFmpegWrapper.h"
#include "export/engine/UserFacingError.h"
#include "import/repair/FileRepairService.h"
#include "import/ImportCoordinator.h"
#include "import/probe/LibavAudioInspector.h"
#include "library/CoverFinder.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "platform/WorkDirectory.h"
#include "sidecars/apply/SidecarAutoApply.h"
#include "sidecars/apply/SidecarChapterFitter.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"
#include "sidecars/parsers/SidecarParserRegistry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>

namespace folivox {

struct BuildUseCase::Chapters {
    std::vector<Bookmark> bookmarks;
    QString source = QStringLiteral("audio");
};

namespace {

using Chapters = BuildUseCase::Chapters;

QList<QUrl> inputURLs(const QStringList& inputs)
{
    QList<QUrl> urls;
    for (const QString& input : inputs) {
        const QFileInfo info(input);
        if (!info.exists())
            throw BuildFailure::failed(L10n::format(L10n::text("build.input.missing", "no such file or folder: %@"), {input}), input);
        urls << QUrl::fromLocalFile(info.absoluteFilePath());
    }
    return urls;
}

QByteArray readCover(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw BuildFailure::failed(L10n::format(L10n::text("build.cover.unreadable", "cannot read the cover image %@: %@"),
                                                {path, file.errorString()}),
                                   path);
    const QByteArray bytes = file.readAll();
    if (QImage::fromData(bytes).isNull())
        throw BuildFailure::failed(
            L10n::format(L10n::text("build.cover.notImage", "the cover %@ is not an image Folivox can read"), {path}), path);
    return bytes;
}

// Every input that could not be read, named with its reason; a failure
// unless the request asks to build without them.
std::vector<BuildResult::SkippedFile> unreadableInputs(const ImportResult& imported)
{
    std::vector<BuildResult::SkippedFile> skipped;
    for (const auto& u : imported.outcome.unreadableFiles)
        skipped.push_back({u.url.toLocalFile(), TrackLoadOutcome::reasonText(u.reason)});
    for (const QUrl& u : imported.videoFailures)
        skipped.push_back({u.toLocalFile(), L10n::text("build.input.videoNoAudio", "its audio could not be extracted")});
    return skipped;
}

QString skippedListText(const std::vector<BuildResult::SkippedFile>& skipped)
{
    QString text;
    for (const auto& s : skipped)
        text += QStringLiteral("\n  ") + s.path + QStringLiteral(": ") + s.reason;
    return text;
}

Chapters chaptersFromFile(const QString& chapterFile, const std::vector<Track>& tracks, const BuildUseCase::Sinks& sinks,
                          QStringList& warnings)
{
    SidecarDiscoveryService discovery;
    QString text;
    try {
        text = discovery.readText(chapterFile);
    } catch (const Error& e) {
        throw BuildFailure::failed(L10n::format(L10n::text("build.chapters.unreadable", "cannot read the chapter file %@: %@"),
                                                {chapterFile, e.description()}),
                                   chapterFile);
    }
    const auto result = SidecarParserRegistry::parse(text, QUrl::fromLocalFile(QFileInfo(chapterFile).absoluteFilePath()));
    if (!result)
        throw BuildFailure::failed(
            L10n::format(L10n::text("build.chapters.none", "no chapters could be read from %@"), {chapterFile}), chapterFile);
    // The same fitting `folivox chapters --audio` reports.
    const FittedSidecarChapters fitted = SidecarChapterFitter::fit(*result, SidecarChapterFitter::totalDurationMs(tracks));
    const QStringList notices = SidecarChapterFitter::notices(fitted, QFileInfo(chapterFile).fileName());
    if (!fitted.isValid)
        throw BuildFailure::failed(L10n::format(L10n::text("build.chapters.cannotApply", "the chapters of %@ can't be applied: %@\n%@"),
                                                {chapterFile, fitted.firstProblem(), notices.join(u'\n')}),
                                   chapterFile);
    for (const QString& line : notices) {
        warnings << line;
        if (sinks.note)
            sinks.note(line);
    }
    Chapters chapters;
    chapters.bookmarks = SidecarChapterFitter::bookmarks(tracks, fitted.chapters);
    chapters.source = QFileInfo(chapterFile).fileName();
    return chapters;
}

Chapters chaptersFromDiscovery(const std::vector<Track>& tracks, std::vector<Bookmark> imported, bool noSidecar,
                               const BuildUseCase::Sinks& sinks, QStringList& warnings)
{
    Chapters chapters;
    chapters.bookmarks = std::move(imported);
    SidecarAutoApply::Outcome found = SidecarAutoApply::apply(tracks, noSidecar);
    if (found.bookmarks) {
        chapters.bookmarks = std::move(*found.bookmarks);
        chapters.source = found.fileName;
    }
    if (found.worthTelling) {
        warnings << found.reason;
        if (sinks.info)
            sinks.info(found.reason);
    }
    return chapters;
}

// A build already writing this output is found before the import: the
// lock is tried and let go at once (the export takes it for good), so that
// a second build is refused in a moment rather than after its import.
void refuseIfAnotherBuildWrites(const QString& output)
{
    try {
        OutputLock::acquire(output);
    } catch (const Error& e) {
        BuildFailure failure = BuildFailure::failed(e.description(), output);
        failure.setCause(e.cause());
        throw failure;
    }
}

// The settings with their bitrate held down to the sources' own: the step
// at or above the highest source bitrate, when that is below the setting.
ExportSettings cappedToSource(const ExportSettings& settings, const std::vector<Track>& tracks,
                              const std::function<void(const QString&)>& note)
{
    if (settings.keepSourceBitrate || !settings.cbrBitrateKbps)
        return settings;
    int sourceKbps = 0;
    int sourceChannels = 1;
    for (const Track& t : tracks) {
        sourceKbps = std::max(sourceKbps, (t.cachedBitrate.value_or(0) + 500) / 1000);
        sourceChannels = std::max(sourceChannels, t.cachedChannels.value_or(1));
    }
    if (sourceKbps <= 0)
        return settings;
    const int channels = settings.channels == ChannelSetting::mono ? 1 : settings.channels == ChannelSetting::stereo ? 2 : sourceChannels;
    const std::vector<int> steps = BitrateOptionsCalculator::steps(settings.outputFormat, settings.codec, channels);
    const int cap = steps.empty() ? sourceKbps : BitrateOptionsCalculator::stepAtOrAbove(sourceKbps, steps);
    if (cap >= *settings.cbrBitrateKbps)
        return settings;
    ExportSettings capped = settings;
    capped.cbrBitrateKbps = cap;
    note(L10n::format(L10n::text("build.bitrate.capped", "Quality Capped to Source: %@ kbps instead of %@ kbps, as the sources are %@ kbps"),
                      {QString::number(cap), QString::number(*settings.cbrBitrateKbps), QString::number(sourceKbps)}));
    return capped;
}

} // namespace

// Everything a build needs before the export starts, checked.
struct BuildUseCase::Prepared {
    std::vector<Track> tracks;
    Chapters chapters;
    BookMetadata metadata;
    QString output;
    bool outputExists = false;
    // The file the cover came from, if there is one.
    QString coverSource;
    // The settings the build runs with.
    ExportSettings settings;
    SourceDamage damage;
    // Repaired copies of damaged sources live here for the length of the build.
    std::shared_ptr<WorkDirectory> repairs;
    QStringList warnings;
    std::vector<BuildResult::SkippedFile> skippedFiles;
};

BuildUseCase::BuildUseCase() = default;
BuildUseCase::~BuildUseCase() = default;

BuildUseCase::Prepared BuildUseCase::prepare(const BuildRequest& request, const CancellationToken& token, const Sinks& sinks,
                                             bool planOutput)
{
    try {
        ExportSettingsValidator::validate(request.settings);
    } catch (const Error& e) {
        throw BuildFailure::usage(e.description());
    }
    const OutputFormat format = request.settings.outputFormat;
    // A named output file is checked before anything is read; a folder or
    // the default name waits for the title.
    if (planOutput && request.output && !QFileInfo(*request.output).isDir()) {
        const QString early = BuildOutputPlanner::plan(request.output, QStringLiteral("Audiobook"), format);
        BuildOutputPlanner::check(early, format);
        BuildOutputPlanner::checkReplace(early, format, request.replaceExisting);
        refuseIfAnotherBuildWrites(early);
    }

    const QByteArray givenCover = request.coverPath ? readCover(*request.coverPath) : QByteArray();
    if (request.book)
        return prepareImported(*request.book, request, givenCover);
    // A folder built into itself again: its earlier outputs are not inputs.
    const std::optional<QString> knownOutput =
        request.output ? std::optional(BuildOutputPlanner::plan(request.output, QStringLiteral("Audiobook"), format))
                       : std::nullopt;
    const OwnOutputFilter::Filtered filtered = OwnOutputFilter::apply(inputURLs(request.inputs), knownOutput);
    const QList<QUrl>& inputs = filtered.inputs;

    // Import.
    ImportCoordinator coordinator;
    if (request.sort)
        coordinator.trackSortMode = *request.sort;
    const QString importing = L10n::text("build.phase.importing", "Importing files…");
    coordinator.onProgress = [&sinks, &importing](int done, int total) {
        if (sinks.progress)
            sinks.progress(importing, total > 0 ? double(done) / total : 0.0);
    };
    const ImportResult imported = coordinator.import(inputs, token);
    if (token.isCancelled() || imported.status == ImportResult::Status::cancelled)
        throw BuildFailure::cancelled();
    if (imported.status == ImportResult::Status::refused || imported.status == ImportResult::Status::busy)
        throw BuildFailure::failed(imported.alert ? imported.alert->message
                                                  : L10n::text("build.input.cannotCombine",
                                                               "the files cannot be combined into one book"));

    Prepared prepared;
    prepared.skippedFiles = unreadableInputs(imported);
    if (!filtered.leftOut.isEmpty()) {
        QString line = L10n::text("build.input.ownOutputs", "Left out, as earlier outputs of this build:");
        for (const QString& p : filtered.leftOut)
            line += QStringLiteral("\n  ") + p;
        prepared.warnings << line;
        if (sinks.note)
            sinks.note(line);
    }
    prepared.tracks = coordinator.bookTracks();
    const std::vector<Track>& tracks = prepared.tracks;
    const auto note = [&prepared, &sinks](const QString& line) {
        prepared.warnings << line;
        if (sinks.note)
            sinks.note(line);
    };
    if (tracks.empty() || imported.status == ImportResult::Status::nothingImported) {
        if (prepared.skippedFiles.empty())
            throw BuildFailure::failed(L10n::text("build.input.noAudio", "no audio found in the inputs"),
                                       request.inputs.value(0));
        throw BuildFailure::failed(L10n::text("build.input.noneReadable", "no audio could be read:")
                                       + skippedListText(prepared.skippedFiles),
                                   prepared.skippedFiles.front().path);
    }
    if (!prepared.skippedFiles.empty()) {
        if (!request.skipUnreadable) {
            throw BuildFailure::failed(
                L10n::format(L10n::text("build.input.unreadable",
                                        "%@ of the inputs cannot be read, and the book would miss them:%@\n"
                                        "Repair or remove them, or build without them with --skip-unreadable."),
                             {QString::number(prepared.skippedFiles.size()), skippedListText(prepared.skippedFiles)}),
                prepared.skippedFiles.front().path);
        }
        note(L10n::text("build.input.skipped", "Left out, as they cannot be read:") + skippedListText(prepared.skippedFiles));
    } else if (imported.report) {
        note(imported.report->title + QStringLiteral(": ") + imported.report->message);
    }

    // Chapters: a chapter file given or dropped with the audio, or one found beside it.
    std::optional<QString> chapterFile = request.chapterFile;
    if (!chapterFile && !imported.droppedSidecarFiles.isEmpty())
        chapterFile = imported.droppedSidecarFiles.first().toLocalFile();
    prepared.chapters = chapterFile ? chaptersFromFile(*chapterFile, tracks, sinks, prepared.warnings)
                                    : chaptersFromDiscovery(tracks, coordinator.bookChapters(), request.noSidecar, sinks,
                                                            prepared.warnings);

    checkDamage(prepared, request, token, sinks);
    if (request.capBitrateToSource)
        prepared.settings = cappedToSource(request.settings, tracks, [&prepared, &sinks](const QString& line) {
            prepared.warnings << line;
            if (sinks.info)
                sinks.info(line);
        });
    else
        prepared.settings = request.settings;

    // Tags, cover and the output.
    const QFileInfo firstInput(request.inputs.first());
    const QString fallbackTitle = firstInput.isDir() ? QDir(firstInput.absoluteFilePath()).dirName() : firstInput.completeBaseName();
    prepared.metadata = BookTagMerger::merge(request.tags, tracks, fallbackTitle);
    // The cover: the one given, else the first track's own picture, else an
    // image beside the audio ("cover.jpg", "folder.png", "front.jpeg", ...).
    // Only a cover Folivox found is named in the result: the user knows
    // the one they gave.
    QByteArray cover = givenCover;
    if (cover.isEmpty()) {
        const QString first = tracks.front().url.toLocalFile();
        cover = SourceCover::embedded(first);
        if (!cover.isEmpty()) {
            prepared.coverSource = first;
        } else if (const auto beside = CoverFinder::inFolder(QFileInfo(first).absolutePath())) {
            cover = beside->bytes;
            prepared.coverSource = beside->source.toLocalFile();
        }
    }
    if (!cover.isEmpty())
        prepared.metadata.coverImageData = cover;
    if (!planOutput)
        return prepared;
    prepared.output = BuildOutputPlanner::plan(request.output, prepared.metadata.title, format);
    BuildOutputPlanner::check(prepared.output, format);
    prepared.outputExists = BuildOutputPlanner::checkReplace(prepared.output, format, request.replaceExisting);
    return prepared;
}

void BuildUseCase::checkDamage(Prepared& prepared, const BuildRequest& request, const CancellationToken& token, const Sinks& sinks)
{
    std::optional<SourceDamage> damage = SourceDamage::scan(prepared.tracks, prepared.chapters.bookmarks, token);
    if (!damage)
        throw BuildFailure::cancelled();
    prepared.damage = std::move(*damage);
    if (prepared.damage.isEmpty())
        return;
    if (request.repairDamaged) {
        auto ffmpeg = std::make_shared<FFmpegWrapper>();
        FileRepairService repairer(ffmpeg);
        prepared.repairs = std::make_shared<WorkDirectory>();
        int n = 0;
        for (SourceDamage::File& file : prepared.damage.files) {
            const QString source = file.report.url.toLocalFile();
            const QString copy = prepared.repairs->filePath(QStringLiteral("%1-%2").arg(++n).arg(QFileInfo(source).fileName()));
            if (sinks.progress)
                sinks.progress(L10n::text("build.phase.repairing", "Repairing damaged files…"),
                               double(n - 1) / double(prepared.damage.files.size()));
            const auto made = repairer.repairTo(source, copy, token);
            if (token.isCancelled())
                throw BuildFailure::cancelled();
            if (!made)
                throw BuildFailure::failed(
                    L10n::format(L10n::text("build.damage.repairFailed", "the damaged file %@ could not be repaired"), {source}),
                    source);
            file.repairedCopy = made->path;
            const QUrl from = file.report.url;
            const QUrl to = QUrl::fromLocalFile(made->path);
            const auto swap = [&](Track& t) {
                if (t.url != from)
                    return;
                t.url = to;
                // The copy is another file: its format is probed again before the build.
                t.cachedFileSize.reset();
                t.cachedFileModificationDate.reset();
            };
            for (Track& t : prepared.tracks)
                swap(t);
            for (Bookmark& b : prepared.chapters.bookmarks) {
                for (Track& t : b.tracks)
                    swap(t);
            }
        }
    }
    for (const QString& line : prepared.damage.lines()) {
        prepared.warnings << line;
        if (sinks.note)
            sinks.note(line);
    }
}

BuildUseCase::Prepared BuildUseCase::prepareImported(const ImportedBook& book, const BuildRequest& request,
                                                     const QByteArray& givenCover)
{
    if (book.tracks.empty() || book.bookmarks.empty())
        throw BuildFailure::failed(L10n::text("build.book.empty", "the book has no audio or no chapters to build"));
    for (const Track& t : book.tracks) {
        const QString source = t.url.toLocalFile();
        if (!QFileInfo(source).isFile())
            throw BuildFailure::failed(
                L10n::format(L10n::text("build.book.sourceGone",
                                        "the book's audio file %@ is no longer there: put it back, or add the book again"),
                             {source}),
                source);
    }
    Prepared prepared;
    prepared.settings = request.settings;
    prepared.tracks = book.tracks;
    prepared.chapters.bookmarks = book.bookmarks;
    prepared.chapters.source = QStringLiteral("book");
    prepared.metadata = request.tags.applied(book.metadata);
    if (!givenCover.isEmpty())
        prepared.metadata.coverImageData = givenCover;
    if (prepared.metadata.title.trimmed().isEmpty())
        prepared.metadata.title = QStringLiteral("Audiobook");
    checkDamage(prepared, request, CancellationToken::never(), {});
    const OutputFormat format = request.settings.outputFormat;
    prepared.output = BuildOutputPlanner::plan(request.output, prepared.metadata.title, format);
    BuildOutputPlanner::check(prepared.output, format);
    prepared.outputExists = BuildOutputPlanner::checkReplace(prepared.output, format, request.replaceExisting);
    return prepared;
}

void BuildUseCase::refuseImpossibleCopy(const Prepared& prepared)
{
    auto ffmpeg = std::make_shared<FFmpegWrapper>();
    const ExportDecisionPreview::Preview decided = ExportDecisionPreview::take(
        prepared.chapters.bookmarks, prepared.tracks, prepared.settings, false, LibavAudioInspector::formatProbeFunction(ffmpeg));
    if (!decided.decision.reasons.isEmpty())
        throw BuildFailure::usage(L10n::format(L10n::text("build.passthrough.impossible",
                                                          "--passthrough force cannot copy this audio (%@): use "
                                                          "--passthrough auto to encode it"),
                                               {decided.decision.reasons.join(QStringLiteral("; "))}));
}

ImportedBook BuildUseCase::importBook(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks)
{
    Prepared prepared = prepare(request, *token, sinks, false);
    return ImportedBook{std::move(prepared.tracks), std::move(prepared.chapters.bookmarks), std::move(prepared.metadata)};
}

BuildPlan BuildUseCase::preview(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks)
{
    const Prepared prepared = prepare(request, *token, sinks);
    auto ffmpeg = std::make_shared<FFmpegWrapper>();
    ExportDecisionPreview::Preview decided;
    try {
        decided = ExportDecisionPreview::take(prepared.chapters.bookmarks, prepared.tracks, prepared.settings, false,
                                              LibavAudioInspector::formatProbeFunction(ffmpeg));
    } catch (const Error& e) {
        throw BuildFailure::failed(e.description());
    }
    BuildPlan plan;
    plan.title = prepared.metadata.title;
    for (const Track& t : prepared.tracks)
        plan.inputs << t.url.toLocalFile();
    std::vector<double> trackStarts;
    double total = 0;
    for (const Track& t : prepared.tracks) {
        trackStarts.push_back(total);
        total += t.duration;
    }
    for (const Bookmark& b : prepared.chapters.bookmarks) {
        double start = b.startOffset;
        for (std::size_t i = 0; i < prepared.tracks.size() && !b.tracks.empty(); ++i) {
            if (prepared.tracks[i].url == b.tracks.front().url) {
                start += trackStarts[i];
                break;
            }
        }
        plan.chapters.push_back({b.title, start, b.duration});
    }
    plan.chapterSource = prepared.chapters.source;
    plan.strategy = decided.decision.strategy;
    plan.reasons = decided.decision.reasons;
    plan.outputPath = prepared.output;
    plan.replacesExisting = prepared.outputExists;
    plan.warnings = prepared.warnings;
    plan.coverSource = prepared.coverSource;
    plan.damage = prepared.damage;
    plan.skippedFiles = prepared.skippedFiles;
    return plan;
}

BuildResult BuildUseCase::run(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks)
{
    const Prepared prepared = prepare(request, *token, sinks);
    if (prepared.settings.passthroughPolicy == PassthroughPolicy::force)
        refuseImpossibleCopy(prepared);
    if (sinks.started) {
        double total = 0;
        for (const Bookmark& b : prepared.chapters.bookmarks)
            total += b.duration;
        sinks.started(total);
    }

    // The build.
    auto ffmpeg = std::make_shared<FFmpegWrapper>();
    DefaultExportService::Dependencies dependencies;
    dependencies.ffmpeg = ffmpeg;
    dependencies.metadataService = std::make_shared<DefaultMetadataWritingService>();
    dependencies.formatProbe = LibavAudioInspector::formatProbeFunction(ffmpeg);
    DefaultExportService service(dependencies);
    DefaultExportService::Request exportRequest;
    exportRequest.bookmarks = prepared.chapters.bookmarks;
    exportRequest.metadata = prepared.metadata;
    exportRequest.outputPath = prepared.output;
    exportRequest.settings = prepared.settings;
    exportRequest.allTracks = prepared.tracks;
    exportRequest.parallelJobs = request.parallelJobs;
    if (request.logFile)
        exportRequest.logFile = QFileInfo(*request.logFile).absoluteFilePath();
    const ExportResult exported = service.exportAndWait(exportRequest, token, [&sinks](const ExportProgress& p) {
        if (sinks.progress)
            sinks.progress(p.title, p.fraction);
    });

    // A book in place is a success, even when a cancel arrived just after.
    if (!exported.succeeded()) {
        if (exported.cancelled() || token->isCancelled())
            throw BuildFailure::cancelled();
        const ExportError error = exported.error.value_or(ExportError::failedToWrite());
        const UserFacingError shown = UserFacingError::make(error, exported.failureContext);
        const bool sourceNamed = exported.failureContext && !exported.failureContext->sourceFileNames.isEmpty();
        BuildFailure failure = BuildFailure::failed(shown.fullText(),
                                                    sourceNamed ? exported.failureContext->sourceFileNames.first()
                                                                : prepared.output);
        failure.logFile = exported.logFile;
        failure.exportError = error;
        failure.setCause(error.cause());
        throw failure;
    }

    BuildResult result;
    result.outcome = *exported.outcome;
    result.title = prepared.metadata.title;
    result.trackCount = static_cast<int>(prepared.tracks.size());
    result.chapterSource = prepared.chapters.source;
    for (const ExportedChapter& c : result.outcome.chapters)
        result.duration += c.duration;
    result.settings = prepared.settings;
    result.logFile = exported.logFile;
    result.warnings = prepared.warnings;
    result.coverSource = prepared.coverSource;
    result.damage = prepared.damage;
    result.skippedFiles = prepared.skippedFiles;
    return result;
}

} // namespace folivox
