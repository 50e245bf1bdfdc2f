#include "queue/run/InProcessJobBuilder.h"

#include "build/BuildFailure.h"
#include "queue/run/QueueFailureClassifier.h"

namespace folivox {

QueueJobBuilder::Built InProcessJobBuilder::build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                                                  const BuildUseCase::Sinks& sinks)
{
    try {
        const BuildResult result = BuildUseCase().run(order.request(), std::move(token), sinks);
        return Built{result.outcome.outputPath, result.outcome.outputFiles, result.logFile};
    } catch (const BuildFailure& failure) {
        throw QueueFailureClassifier::classify(failure, order.outputPath);
    }
}

} // namespace folivox
