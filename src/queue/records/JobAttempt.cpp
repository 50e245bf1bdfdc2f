#include "queue/records/JobAttempt.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

JobAttempt::Outcome JobAttempt::Outcome::success(QString outputPath)
{
    Outcome o;
    o.kind = Kind::success;
    o.outputPath = std::move(outputPath);
    return o;
}

JobAttempt::Outcome JobAttempt::Outcome::failure(ErrorClass errorClass, QString message)
{
    Outcome o;
    o.kind = Kind::failure;
    o.errorClass = errorClass;
    o.message = std::move(message);
    return o;
}

JobAttempt::Outcome JobAttempt::Outcome::cancelled()
{
    return Outcome();
}

QJsonObject JobAttempt::Outcome::toJson() const
{
    switch (kind) {
    case Kind::success:
        return {{QStringLiteral("success"), JsonWriter().set("outputPath", outputPath).object()}};
    case Kind::failure:
        return {{QStringLiteral("failure"), JsonWriter().set("class", errorClass).set("message", message).object()}};
    case Kind::cancelled:
        break;
    }
    return {{QStringLiteral("cancelled"), QJsonObject()}};
}

JobAttempt::Outcome JobAttempt::Outcome::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    if (r.contains("success")) {
        const JsonReader inner(JsonReader::asObject(json.value(QStringLiteral("success")), QStringLiteral("success")));
        return success(inner.string("outputPath"));
    }
    if (r.contains("failure")) {
        const JsonReader inner(JsonReader::asObject(json.value(QStringLiteral("failure")), QStringLiteral("failure")));
        try {
            return failure(inner.enumeration<ErrorClass>("class"), inner.string("message"));
        } catch (const DecodingError& e) {
            throw e.prefixed(QStringLiteral("failure"));
        }
    }
    if (r.contains("cancelled"))
        return cancelled();
    throw DecodingError::dataCorrupted(QString(), QStringLiteral("An outcome is one of success, failure or cancelled"));
}

QJsonObject JobAttempt::toJson() const
{
    return JsonWriter()
        .set("id", id)
        .set("startedAt", startedAt)
        .set("endedAt", endedAt)
        .set("outcome", outcome)
        .set("logPath", logPath)
        .object();
}

JobAttempt JobAttempt::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    JobAttempt a;
    a.id = r.uuid("id");
    a.startedAt = r.date("startedAt");
    a.endedAt = r.optionalDate("endedAt");
    a.outcome = r.optionalValue<Outcome>("outcome");
    a.logPath = r.optionalString("logPath");
    return a;
}

} // namespace folivox
