#include "import/ImportCoordinator.h"

#include "process/FFmpegWrapper.h"
#include "import/probe/AudioMetadataService.h"
#include "import/ImportChapterBuilder.h"
#include "import/probe/InspectionError.h"
#include "import/TrackBuilder.h"
#include "import/TrackOrdering.h"
#include "import/probe/VideoAudioExtractor.h"
#include "platform/AppSettings.h"
#include "platform/L10n.h"
#include "platform/Log.h"

#include <QCollator>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

namespace folivox {

namespace {

constexpr int kLogListLimit = 50;

void log(const QString& message)
{
    Log::write(QStringLiteral("[Import] ") + message);
}

QString suffixOf(const QString& path)
{
    return QFileInfo(path).suffix().toLower();
}

QString pathOf(const QUrl& url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

bool isM4B(const QString& path)
{
    return suffixOf(path) == u"m4b";
}

// An MP4 file starts with one of these top-level boxes.
bool looksLikeMP4(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return true;  // unknown: say nothing about it
    const QByteArray head = f.read(8);
    if (head.size() < 8)
        return false;
    static const QList<QByteArray> kTypes{"ftyp", "moov", "mdat", "free", "skip", "wide", "pnot", "uuid", "junk"};
    return kTypes.contains(head.mid(4, 4));
}

QString seconds(double s)
{
    return QString::asprintf("%.2fs", s);
}

QString clock(double s)
{
    const qint64 total = static_cast<qint64>(s);
    return QString::asprintf("%lld:%02lld:%02lld", total / 3600, (total / 60) % 60, total % 60);
}

// A QCollator is not safe to share across threads; each expansion makes its own.
void sortNumerically(QStringList& paths)
{
    const QCollator collator = TrackOrdering::makeCollator();
    std::stable_sort(paths.begin(), paths.end(),
                     [&](const QString& a, const QString& b) { return collator.compare(a, b) < 0; });
}

TrackSortMode savedSortMode()
{
    const QString saved = AppSettings().value(QStringLiteral("trackSortMode")).toString();
    return trackSortModeFromString(saved).value_or(TrackSortMode::auto_);
}

} // namespace

const QStringList& ImportCoordinator::audioExtensions()
{
    static const QStringList kAudio{
        QStringLiteral("mp3"),  QStringLiteral("m4a"),  QStringLiteral("m4b"),  QStringLiteral("m4r"),
        QStringLiteral("aac"),  QStringLiteral("flac"), QStringLiteral("ogg"),  QStringLiteral("oga"),
        QStringLiteral("opus"), QStringLiteral("spx"),  QStringLiteral("wav"),  QStringLiteral("aif"),
        QStringLiteral("aiff"), QStringLiteral("aifc"), QStringLiteral("caf"),  QStringLiteral("wma"),
        QStringLiteral("mka"),  QStringLiteral("mp2"),  QStringLiteral("ac3"),  QStringLiteral("eac3"),
        QStringLiteral("wv"),   QStringLiteral("ape"),  QStringLiteral("aax"),  QStringLiteral("aa"),
        QStringLiteral("m4p"),
    };
    return kAudio;
}

const QStringList& ImportCoordinator::sidecarExtensions()
{
    static const QStringList kSidecars{QStringLiteral("cue"), QStringLiteral("txt"), QStringLiteral("xml"),
                                       QStringLiteral("ffmetadata"), QStringLiteral("json")};
    return kSidecars;
}

ImportCoordinator::ImportCoordinator()
    : ImportCoordinator(nullptr, nullptr)
{
}

ImportCoordinator::ImportCoordinator(std::shared_ptr<AudioMetadataService> metadataService,
                                     std::shared_ptr<const FFmpegWrapper> ffmpeg)
    : trackSortMode(savedSortMode())
    , metadataService_(std::move(metadataService))
    , ffmpeg_(std::move(ffmpeg))
{
    if (!ffmpeg_)
        ffmpeg_ = std::make_shared<FFmpegWrapper>();
    if (!metadataService_)
        metadataService_ = std::make_shared<AudioMetadataService>(ffmpeg_);
}

ImportCoordinator::~ImportCoordinator() = default;

std::vector<Track> ImportCoordinator::detectedDRMFiles() const
{
    std::lock_guard lock(mutex_);
    return detectedDRMFiles_;
}

std::vector<Track> ImportCoordinator::detectedXHEAACFiles() const
{
    std::lock_guard lock(mutex_);
    return detectedXHEAACFiles_;
}

std::optional<QString> ImportCoordinator::videoExtractionMessage() const
{
    std::lock_guard lock(mutex_);
    return videoExtractionMessage_;
}

double ImportCoordinator::videoExtractionFraction() const
{
    std::lock_guard lock(mutex_);
    return videoExtractionFraction_;
}

std::vector<Track> ImportCoordinator::bookTracks() const
{
    std::lock_guard lock(mutex_);
    return staged_;
}

std::vector<Bookmark> ImportCoordinator::bookChapters() const
{
    std::lock_guard lock(mutex_);
    return chapters_;
}

void ImportCoordinator::setBook(std::vector<Track> tracks, std::vector<Bookmark> chapters)
{
    std::lock_guard lock(mutex_);
    staged_ = std::move(tracks);
    chapters_ = std::move(chapters);
    didFinalizeOnce_ = !staged_.empty();
}

void ImportCoordinator::resetBook()
{
    std::lock_guard lock(mutex_);
    staged_.clear();
    chapters_.clear();
    detectedDRMFiles_.clear();
    detectedXHEAACFiles_.clear();
    videoExtractionMessage_.reset();
    videoExtractionFraction_ = 0;
    didFinalizeOnce_ = false;
}

void ImportCoordinator::setVideoProgress(const std::optional<QString>& message, double fraction)
{
    {
        std::lock_guard lock(mutex_);
        videoExtractionMessage_ = message;
        videoExtractionFraction_ = fraction;
    }
    if (onVideoProgress && message)
        onVideoProgress(*message, fraction);
}

ImportCoordinator::Expansion ImportCoordinator::expand(const QList<QUrl>& inputs)
{
    Expansion e;
    auto classify = [&e](const QString& path, bool dropped) {
        const QString ext = suffixOf(path);
        if (VideoAudioExtractor::isVideoPath(path))
            e.video << path;
        else if (audioExtensions().contains(ext))
            e.audio << path;
        else if (dropped && sidecarExtensions().contains(ext))
            e.sidecars << path;
        else if (dropped)
            e.ignored << path;
    };
    for (const QUrl& url : inputs) {
        const QString path = QFileInfo(pathOf(url)).absoluteFilePath();
        const QFileInfo info(path);
        if (!info.isDir()) {
            classify(path, true);
            continue;
        }
        // Hidden entries are skipped: dot files, and everything inside a
        // dot folder (".trash", ".git", ...).
        QStringList found;
        const QDir root(path);
        // A folder this user can't list would silently contribute nothing.
        if (!info.isReadable() || !info.isExecutable()) {
            e.unreadableFolders << path;
            continue;
        }
        QDirIterator dirs(path, QDir::Dirs | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (dirs.hasNext()) {
            const QString d = dirs.next();
            const QStringList parts = root.relativeFilePath(d).split(u'/');
            if (std::any_of(parts.begin(), parts.end(), [](const QString& s) { return s.startsWith(u'.'); }))
                continue;
            const QFileInfo di(d);
            if (!di.isReadable() || !di.isExecutable())
                e.unreadableFolders << d;
        }
        QDirIterator it(path, QDir::Files | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString p = it.next();
            const QStringList parts = root.relativeFilePath(p).split(u'/');
            if (std::none_of(parts.begin(), parts.end(), [](const QString& s) { return s.startsWith(u'.'); }))
                found << p;
        }
        sortNumerically(found);
        for (const QString& p : found)
            classify(p, false);
    }
    return e;
}

QString ImportCoordinator::m4bFilesNote(const QStringList& selection, const QList<QUrl>& inputs)
{
    // The path as the user knows it: from the folder they gave, or the name.
    const auto shown = [&inputs](const QString& path) {
        for (const QUrl& u : inputs) {
            const QFileInfo in(pathOf(u));
            if (in.isDir() && path.startsWith(in.absoluteFilePath() + u'/'))
                return QDir(in.absolutePath()).relativeFilePath(path);
        }
        return QFileInfo(path).fileName();
    };
    QStringList names;
    QStringList notMP4;
    for (const QString& p : selection) {
        if (!isM4B(p))
            continue;
        names << shown(p);
        if (!looksLikeMP4(p))
            notMP4 << shown(p);
    }
    if (names.isEmpty())
        return {};
    constexpr int kShown = 5;
    QString note = QStringLiteral("\n\nM4B file(s) in this selection: ") + names.mid(0, kShown).join(QStringLiteral(", "));
    if (names.size() > kShown)
        note += QStringLiteral(" and %1 more").arg(names.size() - kShown);
    for (const QString& n : notMP4)
        note += QStringLiteral("\n%1 is not an M4B audiobook at all (its content is not MP4) — take it out of the "
                               "folder or give it its right extension.")
                    .arg(n);
    return note;
}

std::optional<ImportAlert> ImportCoordinator::m4bRefusal(const QStringList& selection, const std::vector<Track>& book)
{
    const bool selectionHasM4B = std::any_of(selection.begin(), selection.end(), isM4B);
    const bool selectionHasOther = std::any_of(selection.begin(), selection.end(),
                                               [](const QString& p) { return !isM4B(p); });
    const bool bookHasM4B = std::any_of(book.begin(), book.end(),
                                        [](const Track& t) { return isM4B(pathOf(t.url)); });
    const bool bookHasOther = std::any_of(book.begin(), book.end(),
                                          [](const Track& t) { return !isM4B(pathOf(t.url)); });
    if (selectionHasM4B && selectionHasOther)
        return ImportAlert::keyed(QStringLiteral("alert.cannot.mix.formats.in.selection"),
                                  "Cannot import M4B with other formats",
                                  "You selected both M4B audiobook(s) and other audio files (MP3, M4A, etc.). M4B "
                                  "files with embedded chapters cannot be mixed with other formats. Please select "
                                  "files of only one type.");
    if (bookHasM4B && selectionHasOther)
        return ImportAlert::keyed(QStringLiteral("alert.cannot.mix.m4b"), "Cannot mix M4B with other formats",
                                  "You've already added M4B audiobook(s). Please remove them first if you want to "
                                  "add MP3/M4A files, or start a new project.");
    if (bookHasOther && selectionHasM4B)
        return ImportAlert::keyed(QStringLiteral("alert.cannot.add.m4b"), "Cannot add M4B to existing files",
                                  "You've already added audio files (MP3, M4A, etc.). M4B audiobooks with embedded "
                                  "chapters cannot be mixed with other formats. Please remove existing files first "
                                  "or start a new project.");
    return std::nullopt;
}

ImportResult ImportCoordinator::import(const QList<QUrl>& inputs, const CancellationToken& token)
{
    ImportResult result;
    if (isExclusiveOperationRunning && isExclusiveOperationRunning()) {
        log(QStringLiteral("Import refused: an exclusive library operation is running"));
        result.status = ImportResult::Status::busy;
        ImportAlert a;
        a.messageKey = QStringLiteral("library.import.busy.message");
        a.message = L10n::text("library.import.busy.message",
                               "Another library operation is rewriting book records right now. Nothing was "
                               "imported — try again when it finishes.");
        result.alert = a;
        return result;
    }
    bool expected = false;
    if (!importing_.compare_exchange_strong(expected, true)) {
        log(QStringLiteral("Import ignored: another import is running"));
        result.status = ImportResult::Status::busy;
        return result;
    }
    struct Finish {
        std::atomic<bool>& flag;
        ~Finish() { flag = false; }
    } finish{importing_};

    QElapsedTimer totalClock;
    totalClock.start();
    log(QStringLiteral("========== IMPORT STARTED =========="));
    log(QStringLiteral("Input URLs: ") + QString::number(inputs.size()));
    for (int i = 0; i < inputs.size(); ++i) {
        const QFileInfo info(pathOf(inputs[i]));
        log(QStringLiteral("  [%1] %2 isDir=%3 exists=%4")
                .arg(QString::number(i), info.absoluteFilePath(), info.isDir() ? QStringLiteral("true") : QStringLiteral("false"),
                     info.exists() ? QStringLiteral("true") : QStringLiteral("false")));
    }

    // Files, folders, videos.
    QElapsedTimer phase;
    phase.start();
    const Expansion expansion = expand(inputs);
    const double expandSeconds = static_cast<double>(phase.elapsed()) / 1000.0;
    log(QStringLiteral("Video inputs: ") + QString::number(expansion.video.size()));
    log(QStringLiteral("After filter: ") + QString::number(expansion.audio.size()) + QStringLiteral(" audio file(s)"));
    for (const QString& p : expansion.ignored)
        log(QStringLiteral("Skipped unsupported file: ") + QFileInfo(p).fileName());
    for (const QString& p : expansion.sidecars)
        result.droppedSidecarFiles << QUrl::fromLocalFile(p);

    // The M4B rules look at extensions only, so they run before any video
    // is extracted: a refused selection costs nothing.
    const std::vector<Track> bookBefore = bookTracks();
    if (auto refusal = m4bRefusal(expansion.audio + expansion.video, bookBefore)) {
        log(QStringLiteral("Refused: ") + refusal->title);
        refusal->message += m4bFilesNote(expansion.audio + expansion.video, inputs);
        result.status = ImportResult::Status::refused;
        result.alert = refusal;
        return result;
    }

    phase.restart();
    QStringList files = expansion.audio;
    QStringList videoAudio;
    // The extracted audio of each video: a file of ours, never shown to the
    // user, who is told about the video instead.
    QHash<QString, QString> videoOf;
    std::vector<TrackLoadOutcome::UnreadableFile> unreadableVideos;
    if (!expansion.video.isEmpty()) {
        const VideoAudioExtractor extractor(ffmpeg_);
        for (int i = 0; i < expansion.video.size(); ++i) {
            if (token.isCancelled())
                break;
            const QString& video = expansion.video[i];
            const QFileInfo videoInfo(video);
            if (!videoInfo.isFile() || !videoInfo.isReadable()) {
                unreadableVideos.push_back({QUrl::fromLocalFile(video), videoInfo.isFile()
                                                                            ? TrackLoadOutcome::FailureReason::permissionDenied
                                                                            : TrackLoadOutcome::FailureReason::notRegularFile});
                result.videoFailures << QUrl::fromLocalFile(video);
                continue;
            }
            const QString message = L10n::format(L10n::text("import.video.extracting", "Extracting audio from %@ (%d of %d)"),
                                                 {QFileInfo(video).fileName(), QString::number(i + 1),
                                                  QString::number(expansion.video.size())});
            setVideoProgress(message, static_cast<double>(i) / expansion.video.size());
            const auto extraction = extractor.extract(video, token, [&](double f) {
                setVideoProgress(message, (i + f) / expansion.video.size());
            });
            if (extraction.ok()) {
                files << extraction.audioPath;
                videoAudio << extraction.audioPath;
                videoOf.insert(extraction.audioPath, video);
            } else {
                unreadableVideos.push_back({QUrl::fromLocalFile(video), TrackLoadOutcome::FailureReason::noAudioFound});
                log(QStringLiteral("Video extraction failed for ") + QFileInfo(video).fileName() + QStringLiteral(": ")
                    + extraction.error);
                result.videoFailures << QUrl::fromLocalFile(video);
            }
        }
        setVideoProgress(std::nullopt, expansion.video.isEmpty() ? 0.0 : 1.0);
    }
    const double videoSeconds = static_cast<double>(phase.elapsed()) / 1000.0;
    if (token.isCancelled()) {
        result.status = ImportResult::Status::cancelled;
        return result;
    }

    // Loading.
    phase.restart();
    QList<QUrl> urls;
    for (const QString& f : files)
        urls << QUrl::fromLocalFile(f);
    total_ = static_cast<int>(urls.size());
    done_ = 0;
    if (onProgress)
        onProgress(0, total_);
    TrackLoadOutcome outcome = metadataService_->load(urls, token, [this](int d, int t) {
        done_ = d;
        if (onProgress)
            onProgress(d, t);
    });
    const double loadSeconds = static_cast<double>(phase.elapsed()) / 1000.0;
    log(QStringLiteral("Metadata loaded: ") + QString::number(outcome.tracks.size()) + QStringLiteral(" track(s) in ")
        + seconds(loadSeconds));
    if (token.isCancelled()) {
        result.status = ImportResult::Status::cancelled;
        return result;
    }
    for (Track& t : outcome.tracks)
        if (videoAudio.contains(pathOf(t.url)))
            t = t.withFromVideo(true);
    // What could not be read is reported as the user gave it: the video
    // rather than its extracted audio, and folders that could not be listed.
    for (auto& f : outcome.unreadableFiles) {
        const auto video = videoOf.constFind(pathOf(f.url));
        if (video != videoOf.constEnd())
            f.url = QUrl::fromLocalFile(*video);
    }
    for (QUrl& u : outcome.repairedOriginalURLs) {
        const auto video = videoOf.constFind(pathOf(u));
        if (video != videoOf.constEnd())
            u = QUrl::fromLocalFile(*video);
    }
    outcome.unreadableFiles.insert(outcome.unreadableFiles.end(), unreadableVideos.begin(), unreadableVideos.end());
    for (const QString& folder : expansion.unreadableFolders) {
        log(QStringLiteral("Cannot list folder: ") + folder);
        outcome.unreadableFiles.push_back({QUrl::fromLocalFile(folder), TrackLoadOutcome::FailureReason::permissionDenied});
    }
    result.outcome = outcome;

    // Source analysis.
    log(QStringLiteral("📥 IMPORT: Source Analysis"));
    for (size_t i = 0; i < outcome.tracks.size() && i < static_cast<size_t>(kLogListLimit); ++i) {
        const Track& t = outcome.tracks[i];
        log(QStringLiteral("  %1 — %2, codec=%3, %4 chapter mark(s)%5")
                .arg(QFileInfo(pathOf(t.url)).fileName(), clock(t.duration),
                     t.cachedCodec.value_or(QStringLiteral("unverified")), QString::number(t.chapters.size()),
                     t.fromVideo ? QStringLiteral(", from video") : QString()));
    }
    if (outcome.tracks.size() > static_cast<size_t>(kLogListLimit))
        log(QStringLiteral("  ") + QString::number(outcome.tracks.size() - kLogListLimit)
            + QStringLiteral(" more tracks not listed"));
    for (const auto& f : outcome.unreadableFiles)
        log(QStringLiteral("  ✗ %1 — %2").arg(QFileInfo(pathOf(f.url)).fileName(), TrackLoadOutcome::reasonName(f.reason)));
    if (!outcome.tracks.empty()) {
        const Track& first = outcome.tracks.front();
        log(QStringLiteral("---- DETECTED TAGS (source: ") + QFileInfo(pathOf(first.url)).fileName()
            + QStringLiteral(") ----"));
        for (const auto& tag : TrackBuilder::detectedTags(first))
            log(QStringLiteral("  %1 %2: %3")
                    .arg(tag.atom, tag.field, tag.value.isEmpty() ? QStringLiteral("(none)") : tag.value));
    }

    // Order.
    phase.restart();
    std::vector<Track> ordered = TrackOrdering::sorted(outcome.tracks, trackSortMode);
    log(QStringLiteral("📥 IMPORT: Final Track Order (") + QString::number(ordered.size())
        + QStringLiteral(" tracks, sort=") + toString(trackSortMode) + QStringLiteral(")"));
    for (size_t i = 0; i < ordered.size() && i < static_cast<size_t>(kLogListLimit); ++i)
        log(QStringLiteral("  %1. %2 (%3)")
                .arg(QString::number(i + 1), QFileInfo(pathOf(ordered[i].url)).fileName(), clock(ordered[i].duration)));
    if (ordered.size() > static_cast<size_t>(kLogListLimit))
        log(QStringLiteral("  ") + QString::number(ordered.size() - kLogListLimit)
            + QStringLiteral(" more tracks not listed"));

    // Files that need the user's attention after the import.
    for (const Track& t : ordered) {
        if (t.cachedCodec && t.cachedCodec->toLower() == u"xhe-aac")
            result.detectedXHEAACFiles.push_back(t);
        if (outcome.protectedURLs.contains(t.url))
            result.detectedDRMFiles.push_back(t);
    }
    for (const auto& f : outcome.unreadableFiles) {
        const QString ext = suffixOf(pathOf(f.url));
        if (ext == u"aax" || ext == u"aa" || ext == u"m4p") {
            Track t;
            t.url = f.url;
            t.title = QFileInfo(pathOf(f.url)).completeBaseName();
            result.detectedDRMFiles.push_back(t);
        }
    }
    {
        std::lock_guard lock(mutex_);
        detectedXHEAACFiles_ = result.detectedXHEAACFiles;
        detectedDRMFiles_ = result.detectedDRMFiles;
    }

    // Chapter files beside or with the audio.
    if (!ordered.empty()) {
        const QString folder = QFileInfo(pathOf(ordered.front().url)).absolutePath();
        if (!result.droppedSidecarFiles.isEmpty())
            log(QStringLiteral("Sidecar: applying ") + QString::number(result.droppedSidecarFiles.size())
                + QStringLiteral(" dropped chapter file(s)"));
        else
            log(QStringLiteral("Sidecar: auto-discovery next to ") + folder);
        if (sidecarDiscovery)
            sidecarDiscovery(folder, result.droppedSidecarFiles, ordered);
    }

    // Chapters.
    const ImportChapterBuilder::Layout layout = ImportChapterBuilder::build(ordered);
    const bool existing = !bookBefore.empty();
    log(QStringLiteral("📥 IMPORT: Chapter Layout (") + QString::number(layout.chapters.size())
        + QStringLiteral(" chapters") + (existing ? QStringLiteral(", added to existing book") : QString())
        + QStringLiteral(")"));
    if (layout.filesWithoutMarks > 0)
        log(QStringLiteral("  ") + QString::number(layout.filesWithoutMarks) + QStringLiteral(" file(s) without marks: one bookmark per file"));
    if (layout.collapsedMarks > 0)
        log(QStringLiteral("  ") + QString::number(layout.collapsedMarks)
            + QStringLiteral(" chapter mark(s) collapsed — closer than 0.25 s to the previous one"));
    for (size_t i = 0; i < layout.chapters.size() && i < static_cast<size_t>(kLogListLimit); ++i) {
        const Bookmark& b = layout.chapters[i];
        log(QStringLiteral("  %1. %2 [%3 +%4] in %5")
                .arg(QString::number(i + 1), b.title, clock(b.startOffset), clock(b.duration),
                     QFileInfo(pathOf(b.tracks.front().url)).fileName()));
    }
    if (layout.chapters.size() > static_cast<size_t>(kLogListLimit))
        log(QStringLiteral("  ") + QString::number(layout.chapters.size() - kLogListLimit)
            + QStringLiteral(" more chapters not listed"));
    const double orderSeconds = static_cast<double>(phase.elapsed()) / 1000.0;

    result.tracks = ordered;
    result.chapters = layout.chapters;
    result.addedToExistingBook = existing && !ordered.empty();
    result.report = ImportReport::from(outcome, static_cast<int>(metadataService_->options().stallInterval.count() / 1000));
    result.status = ordered.empty() ? ImportResult::Status::nothingImported : ImportResult::Status::imported;

    bool firstImport = false;
    if (!ordered.empty()) {
        std::lock_guard lock(mutex_);
        staged_.insert(staged_.end(), ordered.begin(), ordered.end());
        chapters_.insert(chapters_.end(), layout.chapters.begin(), layout.chapters.end());
        firstImport = !didFinalizeOnce_;
        didFinalizeOnce_ = true;
    }
    if (!ordered.empty() && finalizer)
        finalizer->finalize(ordered, firstImport);

    log(QStringLiteral("📥 IMPORT: Timing Summary"));
    log(QStringLiteral("  expand=%1 video=%2 load=%3 order+chapters=%4 total=%5")
            .arg(seconds(expandSeconds), seconds(videoSeconds), seconds(loadSeconds), seconds(orderSeconds),
                 seconds(static_cast<double>(totalClock.elapsed()) / 1000.0)));

    if (result.report)
        log(QStringLiteral("Report: ") + result.report->title);
    if (onImportCompleted && !ordered.empty()) {
        QList<QUrl> imported;
        for (const Track& t : ordered)
            imported << t.url;
        onImportCompleted(imported);
    }
    return result;
}

} // namespace folivox
