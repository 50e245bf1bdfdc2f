#pragma once

#include "container/mp3/ChapterDamageHole.h"
#include "container/mp3/MP3IntegrityReport.h"

#include <QMap>
#include <QObject>
#include <QStringList>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

namespace folivox {

class ManualCancellationToken;
class MP3IntegrityService;
class OpenBook;
struct Track;

// The MP3 damage of the open book: every time its tracks change, a new
// round of MP3IntegrityService scans them (the old round is dropped), and
// the reports it publishes are what the tracks list and the damage panel
// show. Repair makes a clean copy of each damaged file (FileRepairService,
// on a worker; the source is only read) in a folder that outlives the run,
// and hands them back for the user to use.
class TrackIntegrity : public QObject {
    Q_OBJECT
public:
    enum class Status { notMp3, checking, clean, damaged, unknown };

    // One hole as the user reads it: where it is in the file, what it
    // costs, and the chapter it falls in.
    struct Hole {
        double fileTime = 0;
        double missingSeconds = 0;
        QString chapter;
        double chapterTime = 0;
    };

    explicit TrackIntegrity(OpenBook& book, QObject* parent = nullptr);
    // Stops a repair (its copies are not kept) and waits for it.
    ~TrackIntegrity() override;

    Status status(const Track& track) const;
    std::optional<MP3IntegrityReport> report(const QUuid& trackId) const;
    // The tracks published as damaged, in book order.
    std::vector<Track> damagedTracks() const;
    // The holes of a track with the chapters they land in.
    std::vector<Hole> holes(const Track& track) const;
    bool roundFinished() const { return roundFinished_; }

    static QString statusText(Status status);

    // Where the clean copy of a track goes (a folder that is kept); set by
    // the window: the library book's own folder, or the application's.
    std::function<QString(const Track& track)> repairFolder;

    // Repairs the damaged tracks. False when a repair runs or nothing is damaged.
    bool repairDamaged();
    bool isRepairing() const { return repairing_; }

Q_SIGNALS:
    // A report came, or a round started or ended.
    void changed();
    // The clean copies made (track → copy) and the files that could not be repaired.
    void repairFinished(const QMap<QUuid, QUrl>& copies, const QStringList& failures);

private:
    void rescan();

    OpenBook& book_;
    std::unique_ptr<MP3IntegrityService> service_;
    bool roundFinished_ = false;
    bool repairing_ = false;
    std::shared_ptr<ManualCancellationToken> repairToken_;
    std::thread repairThread_;
};

} // namespace folivox
