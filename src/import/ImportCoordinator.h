#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "core/book/TrackSortMode.h"
#include "process/CancellationToken.h"
#include "import/ImportFinalizing.h"
#include "import/ImportResult.h"

#include <QList>
#include <QStringList>
#include <QUrl>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace folivox {

class AudioMetadataService;
class FFmpegWrapper;

// Takes what the user dropped or chose and makes it part of the open book:
// refuses what can't be combined, expands folders, extracts the audio of
// video files, loads the files, orders them, turns them into chapters, calls
// the sidecar discovery and the finalizer, and reports what it could not
// read. import() blocks its caller until the import is done, so the command
// line can use it without an event loop; progress arrives through callbacks
// on the calling thread.
class ImportCoordinator {
public:
    // Called as files finish loading: done of total.
    using ProgressHandler = std::function<void(int done, int total)>;
    // Called while videos are turned into audio: a message and the fraction done.
    using VideoProgressHandler = std::function<void(const QString& message, double fraction)>;
    // Called after loading with the first file's folder, the chapter files
    // dropped with the audio, and the ordered new tracks.
    using SidecarDiscovery =
        std::function<void(const QString& folder, const QList<QUrl>& droppedSidecarFiles, const std::vector<Track>& tracks)>;

    // Audio extensions an import accepts (lower case, no dot).
    static const QStringList& audioExtensions();
    // Chapter-file extensions that are kept aside when dropped with audio.
    static const QStringList& sidecarExtensions();

    ImportCoordinator();
    ImportCoordinator(std::shared_ptr<AudioMetadataService> metadataService, std::shared_ptr<const FFmpegWrapper> ffmpeg);
    ~ImportCoordinator();

    // Collaborators and settings. Set them before importing.
    std::function<bool()> isExclusiveOperationRunning;  // the library rewrites book records
    SidecarDiscovery sidecarDiscovery;
    std::shared_ptr<ImportFinalizing> finalizer;
    std::function<void(const QList<QUrl>& imported)> onImportCompleted;
    ProgressHandler onProgress;
    VideoProgressHandler onVideoProgress;
    // How files are ordered; by default the saved "trackSortMode" setting, else auto.
    TrackSortMode trackSortMode;

    // Imports the files and folders into the book.
    ImportResult import(const QList<QUrl>& inputs, const CancellationToken& token = CancellationToken::never());

    // State of the running (or last) import.
    bool isImporting() const { return importing_.load(); }
    int total() const { return total_.load(); }
    int done() const { return done_.load(); }
    std::vector<Track> detectedDRMFiles() const;
    std::vector<Track> detectedXHEAACFiles() const;
    std::optional<QString> videoExtractionMessage() const;
    double videoExtractionFraction() const;

    // The open book: its tracks and chapters, as imports have built them.
    std::vector<Track> bookTracks() const;
    std::vector<Bookmark> bookChapters() const;
    // Opens a book that already has tracks and chapters (as stored).
    void setBook(std::vector<Track> tracks, std::vector<Bookmark> chapters);
    // Empties the book (a new project).
    void resetBook();

    // The files an input list stands for: folders expanded recursively to
    // their supported audio and video files (hidden files and folders
    // skipped, names in numeric order), files kept as given.
    struct Expansion {
        QStringList audio;
        QStringList video;
        QStringList sidecars;  // dropped chapter files
        QStringList ignored;   // unsupported files given directly
        QStringList unreadableFolders;  // folders this user may not list (nothing in them is seen)
    };
    static Expansion expand(const QList<QUrl>& inputs);

    // The M4B rules: the alert that refuses this selection for a book that
    // holds these files, or none.
    static std::optional<ImportAlert> m4bRefusal(const QStringList& selection, const std::vector<Track>& book);
    // The lines added to an M4B refusal so that the user can find the files
    // it is about: each M4B of the selection by its path from the input that
    // brought it in, and a note on any whose content is not MP4 at all (a
    // picture that was given the extension, say).
    static QString m4bFilesNote(const QStringList& selection, const QList<QUrl>& inputs);

private:
    void setVideoProgress(const std::optional<QString>& message, double fraction);

    std::shared_ptr<AudioMetadataService> metadataService_;
    std::shared_ptr<const FFmpegWrapper> ffmpeg_;

    std::atomic<bool> importing_{false};
    std::atomic<int> total_{0};
    std::atomic<int> done_{0};

    mutable std::mutex mutex_;
    std::vector<Track> staged_;        // the book's tracks
    std::vector<Bookmark> chapters_;   // the book's chapters
    std::vector<Track> detectedDRMFiles_;
    std::vector<Track> detectedXHEAACFiles_;
    std::optional<QString> videoExtractionMessage_;
    double videoExtractionFraction_ = 0;
    bool didFinalizeOnce_ = false;
};

} // namespace folivox
