#pragma once

#include "container/mp3/ChapterDamageHole.h"
#include "container/mp3/MP3FileBytes.h"
#include "container/mp3/MP3IntegrityFileStamp.h"
#include "container/mp3/MP3IntegrityReport.h"
#include "core/book/Bookmark.h"
#include "core/book/Track.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

// Checks the MP3s of a book for holes. Scans run one at a time on the
// service's own worker thread; a report stays cached for a file as long as its
// size and modification time stay the same.
//
// Two ways in:
//  - scanFiles() for a build: blocks its caller until every file is scanned
//    and returns the reports in input order.
//  - scanTracks() for the open book: starts a new round and returns at once.
//    Reports are published one by one on the service's own thread (with
//    reportPublished); a newer round makes the older one stop at its next
//    cancellation check and drop whatever it still delivers.
// The published values (report(), damagedReportsByFile()) are read and
// changed on the service's own thread only.
class MP3IntegrityService : public QObject {
    Q_OBJECT

public:
    struct Entry {
        MP3IntegrityReport report;
        MP3IntegrityFileStamp stamp;
    };

    explicit MP3IntegrityService(QObject* parent = nullptr);
    ~MP3IntegrityService() override;

    // Scans one file on the calling thread, without the cache. Nothing when
    // cancelled. A file on a network or FUSE file system larger than
    // MP3FileBytes::kMaxReadBytes is not scanned and gets the verdict
    // unknown. Throws MP3IntegrityError when the file cannot be read.
    static std::optional<MP3IntegrityReport> scanFile(const QString& path, const std::function<bool()>& cancelled = {},
                                                      MP3FileBytes::Placement placement =
                                                          MP3FileBytes::Placement::automatic);

    // The report for a file from the cache when its stamp is unchanged, else
    // from a scan on the worker (the caller waits). Nothing when cancelled.
    // Throws MP3IntegrityError.
    std::optional<MP3IntegrityReport> reportFor(const QString& path, const std::function<bool()>& cancelled = {});

    // For a build: one report per path, in order. A file that cannot be read
    // gets a report with the verdict unknown (and the reason in the log).
    // Nothing when cancelled.
    std::optional<std::vector<MP3IntegrityReport>> scanFiles(const QStringList& paths,
                                                             const std::function<bool()>& cancelled = {});

    // Starts a new round over the tracks whose file name ends in ".mp3" and
    // returns its token. Earlier published reports are cleared.
    QUuid scanTracks(const std::vector<Track>& tracks);
    // Ends the current round without starting another (a book was closed).
    void cancelRound();
    QUuid currentToken() const;

    // Published: the report of a track of the current round.
    std::optional<MP3IntegrityReport> report(const QUuid& trackId) const;
    // Published: the damaged files of the current round, by path.
    const std::map<QString, MP3IntegrityReport>& damagedReportsByFile() const { return damagedReportsByFile_; }
    // The holes that land in a chapter, from the cached reports of its files.
    std::vector<ChapterDamageHole> holesOfChapter(const Bookmark& chapter) const;

    // The cached report of a file, when its stamp still matches.
    std::optional<MP3IntegrityReport> cachedReport(const QString& path) const;

Q_SIGNALS:
    void reportPublished(const QUuid& trackId);
    void roundFinished(const QUuid& token);

private:
    using Job = std::function<void()>;

    void post(Job job);
    void workerLoop();
    // On the worker: the cached or freshly scanned report.
    std::optional<MP3IntegrityReport> scanOnWorker(const QString& path, const std::function<bool()>& cancelled);
    void publish(const QUuid& token, const QUuid& trackId, const QString& path, const MP3IntegrityReport& report);

    mutable std::mutex mutex_; // guards entries_, currentToken_, jobs_, stopping_
    std::condition_variable jobsChanged_;
    std::deque<Job> jobs_;
    bool stopping_ = false;
    QHash<QString, Entry> entries_;
    QUuid currentToken_;
    std::thread worker_;

    // Published state, on the service's thread only.
    std::map<QUuid, MP3IntegrityReport> reports_;
    std::map<QString, MP3IntegrityReport> damagedReportsByFile_;
};

} // namespace folivox
