#pragma once

#include "core/json/EnumNames.h"
#include "core/settings/ExportSettings.h"
#include "export/decision/DecisionFactors.h"
#include "export/decision/ExportPlanBuilder.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <optional>

namespace folivox {

// How a book will be built and why.
struct ExportDecision {
    enum class Strategy {
        passthroughEntireFile, // copy the one source file
        passthroughRange,      // kept for completeness; no decision produces it
        passthroughConcat,     // join the source files without encoding
        transcode,             // encode the book into one file
        splitTranscode,        // encode the book into several parts
        multiFile,             // one file per chapter (M4A and MP3 output)
    };
    using NormalizationTarget = DecisionFactors::NormalizationTarget;

    Strategy strategy = Strategy::transcode;
    // Everything that speaks against a copy, in the fixed order; empty when
    // the audio can be copied.
    QStringList reasons;
    // True exactly when `reasons` is empty.
    bool canPassthrough = false;
    // The common sample rate and channel count when the sources differ.
    std::optional<NormalizationTarget> normalizationTarget;

    // "Decision: strategy=<name> canPassthrough=<bool> reasons=<a, b, ...>"
    QString logLine() const;

    // JSON: strategy by case name, reasons, canPassthrough, and
    // normalizationTarget as {"sampleRate", "channels"} when present.
    QJsonObject toJson() const;
    static ExportDecision fromJson(const QJsonObject& json);

    bool operator==(const ExportDecision&) const = default;
};

template<>
struct EnumNames<ExportDecision::Strategy> {
    static constexpr const char* typeName = "Strategy";
    static constexpr std::array items{
        std::pair{ExportDecision::Strategy::passthroughEntireFile, "passthroughEntireFile"},
        std::pair{ExportDecision::Strategy::passthroughRange, "passthroughRange"},
        std::pair{ExportDecision::Strategy::passthroughConcat, "passthroughConcat"},
        std::pair{ExportDecision::Strategy::transcode, "transcode"},
        std::pair{ExportDecision::Strategy::splitTranscode, "splitTranscode"},
        std::pair{ExportDecision::Strategy::multiFile, "multiFile"},
    };
};

// The strategy for a build; the first rule that holds wins:
//   1. M4A or MP3 output                   -> multiFile
//   2. the output is split                 -> splitTranscode
//   3. anything speaks against a copy      -> transcode
//   4. the plan uses exactly one file      -> passthroughEntireFile
//   5. otherwise                           -> passthroughConcat
// passthroughRange is never chosen.
ExportDecision::Strategy chooseStrategy(const ExportSettings& settings, const DecisionFactors& factors,
                                        const QStringList& reasons, const ExportPlanBuilder::Plan& plan);

} // namespace folivox
