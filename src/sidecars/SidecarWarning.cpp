#include "sidecars/SidecarWarning.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QString sidecarWarningSeverityRawValue(SidecarWarningSeverity severity)
{
    return enumName(severity);
}

SidecarWarning SidecarWarning::make(const QString& message, SidecarWarningSeverity severity,
                                    std::optional<int> lineNumber)
{
    return SidecarWarning{QUuid::createUuid(), message, severity, lineNumber};
}

QJsonObject SidecarWarning::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("message", message)
        .set("severity", severity)
        .set("lineNumber", lineNumber)
        .object();
}

SidecarWarning SidecarWarning::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    SidecarWarning w;
    w.id = r.uuid("id");
    w.message = r.string("message");
    w.severity = r.enumeration<SidecarWarningSeverity>("severity");
    w.lineNumber = r.optionalInteger("lineNumber");
    return w;
}

} // namespace folivox
