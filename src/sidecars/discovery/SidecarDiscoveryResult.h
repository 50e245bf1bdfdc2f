#pragma once

#include "sidecars/discovery/SidecarMatchResult.h"

#include <QJsonObject>
#include <QList>
#include <QStringList>
#include <QUrl>

#include <optional>

namespace folivox {

// What discovery found beside the audio: the best match (if any chapter file
// parsed and validated), every file considered, and one message per file
// that could not be read.
struct SidecarDiscoveryResult {
    std::optional<SidecarMatchResult> match;
    QList<QUrl> discoveredFiles;
    QStringList errors;

    QJsonObject toJson() const;
};

} // namespace folivox
