#include "app/book/OpenBook.h"

#include "app/book/ChapterLayouts.h"
#include "app/book/ChapterTimeline.h"
#include "process/ManualCancellationToken.h"
#include "import/ImportCoordinator.h"
#include "import/TrackOrdering.h"
#include "library/BookTagsFinalizer.h"
#include "library/CoverFinder.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace folivox {

namespace {

void log(const QString& line)
{
    Log::write(QStringLiteral("[App] ") + line);
}

QString marksSource()
{
    return L10n::text("app.chapters.source.marks", "Chapters from the files (their marks, or one per file)");
}

QString fallbackTitleFor(const QStringList& paths)
{
    if (paths.isEmpty())
        return QString();
    const QFileInfo first(paths.first());
    return first.isDir() ? QDir(first.absoluteFilePath()).dirName() : first.completeBaseName();
}

} // namespace

// What an import thread hands back to the main thread.
struct OpenBook::ImportOutcome {
    ImportResult result;
    std::vector<Track> bookTracks;
    std::optional<BookMetadata> metadata;  // the tags of a first import
    std::optional<ChapterFileOffer> offer; // a chapter file dropped or found
    bool offerWasDropped = false;
    QString offerError;
};

OpenBook::OpenBook(QObject* parent)
    : QObject(parent)
    , importer_(std::make_shared<ImportCoordinator>())
{
    bookmarks_.onChange = [this] { Q_EMIT chaptersChanged(); };
    metadataStore_.onChange = [this] { Q_EMIT metadataChanged(); };
    BookSession::Hooks hooks;
    hooks.cancelImport = [this] { cancelImport(); };
    hooks.resetImportState = [this] {
        importer_->resetBook();
        tracks_.clear();
        sources_.clear();
        chapterSource_.clear();
        offer_.reset();
        Q_EMIT tracksChanged();
        Q_EMIT offerChanged();
    };
    hooks.stopPlayer = [this] {
        if (stopPlayer)
            stopPlayer();
    };
    hooks.closeEditorWindows = [this] {
        if (closeEditorWindows)
            closeEditorWindows();
    };
    hooks.clearSnapshots = [this] {
        if (clearSnapshots)
            clearSnapshots();
    };
    hooks.clearSidecarCache = [] { SidecarDiscoveryService::shared().clearSidecarCache(); };
    hooks.clearSelection = [this] {
        chapterView_.clearSelection();
        if (clearSelection)
            clearSelection();
    };
    session_ = std::make_unique<BookSession>(bookmarks_, chapterView_, metadataStore_, undo_, std::move(hooks));
}

OpenBook::~OpenBook()
{
    cancelImport();
    bookmarks_.onChange = nullptr;
    metadataStore_.onChange = nullptr;
}

AudiobookSourceInfo OpenBook::sourceInfo() const
{
    return AudiobookSourceInfo::fromTracks(tracks_, static_cast<int>(chapters().size()));
}

ImportedBook OpenBook::importedBook() const
{
    return ImportedBook{tracks_, chapters(), metadata()};
}

// ---- Undoable edits -------------------------------------------------------

OpenBook::Snapshot OpenBook::snapshot() const
{
    return Snapshot{tracks_, chapters(), chapterSource_};
}

void OpenBook::apply(const Snapshot& s)
{
    const bool tracksDiffer = s.tracks != tracks_;
    tracks_ = s.tracks;
    chapterSource_ = s.chapterSource;
    importer_->setBook(s.tracks, s.chapters);
    bookmarks_.setBookmarks(s.chapters);
    if (tracksDiffer)
        Q_EMIT tracksChanged();
}

void OpenBook::perform(const QString& name, Snapshot after)
{
    const Snapshot before = snapshot();
    BookmarksUndoManager::Command command;
    command.name = name;
    command.redo = [this, after = std::move(after)] { apply(after); };
    command.undo = [this, before] { apply(before); };
    undo_.perform(std::move(command));
    Q_EMIT undoStateChanged();
}

void OpenBook::undo()
{
    undo_.undo();
    Q_EMIT undoStateChanged();
}

void OpenBook::redo()
{
    undo_.redo();
    Q_EMIT undoStateChanged();
}

bool OpenBook::renameChapter(int row, const QString& title)
{
    if (row < 0 || row >= static_cast<int>(chapters().size()))
        return false;
    const QString trimmed = title.trimmed();
    if (trimmed.isEmpty() || trimmed == chapters()[row].title)
        return false;
    Snapshot after = snapshot();
    after.chapters[row].title = trimmed;
    perform(L10n::text("app.undo.renameChapter", "Rename Chapter"), std::move(after));
    return true;
}

bool OpenBook::setChapterTitles(const QStringList& titles, const QString& actionName)
{
    if (titles.size() != static_cast<qsizetype>(chapters().size()))
        return false;
    Snapshot after = snapshot();
    bool changed = false;
    for (size_t i = 0; i < after.chapters.size(); ++i) {
        const QString t = titles[static_cast<qsizetype>(i)].trimmed();
        if (!t.isEmpty() && t != after.chapters[i].title) {
            after.chapters[i].title = t;
            changed = true;
        }
    }
    if (!changed)
        return false;
    perform(actionName, std::move(after));
    return true;
}

bool OpenBook::setChapterStart(int row, double bookSeconds)
{
    if (row < 0)
        return false;
    const auto moved = ChapterTimeline(tracks_).movingStart(chapters(), static_cast<size_t>(row), bookSeconds);
    if (!moved)
        return false;
    Snapshot after = snapshot();
    after.chapters = *moved;
    perform(L10n::text("app.undo.moveChapter", "Move Chapter Start"), std::move(after));
    return true;
}

bool OpenBook::setChapterDuration(int row, double seconds)
{
    if (row < 0)
        return false;
    const auto changed = ChapterTimeline(tracks_).settingDuration(chapters(), static_cast<size_t>(row), seconds);
    if (!changed)
        return false;
    Snapshot after = snapshot();
    after.chapters = *changed;
    perform(L10n::text("app.undo.chapterLength", "Change Chapter Length"), std::move(after));
    return true;
}

void OpenBook::layOutChapters(Layout layout)
{
    if (tracks_.empty())
        return;
    Snapshot after = snapshot();
    if (layout == Layout::perFile) {
        after.chapters = ChapterLayouts::perFile(tracks_);
        after.chapterSource = L10n::text("app.chapters.source.perFile", "One chapter per file");
    } else {
        after.chapters = ChapterLayouts::fromMarks(tracks_);
        after.chapterSource = marksSource();
    }
    perform(L10n::text("app.undo.layout", "Lay Out Chapters"), std::move(after));
}

void OpenBook::applyChapterFile(const ChapterFileOffer& offer)
{
    Snapshot after = snapshot();
    after.chapters = offer.chapters;
    after.chapterSource = L10n::format(L10n::text("app.chapters.source.file", "Chapter file %@"), {offer.summary()});
    perform(L10n::text("app.undo.applyChapterFile", "Apply Chapter File"), std::move(after));
    log(QStringLiteral("chapter file applied: ") + offer.summary());
    if (offer_) {
        offer_.reset();
        Q_EMIT offerChanged();
    }
}

QString OpenBook::applyChapterFile(const QString& path)
{
    if (tracks_.empty())
        return L10n::text("app.chapterFile.noAudio", "Add the book's audio before its chapter file.");
    QString error;
    const auto offer = ChapterFileOffer::evaluate(path, tracks_, error);
    if (!offer)
        return error;
    applyChapterFile(*offer);
    return QString();
}

void OpenBook::dismissOffer()
{
    offer_.reset();
    Q_EMIT offerChanged();
}

void OpenBook::moveTrack(int from, int to)
{
    const int n = static_cast<int>(tracks_.size());
    if (from < 0 || from >= n || to < 0 || to >= n || from == to)
        return;
    Snapshot after = snapshot();
    Track moving = after.tracks[from];
    after.tracks.erase(after.tracks.begin() + from);
    after.tracks.insert(after.tracks.begin() + to, moving);
    after.chapters = ChapterLayouts::afterTrackChange(after.chapters, after.tracks);
    perform(L10n::text("app.undo.moveTrack", "Move Track"), std::move(after));
}

void OpenBook::removeTracks(QList<int> rows)
{
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    Snapshot after = snapshot();
    bool removed = false;
    for (int r : rows) {
        if (r < 0 || r >= static_cast<int>(after.tracks.size()))
            continue;
        after.tracks.erase(after.tracks.begin() + r);
        removed = true;
    }
    if (!removed)
        return;
    after.chapters = ChapterLayouts::afterTrackChange(after.chapters, after.tracks);
    perform(L10n::text("app.undo.removeTracks", "Remove Tracks"), std::move(after));
}

void OpenBook::sortTracks(TrackSortMode mode)
{
    Snapshot after = snapshot();
    after.tracks = TrackOrdering::sorted(tracks_, mode);
    if (after.tracks == tracks_)
        return;
    after.chapters = ChapterLayouts::afterTrackChange(after.chapters, after.tracks);
    perform(L10n::text("app.undo.sortTracks", "Sort Tracks"), std::move(after));
}

void OpenBook::setMetadata(const BookMetadata& metadata)
{
    if (metadata == metadataStore_.metadata())
        return;
    metadataStore_.setMetadata(metadata);
}

void OpenBook::setSettings(const ExportSettings& settings)
{
    if (settings == settings_)
        return;
    settings_ = settings;
    Q_EMIT settingsChanged();
}

// ---- Import ---------------------------------------------------------------

void OpenBook::importPaths(const QStringList& paths)
{
    if (paths.isEmpty())
        return;
    if (importing_) {
        Q_EMIT alertRaised(L10n::text("app.import.running.title", "An import is running"),
                           L10n::text("app.import.running.message",
                                      "Wait for the files being added to finish, then add these again."));
        return;
    }
    joinImportThread();
    QList<QUrl> urls;
    for (const QString& p : paths)
        urls << QUrl::fromLocalFile(QFileInfo(p).absoluteFilePath());
    auto token = std::make_shared<ManualCancellationToken>();
    importToken_ = token;
    const int generation = ++importGeneration_;
    const bool firstImport = tracks_.empty();
    const QString fallbackTitle = fallbackTitleFor(paths);
    if (firstImport)
        sources_ = urls;
    else
        sources_ += urls;

    importer_->onProgress = [this, generation](int done, int total) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, done, total] {
                if (generation == importGeneration_)
                    Q_EMIT importProgress(done, total);
            },
            Qt::QueuedConnection);
    };
    auto finalizer = std::make_shared<BookTagsFinalizer>(fallbackTitle);
    importer_->finalizer = finalizer;
    importing_ = true;
    log(QStringLiteral("import of %1 item(s) started").arg(urls.size()));
    Q_EMIT importStarted();

    importThread_ = std::thread([this, urls, token, generation, firstImport, fallbackTitle, finalizer] {
        auto outcome = std::make_shared<ImportOutcome>();
        outcome->result = importer_->import(urls, *token);
        if (outcome->result.status == ImportResult::Status::imported && !token->isCancelled()) {
            outcome->bookTracks = importer_->bookTracks();
            if (firstImport) {
                BookMetadata m = finalizer->metadata();
                if (m.title.isEmpty())
                    m = BookTagsFinalizer::tagsOf(outcome->bookTracks, fallbackTitle);
                const QString folder = QFileInfo(outcome->bookTracks.front().url.toLocalFile()).absolutePath();
                if (const auto cover = CoverFinder::find(folder, outcome->bookTracks)) {
                    m.coverImageData = cover->bytes;
                    m.coverSourceURL = cover->source;
                }
                outcome->metadata = m;
            }
            if (!outcome->result.droppedSidecarFiles.isEmpty()) {
                outcome->offerWasDropped = true;
                outcome->offer = ChapterFileOffer::evaluate(outcome->result.droppedSidecarFiles.first().toLocalFile(),
                                                            outcome->bookTracks, outcome->offerError);
            } else {
                outcome->offer = ChapterFileOffer::discover(outcome->bookTracks);
            }
        }
        QMetaObject::invokeMethod(
            this, [this, generation, outcome] { finishImport(generation, outcome); }, Qt::QueuedConnection);
    });
}

void OpenBook::joinImportThread()
{
    if (importThread_.joinable())
        importThread_.join();
}

void OpenBook::cancelImport()
{
    if (importToken_)
        importToken_->cancel();
    joinImportThread();
    if (importing_) {
        importing_ = false;
        ++importGeneration_; // the queued result of the cancelled import is dropped
        // The importer may have added the cancelled import's files; the book
        // is what the window holds.
        importer_->setBook(tracks_, chapters());
        log(QStringLiteral("import cancelled"));
        Q_EMIT importFinished();
    }
}

void OpenBook::finishImport(int generation, const std::shared_ptr<ImportOutcome>& outcome)
{
    if (generation != importGeneration_)
        return;
    joinImportThread();
    importing_ = false;
    const ImportResult& r = outcome->result;
    switch (r.status) {
    case ImportResult::Status::refused:
    case ImportResult::Status::busy:
        if (r.alert)
            Q_EMIT alertRaised(r.alert->title, r.alert->message);
        break;
    case ImportResult::Status::cancelled:
        break;
    case ImportResult::Status::nothingImported:
        if (r.report)
            Q_EMIT alertRaised(r.report->title, r.report->message);
        else
            Q_EMIT alertRaised(L10n::text("app.import.noAudio.title", "No audio found"),
                               L10n::text("app.import.noAudio.message",
                                          "Nothing that was dropped holds audio Folivox can read."));
        break;
    case ImportResult::Status::imported: {
        Snapshot after = snapshot();
        after.tracks = outcome->bookTracks;
        after.chapters.insert(after.chapters.end(), r.chapters.begin(), r.chapters.end());
        if (after.chapterSource.isEmpty())
            after.chapterSource = marksSource();
        perform(L10n::text("app.undo.addFiles", "Add Files"), std::move(after));
        if (outcome->metadata)
            metadataStore_.setMetadata(*outcome->metadata);
        if (outcome->offer) {
            if (outcome->offerWasDropped || outcome->offer->appliesByItself()) {
                applyChapterFile(*outcome->offer);
            } else {
                offer_ = outcome->offer;
                Q_EMIT offerChanged();
            }
        }
        if (!outcome->offerError.isEmpty())
            Q_EMIT alertRaised(L10n::text("app.chapterFile.failed.title", "Chapter file not used"), outcome->offerError);
        if (r.report)
            Q_EMIT alertRaised(r.report->title, r.report->message);
        if (!r.detectedDRMFiles.empty()) {
            QStringList names;
            for (const Track& t : r.detectedDRMFiles)
                names << QFileInfo(t.url.toLocalFile()).fileName();
            Q_EMIT alertRaised(L10n::text("app.import.drm.title", "Protected files"),
                               L10n::format(L10n::text("app.import.drm.message",
                                                       "These files are copy-protected and cannot be converted:\n%@"),
                                            {names.join(QLatin1Char('\n'))}));
        }
        break;
    }
    }
    log(QStringLiteral("import finished: %1 track(s) in the book").arg(tracks_.size()));
    Q_EMIT importFinished();
}

// ---- Session --------------------------------------------------------------

void OpenBook::newBook()
{
    session_->tearDown(BookSession::TearDownReason::newBook());
    resetIdentity();
}

void OpenBook::resetIdentity()
{
    id_ = QUuid::createUuid();
    createdAt_ = QDateTime::currentDateTimeUtc();
    revision_ = 1;
    setLastBuild(std::nullopt);
    Q_EMIT undoStateChanged();
}

void OpenBook::setLastBuild(const std::optional<BuildRecord>& record)
{
    if (record == lastBuild_)
        return;
    lastBuild_ = record;
    Q_EMIT lastBuildChanged();
}

void OpenBook::adoptLibraryBook(const BookStateDTO& state)
{
    id_ = state.id;
    revision_ = state.revision;
    createdAt_ = state.createdAt;
    sources_ = state.sources;
    tracks_ = state.tracks;
    chapterSource_ = L10n::text("app.chapters.source.library", "Chapters as saved in the library");
    offer_.reset();
    Q_EMIT tracksChanged();
    Q_EMIT chaptersChanged();
    Q_EMIT metadataChanged();
    Q_EMIT offerChanged();
    settings_ = state.settings;
    Q_EMIT settingsChanged();
    setLastBuild(state.lastBuild);
    Q_EMIT undoStateChanged();
}

bool OpenBook::replaceTrackFiles(const QMap<QUuid, QUrl>& files, const QString& actionName)
{
    // The new file is another file: its size and date are not the probed ones.
    const auto swap = [&files](Track& t) {
        if (!files.contains(t.id) || files.value(t.id) == t.url)
            return false;
        t = t.withUrl(files.value(t.id));
        t.cachedFileSize.reset();
        t.cachedFileModificationDate.reset();
        return true;
    };
    Snapshot after = snapshot();
    bool changed = false;
    for (Track& t : after.tracks)
        changed = swap(t) || changed;
    if (!changed)
        return false;
    for (Bookmark& b : after.chapters)
        for (Track& t : b.tracks)
            swap(t);
    perform(actionName, std::move(after));
    return true;
}

BookStateDTO OpenBook::state() const
{
    BookStateDTO s;
    s.id = id_;
    s.revision = revision_;
    s.createdAt = createdAt_;
    s.editedAt = QDateTime::currentDateTimeUtc();
    s.sources = sources_;
    s.tracks = tracks_;
    s.bookmarks = chapters();
    s.metadata = metadata();
    s.settings = settings_;
    s.lastBuild = lastBuild_;
    return s;
}

void OpenBook::restore(const BookStateDTO& state)
{
    if (!isEmpty() || !chapters().empty())
        session_->tearDown(BookSession::TearDownReason::switching(state.id));
    id_ = state.id;
    revision_ = state.revision;
    createdAt_ = state.createdAt;
    sources_ = state.sources;
    tracks_ = state.tracks;
    chapterSource_ = L10n::text("app.chapters.source.restored", "Chapters as you left them");
    importer_->setBook(state.tracks, state.bookmarks);
    Q_EMIT tracksChanged();
    bookmarks_.setBookmarks(state.bookmarks);
    metadataStore_.setMetadata(state.metadata);
    settings_ = state.settings;
    Q_EMIT settingsChanged();
    setLastBuild(state.lastBuild);
    undo_.removeAll();
    Q_EMIT undoStateChanged();
}

} // namespace folivox
