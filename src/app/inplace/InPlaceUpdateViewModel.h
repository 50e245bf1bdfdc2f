#pragma once

#include "core/book/BookMetadata.h"
#include "core/chapters/ChapterInfo.h"
#include "core/chapters/ChapterSnapshot.h"
#include "inplace/InPlaceEligibility.h"
#include "inplace/InPlaceUpdateController.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QUuid>

#include <memory>
#include <optional>

namespace folivox {

class OpenBook;

// Writing the open book's tags, cover and chapter titles into the files of
// its last build, without a rebuild. The eligibility of the book is worked
// out once and cached (cachedEligibility) until the book changes; its
// reasons are published for the view. A run goes through
// InPlaceUpdateController on its worker; its progress (a phase key and a
// fraction) and its outcome come back on the main thread, and the outcome
// stays on show for the hold the controller gives it.
class InPlaceUpdateViewModel : public QObject {
    Q_OBJECT
public:
    enum class State {
        notBuilt,   // no build to update: nothing is offered
        eligible,   // "Update in Place" can run
        ineligible, // the reasons say why not
        running,
        finished,   // the outcome, held on screen
    };

    explicit InPlaceUpdateViewModel(OpenBook& book, QObject* parent = nullptr);
    // Cancels a run and waits for its rollback.
    ~InPlaceUpdateViewModel() override;

    State state() const;
    // The eligibility of the book as it stands (worked out now if the book
    // changed since).
    const std::optional<InPlaceEligibility>& cachedEligibility() const;
    QList<IneligibilityReason> ineligibilityReasons() const;
    // The files of the last build.
    QStringList outputFiles() const;

    // Running: the phase in words and the fraction done.
    QString phase() const { return phase_; }
    double fraction() const { return fraction_; }
    // Finished: how the last run ended, in words.
    const std::optional<InPlaceUpdateController::Outcome>& outcome() const { return outcome_; }
    QString outcomeText() const;

    bool isRunning() const { return running_; }
    // Starts a run of the book as it stands; false when it is not eligible
    // or a run is active (the controller logs that refusal).
    bool start();
    // The current file finishes, the others don't start, and the files are
    // put back from their backups.
    void cancel();

    // The text of a progress phase key ("inplace.progress.writing.metadata").
    static QString phaseText(const QString& key);

    // Reads the chapters a file carries, by path, size and date; cached.
    QList<ChapterSnapshot> chaptersOnDisk(const QStringList& files) const;

Q_SIGNALS:
    void changed();
    // A run ended (on the main thread).
    void finished(const folivox::InPlaceUpdateController::Outcome& outcome);

private:
    void invalidate();
    void evaluate() const;
    void deliver(const InPlaceUpdateController::Outcome& outcome);

    OpenBook& book_;
    std::unique_ptr<InPlaceUpdateController> controller_;
    mutable std::optional<InPlaceEligibility> cachedEligibility_;
    mutable bool stale_ = true;
    mutable QHash<QString, QList<ChapterSnapshot>> fileChapters_; // path|size|date → chapters
    bool running_ = false;
    QString phase_;
    double fraction_ = 0;
    std::optional<InPlaceUpdateController::Outcome> outcome_;
    QTimer holdTimer_;
    int generation_ = 0;
    QUuid runBook_;        // the book the last run wrote
    QStringList runFiles_; // and its files
};

} // namespace folivox

Q_DECLARE_METATYPE(folivox::InPlaceUpdateController::Outcome)
