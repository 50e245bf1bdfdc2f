#pragma once

#include "library/files/StagedFileWriter.h"
#include "queue/store/QueueFile.h"
#include "queue/records/QueueHalt.h"
#include "queue/records/QueueJob.h"

#include <QHash>
#include <QList>
#include <QPair>
#include <QSet>
#include <QString>
#include <QUuid>

#include <mutex>
#include <optional>
#include <vector>

namespace folivox {

// The queue's files, in the "Queue" folder of the application data folder:
//   queue.json                 the jobs (QueueFile), sorted-key pretty JSON
//   queue.json.unreadable-<time>   a queue file that could not be read, kept aside
//   halt.json                  why the queue halted (QueueHalt), while it is halted
//   jobs/<UUID>/log.txt        the log of the job's last attempt
//   jobs/<UUID>/cover.*        the cover of a queued candidate
//   run.lock, edit.lock        locks (QueueLock)
//   .staging/                  new files before they are renamed into place
//
// Every file is written whole or not at all: the bytes go to .staging, are
// flushed, then renamed over the target (fault points "queue.save.staged"
// and "queue.save.replaced"), so a crash at any moment leaves the previous
// complete file. Every operation holds one mutex, so saves are serial.
//
// Each flush waits for the disk (one cache flush of the device at least),
// and on a busy disk that wait is most of a save's cost; so the queue file
// is flushed on every save, a new job's files are flushed together
// (writeNewJobFiles), and a log, which nothing depends on, is not flushed
// on its own (writeLog).
class QueueStore {
public:
    using QueueFile = folivox::QueueFile;

    static constexpr const char* kFolderName = "Queue";
    static constexpr const char* kFileName = "queue.json";

    struct Loaded {
        std::vector<QueueJob> jobs;
        // Set when the file could not be read and was kept aside; the queue
        // then starts empty.
        std::optional<QString> warning;
    };

    // The queue in `baseURL`, by default <application data>/Queue.
    explicit QueueStore(QString baseURL = defaultBaseURL());
    static QString defaultBaseURL();

    const QString& baseURL() const { return baseURL_; }
    const QString& queueFileURL() const { return queueFileURL_; }
    QString runLockURL() const;
    QString editLockURL() const;

    // The jobs of the file. A missing file is an empty queue. A job found
    // `running` cannot be running: it comes back `interrupted` with progress
    // 0. A file that cannot be read is renamed aside (never overwritten) and
    // the queue starts empty with a warning. A file of a later schemaVersion
    // throws QueueError::newerQueueFile and is left untouched, and so is
    // every later save.
    Loaded load();
    // Replaces the file with the whole list. Throws QueueError::saveFailed.
    void save(const std::vector<QueueJob>& jobs);
    // The same when only the jobs in `changed` differ from the last save:
    // the others' text is taken from that save instead of being encoded
    // again, so a state change costs one job's encoding, not the list's.
    void save(const std::vector<QueueJob>& jobs, const QSet<QUuid>& changed);
    // The file's bytes for a list (what save() writes).
    static QByteArray encode(const std::vector<QueueJob>& jobs);

    // baseURL/jobs/<UUID>/log.txt, the folder created when it can be.
    QString logURL(const QUuid& id);
    QString jobFolder(const QUuid& id) const;
    // Writes an attempt's log (home folder replaced, see redactHome) and
    // gives its path, or nothing when it could not be written. The log is
    // replaced whole (staged and renamed), but not flushed on its own: it
    // reaches the disk with the save that follows it (on a journalling file
    // system such as ext4, that save's commit carries it); a power cut
    // before that may lose it, as it may lose the attempt it belongs to.
    std::optional<QString> writeLog(const QUuid& id, const QString& text);
    // Writes a file into the job's folder; throws QueueError::saveFailed.
    QString writeJobFile(const QUuid& id, const QString& name, const QByteArray& bytes);
    // Writes files (name, bytes) into the job's folder as one step: all
    // flushed, then renamed into place, then the folder flushed once
    // (fault points "queue.jobFiles.*"). Throws QueueError::saveFailed.
    void writeNewJobFiles(const QUuid& id, const QList<QPair<QString, QByteArray>>& files);
    // Removes baseURL/jobs/<UUID>; a folder that is not there is no error.
    void removeJobFolder(const QUuid& id);

    std::optional<QueueHalt> loadHalt();
    // Writes the halt, or removes it when empty.
    void saveHalt(const std::optional<QueueHalt>& halt);

    // Removes what a killed process left in .staging. Only for the process
    // that may write the queue (it holds the queue's lock).
    void clearStaging();

    // "/Users/<name>/" becomes "/Users/~user/" and "/home/<name>/" becomes
    // "/home/~user/" for the user's short name; a home folder elsewhere
    // ("/root/") becomes "~/". Logs can then be shared without the name.
    static QString redactHome(const QString& text, const QString& userName, const QString& homePath);
    // The same for the user running Folivox.
    static QString redactHome(const QString& text);

private:
    QString setAside(const QString& why);
    void write(const QByteArray& bytes);
    // One job's text as it stands inside the file's "jobs" array.
    static QByteArray jobText(const QueueJob& job);
    QByteArray compose(const std::vector<QueueJob>& jobs, const QSet<QUuid>* changed);

    QString baseURL_;
    QString queueFileURL_;
    StagedFileWriter writer_;
    std::optional<int> newerVersion_;
    QHash<QUuid, QByteArray> jobTexts_; // as last saved
    mutable std::mutex mutex_;
};

} // namespace folivox
