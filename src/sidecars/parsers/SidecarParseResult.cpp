#include "sidecars/parsers/SidecarParseResult.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

void SidecarParseResult::addWarning(const QString& message, SidecarWarningSeverity severity,
                                    std::optional<int> lineNumber)
{
    warnings.append(SidecarWarning::make(message, severity, lineNumber));
}

bool SidecarParseResult::hasError() const
{
    for (const auto& w : warnings) {
        if (w.severity == SidecarWarningSeverity::error)
            return true;
    }
    return false;
}

QJsonObject SidecarParseResult::toJson() const
{
    return JsonWriter()
        .set("chapters", chapters)
        .set("format", format)
        .set("warnings", warnings)
        .set("referencedAudioFile", referencedAudioFile)
        .set("sourceURL", sourceURL)
        .object();
}

SidecarParseResult SidecarParseResult::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    SidecarParseResult result;
    for (auto& c : r.list<NormalizedChapter>("chapters"))
        result.chapters.append(std::move(c));
    result.format = r.enumeration<SidecarFormat>("format");
    for (auto& w : r.list<SidecarWarning>("warnings"))
        result.warnings.append(std::move(w));
    result.referencedAudioFile = r.optionalString("referencedAudioFile");
    result.sourceURL = r.url("sourceURL");
    return result;
}

} // namespace folivox
