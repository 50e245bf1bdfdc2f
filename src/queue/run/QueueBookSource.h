#pragma once

#include "queue/records/QueueBuildInput.h"

#include <QUuid>

namespace folivox {

// Gives the queue the books of the library when their jobs run.
class QueueBookSource {
public:
    virtual ~QueueBookSource() = default;
    // Throws QueueRunError::bookRemoved when the library no longer has the
    // book, and Error when the library cannot be read now.
    virtual QueueBuildInput input(const QUuid& bookID) = 0;
};

} // namespace folivox
