#pragma once

#include "build/BuildUseCase.h"
#include "process/CancellationToken.h"
#include "queue/records/QueueBuildOrder.h"

#include <QString>
#include <QStringList>

#include <memory>

namespace folivox {

// Runs one queued build. The queue service calls it from its run thread and
// waits for it; progress and notes arrive through the sinks from any thread.
class QueueJobBuilder {
public:
    struct Built {
        // The book, or the folder of per-chapter files.
        QString outputPath;
        // Every file written.
        QStringList outputFiles;
        QString logFile;
    };

    virtual ~QueueJobBuilder() = default;

    // Throws QueueBuildFailure (already classified) when no book was made.
    virtual Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                        const BuildUseCase::Sinks& sinks) = 0;

    // The run that called build() has ended: what the builder keeps from
    // one build to the next within a run can go. Called on the run's thread.
    virtual void runEnded() {}
};

} // namespace folivox
