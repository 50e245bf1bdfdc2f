#pragma once

#include "queue/run/QueueJobBuilder.h"

namespace folivox {

// Builds in this process with the build use-case (the desktop application,
// and tests of the service).
class InProcessJobBuilder final : public QueueJobBuilder {
public:
    Built build(const QueueBuildOrder& order, std::shared_ptr<const CancellationToken> token,
                const BuildUseCase::Sinks& sinks) override;
};

} // namespace folivox
