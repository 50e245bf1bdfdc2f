#pragma once

#include "core/chapters/NormalizedChapter.h"
#include "sidecars/parsers/SidecarFormat.h"
#include "sidecars/SidecarWarning.h"

#include <QJsonObject>
#include <QList>

#include <cstdint>

namespace folivox {

// A chapter file fitted to its audio: exactly the chapters a build applies.
// Each chapter runs from its start to the next one's; the last runs to the end
// of the audio (endMs is set on every chapter when the audio's length is
// known). warnings holds the parser's warnings, then the validation's.
struct FittedSidecarChapters {
    bool isValid = false;
    SidecarFormat format = SidecarFormat::simpleText;
    QList<NormalizedChapter> chapters;
    QList<SidecarWarning> warnings;
    // The audio's length the chapters were fitted to; 0 when unknown.
    std::int64_t totalDurationMs = 0;

    // The first warning of severity error, else the first of severity
    // warning: the reason a file is refused. Empty when there is none.
    QString firstProblem() const;

    QJsonObject toJson() const;
};

} // namespace folivox
