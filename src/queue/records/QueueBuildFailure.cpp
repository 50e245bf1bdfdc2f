#include "queue/records/QueueBuildFailure.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"
#include "platform/L10n.h"

namespace folivox {

QueueBuildFailure QueueBuildFailure::cancellation(QString logFile)
{
    QueueBuildFailure f;
    f.cancelled = true;
    f.message = L10n::text("build.cancelled", "cancelled");
    f.logFile = std::move(logFile);
    return f;
}

QueueBuildFailure QueueBuildFailure::classified(JobAttempt::ErrorClass errorClass, QString message,
                                                std::optional<QueueHalt::Reason> halt, QString haltFolder)
{
    QueueBuildFailure f;
    f.errorClass = errorClass;
    f.message = std::move(message);
    f.halt = halt;
    f.haltFolder = std::move(haltFolder);
    return f;
}

QJsonObject QueueBuildFailure::toJson() const
{
    JsonWriter w;
    w.set("cancelled", cancelled).set("class", errorClass).set("message", message).set("halt", halt);
    if (!haltFolder.isEmpty())
        w.set("haltFolder", haltFolder);
    if (!logFile.isEmpty())
        w.set("logFile", logFile);
    return w.object();
}

QueueBuildFailure QueueBuildFailure::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    QueueBuildFailure f;
    f.cancelled = r.boolean("cancelled");
    f.errorClass = r.enumeration<JobAttempt::ErrorClass>("class");
    f.message = r.string("message");
    f.halt = r.optionalEnumeration<QueueHalt::Reason>("halt");
    f.haltFolder = r.optionalString("haltFolder").value_or(QString());
    f.logFile = r.optionalString("logFile").value_or(QString());
    return f;
}

} // namespace folivox
