#pragma once

#include "core/chapters/NormalizedChapter.h"
#include "sidecars/SidecarWarning.h"

#include <QJsonObject>
#include <QList>

namespace folivox {

struct SidecarValidationResult {
    bool isValid = false;
    QList<NormalizedChapter> chapters;
    QList<SidecarWarning> warnings;

    QJsonObject toJson() const;
};

} // namespace folivox
