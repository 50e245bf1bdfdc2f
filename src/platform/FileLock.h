#pragma once

#include <QByteArray>
#include <QString>

namespace folivox {

// An exclusive flock(2) on one file, held for the object's lifetime. A lock
// dies with its process, whatever way the process ends (kill -9 included),
// so a file that nobody holds locked belongs to a process that is gone:
// that is how Folivox tells its live work files from debris a crash left.
//
// The descriptor is close-on-exec: child processes never inherit a lock.
class FileLock {
public:
    FileLock() = default;
    ~FileLock();
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    enum class Open {
        existing,  // the file must exist already
        create,    // made when missing (mode 0600)
        createNew  // made now; fails when the name is taken (O_EXCL)
    };

    // Opens `path` and locks it without waiting. The result holds no lock
    // when the file could not be opened (errorNumber() says why) or when
    // another open descriptor holds it (errorNumber() is EWOULDBLOCK).
    static FileLock tryAcquire(const QString& path, Open open);

    // True when `path` exists and some process holds it locked now.
    static bool isHeldElsewhere(const QString& path);

    bool isHeld() const { return fd_ >= 0; }
    int errorNumber() const { return error_; }
    const QString& path() const { return path_; }
    int fd() const { return fd_; }

    // The path still names the file this lock holds (nobody removed or
    // replaced it after it was opened).
    bool pathStillNamesLockedFile() const;

    // Replaces the file's contents with `bytes` (for example the owner's
    // process id). False when the write fails.
    bool writeContents(const QByteArray& bytes);

    // Removes the file while the lock is still held, then releases it, so no
    // other process can take over a name that is about to vanish.
    void removeAndRelease();
    // Releases the lock and leaves the file.
    void release();

private:
    QString path_;
    int fd_ = -1;
    int error_ = 0;
};

} // namespace folivox
