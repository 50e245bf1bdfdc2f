#pragma once

#include "queue/records/QueueJob.h"

#include <QJsonObject>

#include <vector>

namespace folivox {

// The root of the queue's JSON file: schemaVersion (written as 1) and jobs.
struct QueueFile {
    static constexpr int kSchemaVersion = 1;

    int schemaVersion = kSchemaVersion;
    std::vector<QueueJob> jobs;

    QJsonObject toJson() const;
    static QueueFile fromJson(const QJsonObject& json);
};

} // namespace folivox
