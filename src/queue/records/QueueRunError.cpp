#include "queue/records/QueueRunError.h"

#include "platform/L10n.h"

namespace folivox {

QueueRunError::QueueRunError(Kind kind, QString message, QString folder, int systemError)
    : kind_(kind)
    , message_(std::move(message))
    , folder_(std::move(folder))
    , systemError_(systemError)
{
}

QueueRunError QueueRunError::bookRemoved()
{
    return {Kind::bookRemoved, L10n::text("queue.error.bookRemoved", "Book was removed from the library.")};
}

QueueRunError QueueRunError::jobVanished()
{
    return {Kind::jobVanished, QStringLiteral("The job was removed from the queue.")};
}

QueueRunError QueueRunError::destinationUnavailable(const QString& folder)
{
    return {Kind::destinationUnavailable,
            L10n::text("queue.error.destination",
                       "The destination folder is unavailable. Choose a new folder for the queue and retry."),
            folder};
}

QueueRunError QueueRunError::destinationNotCreated(const QString& folder, int error)
{
    return {Kind::destinationUnavailable,
            L10n::text("queue.error.destination.mkdir",
                       "Could not create the output folder. Check the queue's destination folder and retry."),
            folder, error};
}

QueueRunError QueueRunError::sourcesUnreachable()
{
    return {Kind::sourcesUnreachable, L10n::text("queue.error.sources", "Source files could not be opened.")};
}

} // namespace folivox
