#pragma once

#include "core/json/EnumNames.h"

#include <QString>

namespace folivox {

// The stages a build reports progress in, in the order they occur.
enum class ExportPhase {
    preparing,
    cover,
    checkingFiles,
    analyzingFiles,
    copying,
    encoding,
    finalizingChapters,
    merging,
    metadata,
    fastStart,
    finalizing,
    part,
    complete,
};

template<>
struct EnumNames<ExportPhase> {
    static constexpr const char* typeName = "ExportPhase";
    static constexpr std::array items{
        std::pair{ExportPhase::preparing, "preparing"},
        std::pair{ExportPhase::cover, "cover"},
        std::pair{ExportPhase::checkingFiles, "checkingFiles"},
        std::pair{ExportPhase::analyzingFiles, "analyzingFiles"},
        std::pair{ExportPhase::copying, "copying"},
        std::pair{ExportPhase::encoding, "encoding"},
        std::pair{ExportPhase::finalizingChapters, "finalizingChapters"},
        std::pair{ExportPhase::merging, "merging"},
        std::pair{ExportPhase::metadata, "metadata"},
        std::pair{ExportPhase::fastStart, "fastStart"},
        std::pair{ExportPhase::finalizing, "finalizing"},
        std::pair{ExportPhase::part, "part"},
        std::pair{ExportPhase::complete, "complete"},
    };
};

// The localisation key of a phase's title; empty for `complete`, which has none.
QString exportPhaseKey(ExportPhase phase);

// The title shown for a phase. `analyzingFiles` ("Analyzing files… %d of %d")
// and `part` ("Exporting Part %d/%d…") take two numbers; the other phases
// ignore them.
QString exportPhaseTitle(ExportPhase phase, int current = 0, int total = 0);

} // namespace folivox
