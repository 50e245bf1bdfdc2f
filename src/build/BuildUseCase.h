#pragma once

#include "build/BuildPlan.h"
#include "build/BuildRequest.h"
#include "build/BuildResult.h"
#include "process/CancellationToken.h"

#include <QString>

#include <functional>
#include <memory>

namespace folivox {

// One build from start to end, the same for every front end: imports the
// inputs, applies a chapter file, merges the tags, picks the cover, plans and
// checks the output, runs the export and says what it made. Front ends only
// turn their input into a BuildRequest and show the BuildResult.
class BuildUseCase {
public:
    struct Sinks {
        // Phase text and fraction 0...1; called from worker threads.
        std::function<void(const QString& phase, double fraction)> progress;
        // A line the user should read while the build runs (also kept in the
        // result's warnings).
        std::function<void(const QString& text)> note;
        // A line worth knowing that needs no action (a chapter file found
        // but not used, the bitrate held to the sources'); kept in the
        // result's warnings too.
        std::function<void(const QString& text)> info;
        // The export is about to start on a book of this many seconds.
        std::function<void(double bookSeconds)> started;
    };

    struct Chapters;

    BuildUseCase();
    ~BuildUseCase();

    // Throws BuildFailure: usage for a request that cannot work as given,
    // failed for unreadable inputs, a bad output or a failed export,
    // cancelled when the token fired before the book was in place. Once the
    // book is in place the build has succeeded, whatever the token says.
    BuildResult run(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks = {});

    // What run() would do with the same request, without writing anything:
    // the same checks and refusals, then the plan and the decision.
    BuildPlan preview(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks = {});

    // The book a request describes, imported as run() would import it (the
    // files read and ordered, the chapter file applied, the tags merged, the
    // cover picked), with no output planned or checked: what a build kept
    // for later (a queued job) holds, so that it runs without importing again.
    // Throws BuildFailure as run() does.
    ImportedBook importBook(const BuildRequest& request, std::shared_ptr<const CancellationToken> token, Sinks sinks = {});

private:
    struct Prepared;
    Prepared prepare(const BuildRequest& request, const CancellationToken& token, const Sinks& sinks, bool planOutput = true);
    static Prepared prepareImported(const ImportedBook& book, const BuildRequest& request, const QByteArray& givenCover);
    // Scans the MP3 sources for damage, tells the user, and with
    // repairDamaged puts repaired copies in their place.
    // Forced passthrough only where a copy gives a correct book: a usage
    // error naming why it cannot, before any audio work.
    static void refuseImpossibleCopy(const Prepared& prepared);
    static void checkDamage(Prepared& prepared, const BuildRequest& request, const CancellationToken& token, const Sinks& sinks);
};

} // namespace folivox
