#pragma once

#include "build/BuildRequest.h"
#include "build/BuildUseCase.h"
#include "library/BookBuildInputs.h"
#include "queue/records/OutputOrganization.h"
#include "queue/records/QueueJob.h"
#include "queue/store/QueueStore.h"

#include <memory>
#include <optional>
#include <vector>

namespace folivox {

// Makes queued jobs: from a library book, or from files and folders (a
// candidate: imported now, so that the job carries its whole book). The
// output is planned now: the destination, the organization's folders and a
// name of its own. A default name ("<Title>.m4b") that another job already
// plans becomes "<Title> (2).m4b"; a name the user gave that another job
// plans is refused, and so is an output that already exists on disk unless
// the request allows replacing it.
class QueueEnqueuer {
public:
    struct Request {
        // The build as `folivox build` options describe it (inputs, settings,
        // tags, cover, chapter file, sort, -o, -f).
        BuildRequest build;
        // Or a library book, read by the caller.
        std::optional<BookBuildInputs> libraryBook;
        // Settings were given with the job: they win over the book's own.
        bool settingsGiven = false;
        OutputOrganization organization;
        bool organizationPinned = false;
    };

    // Throws BuildFailure (inputs that cannot be built, an output that
    // exists or cannot be written) or QueueError::outputTaken. A candidate's
    // cover goes into its job folder in `store`.
    static QueueJob make(const Request& request, const std::vector<QueueJob>& existing, QueueStore& store,
                         std::shared_ptr<const CancellationToken> token, const BuildUseCase::Sinks& sinks = {});

    // The planned output of a job-to-be: destination folder, folders inside
    // it and the name, unique among `existing`. Throws as make() does.
    struct Plan {
        QString root;
        QString basename;
        QString path;
    };
    static Plan planOutput(const BuildRequest& build, const QString& title, const OutputOrganization& organization,
                           const OrganizationContext& context, const std::vector<QueueJob>& existing);
};

} // namespace folivox
