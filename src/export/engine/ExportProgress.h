#pragma once

#include "export/engine/ExportPhase.h"

#include <QJsonObject>
#include <QString>

#include <functional>

namespace folivox {

// One progress report of a build: the phase it is in, the title shown for it,
// and how far the whole build has come (0...1). Reports of one build never go
// backwards in `fraction` (the progress layer holds a high-water mark), except
// when the driver restarts the audio work for a corrupted source.
struct ExportProgress {
    ExportPhase phase = ExportPhase::preparing;
    double fraction = 0.0;
    QString title;

    static ExportProgress make(ExportPhase phase, double fraction) { return {phase, fraction, exportPhaseTitle(phase)}; }

    QJsonObject toJson() const;

    bool operator==(const ExportProgress&) const = default;
};

using ExportProgressHandler = std::function<void(const ExportProgress&)>;

} // namespace folivox
