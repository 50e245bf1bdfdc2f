#pragma once

#include "core/chapters/NormalizedChapter.h"
#include "sidecars/parsers/SidecarFormat.h"
#include "sidecars/SidecarWarning.h"

#include <QJsonObject>
#include <QList>
#include <QUrl>

#include <optional>

namespace folivox {

// What one parser made of one chapter file.
struct SidecarParseResult {
    QList<NormalizedChapter> chapters;
    SidecarFormat format = SidecarFormat::simpleText;
    QList<SidecarWarning> warnings;
    // The audio file a cue sheet names; never a path outside the sheet's folder.
    std::optional<QString> referencedAudioFile;
    QUrl sourceURL;

    void addWarning(const QString& message, SidecarWarningSeverity severity,
                    std::optional<int> lineNumber = std::nullopt);
    bool hasError() const;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static SidecarParseResult fromJson(const QJsonObject& json);
};

} // namespace folivox
