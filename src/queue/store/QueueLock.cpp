#include "queue/store/QueueLock.h"

#include "queue/records/QueueError.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace folivox {

namespace {

qint64 readPid(int fd)
{
    char buffer[32] = {};
    const ssize_t n = ::pread(fd, buffer, sizeof buffer - 1, 0);
    return n > 0 ? QByteArray(buffer, static_cast<int>(n)).trimmed().toLongLong() : 0;
}

} // namespace

std::unique_ptr<QueueLock> QueueLock::take(const QString& path, bool wait, const QString& folderForMessage)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        throw QueueError::lockFailed(path, QString::fromLocal8Bit(std::strerror(errno)));
    int rc;
    do {
        rc = ::flock(fd, LOCK_EX | (wait ? 0 : LOCK_NB));
    } while (rc != 0 && errno == EINTR);
    if (rc != 0) {
        const int error = errno;
        const qint64 pid = readPid(fd);
        ::close(fd);
        if (error == EWOULDBLOCK)
            throw QueueError::alreadyRunning(pid, folderForMessage.isEmpty() ? QFileInfo(path).absolutePath() : folderForMessage);
        throw QueueError::lockFailed(path, QString::fromLocal8Bit(std::strerror(error)));
    }
    const QByteArray pid = QByteArray::number(static_cast<qint64>(::getpid())) + '\n';
    if (::ftruncate(fd, 0) == 0)
        (void)!::pwrite(fd, pid.constData(), static_cast<size_t>(pid.size()), 0);
    return std::unique_ptr<QueueLock>(new QueueLock(fd));
}

std::optional<qint64> QueueLock::holder(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    std::optional<qint64> pid;
    if (::flock(fd, LOCK_SH | LOCK_NB) == 0)
        ::flock(fd, LOCK_UN);
    else if (errno == EWOULDBLOCK)
        pid = readPid(fd);
    ::close(fd);
    return pid;
}

QueueLock::~QueueLock()
{
    if (fd_ >= 0) {
        (void)!::ftruncate(fd_, 0);
        ::flock(fd_, LOCK_UN);
        ::close(fd_);
    }
}

} // namespace folivox
