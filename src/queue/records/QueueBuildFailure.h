#pragma once

#include "queue/records/JobAttempt.h"
#include "queue/records/QueueHalt.h"
#include "platform/Error.h"

#include <QJsonObject>
#include <QString>

#include <optional>

namespace folivox {

// A queued build that did not make its book, sorted for the queue: whether
// the user cancelled it, its error class, the message the user reads, and
// whether the whole queue must halt (with the destination folder's name for
// the halt message that names it). Crosses from a build worker to the queue
// as JSON.
class QueueBuildFailure : public Error {
public:
    bool cancelled = false;
    JobAttempt::ErrorClass errorClass = JobAttempt::ErrorClass::permanent;
    QString message;
    std::optional<QueueHalt::Reason> halt;
    QString haltFolder;
    // The build's diagnostic log, when there was one.
    QString logFile;

    static QueueBuildFailure cancellation(QString logFile = {});
    static QueueBuildFailure classified(JobAttempt::ErrorClass errorClass, QString message,
                                        std::optional<QueueHalt::Reason> halt = std::nullopt, QString haltFolder = {});

    QString description() const override { return message; }

    QJsonObject toJson() const;
    static QueueBuildFailure fromJson(const QJsonObject& json);
};

} // namespace folivox
