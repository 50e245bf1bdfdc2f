#include "export/decision/ExportDecision.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"


namespace folivox {

QString ExportDecision::logLine() const
{
    return QStringLiteral("Decision: strategy=%1 canPassthrough=%2 reasons=%3")
        .arg(enumName(strategy), canPassthrough ? QStringLiteral("true") : QStringLiteral("false"),
             reasons.join(QStringLiteral(", ")));
}

QJsonObject ExportDecision::toJson() const
{
    QJsonObject json =
        JsonWriter().set("strategy", strategy).set("reasons", reasons).set("canPassthrough", canPassthrough).object();
    if (normalizationTarget) {
        json.insert(QStringLiteral("normalizationTarget"), JsonWriter()
                                                               .set("sampleRate", normalizationTarget->sampleRate)
                                                               .set("channels", normalizationTarget->channels)
                                                               .object());
    }
    return json;
}

ExportDecision ExportDecision::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    ExportDecision decision;
    decision.strategy = r.enumeration<Strategy>("strategy");
    decision.reasons = JsonReader::listOf<QString>(r.object().value(QLatin1StringView("reasons")),
                                                   QStringLiteral("reasons"), &JsonReader::asString);
    decision.canPassthrough = r.boolean("canPassthrough");
    if (r.contains("normalizationTarget")) {
        const JsonReader target(JsonReader::asObject(r.object().value(QLatin1StringView("normalizationTarget")),
                                                     QStringLiteral("normalizationTarget")));
        decision.normalizationTarget = NormalizationTarget{target.integer("sampleRate"), target.integer("channels")};
    }
    return decision;
}

ExportDecision::Strategy chooseStrategy(const ExportSettings& settings, const DecisionFactors& factors,
                                        const QStringList& reasons, const ExportPlanBuilder::Plan& plan)
{
    if (settings.outputFormat == OutputFormat::mp3 || settings.outputFormat == OutputFormat::m4a)
        return ExportDecision::Strategy::multiFile;
    if (factors.requiresSplit)
        return ExportDecision::Strategy::splitTranscode;
    if (!reasons.isEmpty())
        return ExportDecision::Strategy::transcode;
    if (plan.uniqueURLs.size() == 1)
        return ExportDecision::Strategy::passthroughEntireFile;
    return ExportDecision::Strategy::passthroughConcat;
}

} // namespace folivox
