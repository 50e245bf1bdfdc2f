#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// Why a job stopped before its build began: its book left the library, the
// job itself was removed, its destination or its audio cannot be reached.
class QueueRunError : public Error {
public:
    enum class Kind { bookRemoved, jobVanished, destinationUnavailable, sourcesUnreachable };

    static QueueRunError bookRemoved();
    static QueueRunError jobVanished();
    // The destination folder is not there (a volume that went away).
    static QueueRunError destinationUnavailable(const QString& folder);
    // The output's folder could not be made; `error` is the errno.
    static QueueRunError destinationNotCreated(const QString& folder, int error);
    static QueueRunError sourcesUnreachable();

    Kind kind() const { return kind_; }
    // The folder a destination error is about, and the errno of a failed mkdir (0 otherwise).
    const QString& folder() const { return folder_; }
    int systemError() const { return systemError_; }
    QString description() const override { return message_; }

private:
    QueueRunError(Kind kind, QString message, QString folder = {}, int systemError = 0);

    Kind kind_;
    QString message_;
    QString folder_;
    int systemError_ = 0;
};

} // namespace folivox
