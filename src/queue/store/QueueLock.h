#pragma once

#include <QString>

#include <memory>
#include <optional>

namespace folivox {

// An exclusive flock(2) on one of the queue's lock files, held while the
// object lives. The holder's process id is written into the file so that a
// refused process can name it. The kernel drops the lock with the process,
// however it ends (kill -9 included), so a lock is never stale.
class QueueLock {
public:
    // Takes the lock. With `wait`, blocks until it is free; without, throws
    // QueueError::alreadyRunning naming the holder when another process has it.
    // Throws QueueError::lockFailed when the file cannot be opened.
    static std::unique_ptr<QueueLock> take(const QString& path, bool wait, const QString& folderForMessage = {});
    // The process id of the process holding the lock, or nothing when it is free.
    static std::optional<qint64> holder(const QString& path);

    ~QueueLock();
    QueueLock(const QueueLock&) = delete;
    QueueLock& operator=(const QueueLock&) = delete;

private:
    explicit QueueLock(int fd) : fd_(fd) {}
    int fd_ = -1;
};

} // namespace folivox
