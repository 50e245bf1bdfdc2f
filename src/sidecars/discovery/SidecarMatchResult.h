#pragma once

#include "core/json/EnumNames.h"
#include "core/chapters/NormalizedChapter.h"
#include "sidecars/discovery/SidecarMatchLayers.h"
#include "sidecars/parsers/SidecarParseResult.h"

#include <QJsonObject>
#include <QList>
#include <QUrl>

#include <optional>

namespace folivox {

enum class SidecarMatchConfidence { high, medium, low, none };

template<>
struct EnumNames<SidecarMatchConfidence> {
    static constexpr const char* typeName = "SidecarMatchConfidence";
    static constexpr std::array items{
        std::pair{SidecarMatchConfidence::high, "high"},
        std::pair{SidecarMatchConfidence::medium, "medium"},
        std::pair{SidecarMatchConfidence::low, "low"},
        std::pair{SidecarMatchConfidence::none, "none"},
    };
};

QString sidecarMatchConfidenceRawValue(SidecarMatchConfidence confidence);
std::optional<SidecarMatchConfidence> sidecarMatchConfidenceFromRawValue(const QString& raw);

// How well one chapter file fits the audio, with the chapters after validation.
struct SidecarMatchResult {
    QUrl sidecarURL;
    std::optional<QUrl> audioURL;
    int score = 0;
    SidecarMatchConfidence confidence = SidecarMatchConfidence::none;
    SidecarMatchLayers matchLayers;
    QList<NormalizedChapter> chapters;
    SidecarParseResult parseResult;

    // matchLayers is written as its raw value; confidence by name.
    QJsonObject toJson() const;
    // Throws DecodingError.
    static SidecarMatchResult fromJson(const QJsonObject& json);
};

} // namespace folivox
