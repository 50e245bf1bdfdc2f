#include "queue/records/QueueJobOrigin.h"

#include "core/json/JsonReader.h"
#include "core/json/JsonWriter.h"

namespace folivox {

QueueJobOrigin QueueJobOrigin::book(const QUuid& id)
{
    QueueJobOrigin o;
    o.bookID = id;
    return o;
}

QueueJobOrigin QueueJobOrigin::fromCandidate(CandidatePayload payload)
{
    QueueJobOrigin o;
    o.candidate = std::move(payload);
    return o;
}

QJsonObject QueueJobOrigin::toJson() const
{
    if (bookID)
        return {{QStringLiteral("book"), JsonWriter().set("id", *bookID).object()}};
    return {{QStringLiteral("candidate"), JsonWriter().set("_0", candidate.value_or(CandidatePayload())).object()}};
}

QueueJobOrigin QueueJobOrigin::fromJson(const QJsonObject& json)
{
    const JsonReader r(json);
    try {
        if (r.contains("book"))
            return book(JsonReader(JsonReader::asObject(json.value(QStringLiteral("book")), QStringLiteral("book"))).uuid("id"));
        if (r.contains("candidate"))
            return fromCandidate(JsonReader(JsonReader::asObject(json.value(QStringLiteral("candidate")), QStringLiteral("candidate")))
                                     .value<CandidatePayload>("_0"));
    } catch (const DecodingError& e) {
        throw e.prefixed(r.contains("book") ? QStringLiteral("book") : QStringLiteral("candidate"));
    }
    throw DecodingError::dataCorrupted(QString(), QStringLiteral("An origin is a book or a candidate"));
}

} // namespace folivox
