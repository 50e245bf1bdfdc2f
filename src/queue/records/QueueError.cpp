#include "queue/records/QueueError.h"

#include "platform/L10n.h"

namespace folivox {

QueueError::QueueError(Kind kind, QString detail, QString subject)
    : kind_(kind)
    , detail_(std::move(detail))
    , subject_(std::move(subject))
{
}

QueueError QueueError::newerQueueFile(int version, const QString& file)
{
    return {Kind::newerQueueFile,
            L10n::format(L10n::text("queue.error.newerFile", "the queue file %@ was written by a newer Folivox (version %@ of "
                                                             "the file); this Folivox leaves it untouched"),
                         {file, QString::number(version)}),
            file};
}

QueueError QueueError::saveFailed(const QString& file, const QString& reason)
{
    return {Kind::saveFailed,
            L10n::format(L10n::text("queue.error.saveFailed", "could not save the queue to %@: %@"), {file, reason}), file};
}

QueueError QueueError::alreadyRunning(qint64 pid, const QString& folder)
{
    return {Kind::alreadyRunning,
            L10n::format(L10n::text("queue.error.alreadyRunning",
                                    "the queue in %@ is already being run by process %@; stop it with 'folivox queue stop', "
                                    "or wait for it"),
                         {folder, QString::number(pid)}),
            QString::number(pid)};
}

QueueError QueueError::lockFailed(const QString& file, const QString& reason)
{
    return {Kind::lockFailed,
            L10n::format(L10n::text("queue.error.lockFailed", "cannot open the queue's lock file %@: %@"), {file, reason}), file};
}

QueueError QueueError::jobNotFound(const QString& idText)
{
    return {Kind::jobNotFound, L10n::format(L10n::text("queue.error.noJob", "no job in the queue has the id '%@'"), {idText}),
            idText};
}

QueueError QueueError::ambiguousJob(const QString& idText, const QString& matches)
{
    return {Kind::ambiguousJob,
            L10n::format(L10n::text("queue.error.ambiguousJob", "'%@' starts the id of several jobs: %@; give more of it"),
                         {idText, matches}),
            idText};
}

QueueError QueueError::notAllowed(const QString& message)
{
    return {Kind::notAllowed, message};
}

QueueError QueueError::outputTaken(const QString& path, const QString& otherJob)
{
    return {Kind::outputTaken,
            L10n::format(L10n::text("queue.error.outputTaken",
                                    "the job %@ in the queue already writes '%@': choose another -o, or remove that job"),
                         {otherJob, path}),
            path};
}

QueueError QueueError::noRun()
{
    return {Kind::noRun, L10n::text("queue.error.noRun", "no 'folivox queue run' is running for this queue")};
}

QueueError QueueError::controlFailed(const QString& reason)
{
    return {Kind::controlFailed,
            L10n::format(L10n::text("queue.error.control", "the running queue did not answer: %@"), {reason})};
}

} // namespace folivox
