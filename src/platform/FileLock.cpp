#include "platform/FileLock.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace folivox {

FileLock::~FileLock()
{
    release();
}

FileLock::FileLock(FileLock&& other) noexcept
    : path_(std::move(other.path_)), fd_(other.fd_), error_(other.error_)
{
    other.fd_ = -1;
}

FileLock& FileLock::operator=(FileLock&& other) noexcept
{
    if (this != &other) {
        release();
        path_ = std::move(other.path_);
        fd_ = other.fd_;
        error_ = other.error_;
        other.fd_ = -1;
    }
    return *this;
}

FileLock FileLock::tryAcquire(const QString& path, Open open)
{
    FileLock lock;
    lock.path_ = path;
    int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
    if (open == Open::create)
        flags |= O_CREAT;
    else if (open == Open::createNew)
        flags |= O_CREAT | O_EXCL;
    const QByteArray native = QFile::encodeName(path);
    int fd = ::open(native.constData(), flags, 0600);
    if (fd < 0 && open == Open::existing && errno == EACCES)
        fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) {
        lock.error_ = errno;
        return lock;
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        lock.error_ = errno;
        ::close(fd);
        return lock;
    }
    lock.fd_ = fd;
    return lock;
}

bool FileLock::isHeldElsewhere(const QString& path)
{
    const QByteArray native = QFile::encodeName(path);
    const int fd = ::open(native.constData(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return false;
    const bool held = ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return held;
}

bool FileLock::pathStillNamesLockedFile() const
{
    if (fd_ < 0)
        return false;
    struct stat byPath{};
    struct stat byFd{};
    if (::lstat(QFile::encodeName(path_).constData(), &byPath) != 0 || ::fstat(fd_, &byFd) != 0)
        return false;
    return byPath.st_dev == byFd.st_dev && byPath.st_ino == byFd.st_ino;
}

bool FileLock::writeContents(const QByteArray& bytes)
{
    if (fd_ < 0 || ::ftruncate(fd_, 0) != 0)
        return false;
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::pwrite(fd_, bytes.constData() + done, std::size_t(bytes.size() - done), done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

void FileLock::removeAndRelease()
{
    if (fd_ >= 0 && pathStillNamesLockedFile())
        ::unlink(QFile::encodeName(path_).constData());
    release();
}

void FileLock::release()
{
    if (fd_ >= 0) {
        ::close(fd_); // closing the last descriptor drops the flock
        fd_ = -1;
    }
}

} // namespace folivox
