#pragma once

#include "core/book/Bookmark.h"
#include "core/book/Track.h"
#include "process/FormatProbe.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>
#include <QUrl>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace folivox {

// The pass that runs once per build before the export decision. The audio
// format cached on each track is trusted only while the file still has the
// size and modification date it had when it was probed. A file that changed
// (or cannot be checked) is probed again; one that cannot be probed before
// the deadline loses its cached format, which the decision then treats as
// unknown. The pass never throws and never stops the build.
class ExportCacheFreshness {
public:
    // File facts for one build, each file looked up once however many tracks
    // and chapters share it. It also remembers which files could not be
    // probed, so the decision does not wait on them a second time. Safe to
    // use from several threads.
    class StatMemo {
    public:
        struct FileStat {
            bool exists = false;
            quint64 size = 0;
            QDateTime modificationDate;
        };

        // The file's size and modification date, read once and then recalled.
        FileStat stat(const QString& path);
        void forget(const QString& path);
        // Forgets everything: a memo holds the facts of one build only.
        void clear();

        void noteProbeFailure(const QString& path);
        bool probeFailed(const QString& path) const;

        // How many times the file system was asked.
        int lookups() const;

    private:
        mutable std::mutex mutex_;
        QHash<QString, FileStat> stats_;
        QSet<QString> failedProbes_;
        int lookups_ = 0;
    };

    struct Result {
        // The bookmarks with refreshed or stripped formats in their tracks.
        std::vector<Bookmark> bookmarks;
        int checked = 0;   // distinct files with a cached format
        int stale = 0;     // of those, files that changed or could not be checked
        int refreshed = 0; // stale files probed again
        int failed = 0;    // stale files whose cached format was stripped
        double elapsedMs = 0.0;
        // The new cached format of each stale file, by URL; an empty one
        // means stripped.
        std::vector<std::pair<QUrl, Track::CachedFormat>> replacedFormats;

        // The same replacements made on another list of tracks (the book's
        // own track list), matched by URL.
        std::vector<Track> applyTo(std::vector<Track> tracks) const;

        // "[CachePerf] exportCacheCheck tracks=N stale=N refreshed=N failed=N ms=N.N"
        QString perfLine() const;
    };

    static constexpr std::chrono::milliseconds kDefaultDeadline{30000};
    static constexpr int kDefaultParallelProbes = 4;

    // `deadline` bounds the whole pass: a probe that has not answered when it
    // passes counts as failed. Up to `parallelProbes` files are probed at once.
    explicit ExportCacheFreshness(FormatProbeFunction probe, std::shared_ptr<StatMemo> memo = nullptr,
                                  std::chrono::milliseconds deadline = kDefaultDeadline,
                                  int parallelProbes = kDefaultParallelProbes);

    // Checks every distinct file of the bookmarks and logs what it finds,
    // ending with perfLine().
    Result run(const std::vector<Bookmark>& bookmarks) const;

    // True when the cached format of the track can no longer be trusted: the
    // file is gone, its size or modification date differs from the cached
    // ones, or the cache holds neither to compare with.
    static bool isStale(const Track& track, const StatMemo::FileStat& stat);

    const std::shared_ptr<StatMemo>& memo() const { return memo_; }

private:
    FormatProbeFunction probe_;
    std::shared_ptr<StatMemo> memo_;
    std::chrono::milliseconds deadline_;
    int parallelProbes_;
};

} // namespace folivox
