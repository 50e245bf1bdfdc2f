#pragma once

#include "build/BuildRequest.h"
#include "build/ImportedBook.h"
#include "core/settings/ExportSettings.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// One build the queue hands to a builder: the book as it stands, the
// settings, the output path planned for the job and whether it may replace
// what is there. Crosses to a build worker process as JSON.
struct QueueBuildOrder {
    ImportedBook book;
    ExportSettings settings;
    QString outputPath;
    bool replaceExisting = false;
    std::optional<int> parallelJobs;

    BuildRequest request() const;

    QJsonObject toJson() const;
    static QueueBuildOrder fromJson(const QJsonObject& json);
};

} // namespace folivox
