#pragma once

#include "queue/records/CandidatePayload.h"

#include <QJsonObject>
#include <QUuid>

#include <optional>

namespace folivox {

// Where a queued job's book comes from: a book in the library, read when the
// job runs, or a candidate that carries the book itself.
//
// JSON: {"book": {"id": UUID}} or {"candidate": {"_0": CandidatePayload}}.
struct QueueJobOrigin {
    std::optional<QUuid> bookID;
    std::optional<CandidatePayload> candidate;

    static QueueJobOrigin book(const QUuid& id);
    static QueueJobOrigin fromCandidate(CandidatePayload payload);

    bool isBook() const { return bookID.has_value(); }

    QJsonObject toJson() const;
    static QueueJobOrigin fromJson(const QJsonObject& json);
};

} // namespace folivox
