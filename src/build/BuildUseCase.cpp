#include "build/BuildUseCase.h"

#include "build/BookTagMerger.h"
#include "build/BuildFailure.h"
#include "build/BuildOutputPlanner.h"
#include "build/ChapterFileBookmarks.h"
#include "build/SourceCover.h"
#include "export/DefaultExportService.h"
#include "export/DefaultMetadataWritingService.h"
#include "export/ExportDecisionPreview.h"
#include "export/ExportSettingsValidator.h"
#include "export/FFmpegWrapper.h"
#include "export/UserFacingError.h"
#include "import/ImportCoordinator.h"
#include "import/LibavAudioInspector.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "sidecars/SidecarApplyPolicy.h"
#include "sidecars/SidecarDiscoveryService.h"
#include "sidecars/SidecarParserRegistry.h"

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
    if (!result || result->chapters.isEmpty())
        throw BuildFailure::failed(
            L10n::format(L10n::text("build.chapters.none", "no chapters could be read from %@"), {chapterFile}), chapterFile);
    for (const SidecarWarning& w : result->warnings) {
        if (w.severity == SidecarWarningSeverity::info)
            continue;
        const QString line = QStringLiteral("%1: %2").arg(QFileInfo(chapterFile).fileName(), w.message);
        warnings << line;
        if (sinks.note)
            sinks.note(line);
    }
    Chapters chapters;
    chapters.bookmarks = ChapterFileBookmarks::make(tracks, result->chapters);
    if (chapters.bookmarks.empty())
        throw BuildFailure::failed(L10n::format(L10n::text("build.chapters.beyondAudio",
                                                           "the chapters of %@ lie beyond the end of the audio"),
                                                {chapterFile}),
                                   chapterFile);
    chapters.source = QFileInfo(chapterFile).fileName();
    return chapters;
}

Chapters chaptersFromDiscovery(const std::vector<Track>& tracks, std::vector<Bookmark> imported, bool noSidecar,
                               const BuildUseCase::Sinks& sinks, QStringList& warnings)
{
    Chapters chapters;
    chapters.bookmarks = std::move(imported);
    QList<SidecarAudioInput> audio;
    for (const Track& t : tracks)
        audio.append({t.url, static_cast<std::int64_t>(std::llround(t.duration * 1000.0))});
    SidecarDiscoveryService discovery;
    const SidecarApplyPolicy::Decision decision = SidecarApplyPolicy::decide(discovery.discover(audio), noSidecar);
    Log::write(QStringLiteral("[Sidecar] ") + decision.reason);
    if (decision.shouldApply() && decision.match) {
        auto fromFile = ChapterFileBookmarks::make(tracks, decision.match->chapters);
        if (!fromFile.empty()) {
            chapters.bookmarks = std::move(fromFile);
            chapters.source = QFileInfo(decision.match->sidecarURL.toLocalFile()).fileName();
        }
    }
    if (decision.action != SidecarApplyPolicy::Action::ignore || decision.shouldApply()) {
        warnings << decision.reason;
        if (sinks.note)
            sinks.note(decision.reason);
    }
    return chapters;
}

} // namespace

// Everything a build needs before the export starts, checked.
struct BuildUseCase::Prepared {
    std::vector<Track> tracks;
    Chapters chapters;
    BookMetadata metadata;
    QString output;
    bool outputExists = false;
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
    }

    const QByteArray givenCover = request.coverPath ? readCover(*request.coverPath) : QByteArray();
    if (request.book)
        return prepareImported(*request.book, request, givenCover);
    const QList<QUrl> inputs = inputURLs(request.inputs);

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

    // Tags, cover and the output.
    const QFileInfo firstInput(request.inputs.first());
    const QString fallbackTitle = firstInput.isDir() ? QDir(firstInput.absoluteFilePath()).dirName() : firstInput.completeBaseName();
    prepared.metadata = BookTagMerger::merge(request.tags, tracks, fallbackTitle);
    QByteArray cover = givenCover;
    if (cover.isEmpty())
        cover = SourceCover::embedded(tracks.front().url.toLocalFile());
    if (!cover.isEmpty())
        prepared.metadata.coverImageData = cover;
    if (!planOutput)
        return prepared;
    prepared.output = BuildOutputPlanner::plan(request.output, prepared.metadata.title, format);
    BuildOutputPlanner::check(prepared.output, format);
    prepared.outputExists = BuildOutputPlanner::checkReplace(prepared.output, format, request.replaceExisting);
    return prepared;
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
    prepared.tracks = book.tracks;
    prepared.chapters.bookmarks = book.bookmarks;
    prepared.chapters.source = QStringLiteral("book");
    prepared.metadata = request.tags.applied(book.metadata);
    if (!givenCover.isEmpty())
        prepared.metadata.coverImageData = givenCover;
    if (prepared.metadata.title.trimmed().isEmpty())
        prepared.metadata.title = QStringLiteral("Audiobook");
    const OutputFormat format = request.settings.outputFormat;
    prepared.output = BuildOutputPlanner::plan(request.output, prepared.metadata.title, format);
    BuildOutputPlanner::check(prepared.output, format);
    prepared.outputExists = BuildOutputPlanner::checkReplace(prepared.output, format, request.replaceExisting);
    return prepared;
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
        decided = ExportDecisionPreview::take(prepared.chapters.bookmarks, prepared.tracks, request.settings, false,
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
    plan.skippedFiles = prepared.skippedFiles;
    return plan;
}

BuildResult BuildUseCase::run(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks)
{
    const Prepared prepared = prepare(request, *token, sinks);
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
    exportRequest.settings = request.settings;
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
        throw failure;
    }

    BuildResult result;
    result.outcome = *exported.outcome;
    result.title = prepared.metadata.title;
    result.trackCount = static_cast<int>(prepared.tracks.size());
    result.chapterSource = prepared.chapters.source;
    for (const ExportedChapter& c : result.outcome.chapters)
        result.duration += c.duration;
    result.settings = request.settings;
    result.logFile = exported.logFile;
    result.warnings = prepared.warnings;
    result.skippedFiles = prepared.skippedFiles;
    return result;
}

} // namespace folivox
