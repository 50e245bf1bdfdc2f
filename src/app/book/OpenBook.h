#pragma once

#include "app/book/ChapterFileOffer.h"
#include "build/ImportedBook.h"
#include "core/book/BookMetadataStore.h"
#include "core/book/BookSession.h"
#include "core/book/BookStateDTO.h"
#include "core/book/BuildRecord.h"
#include "core/book/BookmarksStore.h"
#include "core/book/BookmarksUndoManager.h"
#include "core/chapters/ChapterViewModel.h"
#include "core/settings/ExportSettings.h"
#include "core/book/TrackSortMode.h"
#include "export/settings/AudiobookSourceInfo.h"

#include <QMap>
#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

class ImportCoordinator;
class ManualCancellationToken;

// The book open in the window: its tracks, chapters, tags and export
// settings, held in the session's long-lived stores, with every chapter and
// track edit going through the undo manager. Imports run on a worker thread;
// their results, progress and alerts come back as signals on the main
// thread. Closing the book runs the BookSession tear-down, whose hooks reach
// the importer, the player and the views.
class OpenBook : public QObject {
    Q_OBJECT
public:
    enum class Layout { perFile, fromMarks };

    explicit OpenBook(QObject* parent = nullptr);
    ~OpenBook() override;

    const std::vector<Track>& tracks() const { return tracks_; }
    const std::vector<Bookmark>& chapters() const { return bookmarks_.bookmarks(); }
    const BookMetadata& metadata() const { return metadataStore_.metadata(); }
    const ExportSettings& settings() const { return settings_; }
    bool isEmpty() const { return tracks_.empty(); }
    // Where the chapters come from, as one line for the user.
    const QString& chapterSource() const { return chapterSource_; }
    // A chapter file found beside the audio that was not applied by itself.
    const std::optional<ChapterFileOffer>& offer() const { return offer_; }
    AudiobookSourceInfo sourceInfo() const;
    // The book as a build takes it: tracks, chapters and tags, no import.
    ImportedBook importedBook() const;

    BookSession& session() { return *session_; }
    std::weak_ptr<ImportCoordinator> importer() const { return importer_; }
    // The book's id (a library book's, or one of its own for a book opened
    // from files) and its last build, if the window knows of one.
    const QUuid& id() const { return id_; }
    const std::optional<BuildRecord>& lastBuild() const { return lastBuild_; }
    void setLastBuild(const std::optional<BuildRecord>& record);
    BookmarksUndoManager& undoManager() { return undo_; }
    ChapterViewModel& chapterView() { return chapterView_; }

    // Hooks the tear-down reaches beyond the book (set by the window).
    std::function<void()> stopPlayer;
    std::function<void()> closeEditorWindows;
    std::function<void()> clearSnapshots;
    std::function<void()> clearSelection;

    // Import (asynchronous): files and folders, chapter files among them.
    void importPaths(const QStringList& paths);
    bool isImporting() const { return importing_; }
    // Stops a running import and waits for its thread; its result is dropped.
    void cancelImport();

    // Chapter edits, each undoable. False when the edit is not possible.
    bool renameChapter(int row, const QString& title);
    bool setChapterTitles(const QStringList& titles, const QString& actionName);
    bool setChapterStart(int row, double bookSeconds);
    bool setChapterDuration(int row, double seconds);
    void layOutChapters(Layout layout);
    void applyChapterFile(const ChapterFileOffer& offer);
    // Evaluates and applies a chapter file; the error text when it cannot be used.
    QString applyChapterFile(const QString& path);
    void dismissOffer();

    bool canUndo() const { return undo_.canUndo(); }
    bool canRedo() const { return undo_.canRedo(); }
    QString undoName() const { return undo_.undoName(); }
    void undo();
    void redo();

    // Track edits, each undoable; the chapters follow (ChapterLayouts).
    void moveTrack(int from, int to);
    void removeTracks(QList<int> rows);
    void sortTracks(TrackSortMode mode);

    void setMetadata(const BookMetadata& metadata);
    void setSettings(const ExportSettings& settings);

    // Empties the book through the session's tear-down.
    void newBook();
    // The working state of the book, and the book opened from one.
    BookStateDTO state() const;
    void restore(const BookStateDTO& state);
    // Takes on a library book whose chapters, tags and tracks the library's
    // coordinator has just put into the stores (after its own tear-down):
    // the tracks, settings and identity follow; the undo history is empty.
    void adoptLibraryBook(const BookStateDTO& state);
    // A fresh identity for the empty window, after the library closed the
    // book that was open.
    void resetIdentity();
    // Replaces the files of tracks (a repaired copy for a damaged source),
    // as one undoable edit; chapters keep their times.
    bool replaceTrackFiles(const QMap<QUuid, QUrl>& files, const QString& actionName);

Q_SIGNALS:
    void tracksChanged();
    void chaptersChanged();
    void metadataChanged();
    void settingsChanged();
    void lastBuildChanged();
    void undoStateChanged();
    void offerChanged();
    void importStarted();
    void importProgress(int done, int total);
    void importFinished();
    // A message the user must see (an import refused, files skipped, ...).
    void alertRaised(const QString& title, const QString& message);

private:
    struct Snapshot {
        std::vector<Track> tracks;
        std::vector<Bookmark> chapters;
        QString chapterSource;
    };
    struct ImportOutcome;

    Snapshot snapshot() const;
    void apply(const Snapshot& s);
    void perform(const QString& name, Snapshot after);
    void finishImport(int generation, const std::shared_ptr<ImportOutcome>& outcome);
    void joinImportThread();

    BookmarksStore bookmarks_;
    ChapterViewModel chapterView_;
    BookMetadataStore metadataStore_;
    BookmarksUndoManager undo_;
    std::unique_ptr<BookSession> session_;
    std::shared_ptr<ImportCoordinator> importer_;

    std::vector<Track> tracks_;
    QString chapterSource_;
    ExportSettings settings_;
    std::optional<ChapterFileOffer> offer_;
    QUuid id_ = QUuid::createUuid();
    QDateTime createdAt_ = QDateTime::currentDateTimeUtc();
    QList<QUrl> sources_;
    int revision_ = 1;
    std::optional<BuildRecord> lastBuild_;

    bool importing_ = false;
    int importGeneration_ = 0;
    std::shared_ptr<ManualCancellationToken> importToken_;
    std::thread importThread_;
};

} // namespace folivox
