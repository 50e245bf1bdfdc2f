#include "library/LibraryAdder.h"

#include "core/book/BookStateDTO.h"
#include "process/FFmpegWrapper.h"
#include "import/probe/AudioMetadataService.h"
#include "import/ImportCoordinator.h"
#include "library/BookIdPrefix.h"
#include "library/BookTagsFinalizer.h"
#include "library/CoverFinder.h"
#include "library/LibraryStore.h"
#include "sidecars/apply/SidecarAutoApply.h"
#include "platform/AppPaths.h"
#include "platform/Error.h"
#include "platform/L10n.h"
#include "platform/Log.h"
#include "sidecars/apply/SidecarApplyPolicy.h"
#include "sidecars/discovery/SidecarDiscoveryService.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

#include <cmath>

namespace folivox {

namespace {

constexpr qint64 kIndexSaveIntervalMs = 2000;

void log(const QString& line)
{
    Log::write(QStringLiteral("[Library] ") + line);
}

bool isUnder(const QString& path, const QString& folder)
{
    return !folder.isEmpty() && path.startsWith(folder + u'/');
}

// Repaired copies of damaged sources live in temporary work folders; a
// library book keeps its own copy in its folder, under sources/.
bool keepRepairedCopies(BookStateDTO& state, const QString& bookFolder, QString& error)
{
    const QString work = QFileInfo(AppPaths::workRoot()).absoluteFilePath();
    QMap<QUuid, QUrl> moved;
    for (Track& t : state.tracks) {
        const QString path = t.url.toLocalFile();
        if (!isUnder(path, work))
            continue;
        const QString folder = bookFolder + QStringLiteral("/sources");
        const QString target = folder + u'/' + t.id.toString(QUuid::Id128) + u'-' + QFileInfo(path).fileName();
        if (!QDir().mkpath(folder) || !QFile::copy(path, target)) {
            error = QStringLiteral("the repaired copy of %1 could not be kept").arg(QFileInfo(path).fileName());
            return false;
        }
        t = t.withUrl(QUrl::fromLocalFile(target));
        moved.insert(t.id, t.url);
    }
    for (Bookmark& b : state.bookmarks)
        for (Track& t : b.tracks)
            if (moved.contains(t.id))
                t = t.withUrl(moved.value(t.id));
    return true;
}

} // namespace

LibraryAdder::LibraryAdder(LibraryStore& store)
    : store_(store)
    , ffmpeg_(std::make_shared<FFmpegWrapper>())
    , metadata_(std::make_shared<AudioMetadataService>(ffmpeg_))
{
}

LibraryAdder::~LibraryAdder() = default;

QString LibraryAdder::kindName(Outcome::Kind kind)
{
    switch (kind) {
    case Outcome::Kind::added: return QStringLiteral("added");
    case Outcome::Kind::skipped: return QStringLiteral("skipped");
    case Outcome::Kind::refused: return QStringLiteral("refused");
    }
    return {};
}

std::vector<LibraryAdder::Outcome> LibraryAdder::add(const QStringList& paths, const CancellationToken& token)
{
    std::vector<Outcome> outcomes;
    const auto report = [&](Outcome o) {
        if (onOutcome)
            onOutcome(o);
        outcomes.push_back(std::move(o));
    };
    std::vector<BookCandidate> candidates;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        Outcome o;
        o.source = info.absoluteFilePath();
        if (!info.exists()) {
            o.reason = L10n::text("library.add.noSuchPath", "no such file or folder");
            report(o);
            continue;
        }
        std::vector<BookCandidate> found = LibraryScanner::scan(path);
        if (found.empty()) {
            o.reason = L10n::text("library.add.noAudio", "no audio files found");
            report(o);
            continue;
        }
        candidates.insert(candidates.end(), found.begin(), found.end());
    }

    QElapsedTimer sinceIndexSave;
    sinceIndexSave.start();
    bool unsavedIndex = false;
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (token.isCancelled())
            break;
        if (onProgress)
            onProgress(static_cast<int>(i), static_cast<int>(candidates.size()), candidates[i].sourcePath);
        Outcome o = addOne(candidates[i], token);
        if (token.isCancelled() && o.kind != Outcome::Kind::added)
            break;
        unsavedIndex = unsavedIndex || o.kind == Outcome::Kind::added;
        report(std::move(o));
        if (unsavedIndex && sinceIndexSave.elapsed() >= kIndexSaveIntervalMs) {
            store_.saveIndex();
            unsavedIndex = false;
            sinceIndexSave.restart();
        }
    }
    if (unsavedIndex)
        store_.saveIndex();
    if (onProgress)
        onProgress(static_cast<int>(candidates.size()), static_cast<int>(candidates.size()), QString());
    return outcomes;
}

LibraryAdder::Outcome LibraryAdder::addOne(const BookCandidate& candidate, const CancellationToken& token)
{
    Outcome o;
    o.source = candidate.sourcePath;
    if (const auto existing = store_.findBySource(candidate.sourcePath)) {
        o.kind = Outcome::Kind::skipped;
        o.bookID = existing;
        if (const auto s = store_.summary(*existing))
            o.title = s->title;
        o.reason = L10n::format(L10n::text("library.add.already", "already in the library as %@"),
                                {BookIdPrefix::shortForm(*existing)});
        return o;
    }

    ImportCoordinator importer(metadata_, ffmpeg_);
    auto finalizer = std::make_shared<BookTagsFinalizer>(candidate.fallbackTitle);
    importer.finalizer = finalizer;
    const ImportResult imported = importer.import(candidate.files, token);
    switch (imported.status) {
    case ImportResult::Status::cancelled:
        o.reason = QStringLiteral("cancelled");
        return o;
    case ImportResult::Status::refused:
    case ImportResult::Status::busy:
        o.reason = imported.alert ? imported.alert->message : QStringLiteral("the import was refused");
        return o;
    case ImportResult::Status::nothingImported: {
        QStringList names;
        for (const auto& u : imported.outcome.unreadableFiles)
            names << QFileInfo(u.url.toLocalFile()).fileName() + QStringLiteral(" (")
                    + TrackLoadOutcome::reasonText(u.reason) + u')';
        o.reason = names.isEmpty() ? L10n::text("library.add.noAudio", "no audio files found")
                                   : QStringLiteral("no audio could be read: ") + names.join(QStringLiteral(", "));
        return o;
    }
    case ImportResult::Status::imported:
        break;
    }

    BookStateDTO state = BookStateDTO::makeNew();
    state.sources = {QUrl::fromLocalFile(candidate.sourcePath)};
    state.tracks = importer.bookTracks();
    state.bookmarks = importer.bookChapters();
    state.metadata = finalizer->metadata();
    if (state.metadata.title.isEmpty())
        state.metadata = BookTagsFinalizer::tagsOf(state.tracks, candidate.fallbackTitle);

    // A chapter file beside the audio, applied when discovery is sure of it.
    o.chapterSource = QStringLiteral("audio");
    SidecarAutoApply::Outcome found = SidecarAutoApply::apply(state.tracks, false);
    if (found.bookmarks) {
        state.bookmarks = std::move(*found.bookmarks);
        o.chapterSource = found.fileName;
    }

    const QString folder = candidate.kind == BookCandidate::Kind::folder
        ? candidate.sourcePath
        : QFileInfo(candidate.sourcePath).absolutePath();
    if (const auto cover = CoverFinder::find(folder, state.tracks)) {
        state.metadata.coverImageData = cover->bytes;
        state.metadata.coverSourceURL = cover->source;
    }

    QString error;
    if (!keepRepairedCopies(state, store_.persistence().bookFolder(state.id), error)) {
        o.reason = error;
        QDir(store_.persistence().bookFolder(state.id)).removeRecursively();
        return o;
    }

    try {
        store_.saveNow(state, false);
    } catch (const Error& e) {
        o.reason = e.description();
        return o;
    }
    o.kind = Outcome::Kind::added;
    o.bookID = state.id;
    o.title = state.metadata.title;
    o.tracks = static_cast<int>(state.tracks.size());
    for (const Track& t : state.tracks)
        o.duration += t.duration;
    log(QStringLiteral("added %1 \"%2\" from %3 (%4 tracks, %5 chapters from %6)")
            .arg(LibraryPersistence::folderName(state.id), o.title, candidate.sourcePath)
            .arg(o.tracks)
            .arg(state.bookmarks.size())
            .arg(o.chapterSource));
    return o;
}

} // namespace folivox
