#pragma once

#include <QString>

namespace folivox {

// An exclusive lock on a library: an flock(2) on its lock file, held for
// the lifetime of this object. Taking it never waits: if another process
// holds it, the constructor throws LibraryLockError at once, naming the
// library and the process id the holder wrote into the file. The lock goes
// with the descriptor, so a process that dies (even by kill -9) releases it.
class LibraryLock {
public:
    static constexpr const char* kFileName = "library.lock";

    // root: the library folder (named in errors); fileURL: the lock file.
    LibraryLock(const QString& root, const QString& fileURL);
    ~LibraryLock();
    LibraryLock(const LibraryLock&) = delete;
    LibraryLock& operator=(const LibraryLock&) = delete;

    const QString& fileURL() const { return fileURL_; }
    int descriptor() const { return descriptor_; }

private:
    QString fileURL_;
    int descriptor_ = -1;
};

} // namespace folivox
