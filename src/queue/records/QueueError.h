#pragma once

#include "platform/Error.h"

#include <QString>

namespace folivox {

// What the queue's files and commands can fail with, each naming the file,
// the job or the process it is about.
class QueueError : public Error {
public:
    enum class Kind {
        newerQueueFile,  // written by a newer Folivox; left untouched
        saveFailed,      // the queue file could not be written
        alreadyRunning,  // another process runs this queue
        lockFailed,      // the queue's lock file cannot be opened
        jobNotFound,     // no job has this id (or prefix)
        ambiguousJob,    // several jobs start with this prefix
        notAllowed,      // the job is not in a state that allows this
        outputTaken,     // another job already plans this output
        noRun,           // the command needs a running `queue run`
        controlFailed,   // the running queue did not answer
    };

    QueueError(Kind kind, QString detail, QString subject = {});

    static QueueError newerQueueFile(int version, const QString& file);
    static QueueError saveFailed(const QString& file, const QString& reason);
    static QueueError alreadyRunning(qint64 pid, const QString& folder);
    static QueueError lockFailed(const QString& file, const QString& reason);
    static QueueError jobNotFound(const QString& idText);
    static QueueError ambiguousJob(const QString& idText, const QString& matches);
    static QueueError notAllowed(const QString& message);
    static QueueError outputTaken(const QString& path, const QString& otherJob);
    static QueueError noRun();
    static QueueError controlFailed(const QString& reason);

    Kind kind() const { return kind_; }
    QString description() const override { return detail_; }
    // The file, job or process id the error is about.
    const QString& subject() const { return subject_; }

private:
    Kind kind_;
    QString detail_;
    QString subject_;
};

} // namespace folivox
